// Colour axes and levels, the Pixel value type (arithmetic, levels, blending, depth changes,
// printing) and the Rounding functions.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "Pixel.h"
#include "rounding.h"

using namespace PatternGen;

namespace {

using Codes = std::array<int, 3>;

// Y', Cb, Cr (or G, B, R): the constructor's argument order.
Codes codes(const Pixel& p) { return {p.sample[Pixel::Y_G], p.sample[Pixel::CB_B], p.sample[Pixel::CR_R]}; }

struct Case {
    const char* what;
    Pixel got;
    Codes want;
};

void expectAll(std::initializer_list<Case> cases) {
    for (const Case& c : cases) EXPECT_EQ(codes(c.got), c.want) << c.what;
}

// Axes sharing 10-bit levels, gamma law and predicates (D colour difference, R R'G'B', 2 in 2020,
// H HDR), in axis order.
struct AxisGroup {
    colorAxes_e first, last;
    int black10, white10, gamma;
    std::string kinds;
};

const AxisGroup axisGroups[] = {{Colour_RGB, Colour_RGB, 0, 1023, 1, "R"},
                                {Colour_RGB_219, Colour_RGB_219, 64, 940, 1, "R"},
                                {Colour_YCbCr_601, Colour_YCbCr_601, 64, 940, 0, "D"},
                                {Colour_YCbCr_709, Colour_YCbCr_709, 64, 940, 1, "D"},
                                {Colour_YCbCr_PQ, Colour_YCbCr_HLG_Mapped, 64, 940, 1, "D2H"},
                                {Colour_YCbCr_2020, Colour_YCbCr_2020, 64, 940, 2, "D2"},
                                {Colour_YCbCr_SLog3, Colour_YCbCr_SLog3_Live_Mapped, 95, 1019, 2, "D2H"},
                                {Colour_RGB_PQ, Colour_RGB_SLog3_Live_Mapped, 64, 940, 1, "R2H"}};

std::vector<std::string> axisNames() {
    std::istringstream in(
        "Colour_RGB Colour_RGB_219 Colour_YCbCr_601 Colour_YCbCr_709 Colour_YCbCr_PQ Colour_YCbCr_PQ_Mapped "
        "Colour_YCbCr_HLG Colour_YCbCr_HLG_Mapped Colour_YCbCr_2020 Colour_YCbCr_SLog3 Colour_YCbCr_SLog3_Mapped "
        "Colour_YCbCr_SLog3_Live Colour_YCbCr_SLog3_Live_Mapped Colour_RGB_PQ Colour_RGB_HLG Colour_RGB_SLog3 "
        "Colour_RGB_SLog3_Live Colour_RGB_PQ_Mapped Colour_RGB_HLG_Mapped Colour_RGB_SLog3_Mapped "
        "Colour_RGB_SLog3_Live_Mapped");
    return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

}  // namespace

TEST(ColourSpace, LevelsNamesAndPredicatesOfEveryAxis) {
    const std::vector<std::string> names = axisNames();
    int axis = 0;
    for (const AxisGroup& g : axisGroups) {
        ASSERT_EQ(g.first, axis);  // the groups cover every axis once, in order
        for (; axis <= g.last; ++axis) {
            const ColourSpace cs(static_cast<colorAxes_e>(axis), 10);
            const std::string kinds = std::string(cs.isColourDifference() ? "D" : "") + (cs.colourIsRGB() ? "R" : "") +
                                      (cs.colourIsIn2020() ? "2" : "") + (cs.colourIsHDR() ? "H" : "");
            EXPECT_EQ(axisToString(cs.axes()), names[axis]);
            EXPECT_EQ(Codes({cs.blackLevel, cs.whiteLevel, cs.gammaType}), Codes({g.black10, g.white10, g.gamma}))
                << names[axis];
            EXPECT_EQ(kinds, g.kinds) << names[axis];
        }
    }
    EXPECT_EQ(axis, colourAxesCount);
    EXPECT_STREQ(axisToString(static_cast<colorAxes_e>(21)), "undefined");
    // Levels follow the depth, except S-Log3's black.
    const ColourSpace y709(Colour_YCbCr_709, 12), rgb16(Colour_RGB, 16), slog(Colour_YCbCr_SLog3_Live, 12);
    EXPECT_EQ((std::array<int, 6>{y709.blackLevel, y709.whiteLevel, rgb16.blackLevel, rgb16.whiteLevel, slog.blackLevel,
                                  slog.whiteLevel}),
              (std::array<int, 6>{256, 3760, 0, 65535, 95, 4079}));
}

TEST(ColourSpace, NormaliseAndLimit) {
    const ColourSpace ycc(Colour_YCbCr_709, 10), rgb(Colour_RGB, 10), rgb8(Colour_RGB, 8);
    // Out-of-range codes are not clamped; S-Log3 normalises from studio black, not from its 95.
    const double normalised[][2] = {{ycc.normaliseLuma(940), 1.0},
                                    {ycc.normaliseLuma(64), 0.0},
                                    {ycc.normaliseChroma(512), 0.0},
                                    {ycc.normaliseChroma(960), 0.5},
                                    {ycc.normaliseLuma(20), -44.0 / 876},
                                    {rgb.normaliseChroma(1023), 1.0},
                                    {ColourSpace(Colour_YCbCr_SLog3, 10).normaliseLuma(64), 0.0}};
    for (const auto& n : normalised) EXPECT_DOUBLE_EQ(n[0], n[1]);

    // Luma is legal or full range; chroma is legal even for full-range RGB.
    const struct {
        const ColourSpace& cs;
        bool luma;
        int in, out;
    } limits[] = {{ycc, true, 1023, 1019}, {ycc, true, 0, 4},        {ycc, true, 500, 500}, {rgb, true, 1023, 1023},
                  {rgb, true, -3, 0},      {rgb, false, 1023, 1019}, {rgb8, false, 0, 1}};
    for (const auto& l : limits) {
        int code = l.in;
        EXPECT_EQ(l.luma ? l.cs.limitLuma(code) : l.cs.limitChroma(code), l.in != l.out) << l.in;
        EXPECT_EQ(code, l.out) << l.in;
    }
}

TEST(ColourSpace, GammaLaws) {
    const ColourSpace type0(Colour_YCbCr_601, 10), type1(Colour_YCbCr_709, 10), type2(Colour_YCbCr_2020, 10);
    // 0.0181 itself is on the linear segment; codes are normalised first, except by type 0's linearToGamma.
    const double laws[][2] = {{type2.linearFloatToGamma(0.01), 0.045},
                              {type2.linearFloatToGamma(0.0181), 4.5 * 0.0181},
                              {type1.linearFloatToGamma(0.01), std::pow(0.01, 0.45)},
                              {type1.gammaToLinear(502), std::pow(0.5, 2.4)},
                              {type0.linearToGamma(700), 700.0},
                              {type2.gammaFloatLinearToNonLinear(std::pow(0.3, 2.2)), 0.3}};
    for (const auto& law : laws) EXPECT_DOUBLE_EQ(law[0], law[1]);
    for (const ColourSpace* cs : {&type0, &type1, &type2}) {
        EXPECT_EQ(cs->gammaFloatToLinear(-0.25), -0.25);
        EXPECT_EQ(cs->gammaFloatLinearToNonLinear(-0.25), -0.25);
    }
}

// Arithmetic and scaling move luma and RGB about black and chroma about its zero; so do the level
// operations, by axis group; blending mixes normalised values; depth changes truncate or round.
TEST(Pixel, GoldenCodes) {
    const Pixel black, rgb219(10, 20, 30, Colour_RGB_219, 10), yellow(3507, 256, 2212);
    Pixel base(1000, 1500, 2600), acc = base;
    base.sample[Pixel::ALPHA] = 7;
    const Pixel offset(256 + 100, 2048 - 30, 2048 + 40);
    acc += offset;
    const Pixel rgb(500, 600, 700, Colour_RGB, 10), studio(500, 600, 700, Colour_RGB_219, 10);
    const Pixel ycc(500, 600, 700, Colour_YCbCr_SLog3, 10), rgbHdr(500, 600, 700, Colour_RGB_HLG, 10);
    const Pixel a(3000, 1000, 3000), b(1000, 3000, 1000);
    const Pixel truncated = Pixel(2694, 705, 2171).truncateTo(8);
    const Pixel deeper = Pixel(877, 64, 553, Colour_YCbCr_709, 10).roundTo(12);
    expectAll({{"Pixel()", black, {256, 2048, 2048}},
               {"RGB arguments are G, B, R", rgb219, {10, 20, 30}},
               {"+ is relative to each reference", base + offset, {1100, 1470, 2640}},
               {"+=", acc, {1100, 1470, 2640}},
               {"75% white", Pixel(3760, 2048, 2048).scale(75, 100), {2884, 2048, 2048}},
               {"75% yellow truncates toward zero", yellow.scale(75, 100), {2694, 705, 2171}},
               {"one above stays, one below drops", Pixel(257, 2049, 2047).scale(75, 100), {257, 2049, 2048}},
               {"RGB scales about black", Pixel(4095, 100, 0, Colour_RGB).scale(1, 2), {2048, 50, 0}},
               {"scale(double)", Pixel(3760, 2048, 1000).scale(0.5), {2008, 2048, 1524}},
               {"scaleLumChrom", Pixel(3760, 2048, 1000).scaleLumChrom(0.5, 0.0), {2008, 2048, 2048}},
               {"RGB scaleLumChrom", Pixel(4095, 4095, 0, Colour_RGB).scaleLumChrom(0.5, 0.0), {2047, 2047, 0}},
               {"scaleWithClip", Pixel(3760, 256, 3840).scaleWithClip(12, 10), {4079, 16, 4079}},
               {"RGB scaleWithClip", Pixel(4000, 4095, 0, Colour_RGB).scaleWithClip(2, 1), {4095, 4095, 0}},
               {"601 gamma", Pixel(3760, 2148, 1948, Colour_YCbCr_601).scaleWithGamma(1, 2), {2008, 2098, 1999}},
               {"RGB gamma", Pixel(4095, 0, 4095, Colour_RGB).scaleWithGamma(1, 1), {4095, 0, 4095}},
               {"RGB subBlack", rgb.subBlack(), {500, 600, 700}},
               {"RGB_219 subBlack", studio.subBlack(), {4, 4, 4}},
               {"YCbCr subBlack", ycc.subBlack(), {4, 512, 512}},
               {"RGB HDR subBlack", rgbHdr.subBlack(), {500, 600, 700}},
               {"RGB superWhite", rgb.superWhite(), {500, 600, 700}},
               {"RGB_219 superWhite", studio.superWhite(), {1019, 1019, 1019}},
               {"YCbCr superWhite", ycc.superWhite(), {1019, 512, 512}},
               {"RGB HDR superWhite", rgbHdr.superWhite(), {1019, 1019, 1019}},
               {"legalise 10 bits", Pixel(0, 1023, 512, Colour_RGB, 10).legalise(), {4, 1019, 512}},
               {"legalise 8 bits", Pixel(0, 255, 3, Colour_YCbCr_709, 8).legalise(), {1, 254, 3}},
               {"blend 1", a.blend(1.0, 1.0, b), {3000, 1000, 3000}},
               {"blend 0", a.blend(0.0, 0.0, b), {1000, 3000, 1000}},
               {"luma and chroma mix apart", a.blend(1.0, 0.0, b), {3000, 3000, 1000}},
               {"blend 0.5", a.blend(0.5, 0.5, b), {2000, 2000, 2000}},
               {"RGB: truncated mean",
                Pixel(101, 0, 4095, Colour_RGB).blend(0.5, 0.0, Pixel(0, 4095, 4095, Colour_RGB)),
                {50, 2047, 4095}},
               {"truncateTo(8)", truncated, {168, 44, 135}},
               {"roundTo(8)", Pixel(2884, 704, 2048).roundTo(8), {180, 44, 128}},
               {"chroma below zero truncates", yellow.roundTo(10), {877, 64, 553}},
               {"chroma at or above zero rounds", Pixel(255, 2047, 2050).roundTo(10), {64, 511, 513}},
               {"RGB rounds like luma", Pixel(2, 2, 1, Colour_RGB).roundTo(10), {1, 1, 0}},
               {"same depth", yellow.roundTo(12), {3507, 256, 2212}},
               {"deeper shifts", deeper, {3508, 256, 2212}}});
    // Alpha: full scale by default, kept by arithmetic, by axis group for noAlpha, shifted with
    // depth changes (whose levels are not rescaled).
    EXPECT_EQ(
        (std::vector<int>{black.sample[Pixel::ALPHA], rgb219.sample[Pixel::ALPHA], (base + offset).sample[Pixel::ALPHA],
                          rgb.noAlpha().sample[Pixel::ALPHA], studio.noAlpha().sample[Pixel::ALPHA],
                          ycc.noAlpha().sample[Pixel::ALPHA], rgbHdr.noAlpha().sample[Pixel::ALPHA],
                          truncated.sample[Pixel::ALPHA], deeper.sample[Pixel::ALPHA]}),
        (std::vector<int>{4095, 1023, 7, 4, 64, 64, 4, 255, 4092}));
    EXPECT_EQ((std::vector<int>{black.colourSpace.colourAxes, black.colourSpace.bitDepth, rgb219.colourSpace.blackLevel,
                                truncated.colourSpace.bitDepth, truncated.colourSpace.blackLevel}),
              (std::vector<int>{Colour_YCbCr_709, 12, 64, 8, 256}));
}

TEST(Pixel, Print) {
    testing::internal::CaptureStdout();
    Pixel(3507, 256, 2212).print("yl ");
    Pixel(877, 64, 553, Colour_YCbCr_709, 10).print("");
    Pixel(1, 2, 3, Colour_RGB).print("%s ");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "yl Y: 3507 Cb: -1792( 256) Cr:  164(2212)\n"
              "Y:  877 Cb: -448(  64) Cr:   41( 553)\n"
              "%s R:    3 G:    1 B:    2\n");
}

