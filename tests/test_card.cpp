// The PM5544 card: construction, palette per encoding, band layout, edge shaping and look-up.
// Golden codes were computed independently from the raised-cosine formula and the studio-level
// blend (12-bit 709: black 256, white 3760; 75% yellow 2694/704/2171 and so on).
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "philips-PM5544-new.h"

using PatternGen::colorAxes_e;
using Member = Pixel PhilipsPm5544Spec::*;

namespace {

// Renders a card; fails the test if the edge shaping reported a problem.
std::unique_ptr<PhilipsPm5544Spec> makeCard(int width, int height, int aspectNum, int aspectDen, colorAxes_e axes,
                                            int bits = 12,
                                            PatternGen::sampling_e sampling = PatternGen::Sampling_444) {
    auto card = std::make_unique<PhilipsPm5544Spec>();
    testing::internal::CaptureStdout();
    card->init(width, height, aspectNum, aspectDen, axes, sampling, bits, PatternGen::Quadrant_None, 0, false);
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_EQ(output.find("Error"), std::string::npos) << output;
    return card;
}

std::string codes(const Pixel& p) {
    return "axes " + std::to_string(p.colourSpace.colourAxes) + " bits " + std::to_string(p.colourSpace.bitDepth) +
           " (" + std::to_string(p.sample[1]) + ", " + std::to_string(p.sample[0]) + ", " +
           std::to_string(p.sample[2]) + ", " + std::to_string(p.sample[3]) + ")";
}

::testing::AssertionResult same(const Pixel& actual, const Pixel& expected) {
    if (actual.sameCodes(expected)) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << codes(actual) << " but expected " << codes(expected);
}

// A 12-bit 709 Y'CbCr pixel.
Pixel yuv(int y, int cb, int cr) { return Pixel(y, cb, cr, PatternGen::Colour_YCbCr_709, 12); }

// 768x576 at 4:3 has square pixels and h(k) = k, so band limits read straight off the layout.
class CardLayout : public testing::Test {
protected:
    static void SetUpTestSuite() { card = makeCard(768, 576, 4, 3, PatternGen::Colour_YCbCr_709).release(); }
    static void TearDownTestSuite() { delete card; }
    static Pixel at(int X, int Y) { return card->render(X + 384, Y + 288); }
    static Pixel framed(int X, int Y) { return card->cardFrame.at(static_cast<size_t>((Y + 288) * 768 + X + 384)); }
    static PhilipsPm5544Spec* card;
};
PhilipsPm5544Spec* CardLayout::card = nullptr;

}  // namespace

TEST(CardModel, ConstructionDefaultsAndSizeDependentParameters) {
    PhilipsPm5544Spec fresh;
    EXPECT_TRUE(fresh.useFullCanvasSize());
    EXPECT_TRUE(fresh.cardFrame.empty());
    EXPECT_EQ(fresh.squareWavePeriod, 594);
    EXPECT_EQ(fresh.burstStartFreq, 800000);
    EXPECT_EQ(fresh.burstFreqStep, 1000000);

    struct Expect {
        int width, height, period, burstStart, burstStep, idBox, pulseBar, redBox;
    };
    for (const Expect& e : {Expect{64, 576, 27, 800000, 1000000, 168, 252, 42},
                            Expect{48, 1080, 148, 1600000, 2000000, 315, 472, 78},
                            Expect{32, 2160, 297, 3200000, 4000000, 630, 945, 157}}) {
        auto card = makeCard(e.width, e.height, 16, 9, PatternGen::Colour_YCbCr_709);
        EXPECT_EQ(card->squareWavePeriod, e.period) << e.height;
        EXPECT_EQ(card->burstStartFreq, e.burstStart) << e.height;
        EXPECT_EQ(card->burstFreqStep, e.burstStep) << e.height;
        EXPECT_EQ(card->idBoxWidth, e.idBox) << e.height;
        EXPECT_EQ(card->pulseBarWidth, e.pulseBar) << e.height;
        EXPECT_EQ(card->redBoxWidth, e.redBox) << e.height;
        EXPECT_EQ(card->savedTransitionLength, 4);
        EXPECT_EQ(card->transitionLength, 0);
        EXPECT_FALSE(card->riseTimeEnabled);
        EXPECT_EQ(card->cardFrame.size(), static_cast<size_t>(e.width) * static_cast<size_t>(e.height));
    }
}

