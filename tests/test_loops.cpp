// The full-frame loop (coordinates, packing, 10-bit widening, taper, chroma subsampling) and the
// line-repeat loop (stored lines, sample order).
#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "TestPattern.h"

namespace {

using Frame = std::vector<uint16_t>;

// A 12-bit R'G'B' pixel (arguments in R, G, B order).
Pixel rgb(int r, int g, int b) { return Pixel(g, b, r, PatternGen::Colour_RGB); }

// Unique per coordinate: R from x, G from y, B from both.
Pixel coordinatePixel(int x, int y) { return rgb(2000 + x, 100 + y, 1000 + x + 10 * y); }

Frame renderFrame(TestPattern& p, int w, int h) {
    Frame frame(static_cast<size_t>(w) * h * 4, 0xABCD);
    EXPECT_TRUE(p.run_body(0, w, h, frame.data()));
    return frame;
}

const uint16_t* at(const Frame& f, int w, int col, int row) { return &f[(static_cast<size_t>(row) * w + col) * 4]; }

struct Range {
    int minX, maxX, minY, maxY;
    long long calls;
};

Range rangeOf(PatternGen::quadrant_e q, bool fullCanvas, int w, int h) {
    TestPattern p;
    p.fullCanvas = fullCanvas;
    p.initQuietly(w, h, 16, 9, PatternGen::Colour_RGB, PatternGen::Sampling_444, 12, q);
    renderFrame(p, w, h);
    return {p.minX, p.maxX, p.minY, p.maxY, p.bodyCalls};
}

void expectRange(const Range& r, int minX, int maxX, int minY, int maxY, long long calls) {
    EXPECT_EQ(r.minX, minX);
    EXPECT_EQ(r.maxX, maxX);
    EXPECT_EQ(r.minY, minY);
    EXPECT_EQ(r.maxY, maxY);
    EXPECT_EQ(r.calls, calls);
}

}  // namespace

TEST(FullFrameLoop, CoordinateRangesPerQuadrantAndFullCanvas) {
    expectRange(rangeOf(PatternGen::Quadrant_None, false, 16, 6), -8, 7, 0, 5, 96);
    expectRange(rangeOf(PatternGen::Quadrant_None, false, 15, 3), -7, 6, 0, 2, 42);  // odd width: 14 columns
    expectRange(rangeOf(PatternGen::Quadrant_None, true, 16, 6), 0, 15, 0, 5, 96);
    expectRange(rangeOf(PatternGen::Quadrant_TL, false, 8, 6), -8, -1, 0, 5, 48);
    expectRange(rangeOf(PatternGen::Quadrant_TR, false, 8, 6), 0, 7, 0, 5, 48);
    expectRange(rangeOf(PatternGen::Quadrant_BL, false, 8, 6), -8, -1, 6, 11, 48);
    expectRange(rangeOf(PatternGen::Quadrant_BR, false, 8, 6), 0, 7, 6, 11, 48);
}

TEST(FullFrameLoop, RowsFillTheFrameInRasterOrderFromItsFirstRow) {
    TestPattern p(coordinatePixel);
    p.recordCalls = true;
    p.initQuietly(4, 3, 16, 9, PatternGen::Colour_RGB, PatternGen::Sampling_444, 12, PatternGen::Quadrant_BL, true);
    const Frame f = renderFrame(p, 4, 3);
    ASSERT_EQ(p.calls.size(), 12u);
    EXPECT_EQ(p.calls.front(), std::make_pair(-4, 3));
    EXPECT_EQ(p.calls[1], std::make_pair(-3, 3));
    EXPECT_EQ(p.calls.back(), std::make_pair(-1, 5));
    for (int row = 0; row < 3; ++row)
        for (int col = 0; col < 4; ++col) {
            const Pixel expected = coordinatePixel(col - 4, row + 3);
            const uint16_t* px = at(f, 4, col, row);
            EXPECT_EQ(px[0], expected.sample[Pixel::CR_R] * 16);
            EXPECT_EQ(px[1], expected.sample[Pixel::Y_G] * 16);
            EXPECT_EQ(px[2], expected.sample[Pixel::CB_B] * 16);
            EXPECT_EQ(px[3], 4095 * 16);
        }
}

TEST(FullFrameLoop, QuadrantModeIsRefusedForFullCanvasPatternsBeforeAnythingIsWritten) {
    TestPattern p;
    p.fullCanvas = true;
    p.initQuietly(8, 4, 16, 9, PatternGen::Colour_RGB, PatternGen::Sampling_444, 12, PatternGen::Quadrant_TL);
    Frame frame(8 * 4 * 4, 0xABCD);
    try {
        p.run_body(0, 8, 4, frame.data());
        FAIL() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Quadrant mode is depracated");
    }
    EXPECT_EQ(p.bodyCalls, 0);
    for (uint16_t v : frame) ASSERT_EQ(v, 0xABCD);
}

