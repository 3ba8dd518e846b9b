// Drawing primitives. R'G'B' pixels blend linearly (other * (1 - w) + this * w, truncated), so with
// levels 0 and 1000 and the 25 ns / 74.25 MHz ramp (0.068797, 0.330117, 0.669883, 0.931203) the
// rising samples are 68, 330, 669, 931 and the falling ones 931, 669, 330, 68.
#include <gtest/gtest.h>

#include <vector>

#include "TestPattern.h"

namespace {

Pixel grey(int level) { return Pixel(level, level, level, PatternGen::Colour_RGB); }
int level(const Pixel& p) { return p.sample[Pixel::Y_G]; }

// 1920x1080 16:9 R'G'B' 4:4:4 with the default four-sample ramp.
struct Primitives : testing::Test {
    TestPattern p;
    Pixel black = grey(0), mid = grey(500), white = grey(1000), marker = grey(77);
    void SetUp() override { p.initQuietly(1920, 1080); }
    void transitionsOff() { p.calculateTransition(0.0, 74.25); }

    std::vector<int> barsRow(int from, int to, int count, int span, Pixel* a, Pixel* b) {
        std::vector<int> row;
        for (int x = from; x <= to; ++x) {
            Pixel out = marker;
            p.bars(x, out, count, span, a, b);
            row.push_back(level(out));
        }
        return row;
    }
    std::vector<int> layeredRow(int from, int to, int count, int span, Pixel* a, Pixel* b) {
        std::vector<int> row;
        for (int x = from; x <= to; ++x) {
            Pixel inout = marker;
            p.barsLayered(x, inout, count, span, a, b);
            row.push_back(level(inout));
        }
        return row;
    }
};

}  // namespace

TEST_F(Primitives, BarsWithHardEdgesAndBlackOutside) {
    transitionsOff();
    Pixel c0 = grey(300), c1 = grey(600);
    EXPECT_EQ(barsRow(-1, 1, 2, 100, &c0, &c1), (std::vector<int>{0, 300, 300}));
    EXPECT_EQ(barsRow(48, 51, 2, 100, &c0, &c1), (std::vector<int>{300, 300, 600, 600}));
    EXPECT_EQ(barsRow(98, 100, 2, 100, &c0, &c1), (std::vector<int>{600, 600, 0}));
    // Edges at (i * span) / count: 33 and 66 for span 100 over 3 bars.
    Pixel c2 = grey(900);
    Pixel out;
    p.bars(32, out, 3, 100, &c0, &c1, &c2);
    EXPECT_EQ(level(out), 300);
    p.bars(33, out, 3, 100, &c0, &c1, &c2);
    EXPECT_EQ(level(out), 600);
    p.bars(66, out, 3, 100, &c0, &c1, &c2);
    EXPECT_EQ(level(out), 900);
}

TEST_F(Primitives, BarsTransitionZoneIsCentredOnTheEdge) {
    // Four samples from e - 2 to e + 1, rising from the colour before to the colour after.
    EXPECT_EQ(barsRow(47, 53, 2, 100, &black, &white), (std::vector<int>{0, 68, 330, 669, 931, 1000, 1000}));
    EXPECT_EQ(barsRow(97, 103, 2, 100, &black, &white), (std::vector<int>{1000, 931, 669, 330, 68, 0, 0}));
    // An odd ramp (one sample of 0.5) gets one extra sample, which takes the colour it rises to.
    p.calculateTransition(15.0, 37.125);
    ASSERT_EQ(p.transitionLength, 1);
    Pixel top = grey(999);
    EXPECT_EQ(barsRow(48, 51, 2, 100, &black, &top), (std::vector<int>{0, 499, 999, 999}));
}

