// HDR conversions of the pixel value type: PQ, HLG and S-Log3 encodings of SDR colours, in
// Y'CbCr and R'G'B', optionally with BT.709 primaries mapped into BT.2020, and the conversions
// between the HDR Y'CbCr and R'G'B' encodings.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <initializer_list>

#include "colour/ColourMatrices.h"
#include "colour/Pixel.h"
#include "colour/PixelAssert.h"
#include "colour/PixelCodes.h"
#include "colour/TransferConstants.h"

using PatternGen::colorAxes_e;
using PixelCodes::hdrBits;

namespace {

// The Y'CbCr HDR encoding an RGB HDR encoding is derived from; -1 for any other encoding.
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

// A real-valued code as int, bounded so that an offset can still be added; NaN gives 0.
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

    applyHlgInverseOOTF(r, g, b);
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
    if (PatternGen::isMappedAxes(slog3ColourSpace)) applyMatrixRGB709ValuesIn2020(r, g, b);
    if (PatternGen::isSLog3LiveAxes(slog3ColourSpace)) {
        r = applySLog3InverseOOTF(r);
        g = applySLog3InverseOOTF(g);
        b = applySLog3InverseOOTF(b);
    }
    const double codeR = applySLog3OETFAndRestoreAbsolutisedInput(r, negative.r);
    const double codeG = applySLog3OETFAndRestoreAbsolutisedInput(g, negative.g);
    const double codeB = applySLog3OETFAndRestoreAbsolutisedInput(b, negative.b);

    int y = toCode(std::round(ColourMatrix::BT2020::kr * codeR + ColourMatrix::BT2020::kg * codeG +
                              ColourMatrix::BT2020::kb * codeB));
    int cb = Levels::chromaZero(hdrBits) +
             toCode(std::round((-ColourMatrix::BT2020::kr * codeR - ColourMatrix::BT2020::kg * codeG) /
                                   ColourMatrix::BT2020::cbDivisor +
                               0.5 * codeB));
    int cr = Levels::chromaZero(hdrBits) +
             toCode(std::round(0.5 * codeR - (ColourMatrix::BT2020::kg * codeG + ColourMatrix::BT2020::kb * codeB) /
                                                 ColourMatrix::BT2020::crDivisor));
    result.colourSpace.limitLuma(y);
    result.colourSpace.limitChroma(cb);
    result.colourSpace.limitChroma(cr);
    result.colourSpace.blackLevel = TransferConstants::SLog3::blackCode;
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
    if (colourSpace.bitDepth == PixelCodes::frameBits && PatternGen::isSDRRGBAxes(axis)) {
        const ColourMatrix::Rgb c = PixelCodes::normalisedRgbForHdr(*this);
        r = c.r;
        g = c.g;
        b = c.b;
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
    Pixel result(*this);
    if (PatternGen::isRGBHDRUnmappedAxes(axis) && toSpace == yCbCrCounterpart(axis)) {
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
        char note[64];
        std::snprintf(note, sizeof note, "convertHDRFromRGB invalid from %d to %d\n", axis, static_cast<int>(toSpace));
        PixelAssert::fail("0", PixelAssert::sourceName, __LINE__, __PRETTY_FUNCTION__, note);
    }
    return result;
}
