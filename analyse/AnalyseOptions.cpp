// The option table and its reading. Values are read with the program's own readers
// (CommandLineReading.h) and handed to the card through the C API, whose refusals are reported as they are.
#include "AnalyseOptions.h"

#include <climits>
#include <cstdio>
#include <cstring>

#include "CommandLineReading.h"

#ifndef PM5544_VERSION
#define PM5544_VERSION "(unversioned build)"
#endif

namespace Analyse {

namespace {

using namespace PatternRender::CommandLineReading;

const char* const helpHint = "Try 'pm5544-analyse --help'.";

// A number readIntegerOption left unread (it warned): the card's setting stays.
constexpr int notRead = INT_MIN;

// A setter's status: its refusal printed as the card words it.
bool accepted(Request& r, pm5544_status status) {
    return status == PM5544_OK || error("%s", pm5544_last_error(r.card));
}

std::string rasterRange() {
    const std::string low = std::to_string(PM5544_MIN_SIDE), high = std::to_string(PM5544_MAX_SIDE);
    return low + "x" + low + " to " + high + "x" + high;
}

bool applySize(const char* option, const char* value, Request& r) {
    return readPairOption(option, value, r.width, r.height, {"size", "WIDTHxHEIGHT", rasterRange()});
}

bool applyAspect(const char* option, const char* value, Request& r) {
    int num = 16, den = 9;
    return readPairOption(
               option, value, num, den,
               {"aspect ratio", "NUMxDEN", "1x1 to " + std::to_string(INT_MAX) + "x" + std::to_string(INT_MAX)}) &&
           accepted(r, pm5544_set_aspect(r.card, num, den));
}

bool applyColour(const char* option, const char* value, Request& r) {
    if (pm5544_set_encoding_name(r.card, value) == PM5544_OK) return true;
    return error("Unrecognised Colour Space %s (%s); did you mean %s?", value, option,
                 closest(value, encodingWords()).c_str());
}

bool applyBits(const char* option, const char* value, Request& r) {
    int bits = notRead;
    return readIntegerOption(option, value, bits, "bit depth", "8 to 16") &&
           (bits == notRead || accepted(r, pm5544_set_bits(r.card, bits)));
}

// 422 and 420 as given; any other number means 444, as pm5544 reads it.
bool applySampling(const char* option, const char* value, Request& r) {
    int number = notRead;
    if (!readIntegerOption(option, value, number, "sampling", "444, 422 or 420")) return false;
    if (number == notRead) return true;
    const int sampling = number == 422 || number == 420 ? number : 444;
    if (sampling != number) warn("%s %s is read as %d", option, value, sampling);
    return accepted(r, pm5544_set_sampling(r.card, sampling));
}

bool applyEdgeTaperOff(const char*, const char*, Request& r) { return accepted(r, pm5544_set_edge_taper(r.card, 0)); }
bool applyIdent(const char*, const char* value, Request& r) { return accepted(r, pm5544_set_ident(r.card, value)); }
bool applyCaption(const char*, const char* value, Request& r) { return accepted(r, pm5544_set_caption(r.card, value)); }
bool applyClock(const char*, const char*, Request& r) { return accepted(r, pm5544_set_clock(r.card, 1)); }
bool applyTimecode(const char*, const char* value, Request& r) {
    return accepted(r, pm5544_set_timecode(r.card, value));
}
bool applyFont(const char* option, const char* value, Request& r) {
    if (*value == '\0') return error("Option %s needs a font name", option);
    return accepted(r, pm5544_set_font(r.card, value));
}

// NUM or NUM/DEN, whole numbers.
bool applyRate(const char* option, const char* value, Request& r) {
    const char* slash = std::strchr(value, '/');
    const std::string numerator = slash ? std::string(value, slash) : std::string(value);
    int num = 0, den = 1;
    if (!readWholeNumber(numerator.c_str(), 1, PM5544_MAX_RATE_TERM, num) ||
        (slash && !readWholeNumber(slash + 1, 1, PM5544_MAX_RATE_TERM, den)))
        return error("Rate %s is not NUM or NUM/DEN, whole numbers from 1 to %d, such as 25 or 30000/1001 (%s)", value,
                     PM5544_MAX_RATE_TERM, option);
    return accepted(r, pm5544_set_frame_rate(r.card, num, den));
}

bool applyFrame(const char* option, const char* value, Request& r) {
    int frame = 0;
    if (!readWholeNumber(value, 0, INT_MAX, frame))
        return error("Frame %s is not a whole number from 0 to %d (%s)", value, INT_MAX, option);
    r.frame = frame;
    return true;
}

bool applyFileName(const char* option, const char* value, std::string& setting) {
    if (*value == '\0') return error("Option %s needs a file name", option);
    setting = value;
    return true;
}
bool applyJson(const char* option, const char* value, Request& r) { return applyFileName(option, value, r.json); }
bool applyAnnotate(const char* option, const char* value, Request& r) {
    return applyFileName(option, value, r.annotate);
}
bool applyNothing(const char*, const char*, Request&) { return true; }

std::vector<std::string> bitsWords() { return {"8", "10", "12", "16"}; }
std::vector<std::string> samplingWords() { return {"444", "422", "420"}; }
std::vector<std::string> aspectWords() { return {"4x3", "16x9", "14x9", "1x1"}; }
std::vector<std::string> rateWords() {
    return {"24", "25", "30", "50", "60", "24000/1001", "30000/1001", "60000/1001"};
}

// pm5544's defaults: what a card handle starts with.
const std::vector<Option> optionTable = {
    {"-d", "WIDTHxHEIGHT", "the capture's size", "the sent raster; -d 1280 sets only the width", applySize, nullptr},
    {"-a", "NUMxDEN", "16x9", "display aspect ratio of the whole sent picture, such as 4x3", applyAspect, aspectWords},
    {"-c", "ENCODING", "RGB", "the sent colour encoding, a word of pm5544 -c", applyColour, encodingWords},
    {"-b", "BITS", "12", "the sent bit depth, 8 to 16", applyBits, bitsWords},
    {"-s", "SAMPLING", "444", "the sent chroma sampling: 444, 422 or 420", applySampling, samplingWords},
    {"-i", "WORD", nullptr, "the card was sent without its edge taper; WORD is taken and ignored", applyEdgeTaperOff,
     nullptr},
    {"--ident", "TEXT", nullptr, "the identification text on the sent card", applyIdent, nullptr},
    {"--caption", "TEXT", nullptr, "the caption text on the sent card", applyCaption, nullptr},
    {"--clock", nullptr, nullptr, "the sent card showed a clock", applyClock, nullptr},
    {"--timecode", "HH:MM:SS:FF", nullptr, "the timecode of the sent card's first frame (with --clock)", applyTimecode,
     nullptr},
    {"--rate", "NUM[/DEN]", "25", "the sent frame rate, for the clock", applyRate, rateWords},
    {"--font", "NAME", nullptr, "the font of the sent card's text, as pm5544 --font", applyFont, nullptr},
    {"--frame", "N", "0", "analyse frame N of a Y4M capture (0 is the first), against the card's frame N", applyFrame,
     nullptr},
    {"--json", "FILE", nullptr,
     "also write the report as JSON to FILE; - writes it to standard output and the text report to standard error",
     applyJson, nullptr},
    {"--annotate", "FILE.png", nullptr,
     "write the capture with the card's fitted outline and grid, beside a map of the differences the fit leaves "
     "(8 times amplified), as a PNG",
     applyAnnotate, nullptr},
    {"--help", nullptr, nullptr, "print this help and exit", applyNothing, nullptr},
    {"--version", nullptr, nullptr, "print the version and exit", applyNothing, nullptr},
};

const std::vector<ExitStatus> exitStatusTable = {
    {exitAsSent, "the capture is the card as sent: bit-exact, or within the analysis' tolerances"},
    {exitError,
     "an error: a bad option, an unreadable capture, no PM5544 card found, a failed write; no file is "
     "written"},
    {exitChanged, "the chain changed the card: the report says how"},
};

using Word = OptionWord<Option>;

// Options are compared exactly; a long option's value may follow an "="; "--" ends the options; every
// other word is the capture.
std::vector<Word> readWords(int argc, char** argv) {
    std::vector<Word> words;
    bool optionsEnded = false;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (optionsEnded || word == "-" || word[0] != '-') {
            words.push_back({nullptr, argv[i], {}});
            continue;
        }
        if (word == "--") {
            optionsEnded = true;
            continue;
        }
        words.push_back(readOptionWord<Option>(optionTable, helpHint, argc, argv, i));
    }
    return words;
}

}  // namespace

