// A frame of a library layout in test memory, pre-filled with 0xAA so unwritten bytes show; renders into
// it; its rows without the padding, plane after plane, as raw video.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "TestFiles.h"
#include "pm5544/pm5544.h"

using Card = std::unique_ptr<pm5544_card, decltype(&pm5544_card_free)>;

// A card of the raster and encoding, set for the layout.
inline Card newCard(int width, int height, const char* encoding, pm5544_layout layout) {
    Card card(pm5544_card_new(), pm5544_card_free);
    EXPECT_EQ(PM5544_OK, pm5544_set_raster(card.get(), width, height));
    EXPECT_EQ(PM5544_OK, pm5544_set_encoding_name(card.get(), encoding));
    EXPECT_EQ(PM5544_OK, pm5544_use_layout(card.get(), layout));
    return card;
}

struct LayoutFrame {
    pm5544_layout layout;
    int width, height;
    std::vector<TestFiles::Bytes> planes;
    std::vector<size_t> strides;

    LayoutFrame(pm5544_layout layout_, int width_, int height_, size_t padding = 0)
        : layout(layout_), width(width_), height(height_) {
        pm5544_plane sizes[PM5544_MAX_PLANES];
        const int count = pm5544_layout_planes(layout, width, height, sizes);
        for (int p = 0; p < count; ++p) {
            strides.push_back(sizes[p].row_bytes + padding);
            planes.emplace_back(strides.back() * size_t(sizes[p].rows), 0xAA);
        }
    }
    std::vector<void*> pointers() {
        std::vector<void*> at;
        for (auto& plane : planes) at.push_back(plane.data());
        return at;
    }
    TestFiles::Bytes packed() const {
        pm5544_plane sizes[PM5544_MAX_PLANES];
        const int count = pm5544_layout_planes(layout, width, height, sizes);
        TestFiles::Bytes bytes;
        for (int p = 0; p < count; ++p)
            for (int r = 0; r < sizes[p].rows; ++r) {
                const uint8_t* row = planes[size_t(p)].data() + strides[size_t(p)] * size_t(r);
                bytes.insert(bytes.end(), row, row + sizes[p].row_bytes);
            }
        return bytes;
    }
    uint8_t byte(int plane, int row, int column) const {
        return planes[size_t(plane)][strides[size_t(plane)] * size_t(row) + size_t(column)];
    }
    uint16_t word(int row, int column, int sample) const {  // FRAME16's samples, four a pixel
        uint16_t value;
        std::memcpy(&value, &planes[0][strides[0] * size_t(row) + (size_t(column) * 4 + size_t(sample)) * 2], 2);
        return value;
    }
};

// Frame n of the card in the layout.
inline LayoutFrame renderLayout(pm5544_card* card, pm5544_layout layout, int width, int height, int64_t frame = 0,
                                size_t padding = 0) {
    LayoutFrame out(layout, width, height, padding);
    const std::vector<void*> planes = out.pointers();
    EXPECT_EQ(PM5544_OK, pm5544_render_frame(card, frame, layout, planes.data(), out.strides.data()))
        << pm5544_last_error(card);
    return out;
}
