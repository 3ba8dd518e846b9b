// The pattern core: transition coefficients, integer geometry, circle tests, init's report and
// palette, and overlay layers.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "TestPattern.h"

namespace {

using Ramp = std::vector<double>;

void expectRamp(const std::deque<double>& actual, const Ramp& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) EXPECT_NEAR(actual[i], expected[i], 5e-7) << "index " << i;
}

std::deque<double> ramp(double riseTime, double clockMHz) {
    std::deque<double> c{0.25, 0.75};  // stale content must be replaced
    TestPattern().calculateTransition(c, riseTime, clockMHz);
    return c;
}

void resize(TestPattern& p, int w, int h, int an, int ad) {
    p.width = w;
    p.height = h;
    p.aspectNum = an;
    p.aspectDen = ad;
}

}  // namespace

TEST(Transitions, WorkedCoefficientsAreAscendingAndSymmetric) {
    expectRamp(ramp(25, 74.25), {0.068797, 0.330117, 0.669883, 0.931203});
    expectRamp(ramp(25, 37.125), {0.180447, 0.819553});
    expectRamp(ramp(15, 74.25), {0.226918, 0.773082});
    expectRamp(ramp(15, 37.125), {0.5});
    expectRamp(ramp(25, 148.5), {0.008452, 0.068797, 0.180447, 0.330117, 0.5, 0.669883, 0.819553, 0.931203, 0.991548});
    EXPECT_TRUE(ramp(25, 13.5).empty());
    for (double rise : {5.0, 15.0, 25.0, 100.0})
        for (double clock : {13.5, 37.125, 74.25, 148.5, 297.0}) {
            const std::deque<double> c = ramp(rise, clock);
            for (size_t i = 0; i < c.size(); ++i) {
                EXPECT_GT(c[i], i == 0 ? 0.0 : c[i - 1]);
                EXPECT_NEAR(c[i] + c[c.size() - 1 - i], 1.0, 1e-15) << rise << " ns at " << clock << " MHz";
            }
        }
}

TEST(Transitions, ListsFollowTheSamplingAndSurviveSwitchingOff) {
    TestPattern full, sub;
    full.initQuietly(1920, 1080, 16, 9, PatternGen::Colour_RGB, PatternGen::Sampling_444);
    EXPECT_EQ(full.transitionLength, 4);
    EXPECT_EQ(full.chromaTransition, full.lumaTransition);
    // Subsampled chroma runs at half the clock, each value twice.
    sub.initQuietly(1920, 1080, 16, 9, PatternGen::Colour_RGB, PatternGen::Sampling_420);
    EXPECT_EQ(sub.transitionLength, 4);
    expectRamp(sub.chromaTransition, {0.180447, 0.180447, 0.819553, 0.819553});
    sub.calculateTransition(25.0, 148.5);
    EXPECT_EQ(sub.transitionLength, 9);
    expectRamp(sub.chromaTransition, {0.068797, 0.068797, 0.330117, 0.330117, 0.669883, 0.669883, 0.931203, 0.931203});
    // A zero rise time switches transitions off but keeps the lists; so does noRiseTime.
    const std::deque<double> luma = sub.lumaTransition, chroma = sub.chromaTransition;
    sub.calculateTransition(0.0, 74.25);
    EXPECT_FALSE(sub.riseTimeEnabled);
    EXPECT_EQ(sub.transitionLength, 0);
    EXPECT_TRUE(sub.lumaTransition == luma && sub.chromaTransition == chroma);
    sub.calculateTransition(15.0, 74.25);
    EXPECT_TRUE(sub.riseTimeEnabled);
    sub.noRiseTime();  // only the flag changes
    EXPECT_TRUE(!sub.riseTimeEnabled && sub.transitionLength == 2);
}

TEST(Transitions, FreqToPixelsUsesTheSampleRateOfTheHeight) {
    TestPattern p;  // 2160 lines before init
    EXPECT_DOUBLE_EQ(p.freqToPixels(250000.0), 594.0);
    const std::pair<int, double> cases[] = {{1090, 594.0}, {1089, 297.0}, {600, 297.0}, {599, 54.0}, {576, 54.0}};
    for (const auto& [lines, pixels] : cases) {
        p.height = lines;
        EXPECT_DOUBLE_EQ(p.freqToPixels(250000.0), pixels) << lines << " lines";
    }
}

TEST(Geometry, FractionsMultiplyLeftToRightThenTruncateOnce) {
    TestPattern p;
    resize(p, 1920, 1080, 16, 9);
    EXPECT_EQ(p.heightFraction(1, 2), 540);
    EXPECT_EQ(p.heightFraction(7, 3), 2520);
    EXPECT_EQ(p.widthFraction(-1, 3), -640);
    EXPECT_EQ(p.fractionOf(-7, 1, 2), -3);
    resize(p, 720, 576, 4, 3);
    EXPECT_EQ(p.aspectAdjustedVertFraction(1, 2), 384);  // (576*4*1)/(3*2)
    EXPECT_EQ(p.aspectAdjustedHorizFraction(1, 7), 77);  // (720*3*1)/(4*7) = 77.1
}