const std::vector<Option>& options() { return optionTable; }
const std::vector<ExitStatus>& exitStatuses() { return exitStatusTable; }

std::vector<std::string> encodingWords() {
    std::vector<std::string> words;
    for (int e = 0; e < PM5544_ENCODING_COUNT; ++e) words.push_back(pm5544_encoding_name(pm5544_encoding(e)));
    return words;
}

std::string usageText() {
    std::string out = "Usage: pm5544-analyse CAPTURE [OPTION]...\n";
    appendWrapped(out,
                  "Reads a captured picture of the PM5544 card (PNG, TIFF, DPX or Y4M; - is Y4M on standard "
                  "input), fits where the sent card lies in it and what the chain did to its levels and colours, "
                  "and reports each operation it finds, one line each, on standard output. The options say what "
                  "was sent, with pm5544's words and defaults.",
                  0, 0);
    out += "\nOptions:\n";
    for (const Option& option : optionTable) {
        const std::string term = std::string(option.name) + (option.value ? std::string(" ") + option.value : "");
        const std::string byDefault = option.defaultValue ? std::string(" (default ") + option.defaultValue + ")" : "";
        appendEntry(out, term, option.help + byDefault);
    }
    out += "\nColour encodings (-c):\n";
    for (int e = 0; e < PM5544_ENCODING_COUNT; ++e)
        appendEntry(out, pm5544_encoding_name(pm5544_encoding(e)), pm5544_encoding_description(pm5544_encoding(e)));
    out += "\nExit status:\n";
    for (const ExitStatus& status : exitStatusTable) appendEntry(out, std::to_string(status.code), status.meaning);
    out += "\nExample:\n  ffmpeg -i capture.mxf -f yuv4mpegpipe -strict -1 - | pm5544-analyse - -c 709 -b 10 -s 422\n";
    return out;
}

