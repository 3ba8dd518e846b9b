// The full-frame loop (coordinates, packing, 10-bit widening, taper, chroma subsampling) and the
// line-repeat loop (stored lines, sample order).
#include <gtest/gtest.h>

#include <stdexcept>

#include "TestPattern.h"

namespace {

using PatternGen::Quadrant_None;
using Samples = std::vector<uint16_t>;

Pixel rgb(int r, int g, int b) { return Pixel(g, b, r, PatternGen::Colour_RGB); }
Pixel white(int, int) { return rgb(4095, 4095, 4095); }
// Unique per coordinate: R from x, G from y, B from both.
Pixel coordinates(int x, int y) { return rgb(2000 + x, 100 + y, 1000 + x + 10 * y); }

Samples frameOf(TestPattern& p, int w, int h) {
    Samples f(static_cast<size_t>(w) * h * 4, 0xABCD);
    EXPECT_TRUE(p.run_body(0, w, h, f.data()));
    return f;
}

// Frame samples 0..2 of an R'G'B' pixel are R, G, B times 16.
void expectStored(const uint16_t* px, const Pixel& chroma, const Pixel& luma) {
    EXPECT_EQ(px[0], chroma.sample[Pixel::CR_R] * 16);
    EXPECT_EQ(px[1], luma.sample[Pixel::Y_G] * 16);
    EXPECT_EQ(px[2], chroma.sample[Pixel::CB_B] * 16);
}

}  // namespace

TEST(FullFrameLoop, CoordinateRangesPerQuadrantAndFullCanvas) {
    struct Case {
        PatternGen::quadrant_e quadrant;
        bool fullCanvas;
        int minX, maxX, minY, maxY;
    };
    const Case cases[] = {{Quadrant_None, false, -8, 7, 0, 5},
                          {Quadrant_None, true, 0, 15, 0, 5},
                          {PatternGen::Quadrant_TL, false, -16, -1, 0, 5},
                          {PatternGen::Quadrant_TR, false, 0, 15, 0, 5},
                          {PatternGen::Quadrant_BL, false, -16, -1, 6, 11},
                          {PatternGen::Quadrant_BR, false, 0, 15, 6, 11}};
    for (const Case& c : cases) {
        TestPattern p;
        p.fullCanvas = c.fullCanvas;
        p.initQuietly(16, 6, 16, 9, PatternGen::Colour_RGB, PatternGen::Sampling_444, 12, c.quadrant);
        frameOf(p, 16, 6);
        EXPECT_EQ((std::vector<int>{p.minX, p.maxX, p.minY, p.maxY}),
                  (std::vector<int>{c.minX, c.maxX, c.minY, c.maxY}))
            << "quadrant " << c.quadrant;
        EXPECT_EQ(p.bodyCalls, 96);
    }
}

TEST(FullFrameLoop, RowsFillTheFrameInRasterOrderFromItsFirstRow) {
    TestPattern p(coordinates);
    p.recordCalls = true;
    p.initQuietly(4, 3, 16, 9, PatternGen::Colour_RGB, PatternGen::Sampling_444, 12, PatternGen::Quadrant_BL, true);
    const Samples f = frameOf(p, 4, 3);
    EXPECT_EQ(p.calls[1], std::make_pair(-3, 3));
    for (int i = 0; i < 12; ++i) {
        const Pixel expected = coordinates(i % 4 - 4, i / 4 + 3);
        EXPECT_EQ(p.calls[i], std::make_pair(i % 4 - 4, i / 4 + 3));
        expectStored(&f[i * 4], expected, expected);
        EXPECT_EQ(f[i * 4 + 3], 4095 * 16);
    }
}

TEST(FullFrameLoop, QuadrantModeIsRefusedForFullCanvasPatternsBeforeAnythingIsWritten) {
    TestPattern p;
    p.fullCanvas = true;
    p.initQuietly(8, 4, 16, 9, PatternGen::Colour_RGB, PatternGen::Sampling_444, 12, PatternGen::Quadrant_TL);
    Samples f(8 * 4 * 4, 0xABCD);
    try {
        p.run_body(0, 8, 4, f.data());
        FAIL() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Quadrant mode is depracated");
    }
    EXPECT_EQ(p.bodyCalls, 0);
    EXPECT_EQ(f, Samples(8 * 4 * 4, 0xABCD));
}

TEST(FullFrameLoop, TenBitPixelsAreWidenedToTwelveBits) {
    TestPattern p([](int, int) { return Pixel(940, 512, 512, PatternGen::Colour_YCbCr_709, 10); });
    p.initQuietly(4, 2, 16, 9, PatternGen::Colour_YCbCr_709, PatternGen::Sampling_444, 10, Quadrant_None, true);
    const Samples f = frameOf(p, 4, 2);
    for (size_t i = 0; i < f.size(); i += 4)
        EXPECT_EQ(Samples(&f[i], &f[i + 4]), (Samples{32768, 60160, 32768, 65472}));
}

