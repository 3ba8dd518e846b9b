// Interlaced frames through the C API: 4:2:0 chroma is subsampled per field, checked against the
// 4:2:2 render of the same card (its rows keep their own chroma, shaped as subsampled chroma is);
// other samplings and the field order change no sample; a clock's frames brought up to date in place
// equal fresh renders.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "pm5544/pm5544.h"

namespace {

using Card = std::unique_ptr<pm5544_card, decltype(&pm5544_card_free)>;

constexpr int width = 640, height = 360;

Card newCard(pm5544_layout layout, pm5544_scan scan) {
    Card card(pm5544_card_new(), pm5544_card_free);
    EXPECT_EQ(PM5544_OK, pm5544_set_raster(card.get(), width, height));
    EXPECT_EQ(PM5544_OK, pm5544_set_encoding(card.get(), PM5544_ENCODING_709));
    EXPECT_EQ(PM5544_OK, pm5544_use_layout(card.get(), layout));
    EXPECT_EQ(PM5544_OK, pm5544_set_scan(card.get(), scan));
    return card;
}

// The planes of one frame at their least strides.
struct Frame {
    std::vector<std::vector<uint8_t>> planes;
    std::vector<size_t> strides;

    explicit Frame(pm5544_layout layout) {
        pm5544_plane sizes[PM5544_MAX_PLANES];
        const int count = pm5544_layout_planes(layout, width, height, sizes);
        for (int p = 0; p < count; ++p) {
            strides.push_back(sizes[p].row_bytes);
            planes.emplace_back(sizes[p].bytes, 0xAA);
        }
    }
    std::vector<void*> pointers() {
        std::vector<void*> at;
        for (auto& plane : planes) at.push_back(plane.data());
        return at;
    }
    uint8_t sample(int plane, int row, int column) const {
        return planes[size_t(plane)][strides[size_t(plane)] * size_t(row) + size_t(column)];
    }
    uint16_t word(int row, int column, int sample) const {  // FRAME16, host order
        uint16_t value;
        std::memcpy(&value, &planes[0][strides[0] * size_t(row) + (size_t(column) * 4 + size_t(sample)) * 2], 2);
        return value;
    }
};

Frame render(pm5544_card* card, pm5544_layout layout, int64_t frame = 0) {
    Frame out(layout);
    const std::vector<void*> planes = out.pointers();
    EXPECT_EQ(PM5544_OK, pm5544_render_frame(card, frame, layout, planes.data(), out.strides.data()))
        << pm5544_last_error(card);
    return out;
}

// The frame row whose chroma an interlaced 4:2:0 chroma row takes: the top row of a pair of its field's rows.
int interlacedSourceRow(int chromaRow) { return chromaRow / 2 * 4 + chromaRow % 2; }

}  // namespace

// Each chroma row of field f holds the 4:2:2 chroma of the field's own rows 0, 2, 4, ... (frame rows
// f, f + 4, ...); luma is the progressive frame's.
TEST(Interlace, PlanarChromaRowsComeFromTheirOwnField) {
    const Frame full = render(newCard(PM5544_LAYOUT_I422_8, PM5544_SCAN_PROGRESSIVE).get(), PM5544_LAYOUT_I422_8);
    const Frame progressive =
        render(newCard(PM5544_LAYOUT_I420_8, PM5544_SCAN_PROGRESSIVE).get(), PM5544_LAYOUT_I420_8);
    const Frame interlaced =
        render(newCard(PM5544_LAYOUT_I420_8, PM5544_SCAN_INTERLACED_TFF).get(), PM5544_LAYOUT_I420_8);
    EXPECT_TRUE(interlaced.planes[0] == progressive.planes[0]);
    EXPECT_FALSE(interlaced.planes[1] == progressive.planes[1]) << "the card's chroma differs between fields";
    const int chromaRows = (height + 1) / 2, chromaColumns = width / 2;
    for (int plane = 1; plane <= 2; ++plane)
        for (int r = 0; r < chromaRows; ++r)
            for (int c = 0; c < chromaColumns; ++c)
                ASSERT_EQ(full.sample(plane, interlacedSourceRow(r), c), interlaced.sample(plane, r, c))
                    << "plane " << plane << " chroma row " << r << " column " << c;
}

// The full-frame layout repeats each field's chroma: rows y and y + 2 share the 4:2:2 chroma of row y
// (y % 4 < 2).
TEST(Interlace, FullFrameRowsRepeatTheChromaOfTheirFieldsRowAbove) {
    Card fullCard = newCard(PM5544_LAYOUT_FRAME16, PM5544_SCAN_PROGRESSIVE);
    Card card = newCard(PM5544_LAYOUT_FRAME16, PM5544_SCAN_INTERLACED_BFF);
    ASSERT_EQ(PM5544_OK, pm5544_set_bits(card.get(), 10));
    ASSERT_EQ(PM5544_OK, pm5544_set_bits(fullCard.get(), 10));
    ASSERT_EQ(PM5544_OK, pm5544_set_sampling(fullCard.get(), 422));
    ASSERT_EQ(PM5544_OK, pm5544_set_sampling(card.get(), 420));
    const Frame full = render(fullCard.get(), PM5544_LAYOUT_FRAME16);
    const Frame interlaced = render(card.get(), PM5544_LAYOUT_FRAME16);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const int source = y / 4 * 4 + y % 2;
            for (int sample : {0, 2})  // Cr, Cb
                ASSERT_EQ(full.word(source, x, sample), interlaced.word(y, x, sample)) << y << " " << x;
            ASSERT_EQ(full.word(y, x, 1), interlaced.word(y, x, 1)) << y << " " << x;
        }
}

