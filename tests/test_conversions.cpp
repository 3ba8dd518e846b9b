// SDR conversions: golden codes, round trips, the supported pairs of axes and the assertion
// reports of unsupported ones.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "Pixel.h"

using namespace PatternGen;

namespace {

void expectCodes(const Pixel& p, int y, int cb, int cr) {
    EXPECT_EQ(p.sample[Pixel::Y_G], y);
    EXPECT_EQ(p.sample[Pixel::CB_B], cb);
    EXPECT_EQ(p.sample[Pixel::CR_R], cr);
}

// Escapes text for use inside a death-test regular expression.
std::string literal(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (std::string("\\^$.|?*+()[]{}").find(c) != std::string::npos) out += '\\';
        out += c;
    }
    return out;
}

// The standard assertion report for an expression in a function of the colour library.
std::string report(const std::string& function, const std::string& expression) {
    return "tools/Pixel[A-Za-z]*\\.cpp:[0-9]+: " + literal(function) + ": Assertion `" + literal(expression) +
           "' failed\\.";
}

const char* const convertTo = "Pixel Pixel::convertTo(PatternGen::colorAxes_e) const";

int maxDifference(const Pixel& a, const Pixel& b) {
    int worst = 0;
    for (int i = 0; i < 3; ++i) worst = std::max(worst, std::abs(a.sample[i] - b.sample[i]));
    return worst;
}

bool isHdrYCbCr(int a) { return (a >= 4 && a <= 7) || (a >= 9 && a <= 12); }
int rgbCounterpart(int yCbCr) {
    switch (yCbCr) {
        case 4:
            return 13;
        case 6:
            return 14;
        case 9:
            return 15;
        case 11:
            return 16;
        case 5:
            return 17;
        case 7:
            return 18;
        case 10:
            return 19;
        case 12:
            return 20;
        default:
            return -1;
    }
}

// The pairs of axes that convert without an assertion failure.
bool supported(int from, int to) {
    if (from <= 1) return true;
    if (from == 2 || from == 3) return !(to == 5 - from);
    if (from == 8) return to <= 3 || to == 8 || to == 4 || to == 6 || to == 9 || to == 11;
    if (isHdrYCbCr(from)) return to == 0 || to == from || to == rgbCounterpart(from);
    if (from >= 13 && from <= 16) return to == from || to <= 1 || rgbCounterpart(to) == from;
    return to == from;
}

}  // namespace

TEST(SdrConversion, GoldenCodes) {
    expectCodes(Pixel(4095, 4095, 4095, Colour_RGB).convertTo(Colour_YCbCr_709), 3760, 2048, 2048);
    expectCodes(Pixel(0, 0, 0, Colour_RGB).convertTo(Colour_YCbCr_709), 256, 2048, 2048);
    expectCodes(Pixel(4095, 0, 4095, Colour_RGB).convertTo(Colour_YCbCr_709), 3507, 256, 2212);
    expectCodes(Pixel(4095, 0, 4095, Colour_RGB).convertTo(Colour_YCbCr_2020), 3552, 256, 2192);
    expectCodes(Pixel(4095, 0, 4095, Colour_RGB).convertTo(Colour_YCbCr_601), 3361, 256, 2340);
    // Red decodes with B just below black; studio RGB keeps that footroom and the trip back is exact.
    const Pixel red219 = Pixel(1001, 1637, 3840).convertTo(Colour_RGB_219);
    expectCodes(red219, 256, 255, 3760);
    expectCodes(red219.convertTo(Colour_YCbCr_709), 1001, 1637, 3840);
    for (const Pixel& v : {Pixel(980, 1648, 2516), Pixel(564, 2788, 2424)})
        EXPECT_TRUE(v.convertTo(Colour_RGB_219).convertTo(Colour_YCbCr_709).sameCodes(v));
}

TEST(SdrConversion, AssignersClampOrKeepExcursions) {
    Pixel full(0, 0, 0, Colour_RGB);
    full.assignRGBValues(1.5, -0.2, 0.5);
    expectCodes(full, 0, 2048, 4095);
    Pixel studio(0, 0, 0, Colour_RGB_219);
    studio.assignRGB219Values(1.5, -0.5, 1.01);
    expectCodes(studio, 16, 3795, 4079);
    EXPECT_EQ(studio.colourSpace.whiteLevel, 3760);
    Pixel ycc(0, 0, 0, Colour_YCbCr_709, 10);
    ycc.assignYCbCr709Values(2.0, 2.0, 2.0);
    expectCodes(ycc, 1019, 512, 512);
}

TEST(SdrConversion, DepthAndLevelsOfResults) {
    Pixel p2020(100, 200, 300, Colour_YCbCr_2020, 10);
    const Pixel to12 = p2020.convertTo(Colour_YCbCr_2020);
    expectCodes(to12, 400, 800, 1200);
    EXPECT_EQ(to12.colourSpace.bitDepth, 12);
    EXPECT_EQ(to12.sample[Pixel::ALPHA], 4095);
    p2020.sample[Pixel::ALPHA] = 100;
    EXPECT_EQ(p2020.convertTo(Colour_YCbCr_2020).sample[Pixel::ALPHA], 400);
    // Any 2020 decode is 12 bits deep.
    const Pixel white709 = Pixel(940, 512, 512, Colour_YCbCr_2020, 10).convertTo(Colour_YCbCr_709);
    expectCodes(white709, 3760, 2048, 2048);
    // RGB to 2020 keeps the source's gamma law but takes studio levels.
    const Pixel rgbTo2020 = Pixel(0, 0, 0, Colour_RGB).convertTo(Colour_YCbCr_2020);
    EXPECT_EQ(rgbTo2020.colourSpace.gammaType, 1);
    EXPECT_EQ(rgbTo2020.colourSpace.blackLevel, 256);
}

