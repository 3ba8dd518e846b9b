// What a card is rendered with (the command line's settings that the picture depends on), its limits,
// the words that name the colour encodings, and the checks that refuse settings the card cannot have.
#pragma once

#include <optional>
#include <string>
#include <tuple>

#include "colour/ColourSpace.h"
#include "pattern/PatternWrapper.h"

namespace pm5544 {

// The limits of a render: checked here and by the command line, and listed by --help.
namespace Limits {
constexpr int minimumSide = 64;
constexpr int maximumSide = 16384;  // of the canvas, which is twice the raster in quadrant mode
constexpr int minimumBits = 8;
constexpr int maximumBits = 16;
constexpr double minimumPixelAspect = 0.25;
constexpr double maximumPixelAspect = 4.0;
constexpr int maximumFrames = 1000000;
constexpr int maximumRateTerm = 1000000;  // numerator and denominator of the frame rate
}  // namespace Limits

struct Timecode {
    int hours = 0, minutes = 0, seconds = 0, frames = 0;
    bool dropFrame = false;  // HH:MM:SS;FF
    bool operator==(const Timecode& o) const {
        return std::tie(hours, minutes, seconds, frames, dropFrame) ==
               std::tie(o.hours, o.minutes, o.seconds, o.frames, o.dropFrame);
    }
};

struct CardSettings {
    int width = 1920;
    int height = 1080;
    int bits = 12;
    int aspectNum = 16;
    int aspectDen = 9;
    PatternGen::colorAxes_e axes = PatternGen::Colour_RGB;
    PatternGen::sampling_e sampling = PatternGen::Sampling_444;
    PatternGen::Scan scan = PatternGen::Scan::Progressive;  // interlaced: 4:2:0 chroma per field
    PatternGen::quadrant_e quadrant = PatternGen::Quadrant_None;
    int optionValue = 0;
    bool edgeTaperOff = false;
    int rateNum = 25;  // frames per second, rateNum / rateDen
    int rateDen = 1;
    std::string ident;                  // upper box; empty: none
    std::string caption;                // lower box, unless a clock is shown there
    bool clock = false;                 // a clock in the lower box
    std::string font;                   // a Fontconfig name; empty: the card's own
    std::optional<Timecode> timecode;   // the clock's first frame; none: the time of day
    std::optional<Timecode> timeOfDay;  // where a time-of-day clock starts (frames unused); none: now
};

// One word of "-c": the encodings by name, in the order the usage lists them.
struct EncodingName {
    const char* word;  // case matters
    PatternGen::colorAxes_e axes;
    const char* meaning;
};
extern const EncodingName encodingNameTable[PatternGen::colourAxesCount];
// The row whose word is exactly `word`; nullptr if none.
const EncodingName* encodingNamed(const std::string& word);
// "?" for a value that is no encoding.
const char* encodingNameOf(PatternGen::colorAxes_e axes);

// What the messages call each setting: the program names its options ("-d"), the library its settings
// ("raster"), so that each keeps its own words for the same reason.
struct SettingNames {
    const char* raster;
    const char* aspect;
    const char* bits;
    const char* sampling;
    const char* scan;
    const char* rate;
    const char* timecode;
    const char* ident;
    const char* caption;
    const char* font;
};
// The library's names.
extern const SettingNames settingNames;

// Whether two settings give the same card. The edge taper is left out: the card shapes its own edges
// with the framework's transitions off, so the taper never runs on it.
bool sameCard(const CardSettings& a, const CardSettings& b);

// Why a setting cannot be had whatever the others are, naming it by `names`; empty when it can.
std::string sizeFault(int width, int height, PatternGen::quadrant_e quadrant, const SettingNames& names);
std::string aspectFault(int aspectNum, int aspectDen, const SettingNames& names);  // both positive
std::string bitsFault(int bits, const SettingNames& names);
std::string samplingFault(int sampling, const SettingNames& names);
std::string encodingFault(int axes);
std::string rateFault(int rateNum, int rateDen, const SettingNames& names);
std::string timeOfDayFault(const Timecode& timeOfDay);
std::string textFault(const std::string& text, const char* name);

// Why the card cannot have these settings, naming them by `names`; empty when it can. The raster
// (size, aspect ratio and bit depth) is checked first, then the timecode against the frame rate, then
// what only a library caller can get wrong (values outside the enumerations, text that is not UTF-8).
std::string rasterFault(const CardSettings& settings, const SettingNames& names);
std::string timecodeFault(const Timecode& timecode, int rateNum, int rateDen, const SettingNames& names);
std::string settingsFault(const CardSettings& settings, const SettingNames& names);

// "HH:MM:SS:FF", or "HH:MM:SS;FF" for drop-frame; nothing when the text is not a timecode, which
// unreadableTimecode says.
std::optional<Timecode> readTimecode(const std::string& text);
std::string unreadableTimecode(const std::string& text, const SettingNames& names);

}  // namespace pm5544
