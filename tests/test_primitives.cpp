// Drawing primitives. R'G'B' pixels blend linearly (other * (1 - w) + this * w, truncated), so with
// levels 0 and 1000 and the 25 ns / 74.25 MHz ramp (0.068797, 0.330117, 0.669883, 0.931203) a rise
// reads 68, 330, 669, 931 and a fall 931, 669, 330, 68. -1 marks "not drawn" below.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "TestPattern.h"

namespace {

using Row = std::vector<int>;

Pixel grey(int level) { return Pixel(level, level, level, PatternGen::Colour_RGB); }

// 1920x1080 16:9 R'G'B' 4:4:4 with the default four-sample ramp.
struct Primitives : testing::Test {
    TestPattern p;
    Pixel black = grey(0), white = grey(1000), incoming = grey(77);
    void SetUp() override { p.initQuietly(1920, 1080); }

    // Level at each x from..to of a primitive that draws over `start` and says whether it drew.
    Row row(int from, int to, const Pixel& start, const std::function<bool(int, Pixel&)>& draw) {
        Row levels;
        for (int x = from; x <= to; ++x) {
            Pixel px = start;
            levels.push_back(draw(x, px) ? px.sample[Pixel::Y_G] : -1);
        }
        return levels;
    }
    Row bars(int from, int to, Pixel* a, Pixel* b) {
        return row(from, to, incoming, [&](int x, Pixel& px) { return p.bars(x, px, 2, 100, a, b); });
    }
};

}  // namespace

TEST_F(Primitives, BarsCentreTheirTransitionsOnEachEdge) {
    EXPECT_EQ(bars(47, 53, &black, &white), (Row{0, 68, 330, 669, 931, 1000, 1000}));
    EXPECT_EQ(bars(97, 103, &black, &white), (Row{1000, 931, 669, 330, 68, 0, 0}));  // black outside
    // An odd ramp (one sample, 0.5) has one more sample, which takes the colour it rises to.
    p.calculateTransition(15.0, 37.125);
    Pixel top = grey(999);
    EXPECT_EQ(bars(48, 51, &black, &top), (Row{0, 499, 999, 999}));
    p.calculateTransition(0.0, 74.25);
    Pixel c0 = grey(300), c1 = grey(600);
    EXPECT_EQ(bars(-1, 1, &c0, &c1), (Row{0, 300, 300}));
    EXPECT_EQ(bars(49, 50, &c0, &c1), (Row{300, 600}));
    EXPECT_EQ(bars(99, 100, &c0, &c1), (Row{600, 0}));
}

TEST_F(Primitives, LayeredBarsEndTheirZoneOnTheEdgeAndKeepTheIncomingPixelOutside) {
    auto layered = [&](int from, int to) {
        return row(from, to, incoming, [&](int x, Pixel& px) { return p.barsLayered(x, px, 2, 100, &black, &white); });
    };
    EXPECT_EQ(layered(-3, 1), (Row{77, 71, 51, 25, 0}));
    EXPECT_EQ(layered(47, 51), (Row{0, 68, 330, 669, 1000}));
    EXPECT_EQ(layered(97, 101), (Row{1000, 936, 695, 381, 77}));
    p.calculateTransition(0.0, 74.25);
    int widths[] = {3, 2};
    EXPECT_EQ(row(-1, 5, incoming, [&](int x, Pixel& px) { return p.barsLayered(x, px, 2, widths, &black, &white); }),
              (Row{77, 0, 0, 0, 1000, 1000, 77}));
    // A negative count leaves the pixel alone.
    EXPECT_EQ(row(5, 5, incoming, [&](int x, Pixel& px) { return p.bars(x, px, -1, 100, &white); }), (Row{77}));
    EXPECT_EQ(row(5, 5, incoming, [&](int x, Pixel& px) { return p.barsLayered(x, px, -1, 100); }), (Row{77}));
}

TEST_F(Primitives, SquareWaveHasItsTransitionsOnPeriodAndHalfPeriod) {
    auto wave = [&](int from, int to) {
        return row(from, to, black, [&](int x, Pixel& px) { return (px = p.squareWave(x, 10, black, white)), true; });
    };
    EXPECT_EQ(wave(-2, 8), (Row{68, 330, 669, 931, 1000, 931, 669, 330, 68, 0, 68}));
    p.calculateTransition(0.0, 74.25);
    EXPECT_EQ(wave(-1, 10), (Row{0, 1000, 1000, 1000, 1000, 1000, 0, 0, 0, 0, 0, 1000}));
}

