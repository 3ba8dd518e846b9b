// Reading the command line's words: messages, the distance between a mistyped word and the known
// ones, and numbers read as "%d" reads them but reported as typed when they do not fit.
#include "CommandLineReading.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace PatternRender {
namespace CommandLineReading {

namespace {

void printPrefixed(const char* prefix, const char* format, va_list arguments) {
    std::fflush(stdout);  // keeps the order of lines when both streams go to one place
    std::fputs(prefix, stderr);
    std::vfprintf(stderr, format, arguments);
    std::fputc('\n', stderr);
}

}  // namespace

void warn(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    printPrefixed("Warning: ", format, arguments);
    va_end(arguments);
}

// Returns false, so that a reader can end with `return error(...)`.
bool error(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    printPrefixed("Error: ", format, arguments);
    va_end(arguments);
    return false;
}

// Edit distance with letters compared regardless of case: how far a mistyped word is from a known one.
size_t distance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const bool same = std::tolower(static_cast<unsigned char>(a[i - 1])) ==
                              std::tolower(static_cast<unsigned char>(b[j - 1]));
            const size_t above = row[j];
            row[j] = std::min({above + 1, row[j - 1] + 1, diagonal + (same ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

std::string closest(const std::string& word, const Words& candidates) {
    std::string best;
    size_t bestDistance = SIZE_MAX;
    for (const std::string& candidate : candidates) {
        const size_t d = distance(word, candidate);
        if (d < bestDistance) best = candidate, bestDistance = d;
    }
    return best;
}

std::string join(const Words& words, const char* separator) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : separator) + word;
    return text;
}

// ---- Numbers, read as "%d" reads them ----

// A decimal number after optional white space and sign; moves `text` past it. A number that does not
// fit an int is reported rather than wrapped, so that messages can quote what was typed.
Read readNumber(const char*& text, int& value) {
    errno = 0;
    char* end = nullptr;
    const long long number = std::strtoll(text, &end, 10);
    if (end == text) return Read::Nothing;
    text = end;
    if (errno == ERANGE || number < INT_MIN || number > INT_MAX) return Read::OutOfRange;
    value = static_cast<int>(number);
    return Read::Number;
}

// A whole value that is one number from minimum to maximum, nothing before or after it.
bool readWholeNumber(const char* value, int minimum, int maximum, int& number) {
    const char* rest = value;
    return !std::isspace(static_cast<unsigned char>(*value)) && readNumber(rest, number) == Read::Number &&
           *rest == '\0' && number >= minimum && number <= maximum;
}

std::string capitalised(const char* what) {
    std::string text = what;
    if (!text.empty()) text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    return text;
}

// "-b" and "-o": a value that is not a number leaves the setting; text after the number is ignored.
bool readIntegerOption(const char* option, const char* value, int& setting, const char* what,
                       const std::string& range) {
    const char* rest = value;
    int number = 0;
    switch (readNumber(rest, number)) {
        case Read::Nothing:
            warn("%s %s is not a number: the %s stays %d", option, value, what, setting);
            return true;
        case Read::OutOfRange:
            return error("%s %s is outside %s (%s)", capitalised(what).c_str(), value, range.c_str(), option);
        case Read::Number:
            break;
    }
    setting = number;
    if (*rest != '\0') warn("%s %s is read as %d", option, value, number);
    return true;
}

// Separators typed for an "x" that the value read as "%dx%d" stops at; a dot or comma is a decimal.
static bool looksLikeSeparator(char c) { return c != '\0' && c != 'x' && c != '.' && c != ',' && !std::isdigit(c); }

// "-d" and "-a" ("%dx%d"): a value that parses only its first number sets the first setting alone.
bool readPairOption(const char* option, const char* value, int& first, int& second, const PairOption& pair) {
    const char* rest = value;
    int a = 0, b = 0;
    const Read readFirst = readNumber(rest, a);
    if (readFirst == Read::Nothing) {
        warn("%s %s is not %s: the %s stays %dx%d", option, value, pair.layout, pair.what, first, second);
        return true;
    }
    const char* afterSeparator = rest + (*rest == '\0' ? 0 : 1);
    const Read readSecond = readNumber(afterSeparator, b);
    if (readFirst == Read::OutOfRange || (*rest == 'x' && readSecond == Read::OutOfRange))
        return error("%s %s is outside %s (%s)", capitalised(pair.what).c_str(), value, pair.range.c_str(), option);
    first = a;
    if (*rest == 'x' && readSecond == Read::Number) {
        second = b;
        if (*afterSeparator != '\0') warn("%s %s is read as %dx%d", option, value, first, second);
    } else if (*rest != '\0') {
        const bool typo = looksLikeSeparator(*rest) && readSecond == Read::Number && *afterSeparator == '\0';
        const std::string meant = typo ? "; did you mean " + std::to_string(a) + "x" + std::to_string(b) + "?" : "";
        warn("%s %s is read as %dx%d%s", option, value, first, second, meant.c_str());
    }
    return true;
}

namespace {
constexpr size_t lineWidth = 79;
constexpr size_t helpColumn = 26;
}  // namespace

void appendWrapped(std::string& out, const std::string& text, size_t column, size_t indent) {
    std::istringstream words(text);
    std::string word;
    bool lineStarted = false;
    while (words >> word) {
        if (lineStarted && column + 1 + word.size() > lineWidth) {
            out += '\n' + std::string(indent, ' ');
            column = indent;
            lineStarted = false;
        }
        if (lineStarted) out += ' ', ++column;
        out += word;
        column += word.size();
        lineStarted = true;
    }
    out += '\n';
}

void appendEntry(std::string& out, const std::string& term, const std::string& help) {
    std::string line = "  " + term;
    if (line.size() + 2 > helpColumn) {
        out += line + '\n';
        line.clear();
    }
    line.resize(helpColumn, ' ');
    out += line;
    appendWrapped(out, help, helpColumn, helpColumn);
}

}  // namespace CommandLineReading
}  // namespace PatternRender