TEST(CardPalette, TablesAsBuiltPerEncodingAndDepth) {
    struct Case {
        colorAxes_e axes;
        int bits;
        Member member;
        Pixel expected;
    };
    const colorAxes_e rgb219 = PatternGen::Colour_RGB_219, y709 = PatternGen::Colour_YCbCr_709,
                      y2020 = PatternGen::Colour_YCbCr_2020;
    const std::vector<Case> cases = {
        {y709, 10, &PhilipsPm5544Spec::white, Pixel(940, 512, 512, y709, 10)},
        {y709, 10, &PhilipsPm5544Spec::grey60, Pixel(602, 512, 512, y709, 10)},
        {y709, 10, &PhilipsPm5544Spec::yellow100, Pixel(877, 64, 553, y709, 10)},
        {y709, 8, &PhilipsPm5544Spec::white, Pixel(3760, 2048, 2048, y709, 12)},
        {y709, 16, &PhilipsPm5544Spec::magenta75, Pixel(1004, 3084, 3269, y709, 12)},
        {y2020, 12, &PhilipsPm5544Spec::yellow75, Pixel(2728, 704, 2156, y2020, 12)},
        {y2020, 10, &PhilipsPm5544Spec::red100, Pixel(294, 387, 960, y2020, 10)},
        {y2020, 10, &PhilipsPm5544Spec::grey60, Pixel(602, 512, 512, y2020, 10)},
        {PatternGen::Colour_RGB, 12, &PhilipsPm5544Spec::yellow75, Pixel(2948, 512, 2948, rgb219, 12)},
        {PatternGen::Colour_RGB, 12, &PhilipsPm5544Spec::cyan75, Pixel(2884, 2884, 256, rgb219, 12)},
        {rgb219, 10, &PhilipsPm5544Spec::grey60, Pixel(602, 602, 602, rgb219, 10)},
        {rgb219, 10, &PhilipsPm5544Spec::yellow75, Pixel(721, 64, 721, rgb219, 10)},
    };
    for (const Case& c : cases) {
        auto card = makeCard(64, 36, 16, 9, c.axes, c.bits);
        EXPECT_TRUE(same((*card).*c.member, c.expected)) << "axes " << c.axes << " at " << c.bits << " bits";
    }
}

TEST(CardPalette, ConvertedEncodingsStartFromTheRightTable) {
    using namespace PatternGen;
    // The studio R'G'B' table feeds 601, the Mapped Y'CbCr axes and every R'G'B' HDR axis; the
    // 2020 table feeds the plain Y'CbCr HDR axes.
    const Pixel rgbWhite(3760, 3760, 3760, Colour_RGB_219, 12), rgbYellow(2948, 512, 2948, Colour_RGB_219, 12);
    const Pixel rgbGrey60At10(602, 602, 602, Colour_RGB_219, 10);
    const Pixel yWhite(3760, 2048, 2048, Colour_YCbCr_2020, 12), yYellow(2728, 704, 2156, Colour_YCbCr_2020, 12);
    const Pixel yGrey60At10(602, 512, 512, Colour_YCbCr_2020, 10);
    for (int value = Colour_YCbCr_601; value < colourAxesCount; ++value) {
        const auto axes = static_cast<colorAxes_e>(value);
        if (axes == Colour_YCbCr_709 || axes == Colour_YCbCr_2020) continue;
        const bool from2020 = axes == Colour_YCbCr_PQ || axes == Colour_YCbCr_HLG || axes == Colour_YCbCr_SLog3 ||
                              axes == Colour_YCbCr_SLog3_Live;
        auto card = makeCard(64, 36, 16, 9, axes, 12);
        EXPECT_TRUE(same(card->white, (from2020 ? yWhite : rgbWhite).convertTo(axes))) << axisToString(axes);
        EXPECT_TRUE(same(card->yellow75, (from2020 ? yYellow : rgbYellow).convertTo(axes))) << axisToString(axes);
        auto tenBit = makeCard(64, 36, 16, 9, axes, 10);
        EXPECT_TRUE(same(tenBit->grey60, (from2020 ? yGrey60At10 : rgbGrey60At10).convertTo(axes)))
            << axisToString(axes);
    }
}

