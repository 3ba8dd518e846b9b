// The pixel value type: arithmetic, scaling, blending, depth changes, printing, the SDR
// conversions with the dispatcher, and the HDR conversions (PQ, HLG, S-Log3) it routes to.
#include "colour/Pixel.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <limits>

#include "colour/PixelAssert.h"
#include "colour/rounding.h"

using PatternGen::colorAxes_e;

namespace {

// Encoding and decoding coefficients, as the standards write them.
namespace BT601 {
constexpr double kr = 0.299, kg = 0.587, kb = 0.114;
constexpr double cbR = -0.168736, cbG = -0.331264, cbB = 0.5;
constexpr double crR = 0.5, crG = -0.4185, crB = -0.0813;
constexpr double rCr = 1.402;
constexpr double gCb = 0.344136, gCr = 0.714136;
constexpr double bCb = 1.772;
}  // namespace BT601

namespace BT709 {
constexpr double kr = 0.2126, kg = 0.7152, kb = 0.0722;
constexpr double cbDivisor = 1.8556, crDivisor = 1.5748;
constexpr double gCb = 0.1873242729306488, gCr = 0.46812427293064884;
}  // namespace BT709

namespace BT2020 {
constexpr double kr = 0.2627, kg = 0.678, kb = 0.0593;
constexpr double cbDivisor = 1.8814, crDivisor = 1.4746;
constexpr double gCb = 0.16455312684365778, gCr = 0.5713531268436577;
}  // namespace BT2020

struct Rgb {
    double r, g, b;
};
struct YCbCr {
    double y, cb, cr;
};

YCbCr encode601(const Rgb& c) {
    return {BT601::kr * c.r + BT601::kg * c.g + BT601::kb * c.b, BT601::cbR * c.r + BT601::cbG * c.g + BT601::cbB * c.b,
            BT601::crR * c.r + BT601::crG * c.g + BT601::crB * c.b};
}

YCbCr encode709(const Rgb& c) {
    return {BT709::kr * c.r + BT709::kg * c.g + BT709::kb * c.b,
            (-BT709::kr * c.r - BT709::kg * c.g) / BT709::cbDivisor + 0.5 * c.b,
            0.5 * c.r - (BT709::kg * c.g + BT709::kb * c.b) / BT709::crDivisor};
}

YCbCr encode2020(const Rgb& c) {
    return {BT2020::kr * c.r + BT2020::kg * c.g + BT2020::kb * c.b,
            (-BT2020::kr * c.r - BT2020::kg * c.g) / BT2020::cbDivisor + 0.5 * c.b,
            0.5 * c.r - (BT2020::kg * c.g + BT2020::kb * c.b) / BT2020::crDivisor};
}

Rgb decode601(const YCbCr& v) {
    return {v.y + BT601::rCr * v.cr, v.y - BT601::gCb * v.cb - BT601::gCr * v.cr, v.y + BT601::bCb * v.cb};
}

Rgb decode709(const YCbCr& v) {
    return {v.y + BT709::crDivisor * v.cr, v.y - BT709::gCb * v.cb - BT709::gCr * v.cr, v.y + BT709::cbDivisor * v.cb};
}

Rgb decode2020(const YCbCr& v) {
    return {v.y + BT2020::crDivisor * v.cr, v.y - BT2020::gCb * v.cb - BT2020::gCr * v.cr,
            v.y + BT2020::cbDivisor * v.cb};
}

// A real-valued result as a sample: truncated toward zero, negatives (and NaN) become 0, then
// the low 16 bits are kept.
uint16_t storeReal(double v) {
    if (!(v > 0.0) || !std::isfinite(v)) return 0;
    return static_cast<uint16_t>(std::fmod(std::trunc(v), 65536.0));
}

// A real-valued code converted to int without overflow; NaN gives 0.
int toInt(double v) {
    if (std::isnan(v)) return 0;
    if (v >= static_cast<double>(std::numeric_limits<int>::max())) return std::numeric_limits<int>::max();
    if (v <= static_cast<double>(std::numeric_limits<int>::min())) return std::numeric_limits<int>::min();
    return static_cast<int>(v);
}

// offset + round(v * range), rounding halves away from zero.
int codeFrom(int offset, double v, int range) { return toInt(offset + std::round(v * range)); }

bool isPlainRGB(int axes) { return axes == PatternGen::Colour_RGB || axes == PatternGen::Colour_RGB_219; }
bool isSdrYCbCr(int axes) { return axes == PatternGen::Colour_YCbCr_601 || axes == PatternGen::Colour_YCbCr_709; }
bool isHdrYCbCr(int axes) {
    return (axes >= PatternGen::Colour_YCbCr_PQ && axes <= PatternGen::Colour_YCbCr_HLG_Mapped) ||
           (axes >= PatternGen::Colour_YCbCr_SLog3 && axes <= PatternGen::Colour_YCbCr_SLog3_Live_Mapped);
}
bool isRgbHdr(int axes) {
    return axes >= PatternGen::Colour_RGB_PQ && axes <= PatternGen::Colour_RGB_SLog3_Live_Mapped;
}
bool isRgbHdrUnmapped(int axes) {
    return axes >= PatternGen::Colour_RGB_PQ && axes <= PatternGen::Colour_RGB_SLog3_Live;
}
bool isPq(int axes) { return axes == PatternGen::Colour_YCbCr_PQ || axes == PatternGen::Colour_YCbCr_PQ_Mapped; }
bool isHlg(int axes) { return axes == PatternGen::Colour_YCbCr_HLG || axes == PatternGen::Colour_YCbCr_HLG_Mapped; }

// Chroma samples move about the chroma zero; luma and all RGB components about black.
bool isChromaSample(const ColourSpace& cs, int index) { return cs.isColourDifference() && index != Pixel::Y_G; }

int referenceLevel(const ColourSpace& cs, int index) {
    return isChromaSample(cs, index) ? Levels::chromaZero(cs.bitDepth) : cs.blackLevel;
}

bool limitSample(const ColourSpace& cs, int index, int& code) {
    return isChromaSample(cs, index) ? cs.limitChroma(code) : cs.limitLuma(code);
}

// ref + (num * (c - ref) + den / 2) / den with truncating division; 64 bits avoid overflow.
int64_t scaledCode(int ref, int code, int num, int den) {
    const int64_t offset = static_cast<int64_t>(num) * (code - ref) + den / 2;
    return ref + offset / den;
}

uint16_t scaleAbout(int ref, int code, int num, int den) {
    return static_cast<uint16_t>(scaledCode(ref, code, num, den));
}

uint16_t scaleAbout(int ref, int code, double factor) { return storeReal(ref + (code - ref) * factor); }

uint16_t clampToLegal(int code, int bits) {
    if (code < Levels::lowestLegal(bits)) return static_cast<uint16_t>(Levels::lowestLegal(bits));
    if (code > Levels::highestLegal(bits)) return static_cast<uint16_t>(Levels::highestLegal(bits));
    return static_cast<uint16_t>(code);
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Construction

Pixel::Pixel() : colourSpace(PatternGen::Colour_YCbCr_709, 12) {
    sample[CB_B] = static_cast<uint16_t>(Levels::chromaZero(12));
    sample[Y_G] = static_cast<uint16_t>(colourSpace.blackLevel);
    sample[CR_R] = static_cast<uint16_t>(Levels::chromaZero(12));
    sample[ALPHA] = static_cast<uint16_t>(Levels::fullScale(12));
}

Pixel::Pixel(int y, int cb, int cr) : Pixel(y, cb, cr, PatternGen::Colour_YCbCr_709, 12) {}

Pixel::Pixel(int y, int cb, int cr, colorAxes_e axes) : Pixel(y, cb, cr, axes, 12) {}

Pixel::Pixel(int y, int cb, int cr, colorAxes_e axes, int bits) : colourSpace(axes, bits) {
    sample[CB_B] = static_cast<uint16_t>(cb);
    sample[Y_G] = static_cast<uint16_t>(y);
    sample[CR_R] = static_cast<uint16_t>(cr);
    sample[ALPHA] = static_cast<uint16_t>(Levels::fullScale(bits));
}

// ---------------------------------------------------------------------------------------------
// Arithmetic and scaling

Pixel Pixel::operator+(const Pixel& other) const {
    Pixel result(*this);
    result += other;
    return result;
}

Pixel& Pixel::operator+=(const Pixel& other) {
    for (int i = CB_B; i <= CR_R; ++i)
        sample[i] = static_cast<uint16_t>(sample[i] + other.sample[i] - referenceLevel(colourSpace, i));
    return *this;
}

Pixel Pixel::scale(int num, int den) const {
    Pixel result(*this);
    for (int i = CB_B; i <= CR_R; ++i)
        result.sample[i] = scaleAbout(referenceLevel(colourSpace, i), sample[i], num, den);
    return result;
}

Pixel Pixel::scale(double factor) const { return scaleLumChrom(factor, factor); }

Pixel Pixel::scaleLumChrom(double lumaFactor, double chromaFactor) const {
    Pixel result(*this);
    for (int i = CB_B; i <= CR_R; ++i) {
        const double factor = isChromaSample(colourSpace, i) ? chromaFactor : lumaFactor;
        result.sample[i] = scaleAbout(referenceLevel(colourSpace, i), sample[i], factor);
    }
    return result;
}

// Clips the scaled codes before they are reduced to 16 bits, so results below black stay low.
Pixel Pixel::scaleWithClip(int num, int den) const {
    Pixel result(*this);
    for (int i = CB_B; i <= CR_R; ++i) {
        const int64_t scaled = scaledCode(referenceLevel(colourSpace, i), sample[i], num, den);
        int code = static_cast<int>(std::max<int64_t>(std::min<int64_t>(scaled, INT32_MAX), INT32_MIN));
        limitSample(colourSpace, i, code);
        result.sample[i] = static_cast<uint16_t>(code);
    }
    return result;
}

// Scales in linear light: decode with the space's gamma law, scale, re-encode. Chroma scales linearly.
Pixel Pixel::scaleWithGamma(int num, int den) const {
    Pixel result(*this);
    const bool fullRange = colourSpace.colourAxes == PatternGen::Colour_RGB;
    for (int i = CB_B; i <= CR_R; ++i) {
        if (isChromaSample(colourSpace, i)) {
            result.sample[i] = scaleAbout(referenceLevel(colourSpace, i), sample[i], num, den);
            continue;
        }
        const double g = colourSpace.linearFloatToGamma(colourSpace.gammaToLinear(sample[i]) * num / den);
        const double code = fullRange ? Levels::fullScale(colourSpace.bitDepth) * g
                                      : colourSpace.blackLevel + Levels::lumaExcursion(colourSpace.bitDepth) * g;
        result.sample[i] = storeReal(code);
    }
    return result;
}

// ---------------------------------------------------------------------------------------------
// Level operations

Pixel Pixel::subBlack() const {
    Pixel result(*this);
    const int bits = colourSpace.bitDepth;
    const int axes = colourSpace.colourAxes;
    if (axes == PatternGen::Colour_RGB_219) {
        for (int i = CB_B; i <= CR_R; ++i) result.sample[i] = static_cast<uint16_t>(Levels::lowestLegal(bits));
    } else if (colourSpace.isColourDifference()) {
        result.sample[Y_G] = static_cast<uint16_t>(Levels::lowestLegal(bits));
        result.sample[CB_B] = result.sample[CR_R] = static_cast<uint16_t>(Levels::chromaZero(bits));
    }
    return result;
}

Pixel Pixel::superWhite() const {
    Pixel result(*this);
    const int bits = colourSpace.bitDepth;
    const int axes = colourSpace.colourAxes;
    if (axes == PatternGen::Colour_RGB_219 || isRgbHdr(axes)) {
        for (int i = CB_B; i <= CR_R; ++i) result.sample[i] = static_cast<uint16_t>(Levels::highestLegal(bits));
    } else if (colourSpace.isColourDifference()) {
        result.sample[Y_G] = static_cast<uint16_t>(Levels::highestLegal(bits));
        result.sample[CB_B] = result.sample[CR_R] = static_cast<uint16_t>(Levels::chromaZero(bits));
    }
    return result;
}

// Studio-coded axes use studio black as "no alpha"; full-range and HDR RGB the lowest legal code.
Pixel Pixel::noAlpha() const {
    Pixel result(*this);
    const int bits = colourSpace.bitDepth;
    const int axes = colourSpace.colourAxes;
    const bool studio = axes == PatternGen::Colour_RGB_219 || colourSpace.isColourDifference();
    result.sample[ALPHA] = static_cast<uint16_t>(studio ? Levels::studioBlack(bits) : Levels::lowestLegal(bits));
    return result;
}

Pixel Pixel::legalise() const {
    Pixel result(*this);
    for (int i = CB_B; i <= CR_R; ++i) result.sample[i] = clampToLegal(sample[i], colourSpace.bitDepth);
    return result;
}

// ---------------------------------------------------------------------------------------------
// Blending

Pixel Pixel::blend(double lumaMix, double chromaMix, const Pixel& other) const {
    Pixel result(*this);
    const ColourSpace& cs = colourSpace;
    const int bits = cs.bitDepth;
    if (cs.isColourDifference()) {
        const double luma =
            lumaMix * cs.normaliseLuma(sample[Y_G]) + (1 - lumaMix) * cs.normaliseLuma(other.sample[Y_G]);
        result.sample[Y_G] = storeReal(Levels::studioBlack(bits) + luma * Levels::lumaExcursion(bits));
        for (int i : {CB_B, CR_R}) {
            const double chroma =
                chromaMix * cs.normaliseChroma(sample[i]) + (1 - chromaMix) * cs.normaliseChroma(other.sample[i]);
            result.sample[i] = storeReal(Levels::chromaZero(bits) + chroma * Levels::chromaExcursion(bits));
        }
    } else {
        for (int i = CB_B; i <= CR_R; ++i)
            result.sample[i] = storeReal(other.sample[i] * (1 - lumaMix) + sample[i] * lumaMix);
    }
    return result;
}

// ---------------------------------------------------------------------------------------------
// Depth changes

Pixel Pixel::truncateTo(int bits) const {
    Pixel result(*this);
    const int oldBits = colourSpace.bitDepth;
    for (int i = CB_B; i <= ALPHA; ++i) {
        if (bits < oldBits)
            result.sample[i] = static_cast<uint16_t>(sample[i] >> (oldBits - bits));
        else if (bits > oldBits)
            result.sample[i] = static_cast<uint16_t>(static_cast<uint32_t>(sample[i]) << (bits - oldBits));
    }
    result.colourSpace.bitDepth = bits;
    return result;
}

Pixel Pixel::roundTo(int bits) const {
    const int oldBits = colourSpace.bitDepth;
    if (bits > oldBits) return truncateTo(bits);
    Pixel result(*this);
    const int s = oldBits - bits;
    for (int i = CB_B; i <= ALPHA; ++i) {
        const unsigned rounded = isChromaSample(colourSpace, i) ? Rounding::roundChromaTo(oldBits, s, sample[i])
                                                                : Rounding::roundTo(s, sample[i]);
        result.sample[i] = static_cast<uint16_t>(rounded >> s);
    }
    result.colourSpace.bitDepth = bits;
    return result;
}

// ---------------------------------------------------------------------------------------------
// Printing

void Pixel::print(const char* label) const {
    if (!colourSpace.isColourDifference()) {
        std::printf("%sR: %4d G: %4d B: %4d\n", label, sample[CR_R], sample[Y_G], sample[CB_B]);
        return;
    }
    const int offset = colourSpace.bitDepth == 12 ? 2048 : 512;
    std::printf("%sY: %4d Cb: %4d(%4d) Cr: %4d(%4d)\n", label, sample[Y_G], sample[CB_B] - offset, sample[CB_B],
                sample[CR_R] - offset, sample[CR_R]);
}

int Pixel::printDiff(const char* label, const Pixel& other) const {
    if (sample[Y_G] == other.sample[Y_G] && sample[CB_B] == other.sample[CB_B] && sample[CR_R] == other.sample[CR_R])
        return 0;
    std::printf("%s", label);
    if (sample[Y_G] != other.sample[Y_G]) std::printf("Y %4d %+4d\t", sample[Y_G], sample[Y_G] - other.sample[Y_G]);
    if (sample[CB_B] != other.sample[CB_B])
        std::printf("Cb %4d %+4d\t", sample[CB_B], sample[CB_B] - other.sample[CB_B]);
    if (sample[CR_R] != other.sample[CR_R])
        std::printf("Cr %4d %+4d\t", sample[CR_R], sample[CR_R] - other.sample[CR_R]);
    std::printf("\n");
    return 1;
}

// ---------------------------------------------------------------------------------------------
// Assigners: overwrite the samples from normalised R, G, B in this pixel's axes.

namespace {

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
    storeYCbCr(*this, encode601({r, g, b}));
}

void Pixel::assignYCbCr709Values(double r, double g, double b) {
    const int axis = colourSpace.colourAxes;
    PIXEL_ASSERT(axis == PatternGen::Colour_YCbCr_709);
    storeYCbCr(*this, encode709({r, g, b}));
}

void Pixel::assignYCbCr2020Values(double r, double g, double b) {
    const auto colourIsIn2020 = [this] { return colourSpace.colourIsIn2020(); };
    PIXEL_ASSERT(colourIsIn2020());
    storeYCbCr(*this, encode2020({r, g, b}));
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

Rgb normalisedRgb(const Pixel& p) {
    const ColourSpace& cs = p.colourSpace;
    return {cs.normaliseLuma(p.sample[Pixel::CR_R]), cs.normaliseLuma(p.sample[Pixel::Y_G]),
            cs.normaliseLuma(p.sample[Pixel::CB_B])};
}

YCbCr normalisedYCbCr(const Pixel& p) {
    const ColourSpace& cs = p.colourSpace;
    return {cs.normaliseLuma(p.sample[Pixel::Y_G]), cs.normaliseChroma(p.sample[Pixel::CB_B]),
            cs.normaliseChroma(p.sample[Pixel::CR_R])};
}

// HDR encodings from SDR work on 10-bit codes: a 12-bit source is cut to 10 bits (no rounding).
Rgb normalisedRgbForHdr(const Pixel& p) {
    if (p.colourSpace.bitDepth != 12) return normalisedRgb(p);
    Pixel reduced(p);
    reduced.colourSpace.setColourSpace(p.colourSpace.axes(), 10);
    for (int i = Pixel::CB_B; i <= Pixel::CR_R; ++i) reduced.sample[i] = static_cast<uint16_t>(p.sample[i] >> 2);
    return normalisedRgb(reduced);
}

Pixel rgbToHdrYCbCr(const Pixel& source, const Rgb& c, colorAxes_e toSpace) {
    if (isPq(toSpace)) return source.convertRGB709toYCbCrPQ(c.r, c.g, c.b, toSpace);
    if (isHlg(toSpace)) return source.convertRGB709toYCbCrHLG(c.r, c.g, c.b, toSpace);
    return source.convertRGB709toYCbCrSLog3(c.r, c.g, c.b, toSpace);
}

// A Y'CbCr colour on its way to HDR passes through a 10-bit RGB pixel: full range when its luma
// code is within studio black..white, studio range otherwise so that the excursion survives.
Pixel viaIntermediateRgb(int lumaCode, int sourceBits, const Rgb& c, colorAxes_e toSpace) {
    const bool nominal = lumaCode >= Levels::studioBlack(sourceBits) && lumaCode <= Levels::studioWhite(sourceBits);
    Pixel intermediate(0, 0, 0, nominal ? PatternGen::Colour_RGB : PatternGen::Colour_RGB_219, 10);
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

    if (isPlainRGB(axis)) {
        const Rgb c = normalisedRgb(*this);
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
        } else if (isHdrYCbCr(toSpace)) {
            result = rgbToHdrYCbCr(*this, normalisedRgbForHdr(*this), toSpace);
        } else if (isRgbHdr(toSpace)) {
            result = convertRGB709toRGBHDR(c.r, c.g, c.b, toSpace);
        }
    } else if (isSdrYCbCr(axis)) {
        const YCbCr v = normalisedYCbCr(*this);
        const Rgb c = axis == PatternGen::Colour_YCbCr_601 ? decode601(v) : decode709(v);
        if (toSpace == PatternGen::Colour_RGB) {
            result.assignRGBValues(c.r, c.g, c.b);
        } else if (toSpace == PatternGen::Colour_RGB_219) {
            result.assignRGB219Values(c.r, c.g, c.b);
        } else if (toSpace == axis) {
            // same axis: the copy
        } else if (isSdrYCbCr(toSpace)) {
            PIXEL_ASSERT(0);  // no direct 601 <-> 709 conversion
        } else if (toSpace == PatternGen::Colour_YCbCr_2020) {
            result = convertRGB709toYCbCr2020(c.r, c.g, c.b);
        } else if (isHdrYCbCr(toSpace)) {
            result = viaIntermediateRgb(sample[Y_G], colourSpace.bitDepth, c, toSpace);
        } else if (isRgbHdr(toSpace)) {
            result = convertRGB709toRGBHDR(c.r, c.g, c.b, toSpace);
        }
    } else if (axis == PatternGen::Colour_YCbCr_2020) {
        result = convertFromYCbCr2020(toSpace);
    } else if (isHdrYCbCr(axis)) {
        if (toSpace == PatternGen::Colour_RGB) {
            // The transfer function is not inverted: the result holds HDR-coded R'G'B'.
            const Rgb c = decode2020(normalisedYCbCr(*this));
            result.assignRGBValues(c.r, c.g, c.b);
        } else if (isRgbHdr(toSpace)) {
            result = convertYCbCrHDRToRGB(toSpace);
        } else {
            PIXEL_ASSERT(axis == toSpace);
        }
    } else if (isRgbHdrUnmapped(axis)) {
        if (toSpace != axis) result = convertHDRFromRGB(toSpace);
    } else if (isRgbHdr(axis)) {
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
    result.colourSpace.setColourSpace(toSpace, 12);
    const Rgb c = decode2020(normalisedYCbCr(*this));
    switch (toSpace) {
        case PatternGen::Colour_RGB:
            result.assignRGBValues(c.r, c.g, c.b);
            break;
        case PatternGen::Colour_RGB_219:
        case PatternGen::Colour_RGB_PQ:  // the unmapped RGB HDR axes fail the studio-RGB assertion
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

// ---------------------------------------------------------------------------------------------
// HDR conversions: PQ, HLG and S-Log3 encodings of SDR colours, in Y'CbCr and R'G'B', optionally
// with BT.709 primaries mapped into BT.2020.

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
