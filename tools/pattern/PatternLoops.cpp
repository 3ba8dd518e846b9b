// Rendering loops: the full frame (four samples a pixel, chroma subsampled, edges tapered) and
// the line-repeat loop (three samples a pixel, only the lines the pattern lists).
#include <algorithm>
#include <cstdint>
#include <stdexcept>

#include "colour/ConversionCache.h"
#include "pattern/PatternWrapper.h"

namespace {

// Frames hold 12-bit code values scaled to the full 16-bit range.
constexpr int frameShift = 4;
// Edge taper: weight of black in the outermost column and in the one next to it.
constexpr double taperOuter = 0.9;
constexpr double taperInner = 0.33;

uint16_t toFrame(uint16_t code) { return static_cast<uint16_t>(code << frameShift); }

struct CoordinateRange {
    int x0, x1, y0, y1;
};

bool isEven(int v) { return v % 2 == 0; }

}  // namespace

bool PatternSpec::run_body(int, int frameWidth, int frameHeight, unsigned short* frame) {
    const int halfWidth = frameWidth / 2;
    CoordinateRange range{};
    if (useFullCanvasSize()) {
        if (quadrant != PatternGen::Quadrant_None) throw std::runtime_error("Quadrant mode is depracated");
        range = {0, frameWidth, 0, frameHeight};
    } else {
        switch (quadrant) {
            case PatternGen::Quadrant_TL:
                range = {-frameWidth, 0, 0, frameHeight};
                break;
            case PatternGen::Quadrant_TR:
                range = {0, frameWidth, 0, frameHeight};
                break;
            case PatternGen::Quadrant_BL:
                range = {-frameWidth, 0, frameHeight, 2 * frameHeight};
                break;
            case PatternGen::Quadrant_BR:
                range = {0, frameWidth, frameHeight, 2 * frameHeight};
                break;
            default:
                range = {-halfWidth, halfWidth, 0, frameHeight};
                break;
        }
    }

    Pixel black(0, 0, 0, PatternGen::Colour_RGB);
    if (colourSpace.isColourDifference()) black = black.convertTo(PatternGen::Colour_YCbCr_709);

    ConversionCache cache(colourSpace.axes(), true);
    const bool taper = riseTimeEnabled && !edgeTaperOff;
    const bool subsampled = sampling != PatternGen::Sampling_444;

    // Chroma of the most recent even column, for 4:2:2 and 4:2:0; it starts as a default pixel's.
    const Pixel initialHeld;
    uint16_t heldCr = initialHeld.sample[Pixel::CR_R];
    uint16_t heldCb = initialHeld.sample[Pixel::CB_B];
    const unsigned short* evenRow = nullptr;
    const size_t frameRowSamples = static_cast<size_t>(frameWidth) * 4;
    Pixel tapered;
    for (int y = range.y0; y < range.y1; ++y) {
        unsigned short* out = frame + static_cast<size_t>(y - range.y0) * frameRowSamples;
        if (isEven(y)) evenRow = out;
        // A first row that is odd has no even row above it: it holds chroma like 4:2:2.
        const bool repeatRowAbove = sampling == PatternGen::Sampling_420 && !isEven(y) && evenRow != nullptr;
        const unsigned short* above = evenRow;
        for (int x = range.x0; x < range.x1; ++x, out += 4) {
            const Pixel* q = &cache.convert(body(x, y));
            if (taper && (x <= -halfWidth + 1 || x >= halfWidth - 2)) {
                tapered = *q;
                if (x <= -halfWidth)
                    tapered = black.blend(taperOuter, taperOuter, tapered);
                else if (x <= -halfWidth + 1)
                    tapered = black.blend(taperInner, taperInner, tapered);
                if (x >= halfWidth - 1)
                    tapered = black.blend(taperOuter, taperOuter, tapered);
                else if (x >= halfWidth - 2)
                    tapered = black.blend(taperInner, taperInner, tapered);
                q = &tapered;
            }
            if (isEven(x)) {
                heldCr = q->sample[Pixel::CR_R];
                heldCb = q->sample[Pixel::CB_B];
            }

            out[1] = toFrame(q->sample[Pixel::Y_G]);
            out[3] = toFrame(q->sample[Pixel::ALPHA]);
            if (repeatRowAbove) {
                out[0] = above[0];
                out[2] = above[2];
                above += 4;
            } else {
                out[0] = toFrame(subsampled ? heldCr : q->sample[Pixel::CR_R]);
                out[2] = toFrame(subsampled ? heldCb : q->sample[Pixel::CB_B]);
            }
        }
        // A centred picture of odd width renders one column fewer than the frame row holds:
        // leave that column black and transparent rather than uninitialised.
        std::fill(out, frame + static_cast<size_t>(y - range.y0 + 1) * frameRowSamples, static_cast<unsigned short>(0));
    }
    return true;
}

namespace {

// Stores one pixel as three samples: R, G, B for R'G'B' axes, Y, Cb, Cr otherwise.
void storeThreeSamples(const Pixel& q, bool rgb, unsigned short* out) {
    if (rgb) {
        out[0] = toFrame(q.sample[Pixel::CR_R]);
        out[1] = toFrame(q.sample[Pixel::Y_G]);
        out[2] = toFrame(q.sample[Pixel::CB_B]);
    } else {
        out[0] = toFrame(q.sample[Pixel::Y_G]);
        out[1] = toFrame(q.sample[Pixel::CB_B]);
        out[2] = toFrame(q.sample[Pixel::CR_R]);
    }
}

}  // namespace

bool PatternSpec::run_body(int, int lineWidth, int& lineCount, std::vector<std::pair<int, int>>& lineRepeats,
                           unsigned char* buffer) {
    getLineRepeats(lineRepeats);
    unsigned short* samples = reinterpret_cast<unsigned short*>(buffer);
    ConversionCache cache(colourSpace.axes(), true);
    const bool rgb = colourSpace.colourIsRGB();
    auto renderLine = [&](int storedLine, int sourceLine) {
        unsigned short* out = samples + static_cast<size_t>(storedLine) * static_cast<size_t>(lineWidth) * 3;
        for (int x = 0; x < lineWidth; ++x, out += 3) storeThreeSamples(cache.convert(body(x, sourceLine)), rgb, out);
    };

    if (lineRepeats.empty()) {
        for (int y = 0; y < lineCount; ++y) renderLine(y, y);
        return true;
    }
    // Never store more lines than the buffer has rows.
    const int capacity = lineCount;
    int n = 0;
    for (; n < capacity; ++n) {
        // The first pair listing stored line n gives its source line; a gap ends the picture.
        const auto entry = std::find_if(lineRepeats.begin(), lineRepeats.end(),
                                        [n](const std::pair<int, int>& p) { return p.first == n; });
        if (entry == lineRepeats.end()) break;
        renderLine(n, entry->second);
    }
    lineCount = n;
    return true;
}