TEST_F(CardLayout, EveryBandAtRepresentativePoints) {
    struct Probe {
        int X, Y;
        Member expected;
    };
    using C = PhilipsPm5544Spec;
    const std::vector<Probe> probes = {
        {0, -240, &C::white},       {-50, -233, &C::white},     // top cap
        {0, -232, &C::black},       {-83, -200, &C::black},     // identification box, X -83 .. 84
        {-84, -200, &C::white},     {84, -200, &C::black},      {85, -200, &C::white},
        {-127, -170, &C::black},    {-126, -170, &C::white},    // white bar X -126 .. 125
        {125, -147, &C::white},     {126, -170, &C::black},     {-107, -170, &C::white},
        {-106, -170, &C::black},    {-104, -170, &C::black},    {-103, -170, &C::white},  // its black line
        {0, -146, &C::black},       {12, -120, &C::black},      // square wave, period 27: black first
        {13, -120, &C::grey75},     {26, -105, &C::grey75},     {27, -120, &C::black},
        {-1, -120, &C::grey75},     {-200, -104, &C::yellow75},  // colour bars, 84 wide from X -252
        {-169, -50, &C::yellow75},  {-168, -50, &C::cyan75},    {-84, -50, &C::green75},
        {50, -21, &C::magenta75},   {84, -50, &C::red75},       {200, -50, &C::blue75},
        {0, 0, &C::white},          {-1, 15, &C::white},        // centre cross
        {15, -1, &C::white},        {5, 20, &C::black},         {5, -20, &C::black},
        {20, 5, &C::white},         {21, 5, &C::white},         {22, 5, &C::black},      // grid line
        {-22, 5, &C::white},        {19, 62, &C::black},        {5, -62, &C::black},     // centre strip
        {-20, -40, &C::green75},    {5, -63, &C::magenta75},
        {-199, 60, &C::black},      {-198, 60, &C::grey50},     {198, 60, &C::black},    // gratings' ends
        {-197, 21, &C::grey50},     {-193, 105, &C::white},     {-185, 60, &C::black},
        {-159, 120, &C::black},     {-158, 106, &C::grey20},    {-80, 120, &C::grey20},  // grey scale
        {-79, 120, &C::grey40},     {0, 147, &C::grey60},       {79, 120, &C::grey80},
        {158, 120, &C::white},      {-127, 148, &C::white},     {-126, 170, &C::black},  // black bar
        {125, 189, &C::black},      {126, 170, &C::white},      {-105, 170, &C::white},
        {-107, 170, &C::black},     {-21, 190, &C::yellow100},  {-20, 220, &C::red100},  // bottom cap
        {21, 220, &C::red100},      {22, 251, &C::yellow100},
        {0, -252, &C::white},       {0, 253, &C::white},        {152, -201, &C::white},  // outline
        {0, -254, &C::grey50},      {0, -260, &C::grey50},      {20, -260, &C::white},   // field and grid
        {300, -232, &C::white},     {300, -235, &C::grey50},
        {0, -280, &C::black},       {22, -280, &C::white},      {61, -280, &C::white},   // castellations
        {62, -280, &C::black},      {0, -272, &C::white},
    };
    for (const Probe& p : probes) {
        EXPECT_TRUE(same(at(p.X, p.Y), card->*p.expected)) << "X=" << p.X << " Y=" << p.Y;
    }
}

