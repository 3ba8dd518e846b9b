// Rendering loops as row producers: the full frame (four samples a pixel, chroma subsampled, edges
// tapered) and the line-repeat loop (three samples a pixel, only the lines the pattern lists). The
// whole-frame run_body forms fill a caller's buffer from the same producers.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

#include "colour/ConversionCache.h"
#include "pattern/FrameRow.h"
#include "pattern/ListedLineRows.h"
#include "pattern/PatternWrapper.h"
#include "pattern/RowSource.h"

namespace {

constexpr int frameShift = FrameRow::loopCodeShift;
constexpr int frameSamples = FrameRow::samplesPerPixel;
using FrameRow::crOrR, FrameRow::yOrG, FrameRow::cbOrB, FrameRow::alpha;
constexpr int lineSamples = 3;  // per pixel: R G B or Y Cb Cr
// Edge taper: weight of black in the outermost column and in the one next to it.
constexpr double taperOuter = 0.9;
constexpr double taperInner = 0.33;

uint16_t toFrame(uint16_t code) { return static_cast<uint16_t>(code << frameShift); }

bool isEven(int v) { return v % 2 == 0; }

struct CoordinateRange {
    int x0, x1, y0, y1;
};

// Canvas coordinates of the rendered part: centred without quadrants, one quarter of the doubled
// canvas with them; a full-canvas pattern refuses quadrants.
CoordinateRange frameRange(PatternSpec& pattern, int width, int height) {
    const int halfWidth = width / 2;
    if (pattern.useFullCanvasSize()) {
        if (pattern.quadrant != PatternGen::Quadrant_None) throw std::runtime_error(PatternGen::quadrantRefusal);
        return {0, width, 0, height};
    }
    switch (pattern.quadrant) {
        case PatternGen::Quadrant_TL:
            return {-width, 0, 0, height};
        case PatternGen::Quadrant_TR:
            return {0, width, 0, height};
        case PatternGen::Quadrant_BL:
            return {-width, 0, height, 2 * height};
        case PatternGen::Quadrant_BR:
            return {0, width, height, 2 * height};
        default:
            return {-halfWidth, halfWidth, 0, height};
    }
}

// Frame rows first .. end - 1 of a canvas range.
CoordinateRange rowsOf(CoordinateRange range, int first, int end) {
    const int top = range.y0;
    range.y0 = top + std::max(0, first);
    range.y1 = std::max(range.y0, top + end);
    return range;
}

// Rows of the full frame. Chroma held for 4:2:2 carries over from one row's last even column to the
// next row; a 4:2:0 odd row repeats the chroma of the most recent even row, kept here (interlaced, each
// field keeps its own, and a row repeats that of its field's row above). Patterns are mostly runs of
// identical pixels: each run is converted once and its value stored along it.
class FullFrameRows final : public FullFrameRowSource {
public:
    FullFrameRows(PatternSpec& pattern, int width, int height, int firstRow, int endRow)
        : pattern_(pattern),
          width_(width),
          halfWidth_(width / 2),
          top_(frameRange(pattern, width, height).y0),
          range_(rowsOf(frameRange(pattern, width, height), firstRow, endRow)),
          y_(range_.y0),
          cache_(pattern.colourSpace.axes(), true),
          taper_(pattern.riseTimeEnabled && !pattern.edgeTaperOff),
          subsampled_(pattern.sampling != PatternGen::Sampling_444),
          rowPairs_(pattern.sampling == PatternGen::Sampling_420),
          scan_(pattern.scan) {
        black_ = Pixel(0, 0, 0, PatternGen::Colour_RGB);
        if (pattern.colourSpace.isColourDifference()) black_ = black_.convertTo(PatternGen::Colour_YCbCr_709);
        const Pixel initialHeld;
        heldCr_ = initialHeld.sample[Pixel::CR_R];
        heldCb_ = initialHeld.sample[Pixel::CB_B];
        if (rowPairs_) keptChroma_.resize(chromaRowSamples() * fields);
        plainBegin_ = taper_ ? std::max(range_.x0, -halfWidth_ + 2) : range_.x0;
        plainEnd_ = taper_ ? std::min(range_.x1, halfWidth_ - 2) : range_.x1;
    }

    int rows() const override { return range_.y1 - range_.y0; }
    size_t rowSamples() const override { return static_cast<size_t>(width_) * frameSamples; }