TEST_F(Primitives, GridLines) {
    // Soft vertical lines: W = 2 + 2*4 - 1 = 9 from x 1, the ninth sample past the fall keeps the
    // incoming colour; flipped, W = 2 + 2*3 = 8 and the fall ends on the last coefficient.
    EXPECT_EQ(row(0, 10, black, [&](int x, Pixel& px) { return p.grid(x, 0, 10, 2, px, white); }),
              (Row{-1, 68, 330, 669, 931, 931, 669, 330, 68, 0, -1}));
    EXPECT_EQ(row(0, 9, black, [&](int x, Pixel& px) { return p.gridFlipVphase(x, 0, 10, 2, px, white); }),
              (Row{-1, 68, 330, 669, 931, 931, 669, 330, 68, -1}));
    // Hard lines are thickness + 1 wide; the flipped grid's rows are half a pitch away and it has
    // no hard vertical lines.
    p.calculateTransition(0.0, 74.25);
    for (int v = -20; v < 20; ++v) {
        const int phase = ((v % 10) + 10) % 10;
        Pixel px = incoming;
        EXPECT_EQ(p.grid(0, v, 10, 2, px, white), phase >= 4 && phase <= 6) << "y " << v;
        EXPECT_EQ(p.grid(v, 0, 10, 2, px, white), phase >= 4 && phase <= 6) << "x " << v;
        EXPECT_EQ(p.gridVertical(v, 5, 10, 2, px, white), phase >= 4 && phase <= 6) << "x " << v;
        EXPECT_EQ(p.gridFlipVphase(3, v, 10, 2, px, white), phase >= 6 && phase <= 8) << "y " << v;
    }
    // Columns are found in line units at non-square pixels: x' = (576 * x * 4) / 2160, so x 15 is x' 16.
    TestPattern sd;
    sd.initQuietly(720, 576, 4, 3);
    sd.calculateTransition(0.0, 74.25);
    EXPECT_EQ(row(12, 16, black, [&](int x, Pixel& px) { return sd.gridVertical(x, 0, 10, 2, px, white); }),
              (Row{-1, -1, 1000, 1000, -1}));
}

TEST_F(Primitives, EdgesAndVerticalLines) {
    auto edges = [&](bool inverted) {
        return row(0, 5, black, [&](int step, Pixel& px) {
            inverted ? p.edgeInv(px, 4, white, step) : p.edge(px, 4, white, step);
            return true;
        });
    };
    EXPECT_EQ(edges(false), (Row{68, 330, 669, 931, 1000, 1000}));
    EXPECT_EQ(edges(true), (Row{931, 669, 330, 68, 1000, 1000}));
    // Soft borders are half way to the neighbour, wider for subsampled chroma; hard lines are not.
    auto line = [&](int from, int to) {
        return row(from, to, incoming,
                   [&](int x, Pixel& px) { return p.vertLineAt(10, x, 2, grey(0), white, grey(2000), px); });
    };
    EXPECT_EQ(line(7, 13), (Row{-1, -1, 500, 1000, 1500, -1, -1}));
    p.sampling = PatternGen::Sampling_422;
    EXPECT_EQ(line(6, 14), (Row{-1, -1, 500, 500, 1000, 1500, 1500, -1, -1}));
    p.noRiseTime();
    EXPECT_EQ(line(8, 13), (Row{-1, -1, 1000, 1000, 1000, -1}));
}

TEST_F(Primitives, ChromaPastTheEndOfAShorterListTakesTheTargetColour) {
    // 15 ns at 37.125 MHz: luma has one sample (0.5); the half-clock chroma list is empty.
    p.sampling = PatternGen::Sampling_422;
    p.calculateTransition(15.0, 37.125);
    ASSERT_TRUE(p.chromaTransition.empty());
    Pixel from(256, 2048, 2048), to(3760, 256, 3840), out;
    p.bars(49, out, 2, 100, &from, &to);
    EXPECT_EQ((Row{out.sample[Pixel::CB_B], out.sample[Pixel::CR_R]}), (Row{256, 3840}));
    EXPECT_NEAR(out.sample[Pixel::Y_G], 2008, 1);  // half way in luma
}
