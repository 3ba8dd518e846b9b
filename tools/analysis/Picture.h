// A picture in three planes of codes, as the analysis reads both the card it renders and a capture:
// Y', Cb, Cr or R', G', B', the chroma planes possibly subsampled.
#pragma once

#include <cstdint>
#include <vector>

namespace pm5544::analysis {

enum class Components { YCbCr, RGB };

struct Picture {
    int width = 0;
    int height = 0;
    int bits = 8;  // the depth of the codes in the planes
    Components components = Components::RGB;
    int chromaShiftX = 0;  // planes 1 and 2 are subsampled by 1 << shift (Y'CbCr only)
    int chromaShiftY = 0;
    std::vector<uint16_t> planes[3];  // rows of planeWidth(c) codes, no padding

    int planeWidth(int c) const { return c == 0 ? width : (width + (1 << chromaShiftX) - 1) >> chromaShiftX; }
    int planeHeight(int c) const { return c == 0 ? height : (height + (1 << chromaShiftY) - 1) >> chromaShiftY; }
    // The code of component c at pixel (x, y) of the full raster.
    uint16_t at(int c, int x, int y) const {
        if (c == 0) return planes[0][size_t(y) * size_t(width) + size_t(x)];
        return planes[c][size_t(y >> chromaShiftY) * size_t(planeWidth(c)) + size_t(x >> chromaShiftX)];
    }
    // Sizes the planes for the raster and subsampling already set.
    void allocate() {
        for (int c = 0; c < 3; ++c) planes[c].assign(size_t(planeWidth(c)) * size_t(planeHeight(c)), 0);
    }
};

}  // namespace pm5544::analysis