std::string versionText() {
    return std::string("pm5544-analyse ") + PM5544_VERSION + "\nlibpm5544 " + pm5544_version() + "\n";
}

int handleInformationalOptions(int argc, char** argv) {
    for (const Word& word : readWords(argc, argv)) {
        if (word.option == nullptr || !word.error.empty()) continue;
        const std::string name = word.option->name;
        if (name != "--help" && name != "--version") continue;
        const std::string text = name == "--help" ? usageText() : versionText();
        if (std::fputs(text.c_str(), stdout) != EOF && std::fflush(stdout) == 0) return 0;
        error("Cannot write to standard output");
        return exitError;
    }
    return -1;
}

bool parseCommandLine(int argc, char** argv, Request& request) {
    for (const Word& word : readWords(argc, argv)) {
        if (!word.error.empty()) return error("%s", word.error.c_str());
        if (word.option != nullptr) {
            if (!word.option->apply(word.option->name, word.value, request)) return false;
        } else if (request.haveCapture) {
            return error("Two captures named, %s and %s: one is analysed at a time\n%s", request.capture.c_str(),
                         word.value, helpHint);
        } else {
            request.capture = word.value;
            request.haveCapture = true;
        }
    }
    if (!request.haveCapture) return error("No capture named\n%s", helpHint);
    return true;
}

}  // namespace Analyse
