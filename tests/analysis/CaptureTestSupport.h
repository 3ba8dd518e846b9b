// The card rendered through the C API, and the picture a capture of it should read back as.
#pragma once

#include <pm5544/pm5544.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "LayoutFrame.h"
#include "analysis/Picture.h"

namespace CaptureTest {

using pm5544::analysis::Components;
using pm5544::analysis::Picture;

// pm5544's options "-c 709 -b 10 -s 422", read into the settings the C API takes.
struct Sent {
    std::string encoding = "RGB";
    int bits = 12, sampling = 444;
};
inline Sent sentOf(const std::string& options) {
    Sent sent;
    std::istringstream words(options);
    for (std::string option, value; words >> option >> value;) {
        if (option == "-c") sent.encoding = value;
        if (option == "-b") sent.bits = std::stoi(value);
        if (option == "-s") sent.sampling = std::stoi(value);
    }
    return sent;
}

// A card of the raster with the sent settings.
inline Card sentCard(const Sent& sent, int width, int height) {
    Card card(pm5544_card_new(), pm5544_card_free);
    pm5544_set_raster(card.get(), width, height);
    pm5544_set_encoding_name(card.get(), sent.encoding.c_str());
    pm5544_set_bits(card.get(), sent.bits);
    pm5544_set_sampling(card.get(), sent.sampling);
    return card;
}

// Frame `frame` in FRAME16 (four samples a pixel, Cr Y' Cb A or R' G' B' A, codes in the high bits).
inline std::vector<uint16_t> renderFrame16(const Sent& sent, int width, int height, int64_t frame = 0,
                                           bool clock = false, pm5544_scan scan = PM5544_SCAN_PROGRESSIVE) {
    const Card owned = sentCard(sent, width, height);
    pm5544_card* card = owned.get();
    if (clock) pm5544_set_clock(card, 1), pm5544_set_timecode(card, "10:00:00:00");
    pm5544_set_scan(card, scan);
    std::vector<uint16_t> samples(size_t(width) * size_t(height) * 4);
    void* planes[1] = {samples.data()};
    const size_t strides[1] = {size_t(width) * 8};
    if (pm5544_render_frame(card, frame, PM5544_LAYOUT_FRAME16, planes, strides) != PM5544_OK) samples.clear();
    return samples;
}

// How a file holds the frame: its components and depth, which FRAME16 sample each plane takes, and the
// chroma subsampling (the chroma of the even columns and rows).
struct Holding {
    Components components;
    int bits;
    int from[3];  // FRAME16 sample of planes 0, 1, 2
    int shiftX = 0, shiftY = 0;
};
constexpr int asStored[3] = {0, 1, 2}, yCbCrOrder[3] = {1, 2, 0};

inline Picture expectedPicture(const std::vector<uint16_t>& frame16, int width, int height, const Holding& h) {
    Picture p;
    p.width = width, p.height = height, p.bits = h.bits, p.components = h.components;
    p.chromaShiftX = h.shiftX, p.chromaShiftY = h.shiftY;
    p.allocate();
    for (int c = 0; c < 3; ++c)
        for (int y = 0; y < p.planeHeight(c); ++y)
            for (int x = 0; x < p.planeWidth(c); ++x) {
                const int fx = c == 0 ? x : x << h.shiftX, fy = c == 0 ? y : y << h.shiftY;
                const uint16_t sample = frame16[(size_t(fy) * size_t(width) + size_t(fx)) * 4 + size_t(h.from[c])];
                p.planes[c][size_t(y) * size_t(p.planeWidth(c)) + size_t(x)] = uint16_t(sample >> (16 - h.bits));
            }
    return p;
}

inline bool samePicture(const Picture& a, const Picture& b) {
    return a.width == b.width && a.height == b.height && a.bits == b.bits && a.components == b.components &&
           a.chromaShiftX == b.chromaShiftX && a.chromaShiftY == b.chromaShiftY && a.planes[0] == b.planes[0] &&
           a.planes[1] == b.planes[1] && a.planes[2] == b.planes[2];
}

}  // namespace CaptureTest