// Golden values (nothing to drop keeps the value), then every result against the plain rule: on
// the output grid within half a step, chroma below its zero truncated, luma held below its ceiling.
TEST(Rounding, GoldenValuesAndRules) {
    const unsigned golden[][2] = {
        {Rounding::roundChromaTo(16, 6, 0x7FE0), 0x7FC0}, {Rounding::roundChromaTo(16, 6, 0x8020), 0x8040},
        {Rounding::roundLumaTo(16, 8, 0xFFFF), 0xFE00},   {Rounding::roundTo(8, 0xFFFF), 0xFF00},
        {Rounding::roundLumaTo(16, 6, 0xFFFF), 0xFEC0},   {Rounding::roundLumaTo(16, 4, 0xFFFF), 0xFEF0},
        {Rounding::roundLumaTo(16, 0, 0xFFFF), 0xFEFF},   {Rounding::roundTo(0, 0x1235), 0x1235},
        {Rounding::roundChromaTo(16, 0, 0xFFFF), 0xFFFF}};
    for (const auto& g : golden) EXPECT_EQ(g[0], g[1]) << std::hex << g[1];
    for (int s : {4, 6, 8}) {
        const unsigned step = 1u << s, grid = ~(step - 1), lumaCeiling = 0xFEFFu & grid;
        for (unsigned v = 0; v <= 0xFFFF; v += 7) {
            const unsigned r = Rounding::roundTo(s, v);
            EXPECT_EQ(r % step, 0u);
            if (v + step / 2 <= 0xFFFF) {
                EXPECT_LE(r > v ? r - v : v - r, step / 2) << s << " " << v;
            }
            EXPECT_EQ(Rounding::roundChromaTo(16, s, v), v < 0x8000 ? v & grid : r) << s << " " << v;
            EXPECT_EQ(Rounding::roundLumaTo(16, s, v), std::min(r, lumaCeiling)) << s << " " << v;
        }
    }
}
