// The analysis against captures made here by exact operations, whose geometry and levels are known.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>

#include "analysis/Analysis.h"
#include "pm5544/pm5544.h"

using namespace pm5544::analysis;

namespace {

constexpr int kWidth = 480, kHeight = 270, kBits = 10;

// The 709 card at 4:4:4 as the analysis reads it: Y', Cb, Cr planes of codes.
Picture renderCard() {
    pm5544_card* card = pm5544_card_new();
    EXPECT_EQ(pm5544_set_raster(card, kWidth, kHeight), PM5544_OK);
    EXPECT_EQ(pm5544_set_encoding(card, PM5544_ENCODING_709), PM5544_OK);
    EXPECT_EQ(pm5544_set_bits(card, kBits), PM5544_OK);
    std::vector<uint16_t> frame(size_t(kWidth) * kHeight * 4);
    void* planes[] = {frame.data()};
    const size_t strides[] = {size_t(kWidth) * 8};
    EXPECT_EQ(pm5544_render_frame(card, 0, PM5544_LAYOUT_FRAME16, planes, strides), PM5544_OK);
    pm5544_card_free(card);
    Picture p;
    p.width = kWidth;
    p.height = kHeight;
    p.bits = kBits;
    p.components = Components::YCbCr;
    p.allocate();
    const int fromFrame[3] = {1, 2, 0};  // FRAME16 holds Cr, Y', Cb
    for (size_t i = 0; i < size_t(kWidth) * kHeight; ++i)
        for (int c = 0; c < 3; ++c) p.planes[c][i] = uint16_t(frame[i * 4 + size_t(fromFrame[c])] >> (16 - kBits));
    return p;
}

const Picture& card() {
    static const Picture picture = renderCard();
    return picture;
}

Sent sent709() { return {kBits, true, true, "709"}; }

// A capture of another raster whose pixel (x, y) takes its codes from `source`.
Picture transformed(int width, int height, const std::function<uint16_t(int c, int x, int y)>& source) {
    Picture p = card();
    p.width = width;
    p.height = height;
    p.allocate();
    for (int c = 0; c < 3; ++c)
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) p.planes[c][size_t(y) * size_t(width) + size_t(x)] = source(c, x, y);
    return p;
}

uint16_t blackOr(int c, int x, int y) {
    const Picture& r = card();
    if (x < 0 || y < 0 || x >= r.width || y >= r.height) return uint16_t(c == 0 ? 64 : 512);
    return r.at(c, x, y);
}

}  // namespace

TEST(Analysis, TheCardItselfIsBitExact) {
    const Report r = analyse(card(), sent709(), card());
    EXPECT_EQ(r.verdict, Verdict::BitExact);
}

TEST(Analysis, PlacementsMadeByCopying) {
    struct Case {
        const char* name;
        int width, height;
        std::function<uint16_t(int, int, int)> source;
        Geometry truth;
    };
    const Case cases[] = {
        {"shifted 7 right, 5 up",
         kWidth,
         kHeight,
         [](int c, int x, int y) { return blackOr(c, x - 7, y + 5); },
         {1, 1, 7, -5}},
        {"mirrored both ways",
         kWidth,
         kHeight,
         [](int c, int x, int y) { return blackOr(c, kWidth - 1 - x, kHeight - 1 - y); },
         {-1, -1, kWidth - 1, kHeight - 1}},
        // Each sent pixel repeated over 2 x 2: its centre lies between capture pixels 2x and 2x + 1.
        {"pixels doubled",
         2 * kWidth,
         2 * kHeight,
         [](int c, int x, int y) { return blackOr(c, x / 2, y / 2); },
         {2, 2, 0.5, 0.5}},
        {"pillarboxed by 40 px",
         kWidth + 80,
         kHeight,
         [](int c, int x, int y) { return blackOr(c, x - 40, y); },
         {1, 1, 40, 0}},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.name);
        const Report r = analyse(card(), sent709(), transformed(k.width, k.height, k.source));
        EXPECT_NEAR(r.geometry.scaleX, k.truth.scaleX, 2e-4 * std::fabs(k.truth.scaleX));
        EXPECT_NEAR(r.geometry.scaleY, k.truth.scaleY, 2e-4 * std::fabs(k.truth.scaleY));
        EXPECT_NEAR(r.geometry.offsetX, k.truth.offsetX, 0.05);
        EXPECT_NEAR(r.geometry.offsetY, k.truth.offsetY, 0.05);
        EXPECT_EQ(r.verdict, Verdict::Changed);
        EXPECT_EQ(r.range, RangeChange::AsSent);
        EXPECT_FALSE(r.matrix.has_value());
    }
}