    void nextRow(uint16_t* row) override {
        const int y = y_++;
        // Progressive rows pair by the canvas row, as they always have; fields are of the frame's rows.
        const bool interlaced = PatternGen::isInterlaced(scan_);
        const int pairedRow = interlaced ? y - top_ : y;
        const bool ownChroma = PatternGen::takesOwnChroma(pairedRow, scan_);
        const int field = interlaced ? pairedRow % 2 : 0;
        uint16_t* const kept = rowPairs_ ? keptChroma_.data() + chromaRowSamples() * size_t(field) : nullptr;
        // A first row that repeats chroma has no row above it to take it from: it holds chroma like 4:2:2.
        RowCursor at{row, kept, kept, rowPairs_ && !ownChroma && haveKept_[field], rowPairs_ && ownChroma};
        const Pixel* in = pattern_.bodyRow(y, range_.x0, range_.x1, scratch_);
        for (int x = range_.x0; x < range_.x1;) {
            const int end = runEnd(x, in);
            const Pixel& q = tapered(x, cache_.convert(*in));
            storePixel(x, q, at);
            storeRun(end - x - 1, q, at);
            in += end - x;
            x = end;
        }
        haveKept_[field] = haveKept_[field] || at.keepChroma;
        // A centred picture of odd width renders one column fewer than the row holds: leave that
        // column black and transparent rather than uninitialised.
        std::fill(at.out, row + rowSamples(), static_cast<uint16_t>(0));
    }

private:
    static constexpr int fields = 2;

    size_t chromaRowSamples() const { return static_cast<size_t>(width_) * 2; }  // Cr, Cb per column

    // Where the next samples go, and the 4:2:0 chroma read from the row above or kept for the next.
    struct RowCursor {
        uint16_t* out;
        const uint16_t* above;
        uint16_t* kept;
        bool repeatRowAbove;
        bool keepChroma;
    };

    // The end of the run of input pixels identical to in[0] at column x; tapered columns stand alone.
    // Pixels are identical exactly when their bytes are (Pixel.h asserts it).
    int runEnd(int x, const Pixel* in) const {
        if (x < plainBegin_ || x >= plainEnd_) return x + 1;
        return x + static_cast<int>(Runs::endOfRun(in, in + (plainEnd_ - x)) - in);
    }

    void storePixel(int x, const Pixel& q, RowCursor& at) {
        if (isEven(x)) {
            heldCr_ = q.sample[Pixel::CR_R];
            heldCb_ = q.sample[Pixel::CB_B];
        }
        uint16_t* out = at.out;
        out[yOrG] = toFrame(q.sample[Pixel::Y_G]);
        out[alpha] = toFrame(q.sample[Pixel::ALPHA]);
        if (at.repeatRowAbove) {
            out[crOrR] = *at.above++;
            out[cbOrB] = *at.above++;
        } else {
            out[crOrR] = toFrame(subsampled_ ? heldCr_ : q.sample[Pixel::CR_R]);
            out[cbOrB] = toFrame(subsampled_ ? heldCb_ : q.sample[Pixel::CB_B]);
        }
        if (at.keepChroma) {
            *at.kept++ = out[crOrR];
            *at.kept++ = out[cbOrB];
        }
        at.out += frameSamples;
    }

    // The `count` pixels of a run after its first: a run of two or more holds an even column by its
    // second pixel, so from there on they all carry the run's own chroma.
    void storeRun(int count, const Pixel& q, RowCursor& at) {
        if (count <= 0) return;
        heldCr_ = q.sample[Pixel::CR_R];
        heldCb_ = q.sample[Pixel::CB_B];
        const uint16_t value[frameSamples] = {toFrame(heldCr_), toFrame(q.sample[Pixel::Y_G]), toFrame(heldCb_),
                                              toFrame(q.sample[Pixel::ALPHA])};
        uint16_t* const end = at.out + static_cast<size_t>(count) * frameSamples;
        if (at.repeatRowAbove) {
            for (uint16_t* out = at.out; out != end; out += frameSamples, at.above += 2) {
                out[crOrR] = at.above[0];
                out[yOrG] = value[yOrG];
                out[cbOrB] = at.above[1];
                out[alpha] = value[alpha];
            }
        } else {
            for (uint16_t* out = at.out; out != end; out += frameSamples) std::memcpy(out, value, sizeof value);
        }
        if (at.keepChroma) {
            for (uint16_t* kept = at.kept + 2 * static_cast<size_t>(count); at.kept != kept; at.kept += 2) {
                at.kept[0] = value[crOrR];
                at.kept[1] = value[cbOrB];
            }
        }
        at.out = end;
    }

    // The pixel blended towards black in the two outermost columns on each side.
    const Pixel& tapered(int x, const Pixel& q) {
        if (!taper_ || (x > -halfWidth_ + 1 && x < halfWidth_ - 2)) return q;
        taperedPixel_ = q;
        if (x <= -halfWidth_)
            taperedPixel_ = black_.blend(taperOuter, taperOuter, taperedPixel_);
        else if (x <= -halfWidth_ + 1)
            taperedPixel_ = black_.blend(taperInner, taperInner, taperedPixel_);
        if (x >= halfWidth_ - 1)
            taperedPixel_ = black_.blend(taperOuter, taperOuter, taperedPixel_);
        else if (x >= halfWidth_ - 2)
            taperedPixel_ = black_.blend(taperInner, taperInner, taperedPixel_);
        return taperedPixel_;
    }

