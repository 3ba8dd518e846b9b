// Interlaced frames through the C API: 4:2:0 chroma per field, checked against the 4:2:2 render (its
// rows keep their own chroma, shaped as subsampled chroma is); a clock's frames updated in place.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "LayoutFrame.h"
#include "pm5544/pm5544.h"

namespace {

constexpr int width = 640, height = 360;

// FRAME16 cards take the sampling; the other layouts fix it.
Card newCard(pm5544_layout layout, pm5544_scan scan, int sampling = 420) {
    Card card(pm5544_card_new(), pm5544_card_free);
    EXPECT_EQ(PM5544_OK, pm5544_set_raster(card.get(), width, height));
    EXPECT_EQ(PM5544_OK, pm5544_set_encoding(card.get(), PM5544_ENCODING_709));
    EXPECT_EQ(PM5544_OK, pm5544_set_sampling(card.get(), sampling));
    EXPECT_EQ(PM5544_OK, pm5544_use_layout(card.get(), layout));
    EXPECT_EQ(PM5544_OK, pm5544_set_scan(card.get(), scan));
    return card;
}

LayoutFrame render(pm5544_card* card, pm5544_layout layout, int64_t frame = 0) {
    return renderLayout(card, layout, width, height, frame);
}

// The frame row whose chroma frame row y shows: the first of its field's pair of rows.
int sourceRow(int y) { return y / 4 * 4 + y % 2; }

}  // namespace

// I420: chroma row r belongs to field r % 2 and holds the 4:2:2 chroma of frame row (r / 2) * 4 + r % 2;
// FRAME16 repeats it over the field's pair of rows; luma is the progressive frame's. The field order
// changes no sample.
TEST(Interlace, FourTwoZeroChromaIsEachFieldsOwn) {
    const LayoutFrame planar =
        render(newCard(PM5544_LAYOUT_I422_8, PM5544_SCAN_PROGRESSIVE, 422).get(), PM5544_LAYOUT_I422_8);
    const LayoutFrame top =
        render(newCard(PM5544_LAYOUT_I420_8, PM5544_SCAN_INTERLACED_TFF).get(), PM5544_LAYOUT_I420_8);
    EXPECT_TRUE(top.planes[0] == planar.planes[0]);
    for (int plane = 1; plane <= 2; ++plane)
        for (int r = 0; r < height / 2; ++r)
            for (int c = 0; c < width / 2; ++c)
                ASSERT_EQ(planar.byte(plane, r / 2 * 4 + r % 2, c), top.byte(plane, r, c))
                    << plane << " " << r << " " << c;
    EXPECT_TRUE(render(newCard(PM5544_LAYOUT_I420_8, PM5544_SCAN_INTERLACED_BFF).get(), PM5544_LAYOUT_I420_8).planes ==
                top.planes);

    const LayoutFrame full =
        render(newCard(PM5544_LAYOUT_FRAME16, PM5544_SCAN_PROGRESSIVE, 422).get(), PM5544_LAYOUT_FRAME16);
    const LayoutFrame fields =
        render(newCard(PM5544_LAYOUT_FRAME16, PM5544_SCAN_INTERLACED_BFF).get(), PM5544_LAYOUT_FRAME16);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int sample : {0, 1, 2})  // Cr, Y', Cb
                ASSERT_EQ(full.word(sample == 1 ? y : sourceRow(y), x, sample), fields.word(y, x, sample))
                    << y << " " << x;
}

// A clock's frame updated in place equals a fresh render, over text that changes in rows that are not
// whole groups of four (as the progressive clock's changed rows show); the rows reported are whole groups.
TEST(Interlace, UpdatedClockFramesEqualFreshRenders) {
    for (pm5544_layout layout : {PM5544_LAYOUT_I420_8, PM5544_LAYOUT_FRAME16}) {
        SCOPED_TRACE(pm5544_layout_name(layout));
        const auto clock = [&](pm5544_scan scan) {
            Card card = newCard(layout, scan);
            pm5544_set_clock(card.get(), 1);
            pm5544_set_frame_rate(card.get(), 30000, 1001);
            EXPECT_EQ(PM5544_OK, pm5544_set_timecode(card.get(), "00:00:59;28"));
            return card;
        };
        pm5544_rows pairs{};
        ASSERT_EQ(PM5544_OK, pm5544_changed_rows(clock(PM5544_SCAN_PROGRESSIVE).get(), 0, 2, &pairs));
        ASSERT_TRUE(pairs.first_row % 4 != 0 || (pairs.first_row + pairs.row_count) % 4 != 0);

        Card card = clock(PM5544_SCAN_INTERLACED_TFF);
        LayoutFrame held = render(card.get(), layout, 0);
        int64_t heldFrame = 0;
        for (int64_t frame : {1, 2, 1800, 3}) {
            const std::vector<void*> planes = held.pointers();
            pm5544_rows written{};
            ASSERT_EQ(PM5544_OK, pm5544_update_frame(card.get(), frame, heldFrame, layout, planes.data(),
                                                     held.strides.data(), &written));
            EXPECT_TRUE(render(card.get(), layout, frame).planes == held.planes) << "frame " << frame;
            EXPECT_EQ(0, written.first_row % 4);
            EXPECT_EQ(0, (written.first_row + written.row_count) % 4);
            heldFrame = frame;
        }
    }
}

// What is no scan is refused; interlaced 4:2:0 needs whole groups of four rows, other samplings do not.
TEST(Interlace, RefusesAnUnknownScanAndFieldsOfUnevenChroma) {
    Card card = newCard(PM5544_LAYOUT_I420_8, PM5544_SCAN_INTERLACED_TFF);
    EXPECT_EQ(PM5544_ERROR_ARGUMENT, pm5544_set_scan(card.get(), static_cast<pm5544_scan>(3)));
    EXPECT_EQ(PM5544_ERROR_ARGUMENT, pm5544_set_scan(nullptr, PM5544_SCAN_PROGRESSIVE));
    ASSERT_EQ(PM5544_OK, pm5544_set_raster(card.get(), width, 362));
    EXPECT_EQ(PM5544_ERROR_SETTINGS, pm5544_prepare(card.get()));
    EXPECT_NE(std::string::npos, std::string(pm5544_last_error(card.get())).find("multiple of 4, not 362"));
    ASSERT_EQ(PM5544_OK, pm5544_use_layout(card.get(), PM5544_LAYOUT_I422_8));
    EXPECT_EQ(PM5544_OK, pm5544_prepare(card.get())) << pm5544_last_error(card.get());
}