TEST(Geometry, CirclesCompareTheTruncatedDistanceWithTheRadius) {
    TestPattern p;
    resize(p, 1920, 1080, 16, 9);  // square pixels: the Euclidean test
    for (int r : {0, 1, 5, 13})
        for (int y = -15; y <= 15; ++y)
            for (int x = -15; x <= 15; ++x) {
                const bool inside = x * x + y * y < r * r;
                ASSERT_EQ(p.insideCircleHeight(x + 100, y - 40, 100, -40, r), inside) << x << "," << y << " r " << r;
                ASSERT_EQ(p.insideCircleWidth(x - 7, y + 3, -7, 3, r), inside) << x << "," << y << " r " << r;
            }
    resize(p, 720, 576, 4, 3);
    EXPECT_TRUE(p.insideCircleHeight(100, 0, 0, 0, 107));   // x 100 is 106.67 lines, kept as 106
    EXPECT_FALSE(p.insideCircleHeight(100, 0, 0, 0, 106));  // exactly on the radius: outside
    EXPECT_FALSE(p.insideCircleHeight(15, 0, 1, 0, 15));    // 16 - 1, each truncated separately
    EXPECT_TRUE(p.insideCircleWidth(0, 100, 0, 0, 94));     // y 100 is 93.75 pixels, kept as 93
    EXPECT_FALSE(p.insideCircleWidth(0, 100, 0, 0, 93));
    // An 8K cinema raster: 4320 x 4095 x 256 exceeds 32 bits, yet the pixels are square.
    resize(p, 8192, 4320, 256, 135);
    EXPECT_TRUE(p.insideCircleHeight(4095, 0, 0, 0, 4096));
    EXPECT_FALSE(p.insideCircleHeight(4095, 0, 0, 0, 4095));
    EXPECT_EQ(p.aspectAdjustedVertFraction(1, 1), 8192);  // the picture width, in lines
}

TEST(Init, ReportsTheCanvasDoubledInQuadrantModeAndThePixelAspect) {
    const auto report = [](int w, int h, int an, int ad, PatternGen::quadrant_e q) {
        TestPattern p;
        testing::internal::CaptureStdout();
        p.init(w, h, an, ad, PatternGen::Colour_RGB, PatternGen::Sampling_444, 12, q, 0, false);
        return testing::internal::GetCapturedStdout();
    };
    EXPECT_EQ(report(1920, 1080, 16, 9, PatternGen::Quadrant_TL),
              "Width x Height: 3840x2160\nAspect: 16:9\nPixel aspect: 1:1.000\n");
    EXPECT_EQ(report(720, 576, 4, 3, PatternGen::Quadrant_None),
              "Width x Height: 720x576\nAspect: 4:3\nPixel aspect: 1:0.938\n");
}

TEST(Init, BarsAreInTheOutputAxesWith601FromAFixedTable) {
    TestPattern sd, hd;
    sd.initQuietly(720, 576, 4, 3, PatternGen::Colour_YCbCr_601);
    EXPECT_EQ(sd.setupCalls, 1);
    EXPECT_TRUE(sd.bars100[1].sameCodes(Pixel(3360, 256, 2336, PatternGen::Colour_YCbCr_601)));
    EXPECT_TRUE(sd.bars100[6].sameCodes(Pixel(640, 3840, 1760, PatternGen::Colour_YCbCr_601)));
    // 75% yellow is converted from R'G'B' (3071, 3071, 0); scaling the table would give (2584, 705, 2264).
    EXPECT_TRUE(sd.bars75[1].sameCodes(Pixel(2584, 704, 2267, PatternGen::Colour_YCbCr_601)));
    hd.initQuietly(1920, 1080, 16, 9, PatternGen::Colour_YCbCr_709);
    EXPECT_TRUE(hd.bars100[1].sameCodes(Pixel(3507, 256, 2212)));
    EXPECT_TRUE(hd.bars100[7].sameCodes(Pixel(256, 2048, 2048)));
    EXPECT_TRUE(hd.bars75[0].sameCodes(Pixel(2884, 2048, 2048)));
}

TEST(Overlay, ReadsTheGreenFieldOfLittleEndianWords) {
    TestPattern p;
    resize(p, 4, 3, 16, 9);
    EXPECT_EQ(p.getOverlay(0, 0, 0, 0, 4), 0u);  // no layer yet
    EXPECT_EQ(p.newLayer(), 1);
    EXPECT_EQ(p.newLayer(), 2);
    std::memset(p.layers[1], 0, 4 * 3 * 4);
    // Word 2*4 + 3 = 11: red all ones, green 0x155, blue 0x2AA.
    const uint32_t word = (0x3FFu << 20) | (0x155u << 10) | 0x2AAu;
    for (int b = 0; b < 4; ++b) p.layers[1][11 * 4 + b] = static_cast<unsigned char>(word >> (8 * b));
    EXPECT_EQ(p.getOverlay(1, 0, 2, 3, 4), 0x155u * 64);
    EXPECT_EQ(p.getOverlay(1, 5, 2, 8, 4), 0x155u * 64);  // x measured from originX
    EXPECT_EQ(p.getOverlay(1, 0, 2, 2, 4), 0u);
    EXPECT_EQ(p.getOverlay(2, 0, 2, 3, 4), 0u);  // past the last layer
}
