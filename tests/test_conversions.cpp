// SDR and HDR conversions: golden codes, transfer functions against their forward curves, round
// trips, the supported pairs of axes and the assertion reports of unsupported ones.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "Pixel.h"

using namespace PatternGen;

namespace {

using Codes = std::array<int, 3>;
using Ints = std::vector<int>;

// Y', Cb, Cr (or G, B, R): the constructor's argument order.
Codes codes(const Pixel& p) { return {p.sample[Pixel::Y_G], p.sample[Pixel::CB_B], p.sample[Pixel::CR_R]}; }
Codes grey(int code) { return {code, code, code}; }

struct Case {
    std::string what;
    Pixel got;
    Codes want;
};

void expectAll(const std::vector<Case>& cases) {
    for (const Case& c : cases) EXPECT_EQ(codes(c.got), c.want) << c.what;
}

int maxDifference(const Pixel& a, const Pixel& b) {
    int worst = 0;
    for (int i = 0; i < 3; ++i) worst = std::max(worst, std::abs(a.sample[i] - b.sample[i]));
    return worst;
}

// The RGB HDR counterpart of each HDR Y'CbCr axis, -1 for the other axes.
const int rgbCounterpart[colourAxesCount] = {-1, -1, -1, -1, 13, 17, 14, 18, -1, 15, 19,
                                             16, 20, -1, -1, -1, -1, -1, -1, -1, -1};

// The pairs of axes that convert without an assertion failure.
bool supported(int from, int to) {
    if (from <= 1) return true;
    if (from == 2 || from == 3) return to != 5 - from;  // no 601 <-> 709
    if (from == 8) return to <= 4 || to == 6 || to == 8 || to == 9 || to == 11;
    if (rgbCounterpart[from] >= 0) return to == 0 || to == from || to == rgbCounterpart[from];
    if (from <= 16) return to <= 1 || to == from || rgbCounterpart[to] == from;
    return to == from;
}

// The ST 2084 EOTF, written out independently: PQ signal to light in units of 100 cd/m2.
double pqEotf(double signal) {
    const double m1 = 2610.0 / 16384, m2 = 2523.0 / 4096 * 128;
    const double c1 = 3424.0 / 4096, c2 = 2413.0 / 4096 * 32, c3 = 2392.0 / 4096 * 32;
    const double p = std::pow(signal, 1 / m2);
    return 100 * std::pow(std::max(p - c1, 0.0) / (c2 - c3 * p), 1 / m1);
}

double sLog3(double x, bool negative) { return Pixel::applySLog3OETFAndRestoreAbsolutisedInput(x, negative); }

// The BT.2100 HLG inverse OETF: signal to scene light.
double hlgInverseOetf(double signal) {
    const double a = 0.17883277, b = 1 - 4 * 0.17883277, c = 0.5 - a * std::log(4 * a);
    return signal <= 0.5 ? signal * signal / 3 : (std::exp((signal - c) / a) + b) / 12;
}

}  // namespace

TEST(SdrConversion, GoldenCodes) {
    const Pixel white(4095, 4095, 4095, Colour_RGB), yellow(4095, 0, 4095, Colour_RGB);
    const Pixel red219 = Pixel(1001, 1637, 3840).convertTo(Colour_RGB_219);
    const Pixel p2020(100, 200, 300, Colour_YCbCr_2020, 10), white2020(940, 512, 512, Colour_YCbCr_2020, 10);
    Pixel full(0, 0, 0, Colour_RGB), studio(0, 0, 0, Colour_RGB_219), ycc(0, 0, 0, Colour_YCbCr_709, 10);
    full.assignRGBValues(1.5, -0.2, 0.5);
    studio.assignRGB219Values(1.5, -0.5, 1.01);
    ycc.assignYCbCr709Values(2.0, 2.0, 2.0);
    expectAll({{"white", white.convertTo(Colour_YCbCr_709), {3760, 2048, 2048}},
               {"black", Pixel(0, 0, 0, Colour_RGB).convertTo(Colour_YCbCr_709), {256, 2048, 2048}},
               {"yellow 709", yellow.convertTo(Colour_YCbCr_709), {3507, 256, 2212}},
               {"yellow 2020", yellow.convertTo(Colour_YCbCr_2020), {3552, 256, 2192}},
               {"yellow 601", yellow.convertTo(Colour_YCbCr_601), {3361, 256, 2340}},
               {"red keeps B below black", red219, {256, 255, 3760}},
               {"red back", red219.convertTo(Colour_YCbCr_709), {1001, 1637, 3840}},
               {"2020 at 10 bits to itself", p2020.convertTo(Colour_YCbCr_2020), {400, 800, 1200}},
               {"2020 decodes to 12 bits", white2020.convertTo(Colour_YCbCr_709), {3760, 2048, 2048}},
               {"RGB assigner clamps", full, {0, 2048, 4095}},
               {"RGB_219 assigner keeps excursions", studio, {16, 3795, 4079}},
               {"YCbCr assigner stays legal", ycc, {1019, 512, 512}}});
    // Depth and levels of results: 2020 rises to 12 bits with alpha; RGB to 2020 keeps its gamma law.
    const Pixel to12 = p2020.convertTo(Colour_YCbCr_2020);
    EXPECT_EQ(Ints({to12.colourSpace.bitDepth, to12.sample[Pixel::ALPHA]}), Ints({12, 4095}));
    Pixel lowAlpha = p2020;
    lowAlpha.sample[Pixel::ALPHA] = 100;
    EXPECT_EQ(lowAlpha.convertTo(Colour_YCbCr_2020).sample[Pixel::ALPHA], 400);
    const ColourSpace rgbTo2020 = Pixel(0, 0, 0, Colour_RGB).convertTo(Colour_YCbCr_2020).colourSpace;
    EXPECT_EQ(Codes({rgbTo2020.gammaType, rgbTo2020.blackLevel, red219.colourSpace.whiteLevel}), Codes({1, 256, 3760}));
}