TEST_F(Primitives, LayeredBarsKeepTheIncomingPixelOutsideAndEndTheirZoneOnTheEdge) {
    // Three samples from e - 2 to e: from the incoming 77 down to black, black up to white,
    // then from white back to the incoming 77.
    EXPECT_EQ(layeredRow(-3, 1, 2, 100, &black, &white), (std::vector<int>{77, 71, 51, 25, 0}));
    EXPECT_EQ(layeredRow(47, 51, 2, 100, &black, &white), (std::vector<int>{0, 68, 330, 669, 1000}));
    EXPECT_EQ(layeredRow(97, 101, 2, 100, &black, &white), (std::vector<int>{1000, 936, 695, 381, 77}));
    transitionsOff();
    EXPECT_EQ(layeredRow(-1, 0, 2, 100, &black, &white), (std::vector<int>{77, 0}));
    EXPECT_EQ(layeredRow(99, 100, 2, 100, &black, &white), (std::vector<int>{1000, 77}));
}

TEST_F(Primitives, LayeredBarsByWidths) {
    transitionsOff();
    int widths[] = {10, 30};
    const int expected[][2] = {{-1, 77}, {0, 0}, {9, 0}, {10, 1000}, {39, 1000}, {40, 77}};
    for (const auto& e : expected) {
        Pixel inout = marker;
        p.barsLayered(e[0], inout, 2, widths, &black, &white);
        EXPECT_EQ(level(inout), e[1]) << "x " << e[0];
    }
}

TEST_F(Primitives, BarCountsOfZeroAndBelow) {
    Pixel out = marker;
    EXPECT_TRUE(p.bars(5, out, -1, 100, &white));
    EXPECT_EQ(level(out), 77);
    p.bars(5, out, 0, 100);
    EXPECT_EQ(level(out), 0);
    Pixel inout = marker;
    p.barsLayered(5, inout, 0, 100);
    EXPECT_EQ(level(inout), 77);
}

TEST_F(Primitives, SquareWave) {
    std::vector<int> row;
    // Rises centred on x = 0 and 10, the fall on x = 5.
    for (int x = -2; x <= 8; ++x) row.push_back(level(p.squareWave(x, 10, black, white)));
    EXPECT_EQ(row, (std::vector<int>{68, 330, 669, 931, 1000, 931, 669, 330, 68, 0, 68}));

    transitionsOff();
    row.clear();
    for (int x = -1; x <= 10; ++x) row.push_back(level(p.squareWave(x, 10, black, white)));
    EXPECT_EQ(row, (std::vector<int>{0, 1000, 1000, 1000, 1000, 1000, 0, 0, 0, 0, 0, 1000}));
}

TEST_F(Primitives, HardGridLinesAreThicknessPlusOneWide) {
    transitionsOff();
    for (int y = 0; y < 30; ++y) {
        Pixel inout = mid;
        const bool onRow = y % 10 >= 4 && y % 10 <= 6;
        EXPECT_EQ(p.grid(0, y, 10, 2, inout, white), onRow) << "y " << y;
        EXPECT_EQ(level(inout), onRow ? 1000 : 500);
    }
    for (int x = -30; x < 30; ++x) {
        Pixel inout = mid;
        const int phase = ((x % 10) + 10) % 10;
        const bool onColumn = phase >= 4 && phase <= 6;
        EXPECT_EQ(p.grid(x, 0, 10, 2, inout, white), onColumn) << "x " << x;
        EXPECT_EQ(level(inout), onColumn ? 1000 : 500);
        inout = mid;
        EXPECT_EQ(p.gridVertical(x, 5, 10, 2, inout, white), onColumn) << "x " << x;
    }
}

TEST_F(Primitives, FlippedGridMovesRowsAndHasNoHardVerticalLines) {
    transitionsOff();
    for (int y = 0; y < 20; ++y) {
        const bool onRow = y % 10 >= 6 && y % 10 <= 8;
        for (int x = 0; x < 20; ++x) {
            Pixel inout = mid;
            ASSERT_EQ(p.gridFlipVphase(x, y, 10, 2, inout, white), onRow) << x << "," << y;
        }
    }
}

