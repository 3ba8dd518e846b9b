// The colour encodings and the description of how a pixel's code values are coded.
#pragma once

#include <cstdint>

namespace PatternGen {

// The numbers are part of the interface: encodings are compared by value and by range.
enum colorAxes_e {
    Colour_RGB = 0,
    Colour_RGB_219 = 1,
    Colour_YCbCr_601 = 2,
    Colour_YCbCr_709 = 3,
    Colour_YCbCr_PQ = 4,
    Colour_YCbCr_PQ_Mapped = 5,
    Colour_YCbCr_HLG = 6,
    Colour_YCbCr_HLG_Mapped = 7,
    Colour_YCbCr_2020 = 8,
    Colour_YCbCr_SLog3 = 9,
    Colour_YCbCr_SLog3_Mapped = 10,
    Colour_YCbCr_SLog3_Live = 11,
    Colour_YCbCr_SLog3_Live_Mapped = 12,
    Colour_RGB_PQ = 13,
    Colour_RGB_HLG = 14,
    Colour_RGB_SLog3 = 15,
    Colour_RGB_SLog3_Live = 16,
    Colour_RGB_PQ_Mapped = 17,
    Colour_RGB_HLG_Mapped = 18,
    Colour_RGB_SLog3_Mapped = 19,
    Colour_RGB_SLog3_Live_Mapped = 20,
};

constexpr int colourAxesCount = 21;

// The ranges of encodings, defined here once. Encodings are Y'CbCr (2 to 12: SDR 601, 709, 2020 and the
// HDR Y'CbCr encodings) or R'G'B' (0, 1 and the HDR R'G'B' encodings 13 to 20).
constexpr bool isYCbCrAxes(int axes) { return axes >= Colour_YCbCr_601 && axes <= Colour_YCbCr_SLog3_Live_Mapped; }
constexpr bool isRGBAxes(int axes) {
    return axes >= Colour_RGB && axes <= Colour_RGB_SLog3_Live_Mapped && !isYCbCrAxes(axes);
}
constexpr bool isRGBHDRAxes(int axes) { return axes >= Colour_RGB_PQ && axes <= Colour_RGB_SLog3_Live_Mapped; }
// The HDR R'G'B' encodings without the BT.709-into-BT.2020 mapping (13 to 16).
constexpr bool isRGBHDRUnmappedAxes(int axes) { return axes >= Colour_RGB_PQ && axes <= Colour_RGB_SLog3_Live; }
constexpr bool isYCbCrHDRAxes(int axes) {
    return (axes >= Colour_YCbCr_PQ && axes <= Colour_YCbCr_HLG_Mapped) ||
           (axes >= Colour_YCbCr_SLog3 && axes <= Colour_YCbCr_SLog3_Live_Mapped);
}
constexpr bool isSLog3YCbCrAxes(int axes) {
    return axes >= Colour_YCbCr_SLog3 && axes <= Colour_YCbCr_SLog3_Live_Mapped;
}
// Every encoding coded in BT.2020 primaries: 4 to 20 (HDR and 2020 Y'CbCr, HDR R'G'B').
constexpr bool isIn2020Axes(int axes) { return axes >= Colour_YCbCr_PQ && axes <= Colour_RGB_SLog3_Live_Mapped; }
// The SDR R'G'B' encodings, full and studio range (0, 1).
constexpr bool isSDRRGBAxes(int axes) { return axes == Colour_RGB || axes == Colour_RGB_219; }
// The SDR Y'CbCr encodings with their own matrix and primaries (2, 3); BT.2020 Y'CbCr is apart.
constexpr bool isYCbCr601Or709Axes(int axes) { return axes == Colour_YCbCr_601 || axes == Colour_YCbCr_709; }
// Every PQ, HLG and S-Log3 encoding, Y'CbCr and R'G'B'.
constexpr bool isHDRAxes(int axes) { return isYCbCrHDRAxes(axes) || isRGBHDRAxes(axes); }
// The encodings of one transfer function, Y'CbCr and R'G'B', mapped or not.
constexpr bool isPQAxes(int axes) {
    return axes == Colour_YCbCr_PQ || axes == Colour_YCbCr_PQ_Mapped || axes == Colour_RGB_PQ ||
           axes == Colour_RGB_PQ_Mapped;
}
constexpr bool isHLGAxes(int axes) {
    return axes == Colour_YCbCr_HLG || axes == Colour_YCbCr_HLG_Mapped || axes == Colour_RGB_HLG ||
           axes == Colour_RGB_HLG_Mapped;
}
constexpr bool isSLog3Axes(int axes) {
    return isSLog3YCbCrAxes(axes) || axes == Colour_RGB_SLog3 || axes == Colour_RGB_SLog3_Live ||
           axes == Colour_RGB_SLog3_Mapped || axes == Colour_RGB_SLog3_Live_Mapped;
}
// The S-Log3 encodings coded after the inverse of the Live OOTF.
constexpr bool isSLog3LiveAxes(int axes) {
    return axes == Colour_YCbCr_SLog3_Live || axes == Colour_YCbCr_SLog3_Live_Mapped || axes == Colour_RGB_SLog3_Live ||
           axes == Colour_RGB_SLog3_Live_Mapped;
}
// The HDR encodings whose source colours are BT.709 primaries mapped into BT.2020 in linear light.
constexpr bool isMappedAxes(int axes) {
    return axes == Colour_YCbCr_PQ_Mapped || axes == Colour_YCbCr_HLG_Mapped || axes == Colour_YCbCr_SLog3_Mapped ||
           axes == Colour_YCbCr_SLog3_Live_Mapped ||
           (axes >= Colour_RGB_PQ_Mapped && axes <= Colour_RGB_SLog3_Live_Mapped);
}

}  // namespace PatternGen

// The enumerator name of an encoding; "undefined" for values outside 0..20.
const char* axisToString(PatternGen::colorAxes_e axes);

class ColourSpace {
public:
    int32_t whiteLevel = 0;
    int32_t blackLevel = 0;
    int32_t bitDepth = 0;
    int32_t colourAxes = 0;
    int32_t gammaType = 0;

    ColourSpace(PatternGen::colorAxes_e axes, int bits);

    void setColourSpace(PatternGen::colorAxes_e axes, int bits);
    PatternGen::colorAxes_e axes() const { return static_cast<PatternGen::colorAxes_e>(colourAxes); }

    double normaliseLuma(int code) const;
    double normaliseChroma(int code) const;
    bool limitLuma(int& code) const;
    bool limitChroma(int& code) const;

    bool isColourDifference() const;
    bool colourIsRGB() const;
    bool colourIsIn2020() const;
    bool colourIsHDR() const;

    double gammaToLinear(int code) const;
    double linearToGamma(int code) const;
    double gammaFloatToLinear(double v) const;
    double linearFloatToGamma(double v) const;
    double gammaFloatLinearToNonLinear(double v) const;
};

// Studio levels for a bit depth (8 to 16); derived wherever needed, never stored.
namespace Levels {
inline int studioBlack(int bits) { return 16 << (bits - 8); }
inline int lumaExcursion(int bits) { return 219 << (bits - 8); }
inline int studioWhite(int bits) { return studioBlack(bits) + lumaExcursion(bits); }
inline int chromaZero(int bits) { return 1 << (bits - 1); }
inline int chromaExcursion(int bits) { return 224 << (bits - 8); }
inline int lowestLegal(int bits) { return 1 << (bits - 8); }
inline int highestLegal(int bits) { return (1 << bits) - (1 << (bits - 8)) - 1; }
inline int fullScale(int bits) { return (1 << bits) - 1; }
}  // namespace Levels
