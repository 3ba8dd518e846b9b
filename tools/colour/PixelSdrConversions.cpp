// SDR conversions of the pixel value type: the assigners that encode normalised R'G'B' in each
// SDR encoding, and convertTo, the dispatcher that routes every conversion (HDR ones included).
#include <cmath>
#include <cstdint>
#include <limits>

#include "colour/ColourMatrices.h"
#include "colour/Pixel.h"
#include "colour/PixelAssert.h"
#include "colour/PixelCodes.h"

using ColourMatrix::Rgb;
using ColourMatrix::YCbCr;
using PatternGen::colorAxes_e;

namespace {

// A real-valued code converted to int without overflow; NaN gives 0.
int toInt(double v) {
    if (std::isnan(v)) return 0;
    if (v >= static_cast<double>(std::numeric_limits<int>::max())) return std::numeric_limits<int>::max();
    if (v <= static_cast<double>(std::numeric_limits<int>::min())) return std::numeric_limits<int>::min();
    return static_cast<int>(v);
}

// offset + round(v * range), rounding halves away from zero.
int codeFrom(int offset, double v, int range) { return toInt(offset + std::round(v * range)); }

void storeYCbCr(Pixel& p, const YCbCr& v) {
    const ColourSpace& cs = p.colourSpace;
    const int bits = cs.bitDepth;
    int y = codeFrom(Levels::studioBlack(bits), v.y, Levels::lumaExcursion(bits));
    int cb = codeFrom(Levels::chromaZero(bits), v.cb, Levels::chromaExcursion(bits));
    int cr = codeFrom(Levels::chromaZero(bits), v.cr, Levels::chromaExcursion(bits));
    cs.limitLuma(y);
    cs.limitChroma(cb);
    cs.limitChroma(cr);
    p.sample[Pixel::Y_G] = static_cast<uint16_t>(y);
    p.sample[Pixel::CB_B] = static_cast<uint16_t>(cb);
    p.sample[Pixel::CR_R] = static_cast<uint16_t>(cr);
    p.colourSpace.blackLevel = Levels::studioBlack(bits);
    p.colourSpace.whiteLevel = Levels::studioWhite(bits);
}

double clampUnit(double v) {
    if (v >= 1.0) return 1.0;
    if (v <= 0.0) return 0.0;
    return v;
}

}  // namespace

void Pixel::assignRGBValues(double r, double g, double b) {
    const int axis = colourSpace.colourAxes;
    PIXEL_ASSERT(axis == PatternGen::Colour_RGB);
    const int full = Levels::fullScale(colourSpace.bitDepth);
    sample[CR_R] = static_cast<uint16_t>(codeFrom(0, clampUnit(r), full));
    sample[Y_G] = static_cast<uint16_t>(codeFrom(0, clampUnit(g), full));
    sample[CB_B] = static_cast<uint16_t>(codeFrom(0, clampUnit(b), full));
    colourSpace.blackLevel = 0;
    colourSpace.whiteLevel = full;
}

// Studio-range RGB keeps excursions beyond black and white, within the legal range.
void Pixel::assignRGB219Values(double r, double g, double b) {
    const int axis = colourSpace.colourAxes;
    PIXEL_ASSERT(axis == PatternGen::Colour_RGB_219);
    const int bits = colourSpace.bitDepth;
    const double values[3] = {b, g, r};  // sample order B, G, R
    for (int i = CB_B; i <= CR_R; ++i) {
        int code = codeFrom(Levels::studioBlack(bits), values[i], Levels::lumaExcursion(bits));
        colourSpace.limitLuma(code);
        sample[i] = static_cast<uint16_t>(code);
    }
    colourSpace.blackLevel = Levels::studioBlack(bits);
    colourSpace.whiteLevel = Levels::studioWhite(bits);
}

void Pixel::assignYCbCr601Values(double r, double g, double b) {
    const int axis = colourSpace.colourAxes;
    PIXEL_ASSERT(axis == PatternGen::Colour_YCbCr_601);
    storeYCbCr(*this, ColourMatrix::encode601({r, g, b}));
}

void Pixel::assignYCbCr709Values(double r, double g, double b) {
    const int axis = colourSpace.colourAxes;
    PIXEL_ASSERT(axis == PatternGen::Colour_YCbCr_709);
    storeYCbCr(*this, ColourMatrix::encode709({r, g, b}));
}

