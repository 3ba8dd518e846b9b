// The command line: options and the output file name read into the settings of one render, the
// informational options, the warnings about settings, and the tables that --help, the manual page
// and the shell completion are all written from.
#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "pattern/PatternWrapper.h"

namespace PatternRender {

// The limits of a render: checked while reading and by the driver, and listed by --help.
namespace Limits {
constexpr int minimumSide = 64;
constexpr int maximumSide = 16384;  // of the canvas, which is twice the raster in quadrant mode
constexpr int minimumBits = 8;
constexpr int maximumBits = 16;
constexpr double minimumPixelAspect = 0.25;
constexpr double maximumPixelAspect = 4.0;
constexpr int maximumFrames = 1000000;
constexpr int maximumRateTerm = 1000000;  // numerator and denominator of --rate
}  // namespace Limits

struct Timecode {
    int hours = 0, minutes = 0, seconds = 0, frames = 0;
    bool dropFrame = false;  // HH:MM:SS;FF
};

// What the command line asked for, with the defaults of a plain run.
struct Settings {
    int width = 1920;
    int height = 1080;
    int bits = 12;
    int aspectNum = 16;
    int aspectDen = 9;
    PatternGen::colorAxes_e axes = PatternGen::Colour_RGB;
    PatternGen::sampling_e sampling = PatternGen::Sampling_444;
    PatternGen::quadrant_e quadrant = PatternGen::Quadrant_None;
    int optionValue = 0;
    bool edgeTaperOff = false;
    bool selfTest = false;
    bool haveFileName = false;
    std::string fileName;  // "-": standard output
    std::string format;    // --format: the writer to use whatever the name's extension; empty: by extension
    std::string preview;   // --preview: a PNG preview written as well; empty: none
    int frames = 1;        // --frames
    int rateNum = 25;      // --rate NUM[/DEN], frames per second
    int rateDen = 1;
    std::string ident;                 // --ident
    std::string caption;               // --caption
    bool clock = false;                // --clock
    std::string font;                  // --font; empty: the pattern's own
    std::optional<Timecode> timecode;  // --timecode of the first frame
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

struct ColourWord {
    const char* word;  // as "-c" takes it: case matters
    PatternGen::colorAxes_e axes;
    const char* meaning;
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
Rows<ColourWord> colourWords();  // one row per colour axis
Rows<Example> examples();

// The usage that --help prints.
std::string usageText();

const char* programVersion();
// The program's version and the versions of the libraries it runs with, one per line.
std::string versionText();
// The lines about the raster, bit depth and aspect limits, as --help and the manual page show them.
std::vector<std::string> limitLines();

}  // namespace PatternRender
