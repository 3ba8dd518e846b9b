// A pixel's samples as normalised values, shared by the SDR and HDR conversion units of Pixel.
#pragma once

#include <cstdint>

#include "colour/ColourMatrices.h"
#include "colour/Pixel.h"

namespace PixelCodes {

// HDR encodings of SDR colours give 10-bit codes.
constexpr int hdrBits = 10;
// The depth whose sources are cut to hdrBits before an HDR encoding.
constexpr int frameBits = 12;

inline ColourMatrix::Rgb normalisedRgb(const Pixel& p) {
    const ColourSpace& cs = p.colourSpace;
    return {cs.normaliseLuma(p.sample[Pixel::CR_R]), cs.normaliseLuma(p.sample[Pixel::Y_G]),
            cs.normaliseLuma(p.sample[Pixel::CB_B])};
}

inline ColourMatrix::YCbCr normalisedYCbCr(const Pixel& p) {
    const ColourSpace& cs = p.colourSpace;
    return {cs.normaliseLuma(p.sample[Pixel::Y_G]), cs.normaliseChroma(p.sample[Pixel::CB_B]),
            cs.normaliseChroma(p.sample[Pixel::CR_R])};
}

// HDR encodings from SDR work on 10-bit codes: a 12-bit source is cut to 10 bits (no rounding).
inline ColourMatrix::Rgb normalisedRgbForHdr(const Pixel& p) {
    if (p.colourSpace.bitDepth != frameBits) return normalisedRgb(p);
    Pixel reduced(p);
    reduced.colourSpace.setColourSpace(p.colourSpace.axes(), hdrBits);
    for (int i = Pixel::CB_B; i <= Pixel::CR_R; ++i)
        reduced.sample[i] = static_cast<uint16_t>(p.sample[i] >> (frameBits - hdrBits));
    return normalisedRgb(reduced);
}

}  // namespace PixelCodes