void Pixel::assignYCbCr2020Values(double r, double g, double b) {
    const auto colourIsIn2020 = [this] { return colourSpace.colourIsIn2020(); };
    PIXEL_ASSERT(colourIsIn2020());
    storeYCbCr(*this, ColourMatrix::encode2020({r, g, b}));
}

// ---------------------------------------------------------------------------------------------
// SDR conversions

Pixel Pixel::convertRGB709toYCbCr2020(double r, double g, double b) const {
    Pixel result(*this);
    result.colourSpace.colourAxes = PatternGen::Colour_YCbCr_2020;
    result.assignYCbCr2020Values(r, g, b);
    return result;
}

namespace {

Pixel rgbToHdrYCbCr(const Pixel& source, const Rgb& c, colorAxes_e toSpace) {
    if (PatternGen::isPQAxes(toSpace)) return source.convertRGB709toYCbCrPQ(c.r, c.g, c.b, toSpace);
    if (PatternGen::isHLGAxes(toSpace)) return source.convertRGB709toYCbCrHLG(c.r, c.g, c.b, toSpace);
    return source.convertRGB709toYCbCrSLog3(c.r, c.g, c.b, toSpace);
}

// A Y'CbCr colour on its way to HDR passes through a 10-bit RGB pixel: full range when its luma
// code is within studio black..white, studio range otherwise so that the excursion survives.
Pixel viaIntermediateRgb(int lumaCode, int sourceBits, const Rgb& c, colorAxes_e toSpace) {
    const bool nominal = lumaCode >= Levels::studioBlack(sourceBits) && lumaCode <= Levels::studioWhite(sourceBits);
    Pixel intermediate(0, 0, 0, nominal ? PatternGen::Colour_RGB : PatternGen::Colour_RGB_219, PixelCodes::hdrBits);
    if (nominal)
        intermediate.assignRGBValues(c.r, c.g, c.b);
    else
        intermediate.assignRGB219Values(c.r, c.g, c.b);
    return intermediate.convertTo(toSpace);
}

}  // namespace

Pixel Pixel::convertTo(colorAxes_e toSpace) const {
    const int axis = colourSpace.colourAxes;
    Pixel result(*this);
    result.colourSpace.setColourSpace(toSpace, colourSpace.bitDepth);

    if (PatternGen::isSDRRGBAxes(axis)) {
        const Rgb c = PixelCodes::normalisedRgb(*this);
        if (toSpace == PatternGen::Colour_RGB) {
            if (axis != PatternGen::Colour_RGB) result.assignRGBValues(c.r, c.g, c.b);
        } else if (toSpace == PatternGen::Colour_RGB_219) {
            if (axis != PatternGen::Colour_RGB_219) result.assignRGB219Values(c.r, c.g, c.b);
        } else if (toSpace == PatternGen::Colour_YCbCr_601) {
            result.assignYCbCr601Values(c.r, c.g, c.b);
        } else if (toSpace == PatternGen::Colour_YCbCr_709) {
            result.assignYCbCr709Values(c.r, c.g, c.b);
        } else if (toSpace == PatternGen::Colour_YCbCr_2020) {
            result = convertRGB709toYCbCr2020(c.r, c.g, c.b);
        } else if (PatternGen::isYCbCrHDRAxes(toSpace)) {
            result = rgbToHdrYCbCr(*this, PixelCodes::normalisedRgbForHdr(*this), toSpace);
        } else if (PatternGen::isRGBHDRAxes(toSpace)) {
            result = convertRGB709toRGBHDR(c.r, c.g, c.b, toSpace);
        }
    } else if (PatternGen::isYCbCr601Or709Axes(axis)) {
        const YCbCr v = PixelCodes::normalisedYCbCr(*this);
        const Rgb c = axis == PatternGen::Colour_YCbCr_601 ? ColourMatrix::decode601(v) : ColourMatrix::decode709(v);
        if (toSpace == PatternGen::Colour_RGB) {
            result.assignRGBValues(c.r, c.g, c.b);
        } else if (toSpace == PatternGen::Colour_RGB_219) {
            result.assignRGB219Values(c.r, c.g, c.b);
        } else if (toSpace == axis) {
            // same encoding: the copy
        } else if (PatternGen::isYCbCr601Or709Axes(toSpace)) {
            PIXEL_ASSERT(0);  // no direct 601 <-> 709 conversion
        } else if (toSpace == PatternGen::Colour_YCbCr_2020) {
            result = convertRGB709toYCbCr2020(c.r, c.g, c.b);
        } else if (PatternGen::isYCbCrHDRAxes(toSpace)) {
            result = viaIntermediateRgb(sample[Y_G], colourSpace.bitDepth, c, toSpace);
        } else if (PatternGen::isRGBHDRAxes(toSpace)) {
            result = convertRGB709toRGBHDR(c.r, c.g, c.b, toSpace);
        }
    } else if (axis == PatternGen::Colour_YCbCr_2020) {
        result = convertFromYCbCr2020(toSpace);
    } else if (PatternGen::isYCbCrHDRAxes(axis)) {
        if (toSpace == PatternGen::Colour_RGB) {
            // The transfer function is not inverted: the result holds HDR-coded R'G'B'.
            const Rgb c = ColourMatrix::decode2020(PixelCodes::normalisedYCbCr(*this));
            result.assignRGBValues(c.r, c.g, c.b);
        } else if (PatternGen::isRGBHDRAxes(toSpace)) {
            result = convertYCbCrHDRToRGB(toSpace);
        } else {
            PIXEL_ASSERT(axis == toSpace);
        }
    } else if (PatternGen::isRGBHDRUnmappedAxes(axis)) {
        if (toSpace != axis) result = convertHDRFromRGB(toSpace);
    } else if (PatternGen::isRGBHDRAxes(axis)) {
        PIXEL_ASSERT(axis == toSpace);
    }

    // Depth fix-up when the result is deeper than the source.
    const int oldBits = colourSpace.bitDepth;
    const int newBits = result.colourSpace.bitDepth;
    if (newBits > oldBits) {
        const int shift = newBits - oldBits;
        if (sample[ALPHA] == Levels::fullScale(oldBits))
            result.sample[ALPHA] = static_cast<uint16_t>(Levels::fullScale(newBits));
        else
            result.sample[ALPHA] = static_cast<uint16_t>(static_cast<uint32_t>(result.sample[ALPHA]) << shift);
        if (toSpace == axis)
            for (int i = CB_B; i <= CR_R; ++i)
                result.sample[i] = static_cast<uint16_t>(static_cast<uint32_t>(result.sample[i]) << shift);
    }
    return result;
}

