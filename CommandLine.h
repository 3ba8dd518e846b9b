// The command line: options and the output file name read into the settings of one render, the
// informational options, the warnings about settings, and the tables that --help, the manual page
// and the shell completion are all written from.
#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "library/CardSettings.h"
#include "pattern/PatternWrapper.h"

namespace PatternRender {

namespace Limits = pm5544::Limits;
using pm5544::EncodingName;
using pm5544::Timecode;

// The options that set the card's settings, as the card's refusals name them.
extern const pm5544::SettingNames optionNames;

// What the command line asked for, with the defaults of a plain run: the card's own settings, then
// what the program does with the card.
struct Settings : pm5544::CardSettings {
    bool selfTest = false;
    bool haveFileName = false;
    std::string fileName;  // "-": standard output
    std::string format;    // --format: the writer to use whatever the name's extension; empty: by extension
    std::string preview;   // --preview: a PNG preview written as well; empty: none
    int frames = 1;        // --frames
};

// Call before anything else. Prints the usage (--help) or the versions (--version) on standard output
// and returns 0; with no argument at all, reports the missing file name with a hint and returns 1.
// Returns -1 when the run goes on.
int handleInformationalOptions(int argc, char** argv);

// Reads the options into settings, warning on standard error about values read differently than they
// look. On a command-line error it prints the message on standard error and returns false.
bool parseCommandLine(int argc, char** argv, Settings& settings);

// Warnings on standard error about what the chosen format does with the settings (a fallback to PNG,
// the fixed 10 bits and the descriptors of DPX). Changes nothing.
void warnAboutSettings(const Settings& settings);

// For the output name "-": keeps the real standard output for the file's bytes and points descriptor 1
// at standard error, so every progress line, printed from anywhere, goes there. Returns the stream for
// the bytes, or nullptr after saying why not (standard output is a terminal, or no descriptor is left).
FILE* divertProgressFromStandardOutput();

// "Try 'pm5544 --help'." on standard error, after an error message.
void printHelpHint();

// The text after the last "." of the file name (a dot in a directory counts); empty and
// hasDot false when there is none.
std::string fileExtension(const std::string& fileName, bool& hasDot);

// ---- The tables that --help, the manual page and the completion are written from ----

// One option. The short options are read exactly as they always were; every newer option is a long one.
struct Option {
    const char* name;          // "-d", "--format"
    const char* value;         // the value's name in the usage; nullptr for an option without a value
    const char* defaultValue;  // nullptr when there is none to show
    const char* help;          // one sentence, no trailing full stop
    // Reads the value into the settings; false after printing an error.
    bool (*apply)(const char* option, const char* value, Settings& settings);
    // The words the value can be, for completion; nullptr: free text, or a file when value says FILE.
    std::vector<std::string> (*words)();
};

struct Example {
    const char* arguments;
    const char* meaning;
};

template <typename Row>
struct Rows {
    const Row* first;
    const Row* last;
    const Row* begin() const { return first; }
    const Row* end() const { return last; }
};

Rows<Option> shortOptions();
Rows<Option> longOptions();
Rows<EncodingName> encodingNames();  // one row per encoding
Rows<Example> examples();

// The usage that --help prints.
std::string usageText();

const char* programVersion();
// The program's version and the versions of the libraries it runs with, one per line.
std::string versionText();
// The lines about the raster, bit depth and aspect limits, as --help and the manual page show them.
std::vector<std::string> limitLines();

}  // namespace PatternRender