// Both fields show the frame's picture: 4:2:2 and 4:4:4 frames are the progressive ones, and the field
// order changes no sample of 4:2:0 either.
TEST(Interlace, FieldOrderAndNonSubsampledRowsChangeNoSample) {
    for (pm5544_layout layout : {PM5544_LAYOUT_I422_10, PM5544_LAYOUT_V210, PM5544_LAYOUT_I444_8}) {
        const Frame progressive = render(newCard(layout, PM5544_SCAN_PROGRESSIVE).get(), layout);
        for (pm5544_scan scan : {PM5544_SCAN_INTERLACED_TFF, PM5544_SCAN_INTERLACED_BFF})
            EXPECT_TRUE(render(newCard(layout, scan).get(), layout).planes == progressive.planes)
                << pm5544_layout_name(layout) << " scan " << scan;
    }
    const Frame top = render(newCard(PM5544_LAYOUT_I420_10, PM5544_SCAN_INTERLACED_TFF).get(), PM5544_LAYOUT_I420_10);
    const Frame bottom =
        render(newCard(PM5544_LAYOUT_I420_10, PM5544_SCAN_INTERLACED_BFF).get(), PM5544_LAYOUT_I420_10);
    EXPECT_TRUE(top.planes == bottom.planes);
}

// A clock's frame brought up to date in place equals a fresh render of it, over frames whose text
// changes in rows that do not start or end a group of four; the rows reported are whole groups.
TEST(Interlace, UpdatedFramesOfAClockEqualFreshRenders) {
    for (pm5544_layout layout : {PM5544_LAYOUT_I420_8, PM5544_LAYOUT_FRAME16}) {
        SCOPED_TRACE(pm5544_layout_name(layout));
        Card clock = newCard(layout, PM5544_SCAN_INTERLACED_TFF);
        if (layout == PM5544_LAYOUT_FRAME16) {
            ASSERT_EQ(PM5544_OK, pm5544_set_sampling(clock.get(), 420));
        }
        ASSERT_EQ(PM5544_OK, pm5544_set_clock(clock.get(), 1));
        ASSERT_EQ(PM5544_OK, pm5544_set_frame_rate(clock.get(), 30000, 1001));
        ASSERT_EQ(PM5544_OK, pm5544_set_timecode(clock.get(), "00:00:59;28"));
        // The same clock progressive: its rows are not all in groups of four, or the test shows nothing.
        Card progressive = newCard(layout, PM5544_SCAN_PROGRESSIVE);
        if (layout == PM5544_LAYOUT_FRAME16) {
            ASSERT_EQ(PM5544_OK, pm5544_set_sampling(progressive.get(), 420));
        }
        pm5544_set_clock(progressive.get(), 1);
        pm5544_set_frame_rate(progressive.get(), 30000, 1001);
        pm5544_set_timecode(progressive.get(), "00:00:59;28");
        pm5544_rows pairs{};
        ASSERT_EQ(PM5544_OK, pm5544_changed_rows(progressive.get(), 0, 2, &pairs));
        ASSERT_GT(pairs.row_count, 0);
        ASSERT_TRUE(pairs.first_row % 4 != 0 || (pairs.first_row + pairs.row_count) % 4 != 0);

        Frame held = render(clock.get(), layout, 0);
        int64_t heldFrame = 0;
        for (int64_t frame : {1, 2, 2, 1800, 3}) {
            const std::vector<void*> planes = held.pointers();
            pm5544_rows written{};
            ASSERT_EQ(PM5544_OK, pm5544_update_frame(clock.get(), frame, heldFrame, layout, planes.data(),
                                                     held.strides.data(), &written));
            EXPECT_TRUE(render(clock.get(), layout, frame).planes == held.planes) << "frame " << frame;
            EXPECT_EQ(0, written.first_row % 4) << "frame " << frame;
            EXPECT_EQ(0, (written.first_row + written.row_count) % 4) << "frame " << frame;
            heldFrame = frame;
        }
    }
}

// A value that is no scan is refused and leaves the setting as it was; interlaced 4:2:0 needs whole
// groups of four rows, which other samplings do not.
TEST(Interlace, RefusesAnUnknownScanAndFieldsOfUnevenChroma) {
    Card card = newCard(PM5544_LAYOUT_I420_8, PM5544_SCAN_INTERLACED_TFF);
    EXPECT_EQ(PM5544_ERROR_ARGUMENT, pm5544_set_scan(card.get(), static_cast<pm5544_scan>(3)));
    EXPECT_EQ("Scan 3 is unknown", std::string(pm5544_last_error(card.get())));
    EXPECT_EQ(PM5544_ERROR_ARGUMENT, pm5544_set_scan(card.get(), static_cast<pm5544_scan>(-1)));
    EXPECT_EQ(PM5544_ERROR_ARGUMENT, pm5544_set_scan(nullptr, PM5544_SCAN_PROGRESSIVE));
    const Frame kept = render(card.get(), PM5544_LAYOUT_I420_8);
    EXPECT_TRUE(kept.planes ==
                render(newCard(PM5544_LAYOUT_I420_8, PM5544_SCAN_INTERLACED_TFF).get(), PM5544_LAYOUT_I420_8).planes);

    ASSERT_EQ(PM5544_OK, pm5544_set_raster(card.get(), width, 362));
    EXPECT_EQ(PM5544_ERROR_SETTINGS, pm5544_prepare(card.get()));
    EXPECT_NE(std::string::npos, std::string(pm5544_last_error(card.get())).find("multiple of 4, not 362"));
    ASSERT_EQ(PM5544_OK, pm5544_use_layout(card.get(), PM5544_LAYOUT_I422_8));
    EXPECT_EQ(PM5544_OK, pm5544_prepare(card.get())) << pm5544_last_error(card.get());
}
