#include "library/FrameLayouts.h"

#include <cstring>
#include <iterator>

#include "pattern/FrameRow.h"

namespace pm5544 {

namespace {

using FrameRow::code;
constexpr int px = FrameRow::samplesPerPixel;
constexpr int lumaAt = FrameRow::yOrG, cbAt = FrameRow::cbOrB, crAt = FrameRow::crOrR;

// In the order of the C API's numbers.
const LayoutFormat layouts[] = {
    {"FRAME16", Packing::Frame16, 0, 0},   {"I420_8", Packing::Planar, 8, 420},   {"I420_10", Packing::Planar, 10, 420},
    {"I420_12", Packing::Planar, 12, 420}, {"I420_16", Packing::Planar, 16, 420}, {"I422_8", Packing::Planar, 8, 422},
    {"I422_10", Packing::Planar, 10, 422}, {"I422_12", Packing::Planar, 12, 422}, {"I422_16", Packing::Planar, 16, 422},
    {"I444_8", Packing::Planar, 8, 444},   {"I444_10", Packing::Planar, 10, 444}, {"I444_12", Packing::Planar, 12, 444},
    {"I444_16", Packing::Planar, 16, 444}, {"V210", Packing::V210, 10, 422},      {"UYVY", Packing::UYVY, 8, 422},
    {"RGBA16", Packing::RGBA16, 16, 444},  {"GBR_10", Packing::GBR, 10, 444},     {"GBR_12", Packing::GBR, 12, 444},
    {"GBR_16", Packing::GBR, 16, 444},
};

constexpr int v210GroupPixels = 6;
constexpr size_t v210GroupBytes = 16;

void storeLE16(uint8_t* at, unsigned value) {
    at[0] = static_cast<uint8_t>(value);
    at[1] = static_cast<uint8_t>(value >> 8);
}

void storeLE32(uint8_t* at, uint32_t value) {
    for (int i = 0; i < 4; ++i) at[i] = static_cast<uint8_t>(value >> (8 * i));
}

void storeSample(uint8_t* out, int index, unsigned value, int bits) {
    if (bits == 8)
        out[index] = static_cast<uint8_t>(value);
    else
        storeLE16(out + 2 * static_cast<size_t>(index), value);
}

// A sample of pixel x at `bits`; 0 past the row's end (padding in a packed group).
unsigned sampleAt(const uint16_t* row, int width, int x, int which, int bits) {
    return x < width ? code(row[static_cast<size_t>(x) * px + which], bits) : 0;
}

void packV210(const uint16_t* row, int width, uint8_t* out) {
    constexpr int bits = 10;
    const auto y = [&](int x) { return uint32_t(sampleAt(row, width, x, lumaAt, bits)); };
    const auto cb = [&](int x) { return uint32_t(sampleAt(row, width, x, cbAt, bits)); };
    const auto cr = [&](int x) { return uint32_t(sampleAt(row, width, x, crAt, bits)); };
    const auto word = [](uint32_t a, uint32_t b, uint32_t c) { return a | (b << 10) | (c << 20); };
    for (int x = 0; x < width; x += v210GroupPixels, out += v210GroupBytes) {
        storeLE32(out, word(cb(x), y(x), cr(x)));
        storeLE32(out + 4, word(y(x + 1), cb(x + 2), y(x + 2)));
        storeLE32(out + 8, word(cr(x + 2), y(x + 3), cb(x + 4)));
        storeLE32(out + 12, word(y(x + 4), cr(x + 4), y(x + 5)));
    }
}

void packUYVY(const uint16_t* row, int width, uint8_t* out) {
    constexpr int bits = 8;
    for (int x = 0; x < width; x += 2, out += 4) {
        out[0] = static_cast<uint8_t>(sampleAt(row, width, x, cbAt, bits));
        out[1] = static_cast<uint8_t>(sampleAt(row, width, x, lumaAt, bits));
        out[2] = static_cast<uint8_t>(sampleAt(row, width, x, crAt, bits));
        out[3] = static_cast<uint8_t>(sampleAt(row, width, x + 1, lumaAt, bits));
    }
}

// Video takes alpha as coverage: opaque is the largest code, where the frame row keeps the card's own.
constexpr unsigned opaque16 = 0xFFFF;

void packRGBA16(const uint16_t* row, int width, uint8_t* out) {
    for (int x = 0; x < width; ++x, row += px, out += px * sizeof(uint16_t)) {
        storeLE16(out, row[FrameRow::crOrR]);
        storeLE16(out + 2, row[FrameRow::yOrG]);
        storeLE16(out + 4, row[FrameRow::cbOrB]);
        storeLE16(out + 6, opaque16);
    }
}

void packPlane(const uint16_t* row, int width, int which, int bits, uint8_t* out) {
    for (int x = 0; x < width; ++x) storeSample(out, x, code(row[static_cast<size_t>(x) * px + which], bits), bits);
}

int chromaColumnStep(int sampling) { return sampling == 444 ? 1 : 2; }
int chromaRowStep(int sampling) { return sampling == 420 ? 2 : 1; }

}  // namespace

const LayoutFormat* layoutFormat(int layout) {
    return layout >= 0 && layout < layoutCount() ? &layouts[layout] : nullptr;
}

int layoutCount() { return static_cast<int>(std::size(layouts)); }

bool layoutAllows(const LayoutFormat& format, PatternGen::colorAxes_e axes) {
    switch (format.packing) {
        case Packing::Frame16:
            return true;
        case Packing::RGBA16:
        case Packing::GBR:
            return PatternGen::isRGBAxes(axes);
        default:
            return PatternGen::isYCbCrAxes(axes);
    }
}

int planeSizes(const LayoutFormat& format, int width, int height, PlaneSize sizes[maximumPlanes]) {
    const size_t w = static_cast<size_t>(width);
    const size_t bytesPerSample = format.bits == 8 ? 1 : 2;
    switch (format.packing) {
        case Packing::Frame16:
        case Packing::RGBA16:
            sizes[0] = {w * px * sizeof(uint16_t), height};
            return 1;
        case Packing::V210:
            sizes[0] = {(w + v210GroupPixels - 1) / v210GroupPixels * v210GroupBytes, height};
            return 1;
        case Packing::UYVY:
            sizes[0] = {(w + 1) / 2 * 4, height};
            return 1;
        case Packing::GBR:
            for (int p = 0; p < maximumPlanes; ++p) sizes[p] = {w * bytesPerSample, height};
            return maximumPlanes;
        case Packing::Planar:
            break;
    }
    const int columnStep = chromaColumnStep(format.sampling), rowStep = chromaRowStep(format.sampling);
    const size_t chromaWidth = (w + size_t(columnStep) - 1) / size_t(columnStep);
    const int chromaRows = (height + rowStep - 1) / rowStep;
    sizes[0] = {w * bytesPerSample, height};
    sizes[1] = sizes[2] = {chromaWidth * bytesPerSample, chromaRows};
    return maximumPlanes;
}

size_t planeAlignment(const LayoutFormat& format) {
    if (format.packing == Packing::V210) return 4;
    return format.packing == Packing::UYVY || format.bits == 8 ? 1 : 2;
}

void packLuma(const uint16_t* row, int width, int bits, uint8_t* out) { packPlane(row, width, lumaAt, bits, out); }

void packChroma(const uint16_t* row, int chromaWidth, int columnStep, int bits, uint8_t* cb, uint8_t* cr) {
    for (int c = 0; c < chromaWidth; ++c) {
        const uint16_t* pixel = row + static_cast<size_t>(c) * size_t(columnStep) * px;
        storeSample(cb, c, code(pixel[cbAt], bits), bits);
        storeSample(cr, c, code(pixel[crAt], bits), bits);
    }
}

void packRow(const LayoutFormat& format, const uint16_t* row, int width, int y, uint8_t* const planes[],
             const size_t strides[], PatternGen::Scan scan) {
    const auto rowOf = [&](int plane, int planeRow) { return planes[plane] + strides[plane] * size_t(planeRow); };
    const int chromaRow = PatternGen::chromaPlaneRow(format.sampling, scan, y);  // -1: no chroma of its own
    switch (format.packing) {
        case Packing::Frame16:
            std::memcpy(rowOf(0, y), row, static_cast<size_t>(width) * px * sizeof(uint16_t));
            return;
        case Packing::RGBA16:
            packRGBA16(row, width, rowOf(0, y));
            return;
        case Packing::V210:
            packV210(row, width, rowOf(0, y));
            return;
        case Packing::UYVY:
            packUYVY(row, width, rowOf(0, y));
            return;
        case Packing::GBR:
            packPlane(row, width, lumaAt, format.bits, rowOf(0, y));  // G'
            packPlane(row, width, cbAt, format.bits, rowOf(1, y));    // B'
            packPlane(row, width, crAt, format.bits, rowOf(2, y));    // R'
            return;
        case Packing::Planar:
            break;
    }
    packLuma(row, width, format.bits, rowOf(0, y));
    if (chromaRow < 0) return;
    const int columnStep = chromaColumnStep(format.sampling);
    const int chromaWidth = (width + columnStep - 1) / columnStep;
    packChroma(row, chromaWidth, columnStep, format.bits, rowOf(1, chromaRow), rowOf(2, chromaRow));
}

}  // namespace pm5544
