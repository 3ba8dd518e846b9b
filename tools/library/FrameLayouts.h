// The memory layouts frames are handed over in (see include/pm5544/pm5544.h for each one's bytes), and
// the packing of rounded full-frame rows into them. The Y4M writer packs its planes with the same code.
#pragma once

#include <cstddef>
#include <cstdint>

#include "colour/ColourSpace.h"
#include "pattern/Scan.h"

namespace pm5544 {

// YUY2 is UYVY's pairs in another byte order, BGRA8 RGBA8's pixels; SemiPlanar is one luma plane and one
// of interleaved Cb Cr.
enum class Packing { Frame16, Planar, SemiPlanar, V210, UYVY, YUY2, RGBA16, RGBA8, BGRA8, GBR };

struct LayoutFormat {
    const char* name;
    Packing packing;
    int bits;      // 0: the card's (Frame16)
    int sampling;  // 444, 422, 420; 0: the card's (Frame16)
};

constexpr int maximumPlanes = 3;

struct PlaneSize {
    uint64_t rowBytes;  // 64 bits whatever size_t is: the C API refuses what size_t cannot hold
    int rows;
};

// nullptr for a number that is no layout (the numbers are the C API's).
const LayoutFormat* layoutFormat(int layout);
int layoutCount();
// Whether frames of this encoding can be had in the layout: Y'CbCr layouts for Y'CbCr encodings, R'G'B'
// ones for R'G'B' encodings, the full-frame row for any.
bool layoutAllows(const LayoutFormat& format, PatternGen::colorAxes_e axes);
// The planes' least row bytes and rows at a raster; returns their count.
int planeSizes(const LayoutFormat& format, int width, int height, PlaneSize sizes[maximumPlanes]);
// The alignment in bytes every plane's start and stride needs.
size_t planeAlignment(const LayoutFormat& format);

// Packs frame row y (rounded to the layout's depth, width pixels) into the planes, each starting at its row 0;
// an interlaced scan places 4:2:0 chroma per field.
void packRow(const LayoutFormat& format, const uint16_t* row, int width, int y, uint8_t* const planes[],
             const size_t strides[], PatternGen::Scan scan = PatternGen::Scan::Progressive);

// Planar samples at `bits`: one byte at 8 bits, else 16-bit little-endian. Y' of each pixel; Cb and Cr
// of every columnStep-th pixel from the first, chromaWidth of them.
void packLuma(const uint16_t* row, int width, int bits, uint8_t* out);
void packChroma(const uint16_t* row, int chromaWidth, int columnStep, int bits, uint8_t* cb, uint8_t* cr);

// Unpacks row y of a frame in the layout into three rows of codes at the layout's depth (FRAME16: at
// `bits`, its codes taken from the high bits): Y', Cb, Cr for Y'CbCr (FRAME16 when ycbcr) or R', G', B',
// the chroma rows (width + 1) / 2 wide in 4:2:2 and 4:2:0, where 4:2:0 row y takes chroma row y / 2.
void unpackRow(const LayoutFormat& format, const uint8_t* const planes[], const size_t strides[], int width, int y,
               int bits, bool ycbcr, uint16_t* const out[3]);

}  // namespace pm5544
