// The full-frame row, which the full-frame loop fills and the PNG, DPX and Y4M writers, the preview and
// the library's layouts read: four unsigned 16-bit samples a pixel, Cr, Y', Cb, A (Y'CbCr encodings) or R',
// G', B', A (R'G'B' encodings). The loop stores 12-bit codes times 16; rounding leaves the code at the output
// depth in the high bits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "colour/ColourSpace.h"

namespace FrameRow {

constexpr int samplesPerPixel = 4;
constexpr int crOrR = 0, yOrG = 1, cbOrB = 2, alpha = 3;
constexpr int loopCodeShift = 4;  // 12-bit codes on the 16-bit scale

// The code at `bits` of a rounded sample.
inline unsigned code(uint16_t sample, int bits) { return unsigned(sample) >> (16 - bits); }

// Rounds every sample of `pixels` pixels to the output depth, in place, staying on the 16-bit scale.
void round(uint16_t* row, size_t pixels, PatternGen::colorAxes_e axes, int bits);

}  // namespace FrameRow

namespace Runs {

// Elements compared at once while a run is long.
constexpr ptrdiff_t blockElements = 16;

// The end of the run of elements bytewise equal to *first, searching up to `last`. A long run goes a
// block at a time: a block equal to itself shifted by one element repeats the element before it.
template <typename T>
T* endOfRun(T* first, T* last) {
    T* p = first + 1;
    while (last - p >= blockElements && std::memcmp(p - 1, p, blockElements * sizeof(T)) == 0) p += blockElements;
    while (p != last && std::memcmp(p, first, sizeof(T)) == 0) ++p;
    return p;
}

}  // namespace Runs
