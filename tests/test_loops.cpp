// The full-frame loop (coordinates, packing, 10-bit widening, taper, chroma subsampling) and the
// line-repeat loop (stored lines, sample order).
#include <gtest/gtest.h>

#include <stdexcept>

#include "TestPattern.h"

using namespace PatternGen;

namespace {

using Samples = std::vector<uint16_t>;
using Lines = std::vector<std::pair<int, int>>;

Pixel rgb(int r, int g, int b) { return Pixel(g, b, r, Colour_RGB); }
// Unique per coordinate: R from x, G from y, B from both.
Pixel coordinates(int x, int y) { return rgb(2000 + x, 100 + y, 1000 + x + 10 * y); }

Samples frameOf(TestPattern& p, int w, int h) {
    Samples f(static_cast<size_t>(w) * h * 4, 0xABCD);
    EXPECT_TRUE(p.run_body(0, w, h, f.data()));
    return f;
}

// Frame samples 0..2 of an R'G'B' pixel are R, G, B times 16.
void expectStored(const uint16_t* px, const Pixel& chroma, const Pixel& luma) {
    EXPECT_EQ(Samples(px, px + 3),
              (Samples{uint16_t(chroma.sample[Pixel::CR_R] * 16), uint16_t(luma.sample[Pixel::Y_G] * 16),
                       uint16_t(chroma.sample[Pixel::CB_B] * 16)}));
}

// Line-repeat loop over a 3 x 10 pattern whose pixel G is its source line: the stored lines' G.
std::vector<int> storedSourceLines(const Lines& list) {
    TestPattern p([](int x, int y) { return rgb(x, y, 7); });
    p.useBaseLineRepeats = false;
    p.lineRepeats = list;
    p.initQuietly(3, 10);
    Samples lines(3 * 10 * 3);
    Lines repeats;
    int height = 10;
    EXPECT_TRUE(p.run_body(0, 3, height, repeats, reinterpret_cast<unsigned char*>(lines.data())));
    EXPECT_EQ(repeats, list);
    std::vector<int> sources;
    for (int n = 0; n < height; ++n) sources.push_back(lines[n * 9 + 1] / 16);
    return sources;
}

}  // namespace

// Each rendered row goes to the next frame row, from the first, whatever the first y.
TEST(FullFrameLoop, EveryQuadrantFillsTheFrameFromItsFirstRow) {
    const struct {
        quadrant_e quadrant;
        bool fullCanvas;
        int x0, y0;
    } cases[] = {{Quadrant_None, false, -8, 0}, {Quadrant_None, true, 0, 0},  {Quadrant_TL, false, -16, 0},
                 {Quadrant_TR, false, 0, 0},    {Quadrant_BL, false, -16, 6}, {Quadrant_BR, false, 0, 6}};
    for (const auto& c : cases) {
        TestPattern p(coordinates);
        p.fullCanvas = c.fullCanvas;
        p.initQuietly(16, 6, 16, 9, Colour_RGB, Sampling_444, 12, c.quadrant, true);
        const Samples f = frameOf(p, 16, 6);
        EXPECT_EQ(p.bodyCalls, 96) << "quadrant " << c.quadrant;
        for (int i = 0; i < 96; ++i) {
            const Pixel expected = coordinates(c.x0 + i % 16, c.y0 + i / 16);
            expectStored(&f[i * 4], expected, expected);
            EXPECT_EQ(f[i * 4 + 3], 4095 * 16);
        }
    }
    // Full-canvas patterns refuse quadrant mode before anything is rendered.
    TestPattern refused;
    refused.fullCanvas = true;
    refused.initQuietly(16, 6, 16, 9, Colour_RGB, Sampling_444, 12, Quadrant_TL);
    Samples f(16 * 6 * 4, 0xABCD);
    EXPECT_THROW(refused.run_body(0, 16, 6, f.data()), std::runtime_error);
    EXPECT_EQ(refused.bodyCalls, 0);
    EXPECT_EQ(f, Samples(16 * 6 * 4, 0xABCD));
}

TEST(FullFrameLoop, TenBitPixelsAreWidenedToTwelveBits) {
    TestPattern p([](int, int) { return Pixel(940, 512, 512, Colour_YCbCr_709, 10); });
    p.initQuietly(4, 2, 16, 9, Colour_YCbCr_709, Sampling_444, 10, Quadrant_None, true);
    const Samples f = frameOf(p, 4, 2);
    for (size_t i = 0; i < f.size(); i += 4)
        EXPECT_EQ(Samples(&f[i], &f[i + 4]), (Samples{32768, 60160, 32768, 65472}));
}

