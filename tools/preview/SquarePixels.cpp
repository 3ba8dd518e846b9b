// Linear interpolation with pixel centres aligned: output pixel x samples the source at
// (x + 0.5) * from / to - 0.5. Equal widths copy. Downsampling by the small factors of
// non-square video rasters (720 to 640) needs no wider filter for a preview.
#include "preview/SquarePixels.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace {

constexpr int weightBits = 8;
constexpr int32_t weightOne = 1 << weightBits;

}  // namespace

int SquarePixels::squareWidth(int height, int aspectNum, int aspectDen) {
    if (height <= 0 || aspectNum <= 0 || aspectDen <= 0) return 0;
    const int64_t twice = 2 * static_cast<int64_t>(height) * aspectNum;
    const int64_t width = (twice + aspectDen) / (2 * static_cast<int64_t>(aspectDen));
    return width > INT32_MAX ? 0 : static_cast<int>(width);
}

SquarePixels::Size SquarePixels::previewSize(int height, int aspectNum, int aspectDen) {
    const int width = squareWidth(height, aspectNum, aspectDen);
    const int longest = std::max(width, height);
    if (width <= 0 || longest <= maximumSide) return {width, height};
    const auto fit = [&](int side) {
        return std::max(1, static_cast<int>((2 * static_cast<int64_t>(side) * maximumSide + longest) / (2 * longest)));
    };
    return {fit(width), fit(height)};
}

SquarePixels::SquarePixels(int fromWidth, int toWidth) : taps_(static_cast<size_t>(std::max(toWidth, 0))) {
    const double step = toWidth > 0 ? static_cast<double>(fromWidth) / toWidth : 0.0;
    const int32_t last = std::max(fromWidth - 1, 0);
    for (int x = 0; x < toWidth; ++x) {
        Tap& tap = taps_[static_cast<size_t>(x)];
        if (fromWidth == toWidth) {
            tap = {x, x, 0};
            continue;
        }
        const double position = std::min(std::max((x + 0.5) * step - 0.5, 0.0), static_cast<double>(last));
        const int32_t left = static_cast<int32_t>(position);
        tap = {left, std::min(left + 1, last), static_cast<int32_t>(std::lround((position - left) * weightOne))};
    }
}

void SquarePixels::resampleRow(const uint8_t* in, uint8_t* out) const {
    for (const Tap& tap : taps_) {
        const uint8_t* a = in + 3 * static_cast<size_t>(tap.left);
        const uint8_t* b = in + 3 * static_cast<size_t>(tap.right);
        for (int c = 0; c < 3; ++c)
            *out++ = static_cast<uint8_t>((a[c] * (weightOne - tap.weight) + b[c] * tap.weight + weightOne / 2) >>
                                          weightBits);
    }
}