TEST(HdrConversion, GoldenCodes) {
    const Pixel white709(3760, 2048, 2048), blackRgb(0, 0, 0, Colour_RGB), whiteRgb(4095, 4095, 4095, Colour_RGB);
    const Pixel pq = white709.convertTo(Colour_YCbCr_PQ), rgbPq = pq.convertTo(Colour_RGB_PQ);
    std::vector<Case> cases = {
        {"RGB PQ is the 10-bit signal at 12 bits", rgbPq, grey(4 * 509)},
        {"RGB PQ from full-range RGB", whiteRgb.convertTo(Colour_RGB_PQ), grey(4 * 509)},
        {"RGB S-Log3 white", whiteRgb.convertTo(Colour_RGB_SLog3), grey(2392)},
        {"RGB PQ back to its Y'CbCr", rgbPq.convertTo(Colour_YCbCr_PQ), {2036, 2048, 2048}},
        {"RGB PQ relabelled studio RGB", rgbPq.convertTo(Colour_RGB_219), grey(2036)},
        {"RGB PQ to full range", rgbPq.convertTo(Colour_RGB), grey(2080)},  // round(1780 / 3504 * 4095)
        {"Y'CbCr PQ decodes the matrix only", pq.convertTo(Colour_RGB), grey(520)}};
    for (colorAxes_e axis : {Colour_YCbCr_PQ, Colour_YCbCr_PQ_Mapped, Colour_YCbCr_HLG, Colour_YCbCr_HLG_Mapped}) {
        const bool isPq = axis <= Colour_YCbCr_PQ_Mapped;
        cases.push_back(
            {axisToString(axis) + std::string(" white"), white709.convertTo(axis), {isPq ? 509 : 616, 512, 512}});
        cases.push_back({axisToString(axis) + std::string(" black"), blackRgb.convertTo(axis), {64, 512, 512}});
    }
    for (int axis = Colour_YCbCr_SLog3; axis <= Colour_YCbCr_SLog3_Live_Mapped; ++axis) {
        const Pixel black = blackRgb.convertTo(static_cast<colorAxes_e>(axis));
        cases.push_back(
            {std::to_string(axis) + " white", white709.convertTo(black.colourSpace.axes()), {598, 512, 512}});
        cases.push_back({std::to_string(axis) + " black", black, {95, 512, 512}});
        EXPECT_EQ(Ints({black.colourSpace.blackLevel, black.colourSpace.whiteLevel}), Ints({95, 1019}));
    }
    // The mapped bars match the 10-bit PQ reference codes.
    const Codes bars709[] = {
        {3507, 256, 2212}, {3015, 2459, 256}, {2763, 667, 420}, {1001, 1637, 3840}, {509, 3840, 1884}};
    const Codes barsPq10[] = {{497, 421, 518}, {483, 526, 472}, {468, 430, 476}, {341, 446, 601}, {238, 654, 536}};
    for (int i = 0; i < 5; ++i)
        cases.push_back({"mapped bar " + std::to_string(i),
                         Pixel(bars709[i][0], bars709[i][1], bars709[i][2]).convertTo(Colour_YCbCr_PQ_Mapped),
                         barsPq10[i]});
    expectAll(cases);
    // HDR Y'CbCr is 10 bits deep and keeps a 12-bit RGB source's alpha; RGB HDR is 12-bit studio.
    const Pixel pqBlack = blackRgb.convertTo(Colour_YCbCr_PQ);
    EXPECT_EQ(Ints({pqBlack.colourSpace.bitDepth, pqBlack.sample[Pixel::ALPHA]}), Ints({10, 4095}));
    EXPECT_EQ(Codes({rgbPq.colourSpace.colourAxes, rgbPq.colourSpace.bitDepth, rgbPq.colourSpace.blackLevel}),
              Codes({Colour_RGB_PQ, 12, 256}));
    EXPECT_EQ(rgbPq.convertTo(Colour_RGB_219).colourSpace.axes(), Colour_RGB_219);
}

