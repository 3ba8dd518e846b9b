// Horizontal resampling of a row of 8-bit RGB pixels to square pixels: the output width is the
// picture height times the display aspect ratio, so that a circle on the card stays round.
#pragma once

#include <cstdint>
#include <vector>

class SquarePixels {
public:
    // The longest side a preview has: what image viewers and browsers open.
    static constexpr int maximumSide = 16384;

    struct Size {
        int width;
        int height;
    };
    // The size of the preview of a picture of height lines: squareWidth x height, or, where that would be
    // wider or higher than maximumSide, scaled down (never up) to fit with the same shape.
    static Size previewSize(int height, int aspectNum, int aspectDen);

    // The width of a picture of height lines with square pixels: round(height * aspectNum / aspectDen);
    // 0 for a non-positive size or ratio.
    static int squareWidth(int height, int aspectNum, int aspectDen);

    SquarePixels(int fromWidth, int toWidth);

    // in: fromWidth x 3 bytes; out: toWidth x 3 bytes.
    void resampleRow(const uint8_t* in, uint8_t* out) const;

private:
    // Linear interpolation between two source pixels, the weight of the right one in 1/256ths.
    struct Tap {
        int32_t left;
        int32_t right;
        int32_t weight;
    };
    std::vector<Tap> taps_;
};
