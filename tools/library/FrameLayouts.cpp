#include "library/FrameLayouts.h"

#include <cstring>
#include <iterator>

#include "pattern/FrameRow.h"
#include "pm5544/pm5544.h"

namespace pm5544 {

namespace {

using FrameRow::code;
constexpr int px = FrameRow::samplesPerPixel;
constexpr int lumaAt = FrameRow::yOrG, cbAt = FrameRow::cbOrB, crAt = FrameRow::crOrR;

// In the order of the C API's numbers.
const LayoutFormat layouts[] = {
    {"FRAME16", Packing::Frame16, 0, 0},
    {"I420_8", Packing::Planar, 8, 420},
    {"I420_10", Packing::Planar, 10, 420},
    {"I420_12", Packing::Planar, 12, 420},
    {"I420_16", Packing::Planar, 16, 420},
    {"I422_8", Packing::Planar, 8, 422},
    {"I422_10", Packing::Planar, 10, 422},
    {"I422_12", Packing::Planar, 12, 422},
    {"I422_16", Packing::Planar, 16, 422},
    {"I444_8", Packing::Planar, 8, 444},
    {"I444_10", Packing::Planar, 10, 444},
    {"I444_12", Packing::Planar, 12, 444},
    {"I444_16", Packing::Planar, 16, 444},
    {"V210", Packing::V210, 10, 422},
    {"UYVY", Packing::UYVY, 8, 422},
    {"RGBA16", Packing::RGBA16, 16, 444},
    {"GBR_10", Packing::GBR, 10, 444},
    {"GBR_12", Packing::GBR, 12, 444},
    {"GBR_16", Packing::GBR, 16, 444},
    {"NV12", Packing::SemiPlanar, 8, 420},
    {"P010_10LE", Packing::SemiPlanar, 10, 420},
    {"P016_LE", Packing::SemiPlanar, 16, 420},
    {"YUY2", Packing::YUY2, 8, 422},
    {"RGBA", Packing::RGBA8, 8, 444},
    {"BGRA", Packing::BGRA8, 8, 444},
    {"RGBx", Packing::RGBA8, 8, 444},
    {"BGRx", Packing::BGRA8, 8, 444},
};
static_assert(std::size(layouts) == PM5544_LAYOUT_COUNT, "a layout without its number, or a number without its layout");

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

// One byte at 8 bits, else a 16-bit little-endian word with the code in its high bits, the low bits zero.
void storeHighSample(uint8_t* out, int index, unsigned code, int bits) {
    storeSample(out, index, bits == 8 ? code : code << (16 - bits), bits);
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

// Where the 8-bit samples of a pixel pair go in its four bytes; a pad pixel's Y' is 0.
struct PairOrder {
    int cb, y0, cr, y1;
};
constexpr PairOrder uyvyOrder{0, 1, 2, 3}, yuy2Order{1, 0, 3, 2};

void packPairs(const uint16_t* row, int width, PairOrder order, uint8_t* out) {
    constexpr int bits = 8;
    for (int x = 0; x < width; x += 2, out += 4) {
        out[order.cb] = static_cast<uint8_t>(sampleAt(row, width, x, cbAt, bits));
        out[order.y0] = static_cast<uint8_t>(sampleAt(row, width, x, lumaAt, bits));
        out[order.cr] = static_cast<uint8_t>(sampleAt(row, width, x, crAt, bits));
        out[order.y1] = static_cast<uint8_t>(sampleAt(row, width, x + 1, lumaAt, bits));
    }
}

// Video takes alpha as coverage: opaque is the largest code, where the frame row keeps the card's own.
constexpr unsigned opaque16 = 0xFFFF, opaque8 = 0xFF;

// Where the 8-bit samples of a pixel go in its four bytes. The fourth byte, alpha or padding, is opaque:
// readers that take padding as alpha then see the card, and it is what converters write there.
struct PixelOrder {
    int r, g, b, a;
};
constexpr PixelOrder rgbaOrder{0, 1, 2, 3}, bgraOrder{2, 1, 0, 3};

void packRGBA8(const uint16_t* row, int width, PixelOrder order, uint8_t* out) {
    constexpr int bits = 8;
    for (int x = 0; x < width; ++x, row += px, out += px) {
        out[order.r] = static_cast<uint8_t>(code(row[FrameRow::crOrR], bits));
        out[order.g] = static_cast<uint8_t>(code(row[FrameRow::yOrG], bits));
        out[order.b] = static_cast<uint8_t>(code(row[FrameRow::cbOrB], bits));
        out[order.a] = static_cast<uint8_t>(opaque8);
    }
}

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
// n / step rounded up, for any n up to INT_MAX.
int roundedUpQuotient(int n, int step) { return n / step + (n % step != 0 ? 1 : 0); }
int chromaWidthOf(int sampling, int width) { return roundedUpQuotient(width, chromaColumnStep(sampling)); }
int chromaRowsOf(int sampling, int height) { return roundedUpQuotient(height, chromaRowStep(sampling)); }

// Y' of each pixel and, into chroma unless it is null (a row that repeats the chroma above), Cb and Cr
// interleaved; the codes in the high bits.
void packSemiPlanar(const LayoutFormat& format, const uint16_t* row, int width, uint8_t* luma, uint8_t* chroma) {
    for (int x = 0; x < width; ++x)
        storeHighSample(luma, x, code(row[static_cast<size_t>(x) * px + lumaAt], format.bits), format.bits);
    if (chroma == nullptr) return;
    const size_t columnStep = static_cast<size_t>(chromaColumnStep(format.sampling));
    for (int c = 0; c < chromaWidthOf(format.sampling, width); ++c) {
        const uint16_t* pixel = row + static_cast<size_t>(c) * columnStep * px;
        storeHighSample(chroma, 2 * c, code(pixel[cbAt], format.bits), format.bits);
        storeHighSample(chroma, 2 * c + 1, code(pixel[crAt], format.bits), format.bits);
    }
}

// ---- Unpacking, the reverse of the packing above ----

unsigned loadLE16(const uint8_t* at) { return unsigned(at[0]) | unsigned(at[1]) << 8; }
uint32_t loadLE32(const uint8_t* at) {
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value |= uint32_t(at[i]) << (8 * i);
    return value;
}
unsigned loadSample(const uint8_t* in, int index, int bits) {
    return bits == 8 ? in[index] : loadLE16(in + 2 * static_cast<size_t>(index));
}
unsigned loadHighSample(const uint8_t* in, int index, int bits) {
    return bits == 8 ? in[index] : loadSample(in, index, bits) >> (16 - bits);
}

// Stores a value into a row of `count` samples, dropping what lies past its end (a packed group's padding).
void put(uint16_t* row, int count, int x, unsigned value) {
    if (x < count) row[x] = static_cast<uint16_t>(value);
}

void unpackV210(const uint8_t* in, int width, uint16_t* const out[3]) {
    const int chromaWidth = chromaWidthOf(422, width);
    const auto sample = [](uint32_t word, int which) { return unsigned(word >> (10 * which)) & 0x3FF; };
    for (int x = 0; x < width; x += v210GroupPixels, in += v210GroupBytes) {
        const uint32_t w0 = loadLE32(in), w1 = loadLE32(in + 4), w2 = loadLE32(in + 8), w3 = loadLE32(in + 12);
        const int c = x / 2;
        put(out[1], chromaWidth, c, sample(w0, 0)), put(out[0], width, x, sample(w0, 1)),
            put(out[2], chromaWidth, c, sample(w0, 2));
        put(out[0], width, x + 1, sample(w1, 0)), put(out[1], chromaWidth, c + 1, sample(w1, 1)),
            put(out[0], width, x + 2, sample(w1, 2));
        put(out[2], chromaWidth, c + 1, sample(w2, 0)), put(out[0], width, x + 3, sample(w2, 1)),
            put(out[1], chromaWidth, c + 2, sample(w2, 2));
        put(out[0], width, x + 4, sample(w3, 0)), put(out[2], chromaWidth, c + 2, sample(w3, 1)),
            put(out[0], width, x + 5, sample(w3, 2));
    }
}

void unpackPairs(const uint8_t* in, int width, PairOrder order, uint16_t* const out[3]) {
    for (int x = 0; x < width; x += 2, in += 4) {
        out[0][x] = in[order.y0];
        out[1][x / 2] = in[order.cb];
        out[2][x / 2] = in[order.cr];
        put(out[0], width, x + 1, in[order.y1]);
    }
}

void unpackRGBA8(const uint8_t* in, int width, PixelOrder order, uint16_t* const out[3]) {
    for (int x = 0; x < width; ++x, in += px) out[0][x] = in[order.r], out[1][x] = in[order.g], out[2][x] = in[order.b];
}

// FRAME16 and RGBA16: four 16-bit samples a pixel, in host order or little-endian.
template <typename Load>
void unpackFour(const uint8_t* in, int width, int shift, const int from[3], Load load, uint16_t* const out[3]) {
    for (int x = 0; x < width; ++x, in += px * sizeof(uint16_t))
        for (int c = 0; c < 3; ++c) out[c][x] = static_cast<uint16_t>(load(in + 2 * from[c]) >> shift);
}

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
        case Packing::RGBA8:
        case Packing::BGRA8:
        case Packing::GBR:
            return PatternGen::isRGBAxes(axes);
        default:
            return PatternGen::isYCbCrAxes(axes);
    }
}

int planeSizes(const LayoutFormat& format, int width, int height, PlaneSize sizes[maximumPlanes]) {
    const uint64_t w = static_cast<uint64_t>(width);
    const uint64_t bytesPerSample = format.bits == 8 ? 1 : 2;
    switch (format.packing) {
        case Packing::Frame16:
        case Packing::RGBA16:
            sizes[0] = {w * px * sizeof(uint16_t), height};
            return 1;
        case Packing::V210:
            sizes[0] = {(w + v210GroupPixels - 1) / v210GroupPixels * v210GroupBytes, height};
            return 1;
        case Packing::UYVY:
        case Packing::YUY2:
            sizes[0] = {(w + 1) / 2 * 4, height};
            return 1;
        case Packing::RGBA8:
        case Packing::BGRA8:
            sizes[0] = {w * px, height};
            return 1;
        case Packing::GBR:
            for (int p = 0; p < maximumPlanes; ++p) sizes[p] = {w * bytesPerSample, height};
            return maximumPlanes;
        case Packing::Planar:
        case Packing::SemiPlanar:
            break;
    }
    const uint64_t chromaWidth = static_cast<uint64_t>(chromaWidthOf(format.sampling, width));
    const int chromaRows = chromaRowsOf(format.sampling, height);
    sizes[0] = {w * bytesPerSample, height};
    if (format.packing == Packing::SemiPlanar) {
        sizes[1] = {2 * chromaWidth * bytesPerSample, chromaRows};
        return 2;
    }
    sizes[1] = sizes[2] = {chromaWidth * bytesPerSample, chromaRows};
    return maximumPlanes;
}

size_t planeAlignment(const LayoutFormat& format) {
    if (format.packing == Packing::V210) return 4;
    return format.bits == 8 ? 1 : 2;
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
            packPairs(row, width, uyvyOrder, rowOf(0, y));
            return;
        case Packing::YUY2:
            packPairs(row, width, yuy2Order, rowOf(0, y));
            return;
        case Packing::RGBA8:
            packRGBA8(row, width, rgbaOrder, rowOf(0, y));
            return;
        case Packing::BGRA8:
            packRGBA8(row, width, bgraOrder, rowOf(0, y));
            return;
        case Packing::GBR:
            packPlane(row, width, lumaAt, format.bits, rowOf(0, y));  // G'
            packPlane(row, width, cbAt, format.bits, rowOf(1, y));    // B'
            packPlane(row, width, crAt, format.bits, rowOf(2, y));    // R'
            return;
        case Packing::SemiPlanar:
            packSemiPlanar(format, row, width, rowOf(0, y), chromaRow < 0 ? nullptr : rowOf(1, chromaRow));
            return;
        case Packing::Planar:
            break;
    }
    packLuma(row, width, format.bits, rowOf(0, y));
    if (chromaRow < 0) return;
    packChroma(row, chromaWidthOf(format.sampling, width), chromaColumnStep(format.sampling), format.bits,
               rowOf(1, chromaRow), rowOf(2, chromaRow));
}

