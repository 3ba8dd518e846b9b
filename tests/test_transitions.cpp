// Raised-cosine transition coefficients, the luma/chroma lists and frequency conversion.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "TestPattern.h"

namespace {

std::vector<double> ramp(double riseTime, double clockMHz) {
    TestPattern pattern;
    std::deque<double> c{0.25, 0.75};  // stale content must be replaced
    pattern.calculateTransition(c, riseTime, clockMHz);
    return std::vector<double>(c.begin(), c.end());
}

void expectValues(const std::vector<double>& actual, const std::vector<double>& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) EXPECT_NEAR(actual[i], expected[i], 5e-7) << "index " << i;
}

}  // namespace

TEST(Transitions, WorkedCoefficients) {
    expectValues(ramp(25, 74.25), {0.068797, 0.330117, 0.669883, 0.931203});
    expectValues(ramp(25, 37.125), {0.180447, 0.819553});
    expectValues(ramp(15, 74.25), {0.226918, 0.773082});
    expectValues(ramp(15, 37.125), {0.5});
    expectValues(ramp(25, 148.5), {0.008452, 0.068797, 0.180447, 0.330117, 0.5, 0.669883, 0.819553, 0.931203,
                                   0.991548});
    EXPECT_TRUE(ramp(25, 13.5).empty());
}

TEST(Transitions, EveryListIsAscendingSymmetricAndInsideTheUnitInterval) {
    for (double rise : {5.0, 15.0, 25.0, 40.0, 100.0}) {
        for (double clock : {13.5, 27.0, 37.125, 74.25, 148.5, 297.0}) {
            const std::vector<double> c = ramp(rise, clock);
            const double duration = rise * 3.141592653589793 / 1.2870022175865685;
            const int samples = static_cast<int>(std::floor(duration / (1000.0 / clock)));
            if (samples % 2 != 0) {
                EXPECT_EQ(static_cast<int>(c.size()), samples);
            }
            EXPECT_LE(static_cast<int>(c.size()), samples);
            for (size_t i = 0; i < c.size(); ++i) {
                EXPECT_GT(c[i], 0.0);
                EXPECT_LT(c[i], 1.0);
                if (i > 0) {
                    EXPECT_LT(c[i - 1], c[i]);
                }
                EXPECT_NEAR(c[i] + c[c.size() - 1 - i], 1.0, 1e-15) << rise << " ns at " << clock << " MHz";
            }
        }
    }
}

TEST(Transitions, InitSetsLumaAndChromaListsBySampling) {
    TestPattern full;
    full.initQuietly(1920, 1080, 16, 9, PatternGen::Colour_RGB, PatternGen::Sampling_444);
    EXPECT_TRUE(full.riseTimeEnabled);
    EXPECT_EQ(full.transitionLength, 4);
    EXPECT_EQ(full.chromaTransition, full.lumaTransition);

    for (auto sampling : {PatternGen::Sampling_422, PatternGen::Sampling_420}) {
        TestPattern sub;
        sub.initQuietly(1920, 1080, 16, 9, PatternGen::Colour_RGB, sampling);
        EXPECT_EQ(sub.transitionLength, 4);
        expectValues({sub.lumaTransition.begin(), sub.lumaTransition.end()},
                     {0.068797, 0.330117, 0.669883, 0.931203});
        expectValues({sub.chromaTransition.begin(), sub.chromaTransition.end()},
                     {0.180447, 0.180447, 0.819553, 0.819553});
    }
}

TEST(Transitions, SubsampledChromaHoldsEachHalfClockValueTwice) {
    TestPattern pattern;
    pattern.sampling = PatternGen::Sampling_422;
    pattern.calculateTransition(25.0, 148.5);
    EXPECT_EQ(pattern.transitionLength, 9);
    expectValues({pattern.chromaTransition.begin(), pattern.chromaTransition.end()},
                 {0.068797, 0.068797, 0.330117, 0.330117, 0.669883, 0.669883, 0.931203, 0.931203});
}

TEST(Transitions, SwitchingOffKeepsListsAndOnlyANewRiseTimeSwitchesOn) {
    TestPattern pattern;
    pattern.calculateTransition(25.0, 74.25);
    const std::deque<double> luma = pattern.lumaTransition;
    const std::deque<double> chroma = pattern.chromaTransition;

    pattern.calculateTransition(0.0, 74.25);
    EXPECT_FALSE(pattern.riseTimeEnabled);
    EXPECT_EQ(pattern.transitionLength, 0);
    EXPECT_EQ(pattern.lumaTransition, luma);
    EXPECT_EQ(pattern.chromaTransition, chroma);

    pattern.calculateTransition(15.0, 74.25);
    EXPECT_TRUE(pattern.riseTimeEnabled);
    EXPECT_EQ(pattern.transitionLength, 2);

    pattern.noRiseTime();
    EXPECT_FALSE(pattern.riseTimeEnabled);
    EXPECT_EQ(pattern.transitionLength, 2);
    EXPECT_EQ(pattern.lumaTransition.size(), 2u);
}

TEST(Transitions, FreqToPixelsUsesTheSampleRateOfTheHeight) {
    TestPattern pattern;  // constructor default: 2160 lines
    EXPECT_DOUBLE_EQ(pattern.freqToPixels(250000.0), 594.0);
    const std::pair<int, double> cases[] = {{1090, 594.0}, {1089, 297.0}, {1080, 297.0}, {600, 297.0},
                                            {599, 54.0},   {576, 54.0}};
    for (const auto& c : cases) {
        pattern.height = c.first;
        EXPECT_DOUBLE_EQ(pattern.freqToPixels(250000.0), c.second) << c.first << " lines";
    }
}
