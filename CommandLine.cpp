// The command line: options and the output file name read into the settings of one render.
#include "CommandLine.h"

#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>

#include "CommandLineReading.h"
#include "OutputFormats.h"
#include "colour/ColourSpace.h"
#include "output/writeDPX.h"

using PatternGen::colorAxes_e;
using pm5544::encodingNameOf;
using pm5544::encodingNameTable;

namespace PatternRender {

const pm5544::SettingNames optionNames = {"-d",     "-a",         "-b",      "-s",        "--interlaced",
                                          "--rate", "--timecode", "--ident", "--caption", "--font"};

namespace {

using namespace CommandLineReading;

const char* const helpHint = "Try 'pm5544 --help'.";

// ---- The short options, read as they always were ----

// "-c": a word of the table, or a number of which only 601, 709 and 2020 change the encoding.
bool applyColour(const char* option, const char* value, Settings& s) {
    for (const EncodingName& row : encodingNameTable) {
        if (std::strcmp(value, row.word) == 0) {
            s.axes = row.axes;
            return true;
        }
    }
    const char* rest = value;
    int number = 0;
    if (readNumber(rest, number) != Read::Number) return error("Unrecognised Colour Space %s", value);
    for (const EncodingName& row : encodingNameTable) {
        if (std::to_string(number) == row.word) {
            s.axes = row.axes;
            if (*rest != '\0') warn("%s %s is read as %s", option, value, row.word);
            return true;
        }
    }
    warn("%s %s names no colour encoding (the numbers are 601, 709 and 2020): it stays %s", option, value,
         encodingNameOf(s.axes));
    return true;
}

bool applySampling(const char* option, const char* value, Settings& s) {
    const char* rest = value;
    int number = 0;
    switch (readNumber(rest, number)) {
        case Read::Nothing:
            warn("%s %s is not a number: the sampling stays %d", option, value, int(s.sampling));
            return true;
        case Read::OutOfRange:
            return error("Sampling %s is not 444, 422 or 420 (%s)", value, option);
        case Read::Number:
            break;
    }
    if (number == PatternGen::Sampling_422 || number == PatternGen::Sampling_420)
        s.sampling = static_cast<PatternGen::sampling_e>(number);
    else
        s.sampling = PatternGen::Sampling_444;
    if (*rest != '\0' || number != int(s.sampling)) warn("%s %s is read as %d", option, value, int(s.sampling));
    return true;
}

struct QuadrantWord {
    const char* word;
    PatternGen::quadrant_e quadrant;
};
const QuadrantWord quadrantWords[] = {{"TL", PatternGen::Quadrant_TL},
                                      {"TR", PatternGen::Quadrant_TR},
                                      {"BL", PatternGen::Quadrant_BL},
                                      {"BR", PatternGen::Quadrant_BR}};

bool applyQuadrant(const char* option, const char* value, Settings& s) {
    const char* current = "none";
    for (const QuadrantWord& row : quadrantWords) {
        if (std::strcmp(value, row.word) == 0) {
            s.quadrant = row.quadrant;
            return true;
        }
        if (row.quadrant == s.quadrant) current = row.word;
    }
    const std::string meant = closest(value, {"TL", "TR", "BL", "BR"});
    const std::string hint = distance(value, meant) == 0 ? "; did you mean " + meant + "?" : "";
    warn("%s %s is not TL, TR, BL or BR: the quadrant stays %s%s", option, value, current, hint.c_str());
    return true;
}

std::string rasterRange() {
    const std::string low = std::to_string(Limits::minimumSide), high = std::to_string(Limits::maximumSide);
    return low + "x" + low + " to " + high + "x" + high;
}
std::string intRange() { return std::to_string(INT_MIN) + " to " + std::to_string(INT_MAX); }

bool applyBits(const char* option, const char* value, Settings& s) {
    return readIntegerOption(option, value, s.bits, "bit depth",
                             std::to_string(Limits::minimumBits) + " to " + std::to_string(Limits::maximumBits));
}
bool applySize(const char* option, const char* value, Settings& s) {
    return readPairOption(option, value, s.width, s.height, {"size", "WIDTHxHEIGHT", rasterRange()});
}
bool applyAspect(const char* option, const char* value, Settings& s) {
    return readPairOption(
        option, value, s.aspectNum, s.aspectDen,
        {"aspect ratio", "NUMxDEN", "1x1 to " + std::to_string(INT_MAX) + "x" + std::to_string(INT_MAX)});
}
bool applyOptionValue(const char* option, const char* value, Settings& s) {
    return readIntegerOption(option, value, s.optionValue, "option value", intRange());
}
bool applyEdgeTaperOff(const char*, const char*, Settings& s) {
    s.edgeTaperOff = true;
    return true;
}
bool applySelfTest(const char*, const char*, Settings& s) {
    s.selfTest = true;
    return true;
}
bool applyNothing(const char*, const char*, Settings&) { return true; }

// ---- The long options ----

Words formatNames() {
    Words names;
    for (const OutputFormat& row : formats()) names.push_back(row.name);
    return names;
}

bool isFormat(const std::string& name) { return formatNamed(name) != nullptr; }

bool applyFormat(const char* option, const char* value, Settings& s) {
    if (!isFormat(value))
        return error("Unknown format %s (%s); did you mean %s?", value, option, closest(value, formatNames()).c_str());
    s.format = value;
    return true;
}

bool applyPreview(const char* option, const char* value, Settings& s) {
    if (*value == '\0') return error("Option %s needs a file name", option);
    s.preview = value;
    return true;
}

bool applyFrames(const char* option, const char* value, Settings& s) {
    if (!readWholeNumber(value, 1, Limits::maximumFrames, s.frames))
        return error("Frames %s is not a whole number from 1 to %d (%s)", value, Limits::maximumFrames, option);
    return true;
}

// NUM or NUM/DEN, whole numbers: a fractional rate such as 29.97 is exactly 30000/1001.
bool applyRate(const char* option, const char* value, Settings& s) {
    const char* slash = std::strchr(value, '/');
    const std::string numerator = slash ? std::string(value, slash) : std::string(value);
    int num = 0, den = 1;
    if (!readWholeNumber(numerator.c_str(), 1, Limits::maximumRateTerm, num) ||
        (slash && !readWholeNumber(slash + 1, 1, Limits::maximumRateTerm, den)))
        return error("Rate %s is not NUM or NUM/DEN, whole numbers from 1 to %d, such as 25 or 30000/1001 (%s)", value,
                     Limits::maximumRateTerm, option);
    s.rateNum = num, s.rateDen = den;
    return true;
}

// Text drawn on the card goes to Pango, which takes UTF-8 only.
bool readText(const char* option, const char* value, std::string& setting) {
    if (!g_utf8_validate(value, -1, nullptr)) return error("%s %s is not UTF-8 text", option, value);
    setting = value;
    return true;
}
bool applyIdent(const char* option, const char* value, Settings& s) { return readText(option, value, s.ident); }
bool applyCaption(const char* option, const char* value, Settings& s) { return readText(option, value, s.caption); }
bool applyFont(const char* option, const char* value, Settings& s) {
    if (*value == '\0') return error("Option %s needs a font name", option);
    return readText(option, value, s.font);
}
bool applyClock(const char*, const char*, Settings& s) {
    s.clock = true;
    return true;
}

// HH:MM:SS:FF, or HH:MM:SS;FF for drop-frame, two digits each; the frames are checked against the rate
// once every option is read.
bool applyTimecode(const char* /*option*/, const char* value, Settings& s) {
    s.timecode = pm5544::readTimecode(value);
    return s.timecode || error("%s", pm5544::unreadableTimecode(value, optionNames).c_str());
}

// The field orders --interlaced takes, by the words broadcast equipment uses for them.
struct ScanWord {
    const char* word;
    PatternGen::Scan scan;
};
const ScanWord scanWords[] = {{"tff", PatternGen::Scan::InterlacedTopFirst},
                              {"bff", PatternGen::Scan::InterlacedBottomFirst}};

bool applyInterlaced(const char* option, const char* value, Settings& s) {
    for (const ScanWord& row : scanWords) {
        if (std::strcmp(value, row.word) == 0) {
            s.scan = row.scan;
            return true;
        }
    }
    return error("%s %s is not tff (top field first) or bff (bottom field first)", option, value);
}

Words encodingNameList() {
    Words words;
    for (const EncodingName& row : encodingNameTable) words.push_back(row.word);
    return words;
}
Words samplingWords() { return {"444", "422", "420"}; }
Words scanWordList() {
    Words words;
    for (const ScanWord& row : scanWords) words.push_back(row.word);
    return words;
}
Words quadrantWordList() { return {"TL", "TR", "BL", "BR"}; }
Words bitsWords() { return {"8", "10", "12", "16"}; }
Words sizeWords() { return {"720x576", "720x486", "1280x720", "1920x1080", "2048x1080", "3840x2160", "4096x2160"}; }
Words aspectWords() { return {"4x3", "16x9", "14x9", "1x1"}; }
Words rateWords() { return {"24", "25", "30", "50", "60", "24000/1001", "30000/1001", "60000/1001"}; }

const Option shortOptionTable[] = {
    {"-b", "BITS", "12", "output bit depth, 8 to 16; DPX files are 10-bit whatever it says", applyBits, bitsWords},
    {"-e", nullptr, nullptr, "accepted and ignored", applyNothing, nullptr},
    {"-d", "WIDTHxHEIGHT", "1920x1080", "raster size in pixels; -d 1280 sets only the width", applySize, sizeWords},
    {"-a", "NUMxDEN", "16x9", "display aspect ratio of the whole picture, such as 4x3", applyAspect, aspectWords},
    {"-c", "ENCODING", "RGB", "colour encoding: a word of the list below, case as shown", applyColour,
     encodingNameList},
    {"-s", "SAMPLING", "444", "chroma sampling: 444, 422 or 420; any other number means 444", applySampling,
     samplingWords},
    {"-q", "QUADRANT", "none",
     "render the quadrant TL, TR, BL or BR of a canvas twice the size; the PM5544 card refuses it", applyQuadrant,
     quadrantWordList},
    {"-o", "NUMBER", "0", "option value handed to the pattern", applyOptionValue, nullptr},
    {"-u", nullptr, nullptr, "print the colour-arithmetic self-test instead of rendering; needs no FILE", applySelfTest,
     nullptr},
    {"-i", "WORD", nullptr, "turn the edge taper off; WORD is taken and ignored", applyEdgeTaperOff, nullptr},
    {"-v", nullptr, nullptr, "accepted and ignored", applyNothing, nullptr},
};

// A new long option is one row here; --help, the manual page and the completion follow it.
const Option longOptionTable[] = {
    {"--format", "EXT", nullptr, "the format to write whatever FILE's extension: a name from the list of formats",
     applyFormat, formatNames},
    {"--preview", "FILE.png", nullptr,
     "also write a PNG preview of the frame to FILE.png; - sends it to standard output", applyPreview, nullptr},
    {"--frames", "N", "1", "number of frames to write, 1 to 1000000", applyFrames, nullptr},
    {"--rate", "NUM[/DEN]", "25", "frame rate in frames per second, such as 25 or 30000/1001", applyRate, rateWords},
    {"--ident", "TEXT", nullptr, "identification text drawn on the card", applyIdent, nullptr},
    {"--caption", "TEXT", nullptr, "caption text drawn on the card", applyCaption, nullptr},
    {"--clock", nullptr, nullptr, "draw a clock on the card", applyClock, nullptr},
    {"--font", "NAME", nullptr,
     "font of the card's text, matched by Fontconfig: a family, Sans, serif, Monospace or FAMILY:STYLE; bold unless "
     "the name says otherwise",
     applyFont, nullptr},
    {"--timecode", "HH:MM:SS:FF", nullptr,
     "timecode of the first frame, counting nominal frames a second (30 for 30000/1001); HH:MM:SS;FF counts "
     "drop-frame at 30000/1001 and 60000/1001",
     applyTimecode, nullptr},
    {"--interlaced", "ORDER", nullptr,
     "Y4M: interlaced frames, the top (tff) or bottom (bff) field first; both fields show the frame's picture, and "
     "4:2:0 chroma is subsampled per field",
     applyInterlaced, scanWordList},
    {"--help", nullptr, nullptr, "print this help and exit", applyNothing, nullptr},
    {"--version", nullptr, nullptr, "print the version and the versions of the libraries, and exit", applyNothing,
     nullptr},
};

const Option* findOption(const std::string& name, Rows<Option> table) {
    for (const Option& option : table)
        if (name == option.name) return &option;
    return nullptr;
}

// ---- Splitting the command line into options and the file name ----

using Word = OptionWord<Option>;

// Short options are compared exactly; a word starting with "--" is a long option; "--" alone ends the
// options; every other word is the file name.
std::vector<Word> readWords(int argc, char** argv) {
    std::vector<Word> words;
    bool optionsEnded = false;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        const Option* option = optionsEnded ? nullptr : findOption(word, shortOptions());
        if (option != nullptr) {
            Word read;
            read.option = option;
            if (option->value != nullptr && i + 1 >= argc) read.error = "Option " + word + " needs a value";
            if (option->value != nullptr && i + 1 < argc) read.value = argv[++i];
            words.push_back(read);
        } else if (!optionsEnded && word == "--") {
            optionsEnded = true;
        } else if (!optionsEnded && word.compare(0, 2, "--") == 0) {
            words.push_back(readOptionWord<Option>(longOptions(), helpHint, argc, argv, i));
        } else {
            Word name;
            name.value = argv[i];
            words.push_back(name);
        }
    }
    return words;
}

// Checks that need every option read.
bool checkCombinations(const Settings& s) {
    // A preview naming the output file, however spelt, is refused by the driver, which compares files.
    if (!s.timecode) return true;
    const std::string fault = pm5544::timecodeFault(*s.timecode, s.rateNum, s.rateDen, optionNames);
    return fault.empty() || error("%s", fault.c_str());
}

// ---- Warnings about what a format does with the settings ----

void warnAboutFallbackToPng(const Settings& s) {
    bool hasDot = false;
    const std::string ext = fileExtension(s.fileName, hasDot);
    if (!hasDot || ext.find('/') != std::string::npos) {
        warn("%s has no extension: writing PNG (--format chooses another format)", s.fileName.c_str());
        return;
    }
    if (isFormat(ext) || distance(ext, "png") == 0) return;
    const std::string meant = closest(ext, formatNames());
    const std::string hint =
        distance(ext, meant) <= 1 ? "; did you mean ." + meant + "?" : "; the formats are " + join(formatNames(), ", ");
    warn("The extension .%s names no format: writing PNG to %s%s", ext.c_str(), s.fileName.c_str(), hint.c_str());
}

void warnAboutDpx(const Settings& s) {
    constexpr int dpxBits = DPX::kDataBits;
    if (s.bits != dpxBits)
        warn("DPX files are always 10-bit: -b %d rounds the frame to %d bits, %s (-b 10 rounds to 10)", s.bits, s.bits,
             s.bits > dpxBits ? "of which the file keeps the top 10" : "which the file stores in 10");
    const DPX::eFormat descriptor = DPXWriter::descriptorFor(s.axes, s.sampling);
    if (PatternGen::isYCbCrAxes(s.axes) && s.sampling != PatternGen::Sampling_422 && descriptor != DPX::kCbYCr)
        warn("DPX writes -c %s -s %d as 4:2:2 (descriptor 100): only -c 709 is written as 4:4:4",
             encodingNameOf(s.axes), int(s.sampling));
    if (!PatternGen::isYCbCrAxes(s.axes) && descriptor == DPX::kCbYCrY)
        warn(
            "DPX writes the R'G'B' samples of -c %s under the CbYCrY 4:2:2 descriptor (100), so readers decode "
            "them as Y'CbCr",
            encodingNameOf(s.axes));
}

// Options that only take effect together with another one.
void warnAboutIdleOptions(const Settings& s, bool video) {
    if (s.timecode && !s.clock) warn("--timecode shows only with --clock: no clock is drawn");
    if (s.clock && !s.caption.empty())
        warn("--clock takes the lower box: --caption %s is not drawn", s.caption.c_str());
    if (!video && (s.frames != 1 || s.rateNum != 25 || s.rateDen != 1))
        warn("--frames and --rate apply to Y4M video only: one still frame is written");
}

}  // namespace