void unpackRow(const LayoutFormat& format, const uint8_t* const planes[], const size_t strides[], int width, int y,
               int bits, bool ycbcr, uint16_t* const out[3]) {
    const int chromaRow = format.sampling == 420 ? y / 2 : y;
    const auto rowOf = [&](int plane, int planeRow) { return planes[plane] + strides[plane] * size_t(planeRow); };
    static const int frameYCbCr[3] = {lumaAt, cbAt, crAt}, frameRGB[3] = {crAt, lumaAt, cbAt};
    switch (format.packing) {
        case Packing::Frame16:
            unpackFour(
                rowOf(0, y), width, 16 - bits, ycbcr ? frameYCbCr : frameRGB,
                [](const uint8_t* at) {
                    uint16_t sample;
                    std::memcpy(&sample, at, sizeof sample);
                    return unsigned(sample);
                },
                out);
            return;
        case Packing::RGBA16:
            unpackFour(rowOf(0, y), width, 0, frameRGB, loadLE16, out);
            return;
        case Packing::V210:
            unpackV210(rowOf(0, y), width, out);
            return;
        case Packing::UYVY:
            unpackPairs(rowOf(0, y), width, uyvyOrder, out);
            return;
        case Packing::YUY2:
            unpackPairs(rowOf(0, y), width, yuy2Order, out);
            return;
        case Packing::RGBA8:
            unpackRGBA8(rowOf(0, y), width, rgbaOrder, out);
            return;
        case Packing::BGRA8:
            unpackRGBA8(rowOf(0, y), width, bgraOrder, out);
            return;
        case Packing::GBR:
            for (int x = 0; x < width; ++x) {
                out[0][x] = uint16_t(loadSample(rowOf(2, y), x, format.bits));  // R'
                out[1][x] = uint16_t(loadSample(rowOf(0, y), x, format.bits));  // G'
                out[2][x] = uint16_t(loadSample(rowOf(1, y), x, format.bits));  // B'
            }
            return;
        case Packing::SemiPlanar:
            for (int x = 0; x < width; ++x) out[0][x] = uint16_t(loadHighSample(rowOf(0, y), x, format.bits));
            for (int c = 0; c < chromaWidthOf(format.sampling, width); ++c) {
                out[1][c] = uint16_t(loadHighSample(rowOf(1, chromaRow), 2 * c, format.bits));
                out[2][c] = uint16_t(loadHighSample(rowOf(1, chromaRow), 2 * c + 1, format.bits));
            }
            return;
        case Packing::Planar:
            break;
    }
    for (int x = 0; x < width; ++x) out[0][x] = uint16_t(loadSample(rowOf(0, y), x, format.bits));
    for (int c = 0; c < chromaWidthOf(format.sampling, width); ++c) {
        out[1][c] = uint16_t(loadSample(rowOf(1, chromaRow), c, format.bits));
        out[2][c] = uint16_t(loadSample(rowOf(2, chromaRow), c, format.bits));
    }
}

}  // namespace pm5544