TEST(FullFrameLoop, TenBitPixelsAreWidenedToTwelveBits) {
    TestPattern p([](int, int) { return Pixel(940, 512, 512, PatternGen::Colour_YCbCr_709, 10); });
    p.initQuietly(4, 2, 16, 9, PatternGen::Colour_YCbCr_709, PatternGen::Sampling_444, 10,
                  PatternGen::Quadrant_None, true);
    const Frame f = renderFrame(p, 4, 2);
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(f[i * 4 + 0], 32768);  // Cr
        EXPECT_EQ(f[i * 4 + 1], 60160);  // Y
        EXPECT_EQ(f[i * 4 + 2], 32768);  // Cb
        EXPECT_EQ(f[i * 4 + 3], 65472);  // alpha
    }
}

TEST(FullFrameLoop, EdgeTaperBlendsTheOuterTwoColumnsTowardsBlack) {
    TestPattern p([](int, int) { return rgb(4095, 4095, 4095); });
    p.initQuietly(8, 1);
    Frame f = renderFrame(p, 8, 1);
    // 4095 * 0.1 = 409.5 and 4095 * 0.67 = 2743.65, both truncated.
    const int expected[] = {409, 2743, 4095, 4095, 4095, 4095, 2743, 409};
    for (int col = 0; col < 8; ++col)
        for (int s = 0; s < 3; ++s) EXPECT_EQ(at(f, 8, col, 0)[s], expected[col] * 16) << "column " << col;

    // Two columns: each is tapered from both sides, left first (409 -> 274, 2743 -> 274).
    TestPattern narrow([](int, int) { return rgb(4095, 4095, 4095); });
    narrow.initQuietly(2, 1);
    f = renderFrame(narrow, 2, 1);
    EXPECT_EQ(f[0], 274 * 16);
    EXPECT_EQ(f[4], 274 * 16);

    // No taper when suppressed or when transitions are off.
    TestPattern off([](int, int) { return rgb(4095, 4095, 4095); });
    off.initQuietly(8, 1, 16, 9, PatternGen::Colour_RGB, PatternGen::Sampling_444, 12, PatternGen::Quadrant_None, true);
    EXPECT_EQ(renderFrame(off, 8, 1)[0], 4095 * 16);
    TestPattern noRise([](int, int) { return rgb(4095, 4095, 4095); });
    noRise.setupFn = [](TestPattern& self) { self.noRiseTime(); };
    noRise.initQuietly(8, 1);
    EXPECT_EQ(renderFrame(noRise, 8, 1)[0], 4095 * 16);
}

TEST(FullFrameLoop, FourTwoTwoHoldsTheChromaOfTheLastEvenColumn) {
    TestPattern p(coordinatePixel);
    p.initQuietly(1366, 2, 16, 9, PatternGen::Colour_RGB, PatternGen::Sampling_422, 12, PatternGen::Quadrant_None, true);
    const Frame f = renderFrame(p, 1366, 2);
    // The first x, -683, is odd: row 0 starts with the default Pixel's chroma (2048),
    // row 1 with the chroma of row 0's last even column, x 682.
    EXPECT_EQ(at(f, 1366, 0, 0)[0], 2048 * 16);
    EXPECT_EQ(at(f, 1366, 0, 0)[2], 2048 * 16);
    const Pixel last = coordinatePixel(682, 0);
    EXPECT_EQ(at(f, 1366, 0, 1)[0], last.sample[Pixel::CR_R] * 16);
    EXPECT_EQ(at(f, 1366, 0, 1)[2], last.sample[Pixel::CB_B] * 16);
    for (int row = 0; row < 2; ++row)
        for (int col = 1; col < 1366; ++col) {
            const int x = col - 683;
            const Pixel own = coordinatePixel(x, row);
            const Pixel held = coordinatePixel(x % 2 == 0 ? x : x - 1, row);
            const uint16_t* px = at(f, 1366, col, row);
            ASSERT_EQ(px[0], held.sample[Pixel::CR_R] * 16) << col << "," << row;
            ASSERT_EQ(px[1], own.sample[Pixel::Y_G] * 16);
            ASSERT_EQ(px[2], held.sample[Pixel::CB_B] * 16);
        }
}