TEST_F(CardLayout, GratingsRunFromGreyWithContinuousPhase) {
    // Packet 0 is 0.8 MHz (period 16), packet 1 1.8 MHz (period 7); X = p - 197.
    EXPECT_TRUE(same(at(-197, 60), yuv(2008, 2048, 2048)));  // p 0: sin 0
    EXPECT_TRUE(same(at(-118, 60), yuv(1337, 2048, 2048)));  // p 79: phase carried over from packet 0
    EXPECT_TRUE(same(at(-117, 60), yuv(2855, 2048, 2048)));
    EXPECT_TRUE(same(at(-39, 60), yuv(3735, 2048, 2048)));   // p 158
    EXPECT_TRUE(same(at(40, 60), yuv(1714, 2048, 2048)));    // p 237
    EXPECT_TRUE(same(at(119, 60), yuv(3651, 2048, 2048)));   // p 316
}

TEST_F(CardLayout, HardEdgeBetweenFlatAreasIsShapedOverFourPixels) {
    const std::vector<double> ramp{0.068797, 0.330117, 0.669883, 0.931203};
    ASSERT_EQ(card->lumaTransition.size(), ramp.size());
    for (size_t i = 0; i < ramp.size(); ++i) EXPECT_NEAR(card->lumaTransition[i], ramp[i], 5e-7);
    // Left edge of the red box in the bottom cap: yellow up to X -21, red from X -20.
    const std::vector<Pixel> expected = {card->yellow100,       yuv(3334, 351, 2324), yuv(2679, 711, 2749),
                                         yuv(1828, 1181, 3302), yuv(1173, 1541, 3727), card->red100};
    for (int i = 0; i < 6; ++i) EXPECT_TRUE(same(framed(-23 + i, 220), expected[i])) << "X=" << -23 + i;
}

TEST_F(CardLayout, TwoPixelFeatureTakesTheNarrowRampAndItsNeighboursTheWideOne) {
    // The vertical bar of the centre cross, X -1 and 0, on black: the two white pixels are shaped
    // with the 15 ns ramp (0.773), the black ones beside them with the 25 ns ramp.
    const std::vector<int> luma = {256, 497, 1412, 2964, 2964, 1412, 497, 256};
    for (int i = 0; i < 8; ++i) EXPECT_TRUE(same(framed(-4 + i, 10), yuv(luma[i], 2048, 2048))) << "X=" << -4 + i;
}

TEST_F(CardLayout, OnePixelFeaturesAndFlatAreasAreLeftAlone) {
    int isolated = 0;
    // The 4.8 MHz packet alternates every pixel at 576 lines.
    for (int X = 120; X < 197; ++X) {
        const Pixel p = at(X, 60);
        if (p.sameCodes(at(X - 1, 60)) || p.sameCodes(at(X + 1, 60))) continue;
        ++isolated;
        EXPECT_TRUE(same(framed(X, 60), p)) << "X=" << X;
    }
    EXPECT_GT(isolated, 60);

    std::vector<Pixel> row;
    for (int y = 0; y < 576; y += 7) {
        row.clear();
        for (int x = 2; x < 766; ++x) row.push_back(card->render(x, y));
        for (size_t i = 4; i + 4 < row.size(); ++i) {
            bool flat = true;
            for (size_t k = i - 4; k <= i + 4; ++k) flat = flat && row[k].sameCodes(row[i]);
            if (flat) {
                ASSERT_TRUE(same(card->cardFrame[static_cast<size_t>(y) * 768 + i + 2], row[i])) << y;
            }
        }
    }
}

