// The PM5544 card: band layout at 576 lines, edge shaping, and body()'s rows against their definitions;
// golden codes computed independently from the raised-cosine formula and the studio-level blend.
#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "CardTestAccess.h"
#include "TestFiles.h"
#include "TestPattern.h"
#include "philips-PM5544-new.h"

using namespace PatternGen;
using Member = Pixel PhilipsPm5544Spec::*;

namespace {

// Renders a card; fails the test if the edge shaping reported a problem.
std::unique_ptr<PhilipsPm5544Spec> makeCard(int width, int height, int aspectNum, int aspectDen, colorAxes_e axes,
                                            int bits = 12, sampling_e sampling = Sampling_444) {
    auto card = std::make_unique<PhilipsPm5544Spec>();
    std::string output;
    card->messages = into(output);
    card->init(width, height, aspectNum, aspectDen, axes, sampling, bits, Quadrant_None, 0, false);
    card->messages = nullptr;
    EXPECT_EQ(output.find("Error"), std::string::npos) << output;
    return card;
}

// Same axes, depth, levels, gamma law and samples, with the codes of both in the failure message.
::testing::AssertionResult same(const Pixel& actual, const Pixel& expected) {
    if (actual.identicalTo(expected)) return ::testing::AssertionSuccess();
    const auto codes = [](const Pixel& p) {
        return "axes " + std::to_string(p.colourSpace.colourAxes) + " (" + std::to_string(p.sample[Pixel::Y_G]) + ", " +
               std::to_string(p.sample[Pixel::CB_B]) + ", " + std::to_string(p.sample[Pixel::CR_R]) + ")";
    };
    return ::testing::AssertionFailure() << codes(actual) << " but expected " << codes(expected);
}

// A 12-bit 709 Y'CbCr pixel.
Pixel yuv(int y, int cb, int cr) { return Pixel(y, cb, cr, Colour_YCbCr_709, 12); }

// 768x576 at 4:3 has square pixels and h(k) = k, so band limits read straight off the layout.
class CardLayout : public testing::Test {
protected:
    static void SetUpTestSuite() { card = makeCard(768, 576, 4, 3, Colour_YCbCr_709).release(); }
    static void TearDownTestSuite() { delete card; }
    static Pixel at(int X, int Y) { return card->render(X + 384, Y + 288); }
    static Pixel framed(int X, int Y) { return card->body(X + 384, Y + 288); }
    static PhilipsPm5544Spec* card;
};
PhilipsPm5544Spec* CardLayout::card = nullptr;

}  // namespace

TEST_F(CardLayout, EveryBandAtRepresentativePoints) {
    using C = PhilipsPm5544Spec;
    const struct {
        int X, Y;
        Member expected;
    } probes[] = {
        // clang-format off
        {-50, -233, &C::white}, {0, -232, &C::black}, {-84, -200, &C::white}, {84, -200, &C::black},  // cap, id box
        {-127, -170, &C::black}, {-126, -170, &C::white}, {-107, -170, &C::white}, {-106, -170, &C::black},  // bar
        {12, -120, &C::black}, {13, -120, &C::grey75}, {27, -120, &C::black}, {-1, -120, &C::grey75},  // wave
        {-169, -50, &C::yellow75}, {-168, -50, &C::cyan75}, {50, -21, &C::magenta75}, {200, -50, &C::blue75},
        {0, 0, &C::white}, {5, 20, &C::black}, {21, 5, &C::white}, {22, 5, &C::black},               // centre
        {19, 62, &C::black}, {-20, -40, &C::green75}, {5, -63, &C::magenta75},                       // strip
        {-199, 60, &C::black}, {-198, 60, &C::grey50}, {-159, 120, &C::black}, {-158, 106, &C::grey20},  // grey
        {-79, 120, &C::grey40}, {0, 147, &C::grey60}, {158, 120, &C::white},                          // scale
        {-126, 170, &C::black}, {-105, 170, &C::white}, {-21, 190, &C::yellow100}, {-20, 220, &C::red100},
        {0, 253, &C::white}, {0, -254, &C::grey50}, {300, -232, &C::white}, {300, -235, &C::grey50},  // outline
        {0, -280, &C::black}, {22, -280, &C::white}, {62, -280, &C::black}, {0, -272, &C::white},     // border
        // clang-format on
    };
    for (const auto& p : probes) EXPECT_TRUE(same(at(p.X, p.Y), card->*p.expected)) << "X=" << p.X << " Y=" << p.Y;
}

TEST_F(CardLayout, GratingsRunFromGreyWithContinuousPhase) {
    // Position p = X + 197; packet k starts at p = 79k; 0.8 MHz is a period of 16 pixels, 1.8 MHz of 7.
    const std::vector<std::pair<int, int>> lumaAt = {{0, 2008},  {4, 3760},   {12, 256},   {79, 1337},
                                                     {80, 2855}, {158, 3735}, {237, 1714}, {316, 3651}};
    for (const auto& [p, luma] : lumaAt) EXPECT_TRUE(same(at(p - 197, 60), yuv(luma, 2048, 2048))) << "p=" << p;
}

