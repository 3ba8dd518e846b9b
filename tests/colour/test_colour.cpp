// Pixel operations, rounding, SDR and HDR conversions, assertion reports, and the self-test's text.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "TestFiles.h"
#include "colour/Pixel.h"
#include "colour/PixelAssert.h"
#include "colour/rounding.h"
#include "selftest/UnitTests.h"

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

double sLog3(double x, bool negative) { return Pixel::applySLog3OETFAndRestoreAbsolutisedInput(x, negative); }

}  // namespace

// Arithmetic and scaling move luma and RGB about black and chroma about its zero; so do the level
// operations; blending mixes normalised values; depth changes truncate or round.
TEST(Pixel, GoldenCodes) {
    const Pixel black, yellow(3507, 256, 2212);
    Pixel base(1000, 1500, 2600);
    base.sample[Pixel::ALPHA] = 7;
    const Pixel offset(256 + 100, 2048 - 30, 2048 + 40);
    const Pixel studio(500, 600, 700, Colour_RGB_219, 10), ycc(500, 600, 700, Colour_YCbCr_SLog3, 10);
    const Pixel rgbHdr(500, 600, 700, Colour_RGB_HLG, 10);
    const Pixel a(3000, 1000, 3000), b(1000, 3000, 1000);
    const Pixel truncated = Pixel(2694, 705, 2171).truncateTo(8);
    const Pixel deeper = Pixel(877, 64, 553, Colour_YCbCr_709, 10).roundTo(12);
    expectAll({{"Pixel()", black, {256, 2048, 2048}},
               {"+ is relative to each reference", base + offset, {1100, 1470, 2640}},
               {"75% yellow truncates toward zero", yellow.scale(75, 100), {2694, 705, 2171}},
               {"one above stays, one below drops", Pixel(257, 2049, 2047).scale(75, 100), {257, 2049, 2048}},
               {"RGB scales about black", Pixel(4095, 100, 0, Colour_RGB).scale(1, 2), {2048, 50, 0}},
               {"scaleLumChrom", Pixel(3760, 2048, 1000).scaleLumChrom(0.5, 0.0), {2008, 2048, 2048}},
               {"scaleWithClip", Pixel(3760, 256, 3840).scaleWithClip(12, 10), {4079, 16, 4079}},
               {"601 gamma", Pixel(3760, 2148, 1948, Colour_YCbCr_601).scaleWithGamma(1, 2), {2008, 2098, 1999}},
               {"RGB_219 subBlack", studio.subBlack(), {4, 4, 4}},
               {"YCbCr superWhite", ycc.superWhite(), {1019, 512, 512}},
               {"legalise 10 bits", Pixel(0, 1023, 512, Colour_RGB, 10).legalise(), {4, 1019, 512}},
               {"luma and chroma mix apart", a.blend(1.0, 0.0, b), {3000, 3000, 1000}},
               {"RGB: truncated mean",
                Pixel(101, 0, 4095, Colour_RGB).blend(0.5, 0.0, Pixel(0, 4095, 4095, Colour_RGB)),
                {50, 2047, 4095}},
               {"truncateTo(8)", truncated, {168, 44, 135}},
               {"chroma below zero truncates", yellow.roundTo(10), {877, 64, 553}},
               {"chroma at or above zero rounds", Pixel(255, 2047, 2050).roundTo(10), {64, 511, 513}},
               {"deeper shifts", deeper, {3508, 256, 2212}}});
    // Alpha: full scale by default, kept by arithmetic, by axis group for noAlpha, shifted with depth
    // changes (whose levels are not rescaled).
    EXPECT_EQ(
        Ints({black.sample[Pixel::ALPHA], (base + offset).sample[Pixel::ALPHA], studio.noAlpha().sample[Pixel::ALPHA],
              rgbHdr.noAlpha().sample[Pixel::ALPHA], truncated.sample[Pixel::ALPHA], deeper.sample[Pixel::ALPHA]}),
        Ints({4095, 7, 64, 4, 255, 4092}));
}

// Alpha is coded like luma: it rounds half up whatever side of the chroma zero it lies on.
TEST(Pixel, RoundToRoundsAlphaLikeLuma) {
    const std::pair<int, int> alphas[] = {{8, 1}, {2040, 128}, {7, 0}, {4095, 256}};  // 12-bit in, 8-bit out
    for (const auto& [in, out] : alphas) {
        Pixel p(3760, 2048, 2048);
        p.sample[Pixel::ALPHA] = static_cast<uint16_t>(in);
        EXPECT_EQ(p.roundTo(8).sample[Pixel::ALPHA], out) << in;
    }
}