TEST(FullFrameLoop, EdgeTaperBlendsTheOuterTwoColumnsTowardsBlack) {
    TestPattern p(white), narrow(white), off(white), noRise(white);
    p.initQuietly(8, 1);
    const Samples f = frameOf(p, 8, 1);
    const int expected[] = {409, 2743, 4095, 4095, 4095, 4095, 2743, 409};  // 4095 x 0.1 and x 0.67, truncated
    for (int col = 0; col < 8; ++col) {
        const Pixel grey = rgb(expected[col], expected[col], expected[col]);
        expectStored(&f[col * 4], grey, grey);
    }
    // Two columns: each is tapered from the left, then from the right (409 -> 274, 2743 -> 274).
    narrow.initQuietly(2, 1);
    EXPECT_EQ(frameOf(narrow, 2, 1),
              (Samples{274 * 16, 274 * 16, 274 * 16, 4095 * 16, 274 * 16, 274 * 16, 274 * 16, 4095 * 16}));
    // No taper when suppressed or when the pattern switched transitions off.
    off.initQuietly(8, 1, 16, 9, PatternGen::Colour_RGB, PatternGen::Sampling_444, 12, Quadrant_None, true);
    EXPECT_EQ(frameOf(off, 8, 1)[0], 4095 * 16);
    noRise.setupFn = [](TestPattern& self) { self.noRiseTime(); };
    noRise.initQuietly(8, 1);
    EXPECT_EQ(frameOf(noRise, 8, 1)[0], 4095 * 16);
}

TEST(FullFrameLoop, FourTwoTwoHoldsTheChromaOfTheLastEvenColumn) {
    TestPattern p(coordinates);
    p.initQuietly(1366, 2, 16, 9, PatternGen::Colour_RGB, PatternGen::Sampling_422, 12, Quadrant_None, true);
    const Samples f = frameOf(p, 1366, 2);
    // The first x, -683, is odd: row 0 starts with the default Pixel's chroma, row 1 with that of
    // row 0's last even column, x 682.
    expectStored(&f[0], Pixel(), coordinates(-683, 0));
    expectStored(&f[1366 * 4], coordinates(682, 0), coordinates(-683, 1));
    for (int row = 0; row < 2; ++row)
        for (int x = -682; x < 683; ++x)
            expectStored(&f[(row * 1366 + x + 683) * 4], coordinates(x % 2 == 0 ? x : x - 1, row), coordinates(x, row));
}

TEST(FullFrameLoop, FourTwoZeroRepeatsTheChromaOfTheEvenRowAbove) {
    TestPattern p(coordinates);
    p.initQuietly(8, 4, 16, 9, PatternGen::Colour_RGB, PatternGen::Sampling_420, 12, Quadrant_None, true);
    const Samples f = frameOf(p, 8, 4);
    for (int row = 0; row < 4; ++row)
        for (int x = -4; x < 4; ++x)
            expectStored(&f[(row * 8 + x + 4) * 4], coordinates(x % 2 == 0 ? x : x - 1, row - row % 2),
                         coordinates(x, row));
}

namespace {

// Line-repeat loop over a pattern whose pixel G is its source line; returns the stored lines' G.
std::vector<int> storedSourceLines(const std::vector<std::pair<int, int>>& list, int& height) {
    TestPattern p([](int x, int y) { return rgb(x, y, 7); });
    p.useBaseLineRepeats = false;
    p.lineRepeats = list;
    p.initQuietly(3, 10);
    Samples lines(3 * 10 * 3);
    std::vector<std::pair<int, int>> repeats;
    height = 10;
    EXPECT_TRUE(p.run_body(0, 3, height, repeats, reinterpret_cast<unsigned char*>(lines.data())));
    EXPECT_EQ(repeats, list);
    std::vector<int> sources;
    for (int n = 0; n < height; ++n) sources.push_back(lines[n * 9 + 1] / 16);
    return sources;
}

}  // namespace

TEST(LineRepeatLoop, StoredLinesFollowTheFirstPairOfEachIndexUntilAGap) {
    int h = 0;
    EXPECT_EQ(storedSourceLines({{1, 5}, {0, 0}, {2, 9}}, h), (std::vector<int>{0, 5, 9}));
    EXPECT_EQ(h, 3);
    EXPECT_EQ(storedSourceLines({{0, 2}, {1, 4}, {3, 6}}, h), (std::vector<int>{2, 4}));
    EXPECT_EQ(storedSourceLines({{0, 3}, {0, 8}, {1, 1}}, h), (std::vector<int>{3, 1}));
    EXPECT_EQ(storedSourceLines({{1, 3}, {2, 4}}, h), (std::vector<int>{}));
    EXPECT_EQ(h, 0);
}

TEST(LineRepeatLoop, WithoutAListEveryLineIsStoredFromTheTopLeftAsRGBOrYCbCr) {
    TestPattern p(coordinates);
    p.initQuietly(6, 4);
    int h = 4;
    std::vector<std::pair<int, int>> repeats{{9, 9}};
    Samples lines(6 * 4 * 3);
    p.run_body(0, 6, h, repeats, reinterpret_cast<unsigned char*>(lines.data()));
    EXPECT_TRUE(repeats.empty());
    EXPECT_EQ(h, 4);
    EXPECT_EQ((std::vector<int>{p.minX, p.maxX, p.minY, p.maxY}), (std::vector<int>{0, 5, 0, 3}));
    EXPECT_EQ(Samples(&lines[36], &lines[39]), (Samples{2000 * 16, 102 * 16, 1020 * 16}));  // R, G, B; no taper

    for (int bits : {10, 12}) {
        const Pixel px = bits == 10 ? Pixel(940, 512, 512, PatternGen::Colour_YCbCr_709, 10) : Pixel(3760, 2048, 3000);
        TestPattern y([px](int, int) { return px; });
        y.initQuietly(1, 1, 16, 9, PatternGen::Colour_YCbCr_709, PatternGen::Sampling_444, bits);
        h = 1;
        y.run_body(0, 1, h, repeats, reinterpret_cast<unsigned char*>(lines.data()));
        EXPECT_EQ(Samples(&lines[0], &lines[3]), (Samples{60160, 32768, uint16_t(bits == 10 ? 32768 : 48000)}));
    }
}