TEST_F(CardLayout, EveryRowStartsAndEndsWithTwoShapedBlackPixels) {
    const auto& L = card->lumaTransition;
    int shapedRows = 0;
    for (int y = 0; y < 576; ++y) {
        const Pixel* row = &card->cardFrame[static_cast<size_t>(y) * 768];
        const Pixel first = card->render(2, y), last = card->render(765, y);
        const Pixel& black = card->black;
        if (first.sameCodes(black)) {
            EXPECT_TRUE(same(row[0], black) && same(row[1], black)) << y;
        } else {
            ++shapedRows;
            EXPECT_TRUE(same(row[0], first.blend(L[0], L[0], black))) << y;
            EXPECT_TRUE(same(row[1], first.blend(L[1], L[1], black))) << y;
        }
        if (last.sameCodes(black)) {
            EXPECT_TRUE(same(row[766], black) && same(row[767], black)) << y;
        } else {
            EXPECT_TRUE(same(row[766], black.blend(L[2], L[2], last))) << y;
            EXPECT_TRUE(same(row[767], black.blend(L[3], L[3], last))) << y;
        }
    }
    EXPECT_GT(shapedRows, 0);
}

TEST(CardShaping, SubsampledChromaFollowsTheDoubledRamp) {
    // 384x288 4:3: h(21) = 10, so the red box starts at X -9. Luma keeps the 25 ns ramp, chroma
    // takes 0.180, 0.180, 0.820, 0.820 instead of 0.069, 0.330, 0.670, 0.931.
    for (auto sampling : {PatternGen::Sampling_422, PatternGen::Sampling_420}) {
        auto card = makeCard(384, 288, 4, 3, PatternGen::Colour_YCbCr_709, 12, sampling);
        auto framed = [&](int X, int Y) { return card->cardFrame.at(static_cast<size_t>((Y + 144) * 384 + X + 192)); };
        const std::vector<Pixel> expected = {card->yellow100,       yuv(3334, 505, 2505), yuv(2679, 505, 2505),
                                             yuv(1828, 1387, 3546), yuv(1173, 1387, 3546), card->red100};
        for (int i = 0; i < 6; ++i) EXPECT_TRUE(same(framed(-12 + i, 110), expected[i])) << "X=" << -12 + i;
    }
}

TEST(CardGeometry, CircleIsRoundOnADisplayWithNonSquarePixels) {
    // 360x288 at 4:3: a pixel is 16/15 of a line wide. The bottom cap's width on a row, in display
    // units, follows the circle of radius h(252) = 126 lines; the red box stays h(42) pixels wide.
    auto card = makeCard(360, 288, 4, 3, PatternGen::Colour_YCbCr_709);
    for (int Y : {96, 100, 110, 120}) {
        int cap = 0, red = 0;
        for (int x = 0; x < 360; ++x) {
            const Pixel p = card->render(x, Y + 144);
            cap += p.sameCodes(card->yellow100) || p.sameCodes(card->red100);
            red += p.sameCodes(card->red100);
        }
        const double halfWidthInLines = cap / 2.0 * 16.0 / 15.0;
        EXPECT_NEAR(halfWidthInLines, std::sqrt(126.0 * 126.0 - Y * Y), 1.5) << Y;
        EXPECT_EQ(red, 21) << Y;
    }
}

TEST(CardBody, LooksUpTheStoredFrameWithABoundsCheck) {
    auto card = makeCard(64, 36, 16, 9, PatternGen::Colour_YCbCr_709);
    const auto& frame = card->cardFrame;
    EXPECT_TRUE(same(card->body(0, 0), frame.front()));
    EXPECT_TRUE(same(card->body(63, 35), frame.back()));
    EXPECT_TRUE(same(card->body(17, 9), frame[9 * 64 + 17]));

    // A negative coordinate is reported, then the index is formed in unsigned arithmetic.
    testing::internal::CaptureStdout();
    const Pixel wrapped = card->body(-1, 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "PhilipsPm5544Spec::body x=-1 y=1\n");
    EXPECT_TRUE(same(wrapped, frame[63]));

    testing::internal::CaptureStdout();
    EXPECT_THROW(card->body(-1, 0), std::out_of_range);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "PhilipsPm5544Spec::body x=-1 y=0\n");
    EXPECT_THROW(card->body(0, 36), std::out_of_range);
}