// Chroma below its zero truncates, luma is held below its ceiling, nothing to drop keeps the value.
TEST(Rounding, GoldenValuesAndRules) {
    const unsigned golden[][2] = {
        {Rounding::roundChromaTo(16, 6, 0x7FE0), 0x7FC0}, {Rounding::roundChromaTo(16, 6, 0x8020), 0x8040},
        {Rounding::roundLumaTo(16, 8, 0xFFFF), 0xFE00},   {Rounding::roundTo(8, 0xFFFF), 0xFF00},
        {Rounding::roundLumaTo(16, 6, 0xFFFF), 0xFEC0},   {Rounding::roundLumaTo(16, 0, 0xFFFF), 0xFEFF},
        {Rounding::roundTo(0, 0x1235), 0x1235},           {Rounding::roundChromaTo(16, 0, 0xFFFF), 0xFFFF}};
    for (const auto& g : golden) EXPECT_EQ(g[0], g[1]) << std::hex << g[1];
}

TEST(SdrConversion, GoldenCodes) {
    const Pixel white(4095, 4095, 4095, Colour_RGB), yellow(4095, 0, 4095, Colour_RGB);
    const Pixel red219 = Pixel(1001, 1637, 3840).convertTo(Colour_RGB_219);
    const Pixel white2020(940, 512, 512, Colour_YCbCr_2020, 10);
    Pixel full(0, 0, 0, Colour_RGB), studio(0, 0, 0, Colour_RGB_219), ycc(0, 0, 0, Colour_YCbCr_709, 10);
    full.assignRGBValues(1.5, -0.2, 0.5);
    studio.assignRGB219Values(1.5, -0.5, 1.01);
    ycc.assignYCbCr709Values(2.0, 2.0, 2.0);
    expectAll({{"white", white.convertTo(Colour_YCbCr_709), {3760, 2048, 2048}},
               {"yellow 709", yellow.convertTo(Colour_YCbCr_709), {3507, 256, 2212}},
               {"yellow 2020", yellow.convertTo(Colour_YCbCr_2020), {3552, 256, 2192}},
               {"red keeps B below black", red219, {256, 255, 3760}},
               {"red back", red219.convertTo(Colour_YCbCr_709), {1001, 1637, 3840}},
               {"2020 decodes to 12 bits", white2020.convertTo(Colour_YCbCr_709), {3760, 2048, 2048}},
               {"RGB assigner clamps", full, {0, 2048, 4095}},
               {"RGB_219 assigner keeps excursions", studio, {16, 3795, 4079}},
               {"YCbCr assigner stays legal", ycc, {1019, 512, 512}}});
    // Nominal studio RGB codes survive a round trip through full range exactly.
    for (int c = 256; c <= 3760; c += 7) {
        const Pixel s(c, 4016 - c, 2048, Colour_RGB_219);
        EXPECT_TRUE(s.convertTo(Colour_RGB).convertTo(Colour_RGB_219).sameCodes(s)) << c;
    }
}