// Twelve-bit Y'CbCr steps are coarser than full-range RGB codes (B = Y' + 1.8556 Cb), so a code
// or two may move.
TEST(SdrConversion, RoundTripsStayWithinTwoCodes) {
    const struct {
        colorAxes_e via;
        int tolerance;
    } trips[] = {{Colour_YCbCr_709, 2}, {Colour_YCbCr_2020, 2}, {Colour_YCbCr_601, 2}, {Colour_RGB_219, 1}};
    for (const auto& trip : trips) {
        int worst = 0;
        for (int g = 0; g <= 4095; g += 273)
            for (int b = 0; b <= 4095; b += 315)
                for (int r = 0; r <= 4095; r += 455) {
                    const Pixel rgb(g, b, r, Colour_RGB);
                    worst = std::max(worst, maxDifference(rgb.convertTo(trip.via).convertTo(Colour_RGB), rgb));
                }
        EXPECT_LE(worst, trip.tolerance) << axisToString(trip.via);
    }
    // Nominal studio RGB codes survive full range exactly: full range has the finer step.
    for (int c = 256; c <= 3760; c += 7) {
        const Pixel studio(c, 4016 - c, 2048, Colour_RGB_219);
        EXPECT_TRUE(studio.convertTo(Colour_RGB).convertTo(Colour_RGB_219).sameCodes(studio)) << c;
    }
}

TEST(SdrConversion, EverySupportedPairConverts) {
    const Pixel colour(3071, 500, 2000, Colour_RGB);
    for (int from = 0; from < colourAxesCount; ++from) {
        const Pixel source = colour.convertTo(static_cast<colorAxes_e>(from));
        ASSERT_EQ(source.colourSpace.colourAxes, from);
        for (int to = 0; to < colourAxesCount; ++to) {
            if (!supported(from, to)) continue;
            SCOPED_TRACE(std::string(axisToString(static_cast<colorAxes_e>(from))) + " to " +
                         axisToString(static_cast<colorAxes_e>(to)));
            const Pixel result = source.convertTo(static_cast<colorAxes_e>(to));
            EXPECT_EQ(result.colourSpace.colourAxes, to);
            for (int i = 0; i < 3; ++i) EXPECT_LE(result.sample[i], Levels::fullScale(result.colourSpace.bitDepth));
        }
    }
}

TEST(SdrConversionDeathTest, UnsupportedPairsReportTheAssertion) {
    EXPECT_DEATH(Pixel(3760, 2048, 2048).convertTo(Colour_YCbCr_601), report(convertTo, "0"));
    EXPECT_DEATH(Pixel(509, 512, 512, Colour_YCbCr_PQ, 10).convertTo(Colour_YCbCr_709),
                 report(convertTo, "axis == toSpace"));
    EXPECT_DEATH(Pixel(2036, 2036, 2036, Colour_RGB_PQ_Mapped).convertTo(Colour_RGB),
                 report(convertTo, "axis == toSpace"));
    EXPECT_DEATH(
        Pixel(940, 512, 512, Colour_YCbCr_2020, 10).convertTo(Colour_RGB_PQ),
        report("void Pixel::assignRGB219Values(double, double, double)", "axis == PatternGen::Colour_RGB_219"));
    EXPECT_DEATH(Pixel(940, 512, 512, Colour_YCbCr_2020, 10).convertTo(Colour_YCbCr_HLG_Mapped),
                 report("Pixel Pixel::convertFromYCbCr2020(PatternGen::colorAxes_e) const", "0"));
    EXPECT_DEATH(Pixel().assignRGBValues(0, 0, 0),
                 report("void Pixel::assignRGBValues(double, double, double)", "axis == PatternGen::Colour_RGB"));
    EXPECT_DEATH(Pixel().assignYCbCr2020Values(0, 0, 0), "tools/Pixel.*Assertion `colourIsIn2020\\(\\)' failed");
}

// One unsupported target per source axis (the first in axis order) keeps the number of forks small.
TEST(SdrConversionDeathTest, AnUnsupportedTargetOfEverySourceStops) {
    const Pixel colour(3071, 500, 2000, Colour_RGB);
    for (int from = 2; from < colourAxesCount; ++from) {
        const Pixel source = colour.convertTo(static_cast<colorAxes_e>(from));
        int to = 0;
        while (to < colourAxesCount && supported(from, to)) ++to;
        ASSERT_LT(to, colourAxesCount);
        EXPECT_DEATH(source.convertTo(static_cast<colorAxes_e>(to)), "tools/Pixel.*Assertion") << from << " to " << to;
    }
}