TEST(Analysis, LevelsFromTheStandardsFormulas) {
    // Studio range stretched to full at 10 bits: Y' (Y - 64) * 1023 / 876, C' (C - 512) * 1023 / 896 + 512.
    const Picture expanded = transformed(kWidth, kHeight, [](int c, int x, int y) {
        const double v = card().at(c, x, y);
        const double out = c == 0 ? (v - 64) * 1023 / 876 : (v - 512) * 1023 / 896 + 512;
        return uint16_t(std::clamp(std::lround(out), 0L, 1023L));
    });
    Report r = analyse(card(), sent709(), expanded);
    EXPECT_EQ(r.range, RangeChange::Expanded);
    for (int c = 0; c < 3; ++c) {
        EXPECT_NEAR(r.gain[size_t(c)], 1, 1e-3);
        EXPECT_NEAR(r.offset[size_t(c)], 0, 0.25);
    }
    // Luma times 1.02 plus 8 codes, chroma exchanged.
    const Picture graded = transformed(kWidth, kHeight, [](int c, int x, int y) {
        if (c > 0) return card().at(3 - c, x, y);
        return uint16_t(std::min(1023L, std::lround(card().at(0, x, y) * 1.02 + 8)));
    });
    r = analyse(card(), sent709(), graded);
    EXPECT_EQ(r.range, RangeChange::AsSent);
    EXPECT_EQ(r.swap, Swap::CbCr);
    EXPECT_NEAR(r.gain[0], 1.02, 1e-3);
    EXPECT_NEAR(r.offset[0], 8, 0.25);
    EXPECT_EQ(r.verdict, Verdict::Changed);
}

TEST(Analysis, PicturesThatAreNoCard) {
    std::mt19937 random(5544);
    const Picture noise = transformed(kWidth, kHeight, [&](int, int, int) { return uint16_t(random() % 1024); });
    const Picture black = transformed(kWidth, kHeight, [](int c, int, int) { return uint16_t(c == 0 ? 64 : 512); });
    EXPECT_THROW(analyse(card(), sent709(), noise), NoCardFound);
    EXPECT_THROW(analyse(card(), sent709(), black), NoCardFound);
}

// The handle keeps the card it renders for analyses until a setting changes.
TEST(AnalysisApi, TheKeptCardFollowsTheSettings) {
    const Picture& sent = card();
    std::vector<uint16_t> frame(size_t(kWidth) * kHeight * 4);
    const int toFrame[3] = {1, 2, 0};  // Cr, Y', Cb from Y', Cb, Cr
    for (size_t i = 0; i < size_t(kWidth) * kHeight; ++i)
        for (int c = 0; c < 3; ++c) frame[i * 4 + size_t(toFrame[c])] = uint16_t(sent.planes[c][i] << (16 - kBits));
    const void* planes[] = {frame.data()};
    const size_t strides[] = {size_t(kWidth) * 8};
    pm5544_capture* capture = pm5544_capture_from_planes(PM5544_LAYOUT_FRAME16, kWidth, kHeight, kBits, 1, planes, strides);
    pm5544_card* handle = pm5544_card_new();
    pm5544_set_raster(handle, kWidth, kHeight);
    pm5544_set_bits(handle, kBits);
    auto verdictFor = [&](pm5544_encoding encoding) {
        EXPECT_EQ(pm5544_set_encoding(handle, encoding), PM5544_OK);
        EXPECT_EQ(pm5544_prepare_analysis(handle, 0), PM5544_OK);
        pm5544_analysis* analysis = pm5544_analyse(handle, capture, 0);
        const int verdict = analysis ? int(pm5544_analysis_verdict(analysis)) : -1;
        pm5544_analysis_free(analysis);
        return verdict;
    };
    EXPECT_EQ(verdictFor(PM5544_ENCODING_709), PM5544_VERDICT_BIT_EXACT);
    EXPECT_EQ(verdictFor(PM5544_ENCODING_601), PM5544_VERDICT_CHANGED);  // a 709 card sent as 601
    EXPECT_EQ(verdictFor(PM5544_ENCODING_709), PM5544_VERDICT_BIT_EXACT);
    pm5544_card_free(handle);
    pm5544_capture_free(capture);
}