TEST_F(Primitives, SoftGridLinesRiseAndFall) {
    // W = 2 + 2*4 - 1 = 9; remX = (x - 1) mod 10; the ninth sample is past the fall: incoming colour.
    std::vector<int> row;
    std::vector<bool> on;
    for (int x = 0; x <= 10; ++x) {
        Pixel inout = black;
        on.push_back(p.grid(x, 0, 10, 2, inout, white));
        row.push_back(level(inout));
    }
    EXPECT_EQ(row, (std::vector<int>{0, 68, 330, 669, 931, 931, 669, 330, 68, 0, 0}));
    EXPECT_EQ(on, (std::vector<bool>{false, true, true, true, true, true, true, true, true, true, false}));

    // Flipped: W = 2 + 2*3 = 8; remX = (x - 1) mod 10; the fall ends on the last coefficient.
    row.clear();
    on.clear();
    for (int x = 0; x <= 9; ++x) {
        Pixel inout = black;
        on.push_back(p.gridFlipVphase(x, 0, 10, 2, inout, white));
        row.push_back(level(inout));
    }
    EXPECT_EQ(row, (std::vector<int>{0, 68, 330, 669, 931, 931, 669, 330, 68, 0}));
    EXPECT_EQ(on, (std::vector<bool>{false, true, true, true, true, true, true, true, true, false}));
}

TEST_F(Primitives, GridPitchAndPositionAreConvertedToLinesAtNonSquarePixels) {
    TestPattern sd;
    sd.initQuietly(720, 576, 4, 3);
    sd.calculateTransition(0.0, 74.25);
    // x' = (576 * x * 4) / (3 * 720) and pitch' = 10: lines where x' mod 10 is 4 to 6.
    std::vector<int> onColumns;
    for (int x = 0; x < 20; ++x) {
        Pixel inout = mid;
        if (sd.gridVertical(x, 0, 10, 2, inout, white)) onColumns.push_back(x);
    }
    EXPECT_EQ(onColumns, (std::vector<int>{4, 5, 6, 14, 15}));
}

TEST_F(Primitives, EdgesStepThroughTheRamp) {
    const int rising[] = {68, 330, 669, 931, 1000, 1000};
    const int inverted[] = {931, 669, 330, 68, 1000, 1000};
    for (int step = 0; step < 6; ++step) {
        Pixel inout = black;
        p.edge(inout, 4, white, step);
        EXPECT_EQ(level(inout), rising[step]) << "step " << step;
        inout = black;
        p.edgeInv(inout, 4, white, step);
        EXPECT_EQ(level(inout), inverted[step]) << "step " << step;
    }
    Pixel inout = black;
    p.edge(inout, 2, white, 2);
    EXPECT_TRUE(inout.sameCodes(white));
}

TEST_F(Primitives, VerticalLinesWithSoftAndHardBorders) {
    const Pixel left = grey(0), line = grey(1000), right = grey(2000);
    auto lineRow = [&](int from, int to) {
        std::vector<int> row;
        for (int x = from; x <= to; ++x) {
            Pixel out = marker;
            row.push_back(p.vertLineAt(10, x, 2, left, line, right, out) ? level(out) : -1);
        }
        return row;
    };
    EXPECT_EQ(lineRow(7, 13), (std::vector<int>{-1, -1, 500, 1000, 1500, -1, -1}));
    p.sampling = PatternGen::Sampling_422;  // wider soft border for subsampled chroma
    EXPECT_EQ(lineRow(6, 14), (std::vector<int>{-1, -1, 500, 500, 1000, 1500, 1500, -1, -1}));
    p.noRiseTime();
    EXPECT_EQ(lineRow(8, 13), (std::vector<int>{-1, -1, 1000, 1000, 1000, -1}));
}

TEST_F(Primitives, ChromaPastTheEndOfAShorterListTakesTheTargetColour) {
    // 15 ns at 37.125 MHz: luma has one sample (0.5); the half-clock chroma list is empty.
    p.sampling = PatternGen::Sampling_422;
    p.calculateTransition(15.0, 37.125);
    ASSERT_EQ(p.transitionLength, 1);
    ASSERT_TRUE(p.chromaTransition.empty());
    Pixel from(256, 2048, 2048), to(3760, 256, 3840);
    Pixel out;
    p.bars(49, out, 2, 100, &from, &to);
    EXPECT_EQ(out.sample[Pixel::CB_B], 256);
    EXPECT_EQ(out.sample[Pixel::CR_R], 3840);
    EXPECT_NEAR(out.sample[Pixel::Y_G], 2008, 1);  // half way in luma
}
