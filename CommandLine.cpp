// The command line: options and the output file name read into the settings of one render.
#include "CommandLine.h"

#include <cstdio>
#include <cstring>
#include <string>

using PatternGen::colorAxes_e;

namespace PatternRender {

namespace {

struct ColourWord {
    const char* word;
    colorAxes_e axes;
};

// The "-c" words, in the order they are tried.
const ColourWord colourWords[] = {
    {"RGB", PatternGen::Colour_RGB},
    {"RGB-headroom", PatternGen::Colour_RGB_219},
    {"HLG", PatternGen::Colour_YCbCr_HLG},
    {"HLG-Mapped", PatternGen::Colour_YCbCr_HLG_Mapped},
    {"PQ", PatternGen::Colour_YCbCr_PQ},
    {"PQ-Mapped", PatternGen::Colour_YCbCr_PQ_Mapped},
    {"S-Log3", PatternGen::Colour_YCbCr_SLog3},
    {"S-Log3-Mapped", PatternGen::Colour_YCbCr_SLog3_Mapped},
    {"S-Log3-Live", PatternGen::Colour_YCbCr_SLog3_Live},
    {"S-Log3-Live-Mapped", PatternGen::Colour_YCbCr_SLog3_Live_Mapped},
    {"RGB-HLG", PatternGen::Colour_RGB_HLG},
    {"RGB-HLG-Mapped", PatternGen::Colour_RGB_HLG_Mapped},
    {"RGB-PQ", PatternGen::Colour_RGB_PQ},
    {"RGB-PQ-Mapped", PatternGen::Colour_RGB_PQ_Mapped},
    {"RGB-S-Log3", PatternGen::Colour_RGB_SLog3},
    {"RGB-S-Log3-Mapped", PatternGen::Colour_RGB_SLog3_Mapped},
    {"RGB-S-Log3-Live", PatternGen::Colour_RGB_SLog3_Live},
    {"RGB-S-Log3-Live-Mapped", PatternGen::Colour_RGB_SLog3_Live_Mapped},
};

// "-c": a named encoding, or a number of which only 601, 709 and 2020 change the axes.
bool readColourWord(const char* word, colorAxes_e& axes) {
    for (const ColourWord& entry : colourWords) {
        if (std::strcmp(word, entry.word) == 0) {
            axes = entry.axes;
            return true;
        }
    }
    int number = 0;
    if (std::sscanf(word, "%d", &number) != 1) {
        std::fprintf(stderr, "Error: Unrecognised Colour Space %s\n", word);
        return false;
    }
    if (number == 601) axes = PatternGen::Colour_YCbCr_601;
    if (number == 709) axes = PatternGen::Colour_YCbCr_709;
    if (number == 2020) axes = PatternGen::Colour_YCbCr_2020;
    return true;
}

void readSampling(const char* word, PatternGen::sampling_e& sampling) {
    int number = 0;
    if (std::sscanf(word, "%d", &number) != 1) return;
    if (number == 422)
        sampling = PatternGen::Sampling_422;
    else if (number == 420)
        sampling = PatternGen::Sampling_420;
    else
        sampling = PatternGen::Sampling_444;
}

void readQuadrant(const char* word, PatternGen::quadrant_e& quadrant) {
    if (std::strcmp(word, "TL") == 0) quadrant = PatternGen::Quadrant_TL;
    if (std::strcmp(word, "TR") == 0) quadrant = PatternGen::Quadrant_TR;
    if (std::strcmp(word, "BL") == 0) quadrant = PatternGen::Quadrant_BL;
    if (std::strcmp(word, "BR") == 0) quadrant = PatternGen::Quadrant_BR;
}

// "%dx%d": a value that parses only its first number sets the first setting alone.
void readPair(const char* word, int& first, int& second) {
    int a = 0, b = 0;
    int parsed = std::sscanf(word, "%dx%d", &a, &b);
    if (parsed >= 1) first = a;
    if (parsed == 2) second = b;
}

void readInt(const char* word, int& value) {
    int number = 0;
    if (std::sscanf(word, "%d", &number) == 1) value = number;
}

}  // namespace

std::string fileExtension(const std::string& fileName, bool& hasDot) {
    const size_t dot = fileName.rfind('.');
    hasDot = dot != std::string::npos;
    return hasDot ? fileName.substr(dot + 1) : std::string();
}

bool parseCommandLine(int argc, char** argv, Settings& s) {
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        const bool takesValue = word == "-b" || word == "-d" || word == "-a" || word == "-c" || word == "-s" ||
                                word == "-q" || word == "-o" || word == "-i";
        if (takesValue && i + 1 >= argc) {
            std::fprintf(stderr, "Error: Option %s needs a value\n", word.c_str());
            return false;
        }
        const char* value = takesValue ? argv[i + 1] : nullptr;
        if (word == "-b") {
            readInt(value, s.bits);
        } else if (word == "-e") {
        } else if (word == "-d") {
            readPair(value, s.width, s.height);
        } else if (word == "-a") {
            readPair(value, s.aspectNum, s.aspectDen);
        } else if (word == "-c") {
            if (!readColourWord(value, s.axes)) return false;
        } else if (word == "-s") {
            readSampling(value, s.sampling);
        } else if (word == "-q") {
            readQuadrant(value, s.quadrant);
        } else if (word == "-o") {
            readInt(value, s.optionValue);
        } else if (word == "-u") {
            s.selfTest = true;
        } else if (word == "-i") {
            s.edgeTaperOff = true;
        } else if (word == "-v") {
        } else {
            s.fileName = word;
            s.haveFileName = true;
        }
        if (takesValue) ++i;
    }
    return true;
}

}  // namespace PatternRender
