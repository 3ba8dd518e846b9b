// Reading the command line's words: messages, the distance between a mistyped word and the known
// ones, and numbers read as "%d" reads them but reported as typed when they do not fit.
#pragma once

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

}  // namespace CommandLineReading
}  // namespace PatternRender
