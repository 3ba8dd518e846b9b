// One frame row in, one preview row out: colour first (once per frame pixel), then resampling. A preview
// scaled down to its largest size takes the nearest frame row for each of its rows.
#include "preview/Preview.h"

#include <cerrno>

#include "output/OutputFile.h"

namespace {

constexpr int minBits = 8, maxBits = 16;

size_t rgbBytes(int width) { return 3 * static_cast<size_t>(width > 0 ? width : 0); }

bool usableBits(int bits) { return bits >= minBits && bits <= maxBits; }

// The frame row that preview row `row` shows, the centres of the rows aligned.
int sourceRow(int row, int frameHeight, int previewHeight) {
    return static_cast<int>((2 * static_cast<int64_t>(row) + 1) * frameHeight /
                            (2 * static_cast<int64_t>(previewHeight)));
}

}  // namespace

Preview::Preview(PatternGen::colorAxes_e axes, int bits, int width, int height, int aspectNum, int aspectDen)
    : usable_(usableBits(bits) && axes >= 0 && axes < PatternGen::colourAxesCount),
      frameWidth_(width),
      frameHeight_(height),
      previewWidth_(SquarePixels::previewSize(height, aspectNum, aspectDen).width),
      previewHeight_(SquarePixels::previewSize(height, aspectNum, aspectDen).height),
      colour_(usable_ ? axes : PatternGen::Colour_RGB, usable_ ? bits : maxBits),
      squarePixels_(width, previewWidth_),
      frameRgb_(rgbBytes(width)),
      previewRgb_(rgbBytes(previewWidth_)) {}

bool Preview::begin(OutputFile& out) {
    if (!usable_ || frameWidth_ <= 0) {
        out.fail(EINVAL);
        return false;
    }
    return png_.begin(out, previewWidth_, previewHeight_);
}

bool Preview::addRow(RowOf<RowKind::FullFrame> frameRow) {
    if (rows_ >= frameHeight_ || !png_.writing()) return false;
    const int y = rows_++;
    bool converted = false;
    for (; previewRows_ < previewHeight_ && sourceRow(previewRows_, frameHeight_, previewHeight_) == y;
         ++previewRows_) {
        if (!converted) {
            colour_.convertRow(frameRow.samples, frameWidth_, frameRgb_.data());
            squarePixels_.resampleRow(frameRgb_.data(), previewRgb_.data());
            converted = true;
        }
        if (!png_.writeRow(previewRgb_.data())) return false;
    }
    return true;
}

bool Preview::finish() { return rows_ == frameHeight_ && previewRows_ == previewHeight_ && png_.finish(); }