// Decodes a BT.2020 Y'CbCr pixel; the result is always 12 bits deep.
Pixel Pixel::convertFromYCbCr2020(colorAxes_e toSpace) const {
    Pixel result(*this);
    result.colourSpace.setColourSpace(toSpace, PixelCodes::frameBits);
    const Rgb c = ColourMatrix::decode2020(PixelCodes::normalisedYCbCr(*this));
    switch (toSpace) {
        case PatternGen::Colour_RGB:
            result.assignRGBValues(c.r, c.g, c.b);
            break;
        case PatternGen::Colour_RGB_219:
        case PatternGen::Colour_RGB_PQ:  // the unmapped RGB HDR encodings fail the studio-RGB assertion
        case PatternGen::Colour_RGB_HLG:
        case PatternGen::Colour_RGB_SLog3:
        case PatternGen::Colour_RGB_SLog3_Live:
            result.assignRGB219Values(c.r, c.g, c.b);
            break;
        case PatternGen::Colour_YCbCr_601:
            result.assignYCbCr601Values(c.r, c.g, c.b);
            break;
        case PatternGen::Colour_YCbCr_709:
            result.assignYCbCr709Values(c.r, c.g, c.b);
            break;
        case PatternGen::Colour_YCbCr_2020:
            break;
        case PatternGen::Colour_YCbCr_PQ:
        case PatternGen::Colour_YCbCr_HLG:
        case PatternGen::Colour_YCbCr_SLog3:
        case PatternGen::Colour_YCbCr_SLog3_Live:
            result = viaIntermediateRgb(sample[Y_G], colourSpace.bitDepth, c, toSpace);
            break;
        case PatternGen::Colour_YCbCr_PQ_Mapped:
        case PatternGen::Colour_YCbCr_HLG_Mapped:
        case PatternGen::Colour_YCbCr_SLog3_Mapped:
        case PatternGen::Colour_YCbCr_SLog3_Live_Mapped:
        case PatternGen::Colour_RGB_PQ_Mapped:
        case PatternGen::Colour_RGB_HLG_Mapped:
        case PatternGen::Colour_RGB_SLog3_Mapped:
        case PatternGen::Colour_RGB_SLog3_Live_Mapped:
            PIXEL_ASSERT(0);
            break;
    }
    return result;
}
