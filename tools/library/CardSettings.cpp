#include "library/CardSettings.h"

#include <glib.h>

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <tuple>

#include "text/ClockText.h"

namespace pm5544 {

namespace {

std::string format(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

std::string rateText(int rateNum, int rateDen) {
    return rateDen == 1 ? std::to_string(rateNum) : std::to_string(rateNum) + "/" + std::to_string(rateDen);
}

bool isSampling(int sampling) {
    return sampling == PatternGen::Sampling_444 || sampling == PatternGen::Sampling_422 ||
           sampling == PatternGen::Sampling_420;
}

}  // namespace

const SettingNames settingNames = {"raster",     "aspect",   "bits",  "sampling", "scan",
                                   "frame rate", "timecode", "ident", "caption",  "font"};

// Every encoding once, in the order the usage lists them.
const EncodingName encodingNameTable[PatternGen::colourAxesCount] = {
    {"RGB", PatternGen::Colour_RGB, "R'G'B', full range"},
    {"RGB-headroom", PatternGen::Colour_RGB_219, "R'G'B', studio range (black 16, white 235 at 8 bits)"},
    {"601", PatternGen::Colour_YCbCr_601, "Y'CbCr, BT.601 matrix"},
    {"709", PatternGen::Colour_YCbCr_709, "Y'CbCr, BT.709 matrix"},
    {"2020", PatternGen::Colour_YCbCr_2020, "Y'CbCr, BT.2020 matrix, standard dynamic range"},
    {"PQ", PatternGen::Colour_YCbCr_PQ, "Y'CbCr, BT.2020, PQ (SMPTE ST 2084)"},
    {"PQ-Mapped", PatternGen::Colour_YCbCr_PQ_Mapped, "as PQ, BT.709 colours mapped into BT.2020"},
    {"HLG", PatternGen::Colour_YCbCr_HLG, "Y'CbCr, BT.2020, HLG (BT.2100)"},
    {"HLG-Mapped", PatternGen::Colour_YCbCr_HLG_Mapped, "as HLG, BT.709 colours mapped into BT.2020"},
    {"S-Log3", PatternGen::Colour_YCbCr_SLog3, "Y'CbCr, BT.2020, S-Log3"},
    {"S-Log3-Mapped", PatternGen::Colour_YCbCr_SLog3_Mapped, "as S-Log3, BT.709 colours mapped into BT.2020"},
    {"S-Log3-Live", PatternGen::Colour_YCbCr_SLog3_Live, "as S-Log3, after the S-Log3 inverse OOTF (live)"},
    {"S-Log3-Live-Mapped", PatternGen::Colour_YCbCr_SLog3_Live_Mapped, "as S-Log3-Live, BT.709 colours mapped"},
    {"RGB-PQ", PatternGen::Colour_RGB_PQ, "R'G'B', studio range, PQ"},
    {"RGB-PQ-Mapped", PatternGen::Colour_RGB_PQ_Mapped, "as RGB-PQ, BT.709 colours mapped into BT.2020"},
    {"RGB-HLG", PatternGen::Colour_RGB_HLG, "R'G'B', studio range, HLG"},
    {"RGB-HLG-Mapped", PatternGen::Colour_RGB_HLG_Mapped, "as RGB-HLG, BT.709 colours mapped into BT.2020"},
    {"RGB-S-Log3", PatternGen::Colour_RGB_SLog3, "R'G'B', studio range, S-Log3"},
    {"RGB-S-Log3-Mapped", PatternGen::Colour_RGB_SLog3_Mapped, "as RGB-S-Log3, BT.709 colours mapped"},
    {"RGB-S-Log3-Live", PatternGen::Colour_RGB_SLog3_Live, "as RGB-S-Log3, after the inverse OOTF (live)"},
    {"RGB-S-Log3-Live-Mapped", PatternGen::Colour_RGB_SLog3_Live_Mapped, "as RGB-S-Log3-Live, colours mapped"},
};

const EncodingName* encodingNamed(const std::string& word) {
    for (const EncodingName& row : encodingNameTable)
        if (word == row.word) return &row;
    return nullptr;
}

const char* encodingNameOf(PatternGen::colorAxes_e axes) {
    for (const EncodingName& row : encodingNameTable)
        if (row.axes == axes) return row.word;
    return "?";
}

bool sameCard(const CardSettings& a, const CardSettings& b) {
    const auto drawn = [](const CardSettings& s) {
        return std::tie(s.width, s.height, s.bits, s.aspectNum, s.aspectDen, s.axes, s.sampling, s.scan, s.quadrant,
                        s.optionValue, s.rateNum, s.rateDen, s.ident, s.caption, s.clock, s.font, s.timecode,
                        s.timeOfDay);
    };
    return drawn(a) == drawn(b);
}

// Rasters the integer geometry cannot represent are refused before any memory is committed. The canvas
// is what the pattern draws on: twice the size in each direction in quadrant mode.
std::string sizeFault(int width, int height, PatternGen::quadrant_e quadrant, const SettingNames& names) {
    using namespace Limits;
    const int scale = quadrant == PatternGen::Quadrant_None ? 1 : 2;
    const int64_t canvasWidth = int64_t(width) * scale, canvasHeight = int64_t(height) * scale;
    if (width < minimumSide || height < minimumSide || canvasWidth > maximumSide || canvasHeight > maximumSide)
        return format("Size %dx%d is outside %dx%d to %dx%d (%s)", width, height, minimumSide, minimumSide,
                      maximumSide / scale, maximumSide / scale, names.raster);
    return {};
}

std::string aspectFault(int aspectNum, int aspectDen, const SettingNames& names) {
    if (aspectNum <= 0 || aspectDen <= 0)
        return format("Aspect ratio %d:%d must be two positive numbers (%s)", aspectNum, aspectDen, names.aspect);
    return {};
}

std::string bitsFault(int bits, const SettingNames& names) {
    if (bits < Limits::minimumBits || bits > Limits::maximumBits)
        return format("Bit depth %d is outside %d to %d (%s)", bits, Limits::minimumBits, Limits::maximumBits,
                      names.bits);
    return {};
}

std::string samplingFault(int sampling, const SettingNames& names) {
    if (!isSampling(sampling)) return format("Sampling %d is not 444, 422 or 420 (%s)", sampling, names.sampling);
    return {};
}

std::string encodingFault(int axes) {
    if (axes < 0 || axes >= PatternGen::colourAxesCount) return format("Encoding %d is unknown", axes);
    return {};
}

std::string rateFault(int rateNum, int rateDen, const SettingNames& names) {
    using Limits::maximumRateTerm;
    if (rateNum < 1 || rateDen < 1 || rateNum > maximumRateTerm || rateDen > maximumRateTerm)
        return format("Rate %s is not NUM or NUM/DEN, whole numbers from 1 to %d, such as 25 or 30000/1001 (%s)",
                      rateText(rateNum, rateDen).c_str(), maximumRateTerm, names.rate);
    return {};
}

std::string timeOfDayFault(const Timecode& t) {
    if (t.hours < 0 || t.hours > 23 || t.minutes < 0 || t.minutes > 59 || t.seconds < 0 || t.seconds > 59)
        return format("Time of day %02d:%02d:%02d is not within 00:00:00 to 23:59:59", t.hours, t.minutes, t.seconds);
    return {};
}

// Text drawn on the card goes to Pango, which takes UTF-8 only.
std::string textFault(const std::string& text, const char* name) {
    if (!g_utf8_validate(text.c_str(), -1, nullptr)) return format("%s %s is not UTF-8 text", name, text.c_str());
    return {};
}

std::string rasterFault(const CardSettings& s, const SettingNames& names) {
    using namespace Limits;
    if (std::string fault = sizeFault(s.width, s.height, s.quadrant, names); !fault.empty()) return fault;
    if (std::string fault = aspectFault(s.aspectNum, s.aspectDen, names); !fault.empty()) return fault;
    // Pixels more than four times wider or narrower than high leave the grids degenerate.
    const double pixelAspect = (double(s.aspectDen) * s.width) / (double(s.aspectNum) * s.height);
    if (pixelAspect < minimumPixelAspect || pixelAspect > maximumPixelAspect)
        return format("Aspect ratio %d:%d gives %dx%d pixels an aspect of 1:%.3f, outside 1:%.2f to 1:%.2f (%s)",
                      s.aspectNum, s.aspectDen, s.width, s.height, pixelAspect, minimumPixelAspect, maximumPixelAspect,
                      names.aspect);
    return bitsFault(s.bits, names);
}

// The rate fixes the frame numbers of a second and whether drop-frame counting exists.
std::string timecodeFault(const Timecode& t, int rateNum, int rateDen, const SettingNames& names) {
    const std::string rate = rateText(rateNum, rateDen);
    const ClockStart start{true, t.hours, t.minutes, t.seconds, t.frames, t.dropFrame};
    const std::string text = ClockText::timecodeText(start);
    const int dropped = ClockText::droppedFrameNumbers(rateNum, rateDen);
    if (t.dropFrame && dropped == 0)
        return format(
            "Timecode %s is drop-frame, which keeps step with the rates 30000/1001 and 60000/1001 only, not "
            "%s; HH:MM:SS:FF counts every frame (%s)",
            text.c_str(), rate.c_str(), names.timecode);
    const int framesPerSecond = ClockText::nominalFrameRate(rateNum, rateDen);
    if (t.frames >= framesPerSecond)
        return format(
            "Timecode frame %02d is past the last frame of a second at the rate %s, which a timecode counts "
            "as %d frames a second (%s)",
            t.frames, rate.c_str(), framesPerSecond, names.timecode);
    if (!ClockText::isCounted(start, rateNum, rateDen))
        return format(
            "Timecode %s does not exist in drop-frame counting: the first %d frame numbers of every minute "
            "except every tenth are skipped (%s)",
            text.c_str(), dropped, names.timecode);
    return {};
}

std::string settingsFault(const CardSettings& s, const SettingNames& names) {
    for (const std::string& fault : {rasterFault(s, names), rateFault(s.rateNum, s.rateDen, names)})
        if (!fault.empty()) return fault;
    if (s.timecode)
        if (std::string fault = timecodeFault(*s.timecode, s.rateNum, s.rateDen, names); !fault.empty()) return fault;
    if (s.timeOfDay)
        if (std::string fault = timeOfDayFault(*s.timeOfDay); !fault.empty()) return fault;
    for (const std::string& fault : {encodingFault(s.axes), samplingFault(s.sampling, names)})
        if (!fault.empty()) return fault;
    // Each field's 4:2:0 chroma covers pairs of the field's rows: four frame rows.
    if (const int group = PatternGen::chromaRowGroup(s.sampling, s.scan); s.height % group != 0 && group > 2)
        return format(
            "Interlaced 4:2:0 needs a height that is a multiple of %d, not %d: each field's chroma "
            "covers pairs of its rows (%s, %s, %s)",
            group, s.height, names.raster, names.sampling, names.scan);
    for (const auto& [text, name] :
         {std::pair{&s.ident, names.ident}, {&s.caption, names.caption}, {&s.font, names.font}})
        if (std::string fault = textFault(*text, name); !fault.empty()) return fault;
    return {};
}

std::optional<Timecode> readTimecode(const std::string& text) {
    const int limits[] = {23, 59, 59, 99};
    int fields[4] = {};
    if (text.size() != 11) return std::nullopt;
    for (int i = 0; i < 4; ++i) {
        const char* field = text.c_str() + 3 * i;
        const bool separated = i == 3 || field[2] == ':' || (i == 2 && field[2] == ';');
        if (!std::isdigit(static_cast<unsigned char>(field[0])) ||
            !std::isdigit(static_cast<unsigned char>(field[1])) || !separated)
            return std::nullopt;
        fields[i] = (field[0] - '0') * 10 + (field[1] - '0');
        if (fields[i] > limits[i]) return std::nullopt;
    }
    return Timecode{fields[0], fields[1], fields[2], fields[3], text[8] == ';'};
}

std::string unreadableTimecode(const std::string& text, const SettingNames& names) {
    return format("Timecode %s is not HH:MM:SS:FF (or HH:MM:SS;FF, drop-frame) within 23:59:59 (%s)", text.c_str(),
                  names.timecode);
}

}  // namespace pm5544
