// Raised-cosine transition coefficients, the luma/chroma lists and frequency conversion.
#include <gtest/gtest.h>

#include "TestPattern.h"

namespace {

void expectRamp(const std::deque<double>& actual, const std::vector<double>& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) EXPECT_NEAR(actual[i], expected[i], 5e-7) << "index " << i;
}

std::deque<double> ramp(double riseTime, double clockMHz) {
    std::deque<double> c{0.25, 0.75};  // stale content must be replaced
    TestPattern().calculateTransition(c, riseTime, clockMHz);
    return c;
}

}  // namespace

TEST(Transitions, WorkedCoefficients) {
    expectRamp(ramp(25, 74.25), {0.068797, 0.330117, 0.669883, 0.931203});
    expectRamp(ramp(25, 37.125), {0.180447, 0.819553});
    expectRamp(ramp(15, 74.25), {0.226918, 0.773082});
    expectRamp(ramp(15, 37.125), {0.5});
    expectRamp(ramp(25, 148.5), {0.008452, 0.068797, 0.180447, 0.330117, 0.5, 0.669883, 0.819553, 0.931203, 0.991548});
    EXPECT_TRUE(ramp(25, 13.5).empty());
}

TEST(Transitions, EveryRampIsAscendingAndSymmetric) {
    for (double rise : {5.0, 15.0, 25.0, 100.0})
        for (double clock : {13.5, 37.125, 74.25, 148.5, 297.0}) {
            const std::deque<double> c = ramp(rise, clock);
            for (size_t i = 0; i < c.size(); ++i) {
                EXPECT_GT(c[i], i == 0 ? 0.0 : c[i - 1]);
                EXPECT_NEAR(c[i] + c[c.size() - 1 - i], 1.0, 1e-15) << rise << " ns at " << clock << " MHz";
            }
        }
}

TEST(Transitions, SubsampledChromaRunsAtHalfClockWithEachValueTwice) {
    TestPattern full, sub;
    full.initQuietly(1920, 1080, 16, 9, PatternGen::Colour_RGB, PatternGen::Sampling_444);
    EXPECT_EQ(full.transitionLength, 4);
    EXPECT_EQ(full.chromaTransition, full.lumaTransition);
    sub.initQuietly(1920, 1080, 16, 9, PatternGen::Colour_RGB, PatternGen::Sampling_420);
    EXPECT_EQ(sub.transitionLength, 4);
    expectRamp(sub.chromaTransition, {0.180447, 0.180447, 0.819553, 0.819553});

    sub.calculateTransition(25.0, 148.5);
    EXPECT_EQ(sub.transitionLength, 9);
    expectRamp(sub.chromaTransition, {0.068797, 0.068797, 0.330117, 0.330117, 0.669883, 0.669883, 0.931203, 0.931203});
}

TEST(Transitions, SwitchingOffKeepsTheListsUntilANewRiseTime) {
    TestPattern p;
    p.calculateTransition(25.0, 74.25);
    const std::deque<double> luma = p.lumaTransition;
    p.calculateTransition(0.0, 74.25);
    EXPECT_FALSE(p.riseTimeEnabled);
    EXPECT_EQ(p.transitionLength, 0);
    EXPECT_EQ(p.lumaTransition, luma);
    EXPECT_EQ(p.chromaTransition, luma);
    p.calculateTransition(15.0, 74.25);
    EXPECT_TRUE(p.riseTimeEnabled);
    p.noRiseTime();  // only the flag changes
    EXPECT_FALSE(p.riseTimeEnabled);
    EXPECT_EQ(p.transitionLength, 2);
}

TEST(Transitions, FreqToPixelsUsesTheSampleRateOfTheHeight) {
    TestPattern p;  // 2160 lines before init
    EXPECT_DOUBLE_EQ(p.freqToPixels(250000.0), 594.0);
    const std::pair<int, double> cases[] = {{1090, 594.0}, {1089, 297.0}, {600, 297.0}, {599, 54.0}, {576, 54.0}};
    for (const auto& c : cases) {
        p.height = c.first;
        EXPECT_DOUBLE_EQ(p.freqToPixels(250000.0), c.second) << c.first << " lines";
    }
}