TEST(HdrConversion, GoldenCodesAndTransferFunctions) {
    const Pixel white709(3760, 2048, 2048), blackRgb(0, 0, 0, Colour_RGB), whiteRgb(4095, 4095, 4095, Colour_RGB);
    const Pixel pq = white709.convertTo(Colour_YCbCr_PQ), rgbPq = pq.convertTo(Colour_RGB_PQ);
    std::vector<Case> cases = {{"RGB PQ is the 10-bit signal at 12 bits", rgbPq, grey(4 * 509)},
                               {"RGB S-Log3 white", whiteRgb.convertTo(Colour_RGB_SLog3), grey(2392)},
                               {"RGB PQ back to its Y'CbCr", rgbPq.convertTo(Colour_YCbCr_PQ), {2036, 2048, 2048}},
                               {"Y'CbCr PQ decodes the matrix only", pq.convertTo(Colour_RGB), grey(520)}};
    for (int axis = Colour_YCbCr_PQ; axis <= Colour_YCbCr_SLog3_Live_Mapped; ++axis) {
        if (axis == Colour_YCbCr_2020) continue;
        const auto to = static_cast<colorAxes_e>(axis);
        const bool sLog = axis >= Colour_YCbCr_SLog3;
        cases.push_back({axisToString(to) + std::string(" white"),
                         white709.convertTo(to),
                         {axis <= Colour_YCbCr_PQ_Mapped ? 509
                          : sLog                         ? 598
                                                         : 616,
                          512, 512}});
        cases.push_back({axisToString(to) + std::string(" black"), blackRgb.convertTo(to), {sLog ? 95 : 64, 512, 512}});
    }
    cases.push_back({"mapped bar as the 10-bit PQ reference",
                     Pixel(509, 3840, 1884).convertTo(Colour_YCbCr_PQ_Mapped),
                     {238, 654, 536}});
    expectAll(cases);
    // HDR Y'CbCr is 10 bits deep; RGB HDR is 12-bit studio.
    EXPECT_EQ(Ints({pq.colourSpace.bitDepth, rgbPq.colourSpace.bitDepth, rgbPq.colourSpace.blackLevel}),
              Ints({10, 12, 256}));
    const double golden[][3] = {
        // value, expected, tolerance
        {Pixel::applyPqInverseEOTF(1.0), 0.508078, 1e-6},
        {Pixel::applyPqInverseEOTF(0.0) + Pixel::applyPqInverseEOTF(-1.0) + Pixel::applyPqInverseEOTF(NAN), 0, 0},
        {Pixel::applyHlgOETF(1.0 / 12), 0.5, 1e-15},
        {sLog3(1.0, false), 597.9, 0.05},
        {sLog3(0.0125, false), 171.21, 0.01},                      // where the segments meet
        {sLog3(0.5, true) + sLog3(0.5, false), 2 * 420.0, 1e-12},  // negatives mirror about the base
        {Pixel::applySLog3InverseOOTF(4.0), 3.1758052058674355, 1e-15}};
    for (size_t i = 0; i < std::size(golden); ++i) EXPECT_NEAR(golden[i][0], golden[i][1], golden[i][2]) << i;
}

// The inverses undo the library's encodings over their range, and 2020 -> 709 undoes the BT.2087 mapping.
TEST(HdrConversion, InversesRoundTrip) {
    for (double x : {0.0, 0.001, 0.0125, 0.18, 0.5, 1.0, 2.0, 10.0, 100.0}) {
        EXPECT_NEAR(Pixel::applyPqEOTF(Pixel::applyPqInverseEOTF(x)), x, 1e-9 * (1 + x)) << x;
        const double scene = x / 100;
        EXPECT_NEAR(Pixel::applyHlgInverseOETF(Pixel::applyHlgOETF(scene)), scene, 1e-12) << x;
        EXPECT_NEAR(Pixel::applySLog3InverseOETF(sLog3(x, false)), x, 1e-12 * (1 + x)) << x;
        EXPECT_NEAR(Pixel::applySLog3OOTF(Pixel::applySLog3InverseOOTF(x)), x, 1e-12 * (1 + x)) << x;
    }
    EXPECT_NEAR(Pixel::applySLog3InverseOETF(95.0), 0.0, 1e-15);
    EXPECT_NEAR(Pixel::applyPqEOTF(1.0), 100.0, 1e-9);  // 10000 cd/m2
    // HLG: display light -> scene -> display, coloured and grey; 100 cd/m2 white is 0.14678 of scene light.
    using Rgb = std::array<double, 3>;
    const auto expectNear = [](const Rgb& got, const Rgb& want, double tolerance) {
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(got[i], want[i], tolerance) << i;
    };
    for (const Rgb light : {Rgb{1, 1, 1}, Rgb{0.2, 0.05, 0.9}}) {
        Rgb v = light;
        Pixel::applyHlgInverseOOTF(v[0], v[1], v[2]);
        if (light[0] == 1) {
            EXPECT_NEAR(v[0], 0.14678, 1e-5);
        }
        Pixel::applyHlgOOTF(v[0], v[1], v[2]);
        expectNear(v, light, 1e-6);
    }
    // BT.709 in linear light through BT.2087 and back; the inverse is BT.2407's four-digit matrix.
    const Pixel linear(0, 0, 0, Colour_YCbCr_601);  // gamma law 0: values pass as they are
    Rgb v{0.3, 0.6, 0.1}, red{1, 0, 0};
    linear.applyMatrixRGB709ValuesIn2020(v[0], v[1], v[2]);
    Pixel::applyMatrixRGB2020ValuesIn709(v[0], v[1], v[2]);
    expectNear(v, {0.3, 0.6, 0.1}, 1e-12);
    Pixel::applyMatrixRGB2020ValuesIn709(red[0], red[1], red[2]);
    expectNear(red, {1.6605, -0.1246, -0.0182}, 5e-4);
}