TEST(HdrConversion, TransferFunctions) {
    const double golden[][3] = {
        // value, expected, tolerance
        {Pixel::applyPqInverseEOTF(1.0), 0.508078, 1e-6},
        {Pixel::applyPqInverseEOTF(100.0), 1.0, 1e-12},
        {Pixel::applyPqInverseEOTF(0.0) + Pixel::applyPqInverseEOTF(-1.0) + Pixel::applyPqInverseEOTF(NAN), 0, 0},
        {Pixel::applyHlgOETF(1.0 / 12), 0.5, 1e-15},
        {Pixel::applyHlgOETF(1.0), 1.0, 1e-6},
        {Pixel::applyHlgOETF(0.0) + Pixel::applyHlgOETF(-0.5), 0, 0},
        {sLog3(0.0, false), 95.0, 0},
        {sLog3(1.0, false), 597.9, 0.05},
        {sLog3(0.0124999, false), 171.21, 0.01},  // the segments meet
        {sLog3(0.0125, false), 171.21, 0.01},
        {sLog3(-0.1, false), 0, 0},
        {sLog3(0.005, true) + sLog3(0.005, false), 2 * 95.0, 1e-12},  // negatives mirror about the base
        {sLog3(0.5, true) + sLog3(0.5, false), 2 * 420.0, 1e-12},
        {Pixel::applySLog3InverseOOTF(1.0), 1.0, 0},
        {Pixel::applySLog3InverseOOTF(3.0), 2.498049532966813, 1e-15},
        {Pixel::applySLog3InverseOOTF(4.0), 3.1758052058674355, 1e-15}};
    for (size_t i = 0; i < std::size(golden); ++i) EXPECT_NEAR(golden[i][0], golden[i][1], golden[i][2]) << i;
    for (double light : {0.0001, 0.01, 0.5, 1.0, 2.03, 10.0, 57.0, 100.0})
        EXPECT_NEAR(pqEotf(Pixel::applyPqInverseEOTF(light)), light, 1e-9 * light + 1e-12) << light;
    for (double scene : {0.001, 0.05, 0.08, 0.09, 0.14678, 0.5, 0.9})
        EXPECT_NEAR(hlgInverseOetf(Pixel::applyHlgOETF(scene)), scene, 1e-7) << scene;
}

// Twelve-bit Y'CbCr steps are coarser than full-range RGB codes (B = Y' + 1.8556 Cb), so a code
// or two may move; nominal studio RGB codes survive full range exactly.
TEST(SdrConversion, RoundTrips) {
    const std::pair<colorAxes_e, int> trips[] = {
        {Colour_YCbCr_709, 2}, {Colour_YCbCr_2020, 2}, {Colour_YCbCr_601, 2}, {Colour_RGB_219, 1}};
    for (const auto& [via, tolerance] : trips) {
        int worst = 0;
        for (int g = 0; g <= 4095; g += 273)
            for (int b = 0; b <= 4095; b += 315)
                for (int r = 0; r <= 4095; r += 455) {
                    const Pixel rgb(g, b, r, Colour_RGB);
                    worst = std::max(worst, maxDifference(rgb.convertTo(via).convertTo(Colour_RGB), rgb));
                }
        EXPECT_LE(worst, tolerance) << axisToString(via);
    }
    for (int c = 256; c <= 3760; c += 7) {
        const Pixel studio(c, 4016 - c, 2048, Colour_RGB_219);
        EXPECT_TRUE(studio.convertTo(Colour_RGB).convertTo(Colour_RGB_219).sameCodes(studio)) << c;
    }
}