TEST(FullFrameLoop, FourTwoZeroRepeatsTheChromaOfTheEvenRowAbove) {
    TestPattern p(coordinatePixel);
    p.initQuietly(8, 4, 16, 9, PatternGen::Colour_RGB, PatternGen::Sampling_420, 12, PatternGen::Quadrant_None, true);
    const Frame f = renderFrame(p, 8, 4);
    for (int row = 0; row < 4; ++row)
        for (int col = 0; col < 8; ++col) {
            const int x = col - 4;
            const int evenX = x % 2 == 0 ? x : x - 1;
            const Pixel chroma = coordinatePixel(evenX, row - row % 2);
            const uint16_t* px = at(f, 8, col, row);
            EXPECT_EQ(px[0], chroma.sample[Pixel::CR_R] * 16) << col << "," << row;
            EXPECT_EQ(px[1], coordinatePixel(x, row).sample[Pixel::Y_G] * 16);
            EXPECT_EQ(px[2], chroma.sample[Pixel::CB_B] * 16);
        }
}

namespace {

using Lines = std::vector<uint16_t>;

// Renders through the line-repeat loop; returns the buffer and the stored line count.
Lines renderLines(TestPattern& p, int w, int& h, std::vector<std::pair<int, int>>& repeats) {
    Lines lines(static_cast<size_t>(w) * h * 3, 0xABCD);
    EXPECT_TRUE(p.run_body(0, w, h, repeats, reinterpret_cast<unsigned char*>(lines.data())));
    return lines;
}

std::vector<int> storedSourceLines(const std::vector<std::pair<int, int>>& list, int w, int bufferHeight,
                                   int& storedHeight) {
    TestPattern p([](int x, int y) { return rgb(x, y, 7); });
    p.useBaseLineRepeats = false;
    p.lineRepeats = list;
    p.initQuietly(w, bufferHeight);
    std::vector<std::pair<int, int>> repeats;
    storedHeight = bufferHeight;
    const Lines lines = renderLines(p, w, storedHeight, repeats);
    EXPECT_EQ(repeats, list);
    std::vector<int> sources;
    for (int n = 0; n < storedHeight; ++n) sources.push_back(lines[static_cast<size_t>(n) * w * 3 + 1] / 16);
    return sources;
}

}  // namespace

TEST(LineRepeatLoop, WithoutAListEveryLineIsRenderedFromTheTopLeft) {
    TestPattern p(coordinatePixel);
    p.initQuietly(6, 4);
    int h = 4;
    std::vector<std::pair<int, int>> repeats{{9, 9}};
    const Lines lines = renderLines(p, 6, h, repeats);
    EXPECT_TRUE(repeats.empty());
    EXPECT_EQ(h, 4);
    EXPECT_EQ(p.bodyCalls, 24);
    EXPECT_EQ(p.minX, 0);
    EXPECT_EQ(p.maxX, 5);
    EXPECT_EQ(p.minY, 0);
    EXPECT_EQ(p.maxY, 3);
    // R'G'B' axes: R, G, B, no taper.
    const Pixel expected = coordinatePixel(0, 2);
    const uint16_t* px = &lines[2 * 6 * 3];
    EXPECT_EQ(px[0], expected.sample[Pixel::CR_R] * 16);
    EXPECT_EQ(px[1], expected.sample[Pixel::Y_G] * 16);
    EXPECT_EQ(px[2], expected.sample[Pixel::CB_B] * 16);
}

TEST(LineRepeatLoop, StoredLinesFollowTheFirstPairOfEachIndexUntilAGap) {
    int h = 0;
    EXPECT_EQ(storedSourceLines({{1, 5}, {0, 0}, {2, 9}}, 3, 10, h), (std::vector<int>{0, 5, 9}));
    EXPECT_EQ(h, 3);
    EXPECT_EQ(storedSourceLines({{0, 2}, {1, 4}, {3, 6}}, 3, 10, h), (std::vector<int>{2, 4}));
    EXPECT_EQ(h, 2);
    EXPECT_EQ(storedSourceLines({{0, 3}, {0, 8}, {1, 1}}, 3, 10, h), (std::vector<int>{3, 1}));
    EXPECT_EQ(h, 2);
    EXPECT_EQ(storedSourceLines({{1, 3}, {2, 4}}, 3, 10, h), (std::vector<int>{}));
    EXPECT_EQ(h, 0);
}

TEST(LineRepeatLoop, SampleOrderIsYCbCrAndTenBitIsWidened) {
    for (int bits : {10, 12}) {
        const Pixel white = bits == 10 ? Pixel(940, 512, 512, PatternGen::Colour_YCbCr_709, 10)
                                       : Pixel(3760, 2048, 3000);
        TestPattern p([white](int, int) { return white; });
        p.initQuietly(2, 1, 16, 9, PatternGen::Colour_YCbCr_709, PatternGen::Sampling_444, bits);
        int h = 1;
        std::vector<std::pair<int, int>> repeats;
        const Lines lines = renderLines(p, 2, h, repeats);
        EXPECT_EQ(lines[3], 60160);
        EXPECT_EQ(lines[4], 32768);
        EXPECT_EQ(lines[5], bits == 10 ? 32768 : 48000);
    }
}