// A hard edge between flat areas is shaped over four pixels with the 25 ns ramp: the red box's left edge in
// the bottom cap (yellow up to X -21). The centre cross's two-pixel bar (X -1 and 0) on black takes the
// 15 ns ramp (0.773), the black pixels beside it the 25 ns one.
TEST_F(CardLayout, EdgesAreShapedByFeatureWidth) {
    const Pixel y = card->yellow100, r = card->red100;
    const std::vector<Pixel> edge = {
        y, yuv(3334, 351, 2324), yuv(2679, 711, 2749), yuv(1828, 1181, 3302), yuv(1173, 1541, 3727), r};
    for (int i = 0; i < 6; ++i) EXPECT_TRUE(same(framed(-23 + i, 220), edge[i])) << "X=" << -23 + i;
    const std::vector<int> luma = {256, 497, 1412, 2964, 2964, 1412, 497, 256};
    for (int i = 0; i < 8; ++i) EXPECT_TRUE(same(framed(-4 + i, 10), yuv(luma[i], 2048, 2048))) << "X=" << -4 + i;
}

TEST_F(CardLayout, OnePixelFeatureKeepsItsFullAmplitude) {
    int X = 120;  // the first isolated pixel of the 4.8 MHz packet, which alternates every pixel at 576 lines
    while (X < 197 && (at(X, 60).sameCodes(at(X - 1, 60)) || at(X, 60).sameCodes(at(X + 1, 60)))) ++X;
    ASSERT_LT(X, 197);
    EXPECT_TRUE(same(framed(X, 60), at(X, 60))) << "X=" << X;
}

// The first difference between n pixels of a and b, or -1.
static int firstDifference(const Pixel* a, const Pixel* b, size_t n) {
    for (size_t i = 0; i < n; ++i)
        if (!same(a[i], b[i])) return int(i);
    return -1;
}

// Every row of several rasters, aspects and encodings: the row fill gives render(x, y) at position x + 2 with
// black padding, and body() gives that line shaped pixel by pixel, whichever shortcut it took.
TEST(CardRows, RowFillAndShapedRowsEqualTheReferenceEverywhere) {
    const struct {
        int width, height, aspectNum, aspectDen;
        colorAxes_e axes;
        int bits;
        sampling_e sampling;
    } rasters[] = {{720, 576, 4, 3, Colour_YCbCr_709, 12, Sampling_444},     // narrow pixels, 576 lines
                   {1366, 768, 16, 9, Colour_YCbCr_2020, 12, Sampling_420},  // odd half-width
                   {1001, 555, 21, 9, Colour_RGB, 10, Sampling_422},         // odd sizes, below 576 lines
                   {640, 240, 16, 9, Colour_YCbCr_PQ, 12, Sampling_444},     // wide pixels (1:1.5)
                   {512, 96, 16, 9, Colour_RGB_HLG, 10, Sampling_422}};      // grid lines covering every column
    for (const auto& r : rasters) {
        auto card = makeCard(r.width, r.height, r.aspectNum, r.aspectDen, r.axes, r.bits, r.sampling);
        const CardEdgeShaper& shaper = CardTestAccess::shaper(*card);
        std::vector<Pixel> reference(size_t(r.width) + 4, card->black), fast, shaped(r.width), body(r.width);
        for (int y = 0; y < r.height; ++y) {
            for (int x = 2; x < r.width - 2; ++x) reference[size_t(x) + 2] = card->render(x, y);
            CardTestAccess::fillLine(*card, y, fast);
            ASSERT_EQ(reference.size(), fast.size());
            ASSERT_EQ(-1, firstDifference(fast.data(), reference.data(), fast.size())) << r.width << " line " << y;
            for (int x = 0; x < r.width; ++x) {
                shaped[size_t(x)] = shaper.shapePixel(reference, size_t(x) + 2);
                body[size_t(x)] = card->body(x, y);
            }
            ASSERT_EQ(-1, firstDifference(body.data(), shaped.data(), size_t(r.width))) << r.width << " row " << y;
        }
    }
}

// Unshapeable edges and look-ups off the canvas are progress lines of the sink; the pixel is still given.
TEST(CardShaping, ImpossibleStatesReachTheSinkOnly) {
    std::vector<std::string> lines;
    const MessageSink sink = [&lines](MessageKind kind, const std::string& line) {
        EXPECT_EQ(MessageKind::Progress, kind);
        lines.push_back(line);
    };
    const std::deque<double> ramp{0.25, 0.5, 0.75};
    const CardEdgeShaper shaper(3, {}, ramp, ramp, sink);  // no luma ramp
    std::vector<Pixel> line(8, yuv(256, 2048, 2048));
    for (size_t i = 4; i < line.size(); ++i) line[i] = yuv(3760, 2048, 2048);
    PhilipsPm5544Spec card;
    const std::string printed = TestFiles::stdoutOf([&] {
        EXPECT_TRUE(shaper.shapePixel(line, 3).sameCodes(line[3]));
        card.messages = sink;
        card.init(64, 36, 16, 9, Colour_YCbCr_709, Sampling_444, 12, Quadrant_None, 0, false);
        lines.resize(1);                                            // the size problem, not the geometry init reports
        EXPECT_TRUE(card.body(-1, 5).sameCodes(card.body(63, 4)));  // wraps into the row above
    });
    EXPECT_FALSE(shaper.silent());
    EXPECT_EQ(printed, "");
    EXPECT_EQ(lines, (std::vector<std::string>{"Error transition size problem - luma size=0 chroma size=3\n",
                                               "PhilipsPm5544Spec::body x=-1 y=5\n"}));
}