// Unsupported targets throw the assertion's report (file, function, expression) and note; nothing printed.
TEST(ConversionFailure, UnsupportedTargetsThrowTheAssertionsReport) {
    const Pixel white709(3760, 2048, 2048), white2020(940, 512, 512, Colour_YCbCr_2020, 10);
    const Pixel pq(509, 512, 512, Colour_YCbCr_PQ, 10), rgbPq = white709.convertTo(Colour_RGB_PQ);
    const std::string axisArg = "(PatternGen::colorAxes_e) const: ";
    struct Failing {
        std::function<void()> run;
        std::string function, expression, note;
    };
    const Failing failures[] = {
        {[&] { white709.convertTo(Colour_YCbCr_601); }, "Pixel Pixel::convertTo" + axisArg, "0", ""},
        {[&] { pq.convertTo(Colour_YCbCr_709); }, "Pixel Pixel::convertTo" + axisArg, "axis == toSpace", ""},
        {[&] { white2020.convertTo(Colour_YCbCr_HLG_Mapped); }, "Pixel Pixel::convertFromYCbCr2020" + axisArg, "0", ""},
        {[&] { white709.convertTo(Colour_YCbCr_SLog3_Live).convertTo(Colour_RGB_SLog3); },
         "Pixel Pixel::convertYCbCrHDRToRGB" + axisArg, "toSpace == PatternGen::Colour_RGB_SLog3_Live", ""},
        {[&] { rgbPq.convertTo(Colour_YCbCr_HLG); }, "Pixel Pixel::convertHDRFromRGB" + axisArg, "0",
         "convertHDRFromRGB invalid from 13 to 6\n"}};
    for (const Failing& failing : failures) {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        try {
            failing.run();
            ADD_FAILURE() << "no failure: " << failing.expression;
        } catch (const PixelAssert::Failure& failure) {
            // "tools/Pixel.cpp:LINE: FUNCTION: Assertion `EXPRESSION' failed."
            const std::string report = failure.what(), at = "tools/Pixel.cpp:";
            const size_t function = report.find(": ", at.size()) + 2;
            EXPECT_EQ(0u, report.rfind(at, 0)) << report;
            EXPECT_GT(std::stoi(report.substr(at.size())), 0) << report;
            EXPECT_EQ(failing.function + "Assertion `" + failing.expression + "' failed.", report.substr(function));
            EXPECT_EQ(failing.note, failure.note());
        }
        EXPECT_EQ("", testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr());
    }
}

// The self-test's text reaches the sink alone as whole progress lines, holding the checks that differ from
// their references; a sink that takes no lines gives the same result.
TEST(SelfTest, TextReachesTheSinkAlone) {
    std::string text;
    bool wholeProgressLines = true;
    const MessageSink sink = [&](MessageKind kind, const std::string& lines) {
        wholeProgressLines =
            wholeProgressLines && kind == MessageKind::Progress && !lines.empty() && lines.back() == '\n';
        text += lines;
    };
    int status = 0;
    const std::string printed = TestFiles::stdoutOf([&] {
        status = UnitTests::runUnitTests(1280, 720, 4, 3, PatternGen::Colour_RGB, sink);
        EXPECT_EQ(1, UnitTests::runUnitTests(1280, 720, 4, 3, PatternGen::Colour_RGB, MessageSink()));
    });
    EXPECT_EQ(1, status);
    EXPECT_EQ("", printed);
    EXPECT_TRUE(wholeProgressLines);
    EXPECT_EQ(0u, text.rfind("Width x Height: 1280x720\nAspect: 4:3\nPixel aspect: 1:1.333\n"
                             "\nCheck 75% scaling\n  Yellow75  Cb  705   +1\t\n",
                             0))
        << text;
    for (const char* expected :
         {"\nCheck 8 bit truncation\n", "\nCheck RGB - YCbCr Maths\n", "\nCheck 95% white rgb 219 - full RGB\n",
          "\nCheck 709 YCbCr - PQ 2020\n  White PQ   Y  509 -1527\tCb  512 -1536\tCr  512 -1536\t\n"})
        EXPECT_NE(std::string::npos, text.find(expected)) << expected;
    EXPECT_EQ("\n\n", text.substr(text.size() - 2));
    // Headings are formats, so "%%" prints one percent sign; labels are printed as they are.
    EXPECT_NE(std::string::npos, text.find("\nCheck 75% 10 bit rounding\n  Green_709_10   Cr  206   -1\t\n"
                                           "  Blue_709_10    Y  112   +1\t\n  Grey 40%% 709_10    Y  415   +1\t\n\n"))
        << text;
}