    PatternSpec& pattern_;
    int width_, halfWidth_;
    int top_;  // the canvas row of the frame's first row
    CoordinateRange range_;
    int y_;
    Pixel black_;
    ConversionCache cache_;
    bool taper_, subsampled_, rowPairs_;
    PatternGen::Scan scan_;
    int plainBegin_, plainEnd_;  // the columns the taper leaves alone
    uint16_t heldCr_, heldCb_;
    // Cr, Cb per column of the most recent 4:2:0 row with chroma of its own, one row per field.
    std::vector<uint16_t> keptChroma_;
    bool haveKept_[fields] = {false, false};
    std::vector<Pixel> scratch_;  // the pattern's row, for patterns that do not keep their own
    Pixel taperedPixel_;
};

// Stores one pixel as three samples: R, G, B for R'G'B' encodings, Y, Cb, Cr otherwise.
void storeThreeSamples(const Pixel& q, bool rgb, uint16_t* out) {
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

// The source lines to store, in order: all of them without a list; with one, line n shows the source
// line of the first pair whose first member is n, and a gap (or `capacity` lines) ends the picture.
std::vector<int> storedSourceLines(const std::vector<std::pair<int, int>>& lineRepeats, int capacity) {
    std::vector<int> lines;
    if (lineRepeats.empty()) {
        for (int y = 0; y < capacity; ++y) lines.push_back(y);
        return lines;
    }
    for (int n = 0; n < capacity; ++n) {
        const auto entry = std::find_if(lineRepeats.begin(), lineRepeats.end(),
                                        [n](const std::pair<int, int>& p) { return p.first == n; });
        if (entry == lineRepeats.end()) break;
        lines.push_back(entry->second);
    }
    return lines;
}

class LineRepeatRows final : public ListedLineRows<RowKind::LineRepeat> {
public:
    LineRepeatRows(PatternSpec& pattern, int width, std::vector<int> sourceLines)
        : ListedLineRows(pattern, width, std::move(sourceLines), true), rgb_(pattern.colourSpace.colourIsRGB()) {}

    size_t rowSamples() const override { return static_cast<size_t>(width_) * lineSamples; }

    void nextRow(uint16_t* row) override {
        const Pixel* in = nextSourceLine();
        for (int x = 0; x < width_; ++x, row += lineSamples) storeThreeSamples(cache_.convert(in[x]), rgb_, row);
    }

private:
    bool rgb_;
};

// Runs a producer into consecutive rows of a caller's buffer.
template <typename Kind>
void fillRows(RowSourceOf<Kind>& rows, uint16_t* buffer) {
    for (int y = 0; y < rows.rows(); ++y) rows.nextRow(buffer + rows.rowSamples() * static_cast<size_t>(y));
}

}  // namespace

const Pixel* PatternSpec::bodyRow(int y, int x0, int x1, std::vector<Pixel>& scratch) {
    scratch.resize(static_cast<size_t>(std::max(0, x1 - x0)));
    for (int x = x0; x < x1; ++x) scratch[static_cast<size_t>(x - x0)] = body(x, y);
    return scratch.data();
}

std::unique_ptr<FullFrameRowSource> PatternSpec::fullFrameRows(int frameWidth, int frameHeight, int firstRow,
                                                               int endRow) {
    return std::make_unique<FullFrameRows>(*this, frameWidth, frameHeight, firstRow,
                                           endRow < 0 ? frameHeight : std::min(endRow, frameHeight));
}

std::unique_ptr<LineRepeatRowSource> PatternSpec::lineRepeatRows(int lineWidth, int lineCount,
                                                                 std::vector<std::pair<int, int>>& lineRepeats) {
    getLineRepeats(lineRepeats);
    return std::make_unique<LineRepeatRows>(*this, lineWidth, storedSourceLines(lineRepeats, lineCount));
}

bool PatternSpec::run_body(int, int frameWidth, int frameHeight, unsigned short* frame) {
    fillRows(*fullFrameRows(frameWidth, frameHeight), frame);
    return true;
}

bool PatternSpec::run_body(int, int lineWidth, int& lineCount, std::vector<std::pair<int, int>>& lineRepeats,
                           unsigned char* buffer) {
    const std::unique_ptr<LineRepeatRowSource> rows = lineRepeatRows(lineWidth, lineCount, lineRepeats);
    fillRows(*rows, reinterpret_cast<uint16_t*>(buffer));
    lineCount = rows->rows();
    return true;
}
