// One frame row in, one preview row out: colour first (once per frame pixel), then resampling.
#include "preview/Preview.h"

#include <cerrno>

#include "output/OutputFile.h"

namespace {

constexpr int minBits = 8, maxBits = 16;

size_t rgbBytes(int width) { return 3 * static_cast<size_t>(width > 0 ? width : 0); }

bool usableBits(int bits) { return bits >= minBits && bits <= maxBits; }

}  // namespace

Preview::Preview(PatternGen::colorAxes_e axes, int bits, int width, int height, int aspectNum, int aspectDen)
    : usable_(usableBits(bits) && axes >= 0 && axes < PatternGen::colourAxesCount),
      frameWidth_(width),
      previewWidth_(SquarePixels::squareWidth(height, aspectNum, aspectDen)),
      height_(height),
      colour_(usable_ ? axes : PatternGen::Colour_RGB, usable_ ? bits : maxBits),
      squarePixels_(width, previewWidth_),
      frameRgb_(rgbBytes(width)),
      previewRgb_(rgbBytes(previewWidth_)) {}

bool Preview::begin(OutputFile& out) {
    if (!usable_ || frameWidth_ <= 0) {
        out.fail(EINVAL);
        return false;
    }
    return png_.begin(out, previewWidth_, height_);
}

bool Preview::addRow(const uint16_t* frameRow) {
    if (rows_ >= height_ || !png_.writing()) return false;
    ++rows_;
    colour_.convertRow(frameRow, frameWidth_, frameRgb_.data());
    squarePixels_.resampleRow(frameRgb_.data(), previewRgb_.data());
    return png_.writeRow(previewRgb_.data());
}

bool Preview::finish() { return rows_ == height_ && png_.finish(); }
