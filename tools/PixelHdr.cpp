// HDR conversions: PQ, HLG and S-Log3 encodings of SDR colours, in Y'CbCr and R'G'B', optionally
// with BT.709 primaries mapped into BT.2020.
#include <cmath>
#include <cstdio>
#include <initializer_list>

#include "Pixel.h"
#include "PixelAssert.h"

using PatternGen::colorAxes_e;

namespace {

// SMPTE ST 2084 inverse EOTF; the input is in units of 100 cd/m2, the curve's peak is 10000 cd/m2.
namespace ST2084 {
constexpr double m1 = 0.1593017578125;
constexpr double m2 = 78.84375;
constexpr double c1 = 0.8359375;
constexpr double c2 = 18.8515625;
constexpr double c3 = 18.6875;
constexpr double inputScale = 100.0;
}  // namespace ST2084

// ITU-R BT.2100 HLG OETF and the inverse OOTF for a 1000 cd/m2 display.
namespace BT2100_HLG {
constexpr double a = 0.17883277;
constexpr double b = 0.28466892;
constexpr double c = 0.55991073;
constexpr double knee = 0.08333333333333333;  // 1/12
constexpr double nominalPeak = 1000.0;        // cd/m2
constexpr double sdrWhite = 100.0;            // cd/m2 of a source value of 1.0
constexpr double kr = 0.2627, kg = 0.678, kb = 0.0593;
constexpr double inverseGammaExponent = -0.16666670143604279;  // single-precision -1/6, widened
}  // namespace BT2100_HLG

// S-Log3 OETF giving 10-bit code values, and the inverse OOTF of the Live axes.
namespace SLog3 {
constexpr double inputFactor = 0.9;
constexpr double threshold = 0.012499999999999999;
constexpr double linearBase = 95.0;
constexpr double linearSlope = 6774.248417146666;
constexpr double logBase = 420.0;
constexpr double logGain = 261.5;
constexpr double logOffset = 0.01;
constexpr double logDivisor = 0.19;
constexpr double liveKnee = 3.0;
constexpr double liveExponent = 0.8333333333333334;
constexpr double liveOffset = 0.7474385637693104;
constexpr double liveDivisor1 = 1.2;
constexpr double liveDivisor2 = 1.2457309396155174;
constexpr int chromaZero10 = 512;
}  // namespace SLog3

// ITU-R BT.2087: BT.709 primaries to BT.2020 primaries, on linear light.
namespace BT2087 {
constexpr double rr = 0.6274, rg = 0.3293, rb = 0.0433;
constexpr double gr = 0.0691, gg = 0.9195, gb = 0.0114;
constexpr double br = 0.0164, bg = 0.088, bb = 0.8956;
}  // namespace BT2087

// BT.2020 matrix applied to S-Log3 code values.
namespace BT2020 {
constexpr double kr = 0.2627, kg = 0.678, kb = 0.0593;
constexpr double cbDivisor = 1.8814, crDivisor = 1.4746;
}  // namespace BT2020

constexpr int hdrBits = 10;

bool isMappedYCbCr(int axes) {
    return axes == PatternGen::Colour_YCbCr_PQ_Mapped || axes == PatternGen::Colour_YCbCr_HLG_Mapped ||
           axes == PatternGen::Colour_YCbCr_SLog3_Mapped || axes == PatternGen::Colour_YCbCr_SLog3_Live_Mapped;
}

bool isLiveYCbCr(int axes) {
    return axes == PatternGen::Colour_YCbCr_SLog3_Live || axes == PatternGen::Colour_YCbCr_SLog3_Live_Mapped;
}

// The Y'CbCr HDR axis an RGB HDR axis is derived from; -1 for any other axis.
int yCbCrCounterpart(int rgbAxes) {
    switch (rgbAxes) {
        case PatternGen::Colour_RGB_PQ:
            return PatternGen::Colour_YCbCr_PQ;
        case PatternGen::Colour_RGB_HLG:
            return PatternGen::Colour_YCbCr_HLG;
        case PatternGen::Colour_RGB_SLog3:
            return PatternGen::Colour_YCbCr_SLog3;
        case PatternGen::Colour_RGB_SLog3_Live:
            return PatternGen::Colour_YCbCr_SLog3_Live;
        case PatternGen::Colour_RGB_PQ_Mapped:
            return PatternGen::Colour_YCbCr_PQ_Mapped;
        case PatternGen::Colour_RGB_HLG_Mapped:
            return PatternGen::Colour_YCbCr_HLG_Mapped;
        case PatternGen::Colour_RGB_SLog3_Mapped:
            return PatternGen::Colour_YCbCr_SLog3_Mapped;
        case PatternGen::Colour_RGB_SLog3_Live_Mapped:
            return PatternGen::Colour_YCbCr_SLog3_Live_Mapped;
        default:
            return -1;
    }
}

int toCode(double v) {
    if (std::isnan(v)) return 0;
    if (v > 1e9) return 1000000000;
    if (v < -1e9) return -1000000000;
    return static_cast<int>(v);
}

// A copy of the source set to (target, 10 bits): HDR results from SDR are 10-bit codes.
Pixel hdrTarget(const Pixel& source, colorAxes_e toSpace) {
    Pixel result(source);
    result.colourSpace.setColourSpace(toSpace, hdrBits);
    return result;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Transfer functions

// Light in units of 100 cd/m2 to the PQ signal (0..1); 1.0 gives about 0.508.
double Pixel::applyPqInverseEOTF(double x) {
    if (!(x > 0.0)) return 0.0;
    const double p = std::pow(x / ST2084::inputScale, ST2084::m1);
    return std::pow((ST2084::c1 + ST2084::c2 * p) / (1.0 + ST2084::c3 * p), ST2084::m2);
}

// Scene light (0..1) to the HLG signal (0..1); the knee 1/12 gives 0.5.
double Pixel::applyHlgOETF(double x) {
    if (!(x > 0.0)) return 0.0;
    if (x <= BT2100_HLG::knee) return std::pow(3.0 * x, 0.5);
    return BT2100_HLG::a * std::log(12.0 * x - BT2100_HLG::b) + BT2100_HLG::c;
}

double Pixel::applySLog3InverseOOTF(double x) {
    if (x <= SLog3::liveKnee) return std::pow(x, SLog3::liveExponent);
    return (x + SLog3::liveOffset) / SLog3::liveDivisor1 / SLog3::liveDivisor2;
}

// Reflectance to a 10-bit S-Log3 code value (unrounded); a negative source mirrors about the base.
double Pixel::applySLog3OETFAndRestoreAbsolutisedInput(double x, bool negative) {
    if (x < 0.0) return 0.0;
    const double t = SLog3::inputFactor * x;
    double v;
    double base;
    if (x < SLog3::threshold) {
        v = SLog3::linearSlope * t;
        base = SLog3::linearBase;
    } else {
        v = SLog3::logGain * std::log10((t + SLog3::logOffset) / SLog3::logDivisor);
        base = SLog3::logBase;
    }
    return negative ? base - v : base + v;
}

Pixel::AbsoluteRGB Pixel::absolutiseRgbInput(double& r, double& g, double& b) {
    AbsoluteRGB flags;
    flags.r = r < 0.0;
    flags.g = g < 0.0;
    flags.b = b < 0.0;
    if (flags.r) r = -r;
    if (flags.g) g = -g;
    if (flags.b) b = -b;
    return flags;
}

void Pixel::restoreAbsolutisedRgbInput(const AbsoluteRGB& flags, double& r, double& g, double& b) {
    if (flags.r) r = -r;
    if (flags.g) g = -g;
    if (flags.b) b = -b;
}

// Linearises with this pixel's gamma law, then maps BT.709 primaries into BT.2020; stays linear.
void Pixel::applyMatrixRGB709ValuesIn2020(double& r, double& g, double& b) const {
    const double lr = colourSpace.gammaFloatToLinear(r);
    const double lg = colourSpace.gammaFloatToLinear(g);
    const double lb = colourSpace.gammaFloatToLinear(b);
    r = BT2087::rr * lr + BT2087::rg * lg + BT2087::rb * lb;
    g = BT2087::gr * lr + BT2087::gg * lg + BT2087::gb * lb;
    b = BT2087::br * lr + BT2087::bg * lg + BT2087::bb * lb;
}

// ---------------------------------------------------------------------------------------------
// SDR R'G'B' (normalised) to HDR Y'CbCr

Pixel Pixel::convertRGB709toYCbCrPQ(double r, double g, double b, colorAxes_e toSpace) const {
    const colorAxes_e pqColourSpace = toSpace;
    PIXEL_ASSERT(pqColourSpace == PatternGen::Colour_YCbCr_PQ || pqColourSpace == PatternGen::Colour_YCbCr_PQ_Mapped);
    Pixel result = hdrTarget(*this, toSpace);
    const AbsoluteRGB negative = absolutiseRgbInput(r, g, b);
    if (pqColourSpace == PatternGen::Colour_YCbCr_PQ_Mapped) applyMatrixRGB709ValuesIn2020(r, g, b);
    for (double* c : {&r, &g, &b}) *c = *c > 0.0 ? applyPqInverseEOTF(*c) : 0.0;
    restoreAbsolutisedRgbInput(negative, r, g, b);
    result.assignYCbCr2020Values(r, g, b);
    return result;
}

Pixel Pixel::convertRGB709toYCbCrHLG(double r, double g, double b, colorAxes_e toSpace) const {
    const colorAxes_e hlgColourSpace = toSpace;
    PIXEL_ASSERT(hlgColourSpace == PatternGen::Colour_YCbCr_HLG ||
                 hlgColourSpace == PatternGen::Colour_YCbCr_HLG_Mapped);
    Pixel result = hdrTarget(*this, toSpace);
    const AbsoluteRGB negative = absolutiseRgbInput(r, g, b);
    if (hlgColourSpace == PatternGen::Colour_YCbCr_HLG_Mapped) applyMatrixRGB709ValuesIn2020(r, g, b);

    // Display light in cd/m2, then scene light through the inverse OOTF.
    const double displayR = BT2100_HLG::sdrWhite * r;
    const double displayG = BT2100_HLG::sdrWhite * g;
    const double displayB = BT2100_HLG::sdrWhite * b;
    const double ys =
        (BT2100_HLG::kr * displayR + BT2100_HLG::kg * displayG + BT2100_HLG::kb * displayB) / BT2100_HLG::nominalPeak;
    if (ys > 0.0) {
        const double gain = std::pow(ys, BT2100_HLG::inverseGammaExponent);
        r = displayR / BT2100_HLG::nominalPeak * gain;
        g = displayG / BT2100_HLG::nominalPeak * gain;
        b = displayB / BT2100_HLG::nominalPeak * gain;
    } else {
        r = g = b = 0.0;
    }

    r = applyHlgOETF(r);
    g = applyHlgOETF(g);
    b = applyHlgOETF(b);
    restoreAbsolutisedRgbInput(negative, r, g, b);
    result.assignYCbCr2020Values(r, g, b);
    return result;
}

// The S-Log3 curve yields code values directly, so the BT.2020 matrix works on codes.
Pixel Pixel::convertRGB709toYCbCrSLog3(double r, double g, double b, colorAxes_e toSpace) const {
    const colorAxes_e slog3ColourSpace = toSpace;
    PIXEL_ASSERT(slog3ColourSpace == PatternGen::Colour_YCbCr_SLog3 ||
                 slog3ColourSpace == PatternGen::Colour_YCbCr_SLog3_Mapped ||
                 slog3ColourSpace == PatternGen::Colour_YCbCr_SLog3_Live ||
                 slog3ColourSpace == PatternGen::Colour_YCbCr_SLog3_Live_Mapped);
    Pixel result = hdrTarget(*this, toSpace);
    const AbsoluteRGB negative = absolutiseRgbInput(r, g, b);
    if (isMappedYCbCr(slog3ColourSpace)) applyMatrixRGB709ValuesIn2020(r, g, b);
    if (isLiveYCbCr(slog3ColourSpace)) {
        r = applySLog3InverseOOTF(r);
        g = applySLog3InverseOOTF(g);
        b = applySLog3InverseOOTF(b);
    }
    const double codeR = applySLog3OETFAndRestoreAbsolutisedInput(r, negative.r);
    const double codeG = applySLog3OETFAndRestoreAbsolutisedInput(g, negative.g);
    const double codeB = applySLog3OETFAndRestoreAbsolutisedInput(b, negative.b);

    int y = toCode(std::round(BT2020::kr * codeR + BT2020::kg * codeG + BT2020::kb * codeB));
    int cb = SLog3::chromaZero10 +
             toCode(std::round((-BT2020::kr * codeR - BT2020::kg * codeG) / BT2020::cbDivisor + 0.5 * codeB));
    int cr = SLog3::chromaZero10 +
             toCode(std::round(0.5 * codeR - (BT2020::kg * codeG + BT2020::kb * codeB) / BT2020::crDivisor));
    result.colourSpace.limitLuma(y);
    result.colourSpace.limitChroma(cb);
    result.colourSpace.limitChroma(cr);
    result.colourSpace.blackLevel = static_cast<int32_t>(SLog3::linearBase);
    result.colourSpace.whiteLevel = Levels::highestLegal(hdrBits);
    result.sample[Y_G] = static_cast<uint16_t>(y);
    result.sample[CB_B] = static_cast<uint16_t>(cb);
    result.sample[CR_R] = static_cast<uint16_t>(cr);
    return result;
}

// ---------------------------------------------------------------------------------------------
// R'G'B' HDR

Pixel Pixel::convertRGB709toRGBHDR(double r, double g, double b, colorAxes_e toSpace) const {
    const int axis = colourSpace.colourAxes;
    const bool twelveBitRgb =
        colourSpace.bitDepth == 12 && (axis == PatternGen::Colour_RGB || axis == PatternGen::Colour_RGB_219);
    if (twelveBitRgb) {
        // Codes cut to 10 bits without rounding, as for the Y'CbCr HDR axes.
        Pixel reduced(*this);
        reduced.colourSpace.setColourSpace(colourSpace.axes(), hdrBits);
        for (int i = CB_B; i <= CR_R; ++i) reduced.sample[i] = static_cast<uint16_t>(sample[i] >> 2);
        r = reduced.colourSpace.normaliseLuma(reduced.sample[CR_R]);
        g = reduced.colourSpace.normaliseLuma(reduced.sample[Y_G]);
        b = reduced.colourSpace.normaliseLuma(reduced.sample[CB_B]);
    }

    const int yCbCrAxis = yCbCrCounterpart(toSpace);
    Pixel yCbCr;
    switch (yCbCrAxis) {
        case PatternGen::Colour_YCbCr_PQ:
        case PatternGen::Colour_YCbCr_PQ_Mapped:
            yCbCr = convertRGB709toYCbCrPQ(r, g, b, static_cast<colorAxes_e>(yCbCrAxis));
            break;
        case PatternGen::Colour_YCbCr_HLG:
        case PatternGen::Colour_YCbCr_HLG_Mapped:
            yCbCr = convertRGB709toYCbCrHLG(r, g, b, static_cast<colorAxes_e>(yCbCrAxis));
            break;
        case PatternGen::Colour_YCbCr_SLog3:
        case PatternGen::Colour_YCbCr_SLog3_Mapped:
        case PatternGen::Colour_YCbCr_SLog3_Live:
        case PatternGen::Colour_YCbCr_SLog3_Live_Mapped:
            yCbCr = convertRGB709toYCbCrSLog3(r, g, b, static_cast<colorAxes_e>(yCbCrAxis));
            break;
        default:
            PIXEL_ASSERT(0);
    }
    return yCbCr.convertYCbCrHDRToRGB(toSpace);
}

// Decodes the BT.2020 matrix only: the codes of the result are the HDR signal values, 12 bits deep.
Pixel Pixel::convertYCbCrHDRToRGB(colorAxes_e toSpace) const {
    switch (colourSpace.colourAxes) {
        case PatternGen::Colour_YCbCr_PQ:
            PIXEL_ASSERT(toSpace == PatternGen::Colour_RGB_PQ);
            break;
        case PatternGen::Colour_YCbCr_PQ_Mapped:
            PIXEL_ASSERT(toSpace == PatternGen::Colour_RGB_PQ_Mapped);
            break;
        case PatternGen::Colour_YCbCr_HLG:
            PIXEL_ASSERT(toSpace == PatternGen::Colour_RGB_HLG);
            break;
        case PatternGen::Colour_YCbCr_HLG_Mapped:
            PIXEL_ASSERT(toSpace == PatternGen::Colour_RGB_HLG_Mapped);
            break;
        case PatternGen::Colour_YCbCr_SLog3:
            PIXEL_ASSERT(toSpace == PatternGen::Colour_RGB_SLog3);
            break;
        case PatternGen::Colour_YCbCr_SLog3_Mapped:
            PIXEL_ASSERT(toSpace == PatternGen::Colour_RGB_SLog3_Mapped);
            break;
        case PatternGen::Colour_YCbCr_SLog3_Live:
            PIXEL_ASSERT(toSpace == PatternGen::Colour_RGB_SLog3_Live);
            break;
        case PatternGen::Colour_YCbCr_SLog3_Live_Mapped:
            PIXEL_ASSERT(toSpace == PatternGen::Colour_RGB_SLog3_Live_Mapped);
            break;
        default:
            PIXEL_ASSERT(0);
    }
    Pixel as2020(*this);
    as2020.colourSpace.colourAxes = PatternGen::Colour_YCbCr_2020;
    Pixel result = as2020.convertFromYCbCr2020(PatternGen::Colour_RGB_219);
    result.colourSpace.colourAxes = toSpace;
    return result;
}

Pixel Pixel::convertHDRFromRGB(colorAxes_e toSpace) const {
    const int axis = colourSpace.colourAxes;
    const bool unmapped = axis >= PatternGen::Colour_RGB_PQ && axis <= PatternGen::Colour_RGB_SLog3_Live;
    Pixel result(*this);
    if (unmapped && toSpace == yCbCrCounterpart(axis)) {
        const double r = colourSpace.normaliseLuma(sample[CR_R]);
        const double g = colourSpace.normaliseLuma(sample[Y_G]);
        const double b = colourSpace.normaliseLuma(sample[CB_B]);
        result.colourSpace.colourAxes = toSpace;
        result.assignYCbCr2020Values(r, g, b);
    } else if (toSpace == PatternGen::Colour_RGB_219) {
        result.colourSpace.colourAxes = toSpace;
    } else if (toSpace == PatternGen::Colour_RGB) {
        const double r = colourSpace.normaliseLuma(sample[CR_R]);
        const double g = colourSpace.normaliseLuma(sample[Y_G]);
        const double b = colourSpace.normaliseLuma(sample[CB_B]);
        result.colourSpace.colourAxes = toSpace;
        result.assignRGBValues(r, g, b);
    } else {
        std::printf("convertHDRFromRGB invalid from %d to %d\n", axis, static_cast<int>(toSpace));
        PIXEL_ASSERT(0);
    }
    return result;
}
