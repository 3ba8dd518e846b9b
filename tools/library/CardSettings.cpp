#include "library/CardSettings.h"

#include <glib.h>

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>

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

// Every colour axis once, in the order the usage lists them.
const ColourWord colourWordTable[PatternGen::colourAxesCount] = {
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

const ColourWord* colourWordNamed(const std::string& word) {
    for (const ColourWord& row : colourWordTable)
        if (word == row.word) return &row;
    return nullptr;
}

const char* colourWordOf(PatternGen::colorAxes_e axes) {
    for (const ColourWord& row : colourWordTable)
        if (row.axes == axes) return row.word;
    return "?";
}

// Rasters the integer geometry cannot represent are refused before any memory is committed. The canvas
// is what the pattern draws on: twice the size in each direction in quadrant mode.
std::string rasterFault(const CardSettings& s) {
    using namespace Limits;
    const int scale = s.quadrant == PatternGen::Quadrant_None ? 1 : 2;
    const int64_t canvasWidth = int64_t(s.width) * scale, canvasHeight = int64_t(s.height) * scale;
    if (s.width < minimumSide || s.height < minimumSide || canvasWidth > maximumSide || canvasHeight > maximumSide)
        return format("Size %dx%d is outside %dx%d to %dx%d (-d)", s.width, s.height, minimumSide, minimumSide,
                      maximumSide / scale, maximumSide / scale);
    if (s.aspectNum <= 0 || s.aspectDen <= 0)
        return format("Aspect ratio %d:%d must be two positive numbers (-a)", s.aspectNum, s.aspectDen);
    // Pixels more than four times wider or narrower than high leave the grids degenerate.
    const double pixelAspect = (double(s.aspectDen) * s.width) / (double(s.aspectNum) * s.height);
    if (pixelAspect < minimumPixelAspect || pixelAspect > maximumPixelAspect)
        return format("Aspect ratio %d:%d gives %dx%d pixels an aspect of 1:%.3f, outside 1:%.2f to 1:%.2f (-a)",
                      s.aspectNum, s.aspectDen, s.width, s.height, pixelAspect, minimumPixelAspect, maximumPixelAspect);
    if (s.bits < minimumBits || s.bits > maximumBits)
        return format("Bit depth %d is outside %d to %d (-b)", s.bits, minimumBits, maximumBits);
    return {};
}

// The rate fixes the frame numbers of a second and whether drop-frame counting exists.
std::string timecodeFault(const Timecode& t, int rateNum, int rateDen) {
    const std::string rate = rateText(rateNum, rateDen);
    const ClockStart start{true, t.hours, t.minutes, t.seconds, t.frames, t.dropFrame};
    const std::string text = ClockText::timecodeText(start);
    const int dropped = ClockText::droppedFrameNumbers(rateNum, rateDen);
    if (t.dropFrame && dropped == 0)
        return format(
            "Timecode %s is drop-frame, which keeps step with the rates 30000/1001 and 60000/1001 only, not "
            "%s; HH:MM:SS:FF counts every frame (--timecode)",
            text.c_str(), rate.c_str());
    const int framesPerSecond = ClockText::nominalFrameRate(rateNum, rateDen);
    if (t.frames >= framesPerSecond)
        return format(
            "Timecode frame %02d is past the last frame of a second at the rate %s, which a timecode counts "
            "as %d frames a second (--timecode)",
            t.frames, rate.c_str(), framesPerSecond);
    if (!ClockText::isCounted(start, rateNum, rateDen))
        return format(
            "Timecode %s does not exist in drop-frame counting: the first %d frame numbers of every minute "
            "except every tenth are skipped (--timecode)",
            text.c_str(), dropped);
    return {};
}

std::string settingsFault(const CardSettings& s) {
    if (std::string fault = rasterFault(s); !fault.empty()) return fault;
    if (s.rateNum < 1 || s.rateDen < 1 || s.rateNum > Limits::maximumRateTerm || s.rateDen > Limits::maximumRateTerm)
        return format("Rate %s is not NUM or NUM/DEN, whole numbers from 1 to %d, such as 25 or 30000/1001 (--rate)",
                      rateText(s.rateNum, s.rateDen).c_str(), Limits::maximumRateTerm);
    if (s.timecode)
        if (std::string fault = timecodeFault(*s.timecode, s.rateNum, s.rateDen); !fault.empty()) return fault;
    if (const std::optional<Timecode>& t = s.timeOfDay;
        t && (t->hours > 23 || t->minutes < 0 || t->minutes > 59 || t->seconds < 0 || t->seconds > 59))
        return format("Time of day %02d:%02d:%02d is not within 00:00:00 to 23:59:59", t->hours, t->minutes,
                      t->seconds);
    if (s.axes < 0 || s.axes >= PatternGen::colourAxesCount) return format("Unrecognised Colour Space %d", int(s.axes));
    if (!isSampling(s.sampling)) return format("Sampling %d is not 444, 422 or 420 (-s)", int(s.sampling));
    // Each field's 4:2:0 chroma covers pairs of the field's rows: four frame rows.
    if (const int group = PatternGen::chromaRowGroup(s.sampling, s.scan); s.height % group != 0 && group > 2)
        return format("Interlaced 4:2:0 needs a height that is a multiple of %d, not %d: each field's chroma "
                      "covers pairs of its rows (-d, -s, --interlaced)",
                      group, s.height);
    for (const auto& [text, option] : {std::pair{&s.ident, "--ident"}, {&s.caption, "--caption"}, {&s.font, "--font"}})
        if (!g_utf8_validate(text->c_str(), -1, nullptr))
            return format("%s %s is not UTF-8 text", option, text->c_str());
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

std::string unreadableTimecode(const std::string& text) {
    return format("Timecode %s is not HH:MM:SS:FF (or HH:MM:SS;FF, drop-frame) within 23:59:59 (--timecode)",
                  text.c_str());
}

}  // namespace pm5544