TEST(FullFrameLoop, EdgeTaperBlendsTheOuterTwoColumnsTowardsBlack) {
    // A white frame's samples (R, G, B, alpha per pixel) divided by 16.
    const auto whiteFrame = [](int width, bool taperOff, bool riseTime) {
        TestPattern p([](int, int) { return rgb(4095, 4095, 4095); });
        p.initQuietly(width, 1, 16, 9, Colour_RGB, Sampling_444, 12, Quadrant_None, taperOff);
        if (!riseTime) p.noRiseTime();
        Samples f = frameOf(p, width, 1);
        for (uint16_t& v : f) v /= 16;
        return f;
    };
    const int taper[] = {409, 2743, 4095, 4095, 4095, 4095, 2743, 409};  // 4095 x 0.1 and x 0.67, truncated
    const Samples wide = whiteFrame(8, false, true);
    for (int col = 0; col < 8; ++col) EXPECT_EQ(Samples(&wide[col * 4], &wide[col * 4 + 3]), Samples(3, taper[col]));
    // Two columns: each is tapered from the left, then from the right (409 -> 274, 2743 -> 274).
    EXPECT_EQ(whiteFrame(2, false, true), (Samples{274, 274, 274, 4095, 274, 274, 274, 4095}));
    // No taper when suppressed or when transitions are off.
    EXPECT_EQ(whiteFrame(8, true, true)[0], 4095);
    EXPECT_EQ(whiteFrame(8, false, false)[0], 4095);
}

// Odd columns take the chroma of the even column to their left, and in 4:2:0 odd rows that of the
// even row above. At width 1366 the first x, -683, is odd: row 0 starts with the default Pixel's
// chroma, row 1 with that of row 0's last even column, x 682.
TEST(FullFrameLoop, SubsampledChromaIsHeldFromTheLastEvenColumnAndRow) {
    const struct {
        sampling_e sampling;
        int w, h;
    } cases[] = {{Sampling_422, 1366, 2}, {Sampling_420, 8, 4}};
    for (const auto& c : cases) {
        TestPattern p(coordinates);
        p.initQuietly(c.w, c.h, 16, 9, Colour_RGB, c.sampling, 12, Quadrant_None, true);
        const Samples f = frameOf(p, c.w, c.h);
        const int x0 = -c.w / 2;
        for (int row = 0; row < c.h; ++row)
            for (int x = x0 % 2 == 0 ? x0 : x0 + 1; x < c.w + x0; ++x) {
                const int evenRow = c.sampling == Sampling_420 ? row - row % 2 : row;
                expectStored(&f[(row * c.w + x - x0) * 4], coordinates(x % 2 == 0 ? x : x - 1, evenRow),
                             coordinates(x, row));
            }
        if (x0 % 2 != 0) {
            expectStored(&f[0], Pixel(), coordinates(x0, 0));
            expectStored(&f[c.w * 4], coordinates(-x0 - 1, 0), coordinates(x0, 1));
        }
    }
}

// Stored line n shows the source line of the first pair for n; the first missing n ends the list.
TEST(LineRepeatLoop, StoredLinesFollowTheFirstPairOfEachIndexUntilAGap) {
    EXPECT_EQ(storedSourceLines({{1, 5}, {0, 0}, {2, 9}}), (std::vector<int>{0, 5, 9}));
    EXPECT_EQ(storedSourceLines({{0, 2}, {1, 4}, {3, 6}}), (std::vector<int>{2, 4}));
    EXPECT_EQ(storedSourceLines({{0, 3}, {0, 8}, {1, 1}}), (std::vector<int>{3, 1}));
    EXPECT_EQ(storedSourceLines({{1, 3}, {2, 4}}), (std::vector<int>{}));
}

TEST(LineRepeatLoop, WithoutAListEveryLineIsStoredFromTheTopLeftAsRGBOrYCbCr) {
    TestPattern p(coordinates);
    p.initQuietly(6, 4);
    int h = 4;
    Lines repeats{{9, 9}};
    Samples lines(6 * 4 * 3);
    p.run_body(0, 6, h, repeats, reinterpret_cast<unsigned char*>(lines.data()));
    EXPECT_TRUE(repeats.empty());
    EXPECT_EQ((std::vector<int>{h, p.minX, p.maxX, p.minY, p.maxY}), (std::vector<int>{4, 0, 5, 0, 3}));
    EXPECT_EQ(Samples(&lines[36], &lines[39]), (Samples{2000 * 16, 102 * 16, 1020 * 16}));  // R, G, B; no taper
    // Y'CbCr is stored Y, Cb, Cr, with 10-bit codes widened to 12 bits.
    for (int bits : {10, 12}) {
        const Pixel px = bits == 10 ? Pixel(940, 512, 512, Colour_YCbCr_709, 10) : Pixel(3760, 2048, 3000);
        TestPattern y([px](int, int) { return px; });
        y.initQuietly(1, 1, 16, 9, Colour_YCbCr_709, Sampling_444, bits);
        h = 1;
        y.run_body(0, 1, h, repeats, reinterpret_cast<unsigned char*>(lines.data()));
        EXPECT_EQ(Samples(&lines[0], &lines[3]), (Samples{60160, 32768, uint16_t(bits == 10 ? 32768 : 48000)}));
    }
}
