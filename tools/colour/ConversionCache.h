// Converts a stream of pixels into one encoding, converting each distinct input pixel about once:
// patterns are made of flat areas in a few hundred colours, and a conversion costs far more than a
// look-up. Optionally the result is brought from 10 to 12 bits (all four samples times 4), as the
// frame loops store 12-bit codes.
#pragma once

#include <cstdint>
#include <cstring>

#include "colour/Pixel.h"

class ConversionCache {
public:
    explicit ConversionCache(PatternGen::colorAxes_e axes, bool widenTenBit = false)
        : axes_(axes), widenTenBit_(widenTenBit) {}
    // A copy's last entry would point into the original.
    ConversionCache(const ConversionCache&) = delete;
    ConversionCache& operator=(const ConversionCache&) = delete;

    // The converted pixel, valid until the next call.
    const Pixel& convert(const Pixel& in) {
        if (last_ != nullptr && last_->in.identicalTo(in)) return last_->out;
        Entry& entry = entries_[slotOf(in)];
        if (!entry.valid || !entry.in.identicalTo(in)) {
            entry.in = in;
            entry.out = in.convertTo(axes_);
            if (widenTenBit_ && entry.out.colourSpace.bitDepth == tenBits) widen(entry.out);
            entry.valid = true;
        }
        last_ = &entry;
        return entry.out;
    }

private:
    static constexpr int tenBits = 10;
    static constexpr int twelveBits = 12;
    static constexpr int slotBits = 8;  // 256 remembered conversions, 15 KB

    static_assert(sizeof(Pixel::sample) == sizeof(uint64_t), "the samples are hashed as one word");

    struct Entry {
        Pixel in;
        Pixel out;
        bool valid = false;
    };

    // A multiplicative hash of the four samples: pixels in different colour spaces but with equal
    // samples merely share a slot.
    static uint32_t slotOf(const Pixel& p) {
        uint64_t samples;
        std::memcpy(&samples, p.sample, sizeof samples);
        return static_cast<uint32_t>((samples * 0x9E3779B97F4A7C15u) >> (64 - slotBits));
    }

    static void widen(Pixel& p) {
        for (uint16_t& v : p.sample) v = static_cast<uint16_t>(v * 4);
        p.colourSpace.bitDepth = twelveBits;
    }

    PatternGen::colorAxes_e axes_;
    bool widenTenBit_;
    Entry entries_[1 << slotBits];
    const Entry* last_ = nullptr;  // a run of equal pixels asks for the same entry again and again
};
