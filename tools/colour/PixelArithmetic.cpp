// The pixel value type: construction, arithmetic and scaling about each component's reference
// level, level operations, blending, depth changes (truncation and rounding) and printing.
#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <string>

#include "colour/Pixel.h"
#include "colour/rounding.h"

using PatternGen::colorAxes_e;

namespace {

// A real-valued result as a sample: truncated toward zero, negatives (and NaN) become 0, then
// the low 16 bits are kept.
uint16_t storeReal(double v) {
    if (!(v > 0.0) || !std::isfinite(v)) return 0;
    return static_cast<uint16_t>(std::fmod(std::trunc(v), 65536.0));
}

// Chroma samples (Cb, Cr of a colour-difference pixel) move about the chroma zero; luma, alpha
// and all RGB components about black.
bool isChromaSample(const ColourSpace& cs, int index) {
    return cs.isColourDifference() && (index == Pixel::CB_B || index == Pixel::CR_R);
}

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
    if (axes == PatternGen::Colour_RGB_219 || PatternGen::isRGBHDRAxes(axes)) {
        for (int i = CB_B; i <= CR_R; ++i) result.sample[i] = static_cast<uint16_t>(Levels::highestLegal(bits));
    } else if (colourSpace.isColourDifference()) {
        result.sample[Y_G] = static_cast<uint16_t>(Levels::highestLegal(bits));
        result.sample[CB_B] = result.sample[CR_R] = static_cast<uint16_t>(Levels::chromaZero(bits));
    }
    return result;
}

// Studio-coded encodings use studio black as "no alpha"; full-range and HDR RGB the lowest legal code.
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

namespace {

// Appends what printf would print for format and its arguments.
__attribute__((format(printf, 2, 3))) void append(std::string& text, const char* format, ...) {
    char buffer[160];
    va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    if (length > 0) text.append(buffer, std::min(static_cast<size_t>(length), sizeof buffer - 1));
}

}  // namespace

void Pixel::print(const char* label, std::string& text) const {
    if (!colourSpace.isColourDifference()) {
        append(text, "%sR: %4d G: %4d B: %4d\n", label, sample[CR_R], sample[Y_G], sample[CB_B]);
        return;
    }
    const int offset = colourSpace.bitDepth == 12 ? 2048 : 512;
    append(text, "%sY: %4d Cb: %4d(%4d) Cr: %4d(%4d)\n", label, sample[Y_G], sample[CB_B] - offset, sample[CB_B],
           sample[CR_R] - offset, sample[CR_R]);
}

int Pixel::printDiff(const char* label, const Pixel& other, std::string& text) const {
    if (sample[Y_G] == other.sample[Y_G] && sample[CB_B] == other.sample[CB_B] && sample[CR_R] == other.sample[CR_R])
        return 0;
    text += label;
    if (sample[Y_G] != other.sample[Y_G]) append(text, "Y %4d %+4d\t", sample[Y_G], sample[Y_G] - other.sample[Y_G]);
    if (sample[CB_B] != other.sample[CB_B])
        append(text, "Cb %4d %+4d\t", sample[CB_B], sample[CB_B] - other.sample[CB_B]);
    if (sample[CR_R] != other.sample[CR_R])
        append(text, "Cr %4d %+4d\t", sample[CR_R], sample[CR_R] - other.sample[CR_R]);
    text += '\n';
    return 1;
}
