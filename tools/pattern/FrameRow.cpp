#include "pattern/FrameRow.h"

#include "colour/rounding.h"

namespace FrameRow {

namespace {

// A pixel's four samples as one element, so that runs of equal pixels are found and filled whole.
struct Samples {
    uint16_t s[samplesPerPixel];
};
static_assert(sizeof(Samples) == samplesPerPixel * sizeof(uint16_t), "a pixel is its samples");

// Rows are mostly runs of equal pixels: each run is rounded once and copied along.
template <typename RoundPixel>
void roundEachRun(uint16_t* row, size_t pixels, RoundPixel roundPixel) {
    Samples* p = reinterpret_cast<Samples*>(row);
    Samples* const end = p + pixels;
    while (p != end) {
        Samples* const runEnd = Runs::endOfRun(p, end);
        Samples rounded = *p;
        roundPixel(rounded.s);
        for (; p != runEnd; ++p) *p = rounded;
    }
}

}  // namespace

void round(uint16_t* row, size_t pixels, PatternGen::colorAxes_e axes, int bits) {
    const int s = 16 - bits;
    constexpr int inBits = 16;
    if (axes == PatternGen::Colour_RGB) {
        roundEachRun(row, pixels, [s](uint16_t* p) {
            for (int i = 0; i < samplesPerPixel; ++i) p[i] = Rounding::roundTo(s, p[i]);
        });
    } else if (axes == PatternGen::Colour_RGB_219) {
        roundEachRun(row, pixels, [s](uint16_t* p) {
            for (int i = 0; i < samplesPerPixel; ++i) p[i] = Rounding::roundLumaTo(inBits, s, p[i]);
        });
    } else {
        // Cr and Cb (or R and B, which take the chroma rule too) and Y' and A.
        roundEachRun(row, pixels, [s](uint16_t* p) {
            p[crOrR] = Rounding::roundChromaTo(inBits, s, p[crOrR]);
            p[yOrG] = Rounding::roundLumaTo(inBits, s, p[yOrG]);
            p[cbOrB] = Rounding::roundChromaTo(inBits, s, p[cbOrB]);
            p[alpha] = Rounding::roundLumaTo(inBits, s, p[alpha]);
        });
    }
}

}  // namespace FrameRow
