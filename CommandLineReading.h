// Reading the command line's words: messages, the distance between a mistyped word and the known
// ones, and numbers read as "%d" reads them but reported as typed when they do not fit.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace PatternRender {
namespace CommandLineReading {

using Words = std::vector<std::string>;

// "Warning: " and the message on standard error, after flushing standard output so lines keep their order.
[[gnu::format(printf, 1, 2)]] void warn(const char* format, ...);
// "Error: " and the message; returns false, so that a reader can end with `return error(...)`.
[[gnu::format(printf, 1, 2)]] bool error(const char* format, ...);

// Edit distance with letters compared regardless of case: how far a mistyped word is from a known one.
size_t distance(const std::string& a, const std::string& b);
std::string closest(const std::string& word, const Words& candidates);
std::string join(const Words& words, const char* separator);
std::string capitalised(const char* what);

enum class Read { Nothing, Number, OutOfRange };
// A decimal number after optional white space and sign; moves `text` past it. A number that does not
// fit an int is reported rather than wrapped, so that messages can quote what was typed.
Read readNumber(const char*& text, int& value);
// A whole value that is one number from minimum to maximum, nothing before or after it.
bool readWholeNumber(const char* value, int minimum, int maximum, int& number);

// "-b" and "-o": a value that is not a number leaves the setting; text after the number is ignored.
bool readIntegerOption(const char* option, const char* value, int& setting, const char* what, const std::string& range);

struct PairOption {
    const char* what;    // "size"
    const char* layout;  // "WIDTHxHEIGHT"
    std::string range;   // for a number that does not fit
};
// "-d" and "-a" ("%dx%d"): a value that parses only its first number sets the first setting alone.
bool readPairOption(const char* option, const char* value, int& first, int& second, const PairOption& pair);

// Help text: `text` from `column` of the current line on, wrapped at 79 columns with further lines
// indented to `indent`; and "  term" with its help from column 26, the help on the next line when the
// term is too long.
void appendWrapped(std::string& out, const std::string& text, size_t column, size_t indent);
void appendEntry(std::string& out, const std::string& term, const std::string& help);

// One word of the command line: an option of a table, or (option null) a name the program takes.
template <typename Option>
struct OptionWord {
    const Option* option = nullptr;
    const char* value = nullptr;  // the option's value, or the name
    std::string error;            // why the word cannot be read: it is reported in its turn
};

// argv[i], an option of `table` (rows with `name`, and `value` null for options that take none), with
// its value after "=" (long options) or in the next word, which it then consumes.
template <typename Option, typename Table>
OptionWord<Option> readOptionWord(const Table& table, const char* helpHint, int argc, char** argv, int& i) {
    const std::string word = argv[i];
    const size_t equals = word.compare(0, 2, "--") == 0 ? word.find('=') : std::string::npos;
    const std::string name = word.substr(0, equals);
    OptionWord<Option> read;
    Words names;
    for (const Option& option : table) {
        if (name == option.name) read.option = &option;
        names.push_back(option.name);
    }
    if (read.option == nullptr) {
        read.error = "Unknown option " + name + "; did you mean " + closest(name, names) + "?\n" + helpHint;
    } else if (read.option->value == nullptr && equals != std::string::npos) {
        read.error = "Option " + name + " takes no value";
    } else if (read.option->value != nullptr) {
        if (equals != std::string::npos)
            read.value = argv[i] + equals + 1;
        else if (i + 1 < argc)
            read.value = argv[++i];
        else
            read.error = "Option " + name + " needs a value";
    }
    return read;
}

}  // namespace CommandLineReading
}  // namespace PatternRender
