// The command line: options and the output file name read into the settings of one render.
#pragma once

#include <string>

#include "pattern/PatternWrapper.h"

namespace PatternRender {

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
};

// Reads the options into settings. On a command-line error it prints the message on
// standard error and returns false.
bool parseCommandLine(int argc, char** argv, Settings& settings);

// The text after the last "." of the file name (a dot in a directory counts); empty and
// hasDot false when there is none.
std::string fileExtension(const std::string& fileName, bool& hasDot);

}  // namespace PatternRender