TEST(Conversion, EverySupportedPairConverts) {
    const Pixel colour(3071, 500, 2000, Colour_RGB);
    for (int from = 0; from < colourAxesCount; ++from) {
        const Pixel source = colour.convertTo(static_cast<colorAxes_e>(from));
        ASSERT_EQ(source.colourSpace.colourAxes, from);
        for (int to = 0; to < colourAxesCount; ++to) {
            if (!supported(from, to)) continue;
            const Pixel result = source.convertTo(static_cast<colorAxes_e>(to));
            EXPECT_EQ(result.colourSpace.colourAxes, to) << from;
            const int full = (1 << result.colourSpace.bitDepth) - 1;
            EXPECT_LE(std::max({result.sample[0], result.sample[1], result.sample[2]}), full) << from << " " << to;
        }
    }
}

// One death test per distinct report: source file, function and expression.
TEST(ConversionDeathTest, UnsupportedTargetsReportTheAssertion) {
    const Pixel white709(3760, 2048, 2048), white2020(940, 512, 512, Colour_YCbCr_2020, 10);
    const Pixel pq(509, 512, 512, Colour_YCbCr_PQ, 10), rgbPq = white709.convertTo(Colour_RGB_PQ);
    const std::string at = "tools/Pixel\\.cpp:[0-9]+: ", axisArg = "\\(PatternGen::colorAxes_e\\) const";
    const std::pair<std::function<void()>, std::string> failures[] = {
        {[&] { white709.convertTo(Colour_YCbCr_601); }, "Pixel Pixel::convertTo" + axisArg + ": Assertion `0"},
        {[&] { pq.convertTo(Colour_YCbCr_709); }, "convertTo.*Assertion `axis == toSpace"},
        {[&] { white2020.convertTo(Colour_RGB_PQ); },
         "assignRGB219Values.*Assertion `axis == PatternGen::Colour_RGB_219"},
        {[&] { white2020.convertTo(Colour_YCbCr_HLG_Mapped); }, "convertFromYCbCr2020.*Assertion `0"},
        {[&] { Pixel().assignRGBValues(0, 0, 0); }, "assignRGBValues.*Assertion `axis == PatternGen::Colour_RGB"},
        {[&] { Pixel().assignYCbCr2020Values(0, 0, 0); }, "Assertion `colourIsIn2020\\(\\)"},
        {[&] { white709.convertRGB709toYCbCrPQ(1, 1, 1, Colour_YCbCr_HLG); },
         "Assertion `pqColourSpace == PatternGen::Colour_YCbCr_PQ \\|\\| pqColourSpace == "
         "PatternGen::Colour_YCbCr_PQ_Mapped"},
        {[&] { white709.convertRGB709toYCbCrHLG(1, 1, 1, Colour_YCbCr_PQ); },
         "Assertion `hlgColourSpace == PatternGen::Colour_YCbCr_HLG \\|\\| hlgColourSpace == "
         "PatternGen::Colour_YCbCr_HLG_Mapped"},
        {[&] { white709.convertRGB709toYCbCrSLog3(1, 1, 1, Colour_YCbCr_2020); },
         "Assertion `slog3ColourSpace == PatternGen::Colour_YCbCr_SLog3 \\|\\| .* \\|\\| "
         "slog3ColourSpace == PatternGen::Colour_YCbCr_SLog3_Live_Mapped"},
        {[&] { white709.convertRGB709toRGBHDR(1, 1, 1, Colour_YCbCr_PQ); }, "convertRGB709toRGBHDR.*Assertion `0"},
        {[&] { white709.convertTo(Colour_YCbCr_SLog3_Live).convertTo(Colour_RGB_SLog3); },
         "Pixel Pixel::convertYCbCrHDRToRGB" + axisArg + ": Assertion `toSpace == PatternGen::Colour_RGB_SLog3_Live"}};
    for (const auto& [run, report] : failures) EXPECT_DEATH(run(), at + "[^\n]*" + report + "' failed\\.") << report;
    // The invalid-conversion message goes to standard output before the report.
    EXPECT_DEATH(
        (dup2(2, 1), rgbPq.convertTo(Colour_YCbCr_HLG)),
        "convertHDRFromRGB invalid from 13 to 6\n.*" + at + "[^\n]*convertHDRFromRGB[^\n]*Assertion `0' failed\\.");
}

// The first unsupported target of every source stops too (one fork per source keeps this quick).
TEST(ConversionDeathTest, AnUnsupportedTargetOfEverySourceStops) {
    const Pixel colour(3071, 500, 2000, Colour_RGB);
    for (int from = 2; from < colourAxesCount; ++from) {
        int to = 0;
        while (to < colourAxesCount && supported(from, to)) ++to;
        ASSERT_LT(to, colourAxesCount);
        const Pixel source = colour.convertTo(static_cast<colorAxes_e>(from));
        EXPECT_DEATH(source.convertTo(static_cast<colorAxes_e>(to)), "tools/Pixel.*Assertion") << from << " to " << to;
    }
}
