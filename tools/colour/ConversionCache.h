// Converts a stream of pixels into one colour axis, converting each run of identical input
// pixels only once: patterns are made of flat areas, and a conversion costs far more than a
// comparison. Optionally the result is brought from 10 to 12 bits (all four samples times 4), as
// the frame loops store 12-bit codes.
#pragma once

#include <cstdint>

#include "colour/Pixel.h"

class ConversionCache {
public:
    explicit ConversionCache(PatternGen::colorAxes_e axes, bool widenTenBit = false)
        : axes_(axes), widenTenBit_(widenTenBit) {}

    const Pixel& convert(const Pixel& in) {
        if (!valid_ || !in.identicalTo(lastIn_)) {
            lastIn_ = in;
            lastOut_ = in.convertTo(axes_);
            if (widenTenBit_ && lastOut_.colourSpace.bitDepth == tenBits) widen(lastOut_);
            valid_ = true;
        }
        return lastOut_;
    }

private:
    static constexpr int tenBits = 10;
    static constexpr int twelveBits = 12;

    static void widen(Pixel& p) {
        for (uint16_t& v : p.sample) v = static_cast<uint16_t>(v * 4);
        p.colourSpace.bitDepth = twelveBits;
    }

    PatternGen::colorAxes_e axes_;
    bool widenTenBit_;
    bool valid_ = false;
    Pixel lastIn_;
    Pixel lastOut_;
};
