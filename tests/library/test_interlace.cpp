// Interlaced frames through the C API: 4:2:0 chroma per field against the 4:2:2 render; refusals.
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