Rows<Option> shortOptions() { return {std::begin(shortOptionTable), std::end(shortOptionTable)}; }
Rows<Option> longOptions() { return {std::begin(longOptionTable), std::end(longOptionTable)}; }
Rows<EncodingName> encodingNames() { return {std::begin(encodingNameTable), std::end(encodingNameTable)}; }

std::string fileExtension(const std::string& fileName, bool& hasDot) {
    const size_t dot = fileName.rfind('.');
    hasDot = dot != std::string::npos;
    return hasDot ? fileName.substr(dot + 1) : std::string();
}

bool parseCommandLine(int argc, char** argv, Settings& s) {
    for (const Word& word : readWords(argc, argv)) {
        if (!word.error.empty()) return error("%s", word.error.c_str());
        if (word.option == nullptr) {
            s.fileName = word.value;
            s.haveFileName = true;
        } else if (!word.option->apply(word.option->name, word.value, s)) {
            return false;
        }
    }
    return checkCombinations(s);
}

int handleInformationalOptions(int argc, char** argv) {
    if (argc < 2) {
        error("Filename not given");
        printHelpHint();
        return 1;
    }
    for (const Word& word : readWords(argc, argv)) {
        if (word.option == nullptr || !word.error.empty()) continue;
        const std::string name = word.option->name;
        if (name != "--help" && name != "--version") continue;
        const std::string text = name == "--help" ? usageText() : versionText();
        if (std::fputs(text.c_str(), stdout) != EOF && std::fflush(stdout) == 0) return 0;
        error("Cannot write to standard output: %s", std::strerror(errno));
        return 1;
    }
    return -1;
}

void printHelpHint() { std::fprintf(stderr, "%s\n", helpHint); }

void warnAboutSettings(const Settings& s) {
    if (s.format.empty() && s.fileName != "-") warnAboutFallbackToPng(s);
    const OutputFormat& format = formatFor(s);
    if (std::string(format.name) == "dpx") warnAboutDpx(s);
    warnAboutIdleOptions(s, format.takesFrames);
}

FILE* divertProgressFromStandardOutput() {
    if (isatty(STDOUT_FILENO)) {
        error("Standard output is a terminal: send the file (-) to a pipe or redirect it");
        return nullptr;
    }
    std::fflush(stdout);
    const int data = dup(STDOUT_FILENO);
    FILE* stream = data < 0 ? nullptr : fdopen(data, "wb");
    if (stream == nullptr || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        error("Cannot keep standard output for the file: %s", std::strerror(errno));
        if (stream != nullptr) std::fclose(stream);
        return nullptr;
    }
    return stream;
}

}  // namespace PatternRender
