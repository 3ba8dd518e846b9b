// Colour axes: names, levels per axis, normalisation, clipping, axis predicates and gamma laws.
#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <string>

#include "ColourSpace.h"

using namespace PatternGen;

namespace {

// One row per axis: 10-bit black, white, gammaType and the four predicates.
struct AxisRow {
    colorAxes_e axes;
    const char* name;
    int black10, white10, gamma;
    bool colourDifference, rgb, in2020, hdr;
};

const AxisRow axisTable[] = {
    {Colour_RGB, "Colour_RGB", 0, 1023, 1, false, true, false, false},
    {Colour_RGB_219, "Colour_RGB_219", 64, 940, 1, false, true, false, false},
    {Colour_YCbCr_601, "Colour_YCbCr_601", 64, 940, 0, true, false, false, false},
    {Colour_YCbCr_709, "Colour_YCbCr_709", 64, 940, 1, true, false, false, false},
    {Colour_YCbCr_PQ, "Colour_YCbCr_PQ", 64, 940, 1, true, false, true, true},
    {Colour_YCbCr_PQ_Mapped, "Colour_YCbCr_PQ_Mapped", 64, 940, 1, true, false, true, true},
    {Colour_YCbCr_HLG, "Colour_YCbCr_HLG", 64, 940, 1, true, false, true, true},
    {Colour_YCbCr_HLG_Mapped, "Colour_YCbCr_HLG_Mapped", 64, 940, 1, true, false, true, true},
    {Colour_YCbCr_2020, "Colour_YCbCr_2020", 64, 940, 2, true, false, true, false},
    {Colour_YCbCr_SLog3, "Colour_YCbCr_SLog3", 95, 1019, 2, true, false, true, true},
    {Colour_YCbCr_SLog3_Mapped, "Colour_YCbCr_SLog3_Mapped", 95, 1019, 2, true, false, true, true},
    {Colour_YCbCr_SLog3_Live, "Colour_YCbCr_SLog3_Live", 95, 1019, 2, true, false, true, true},
    {Colour_YCbCr_SLog3_Live_Mapped, "Colour_YCbCr_SLog3_Live_Mapped", 95, 1019, 2, true, false, true, true},
    {Colour_RGB_PQ, "Colour_RGB_PQ", 64, 940, 1, false, true, true, true},
    {Colour_RGB_HLG, "Colour_RGB_HLG", 64, 940, 1, false, true, true, true},
    {Colour_RGB_SLog3, "Colour_RGB_SLog3", 64, 940, 1, false, true, true, true},
    {Colour_RGB_SLog3_Live, "Colour_RGB_SLog3_Live", 64, 940, 1, false, true, true, true},
    {Colour_RGB_PQ_Mapped, "Colour_RGB_PQ_Mapped", 64, 940, 1, false, true, true, true},
    {Colour_RGB_HLG_Mapped, "Colour_RGB_HLG_Mapped", 64, 940, 1, false, true, true, true},
    {Colour_RGB_SLog3_Mapped, "Colour_RGB_SLog3_Mapped", 64, 940, 1, false, true, true, true},
    {Colour_RGB_SLog3_Live_Mapped, "Colour_RGB_SLog3_Live_Mapped", 64, 940, 1, false, true, true, true},
};

}  // namespace

TEST(ColourSpace, EveryAxisHasAGoldenRow) {
    std::set<int> covered;
    for (const AxisRow& row : axisTable) covered.insert(row.axes);
    EXPECT_EQ(static_cast<int>(covered.size()), colourAxesCount);
    EXPECT_EQ(*covered.begin(), 0);
    EXPECT_EQ(*covered.rbegin(), colourAxesCount - 1);
}

TEST(ColourSpace, LevelsNamesAndPredicatesPerAxis) {
    for (const AxisRow& row : axisTable) {
        SCOPED_TRACE(row.name);
        const ColourSpace cs(row.axes, 10);
        EXPECT_EQ(cs.blackLevel, row.black10);
        EXPECT_EQ(cs.whiteLevel, row.white10);
        EXPECT_EQ(cs.gammaType, row.gamma);
        EXPECT_EQ(cs.bitDepth, 10);
        EXPECT_EQ(cs.axes(), row.axes);
        EXPECT_EQ(cs.isColourDifference(), row.colourDifference);
        EXPECT_EQ(cs.colourIsRGB(), row.rgb);
        EXPECT_EQ(cs.colourIsIn2020(), row.in2020);
        EXPECT_EQ(cs.colourIsHDR(), row.hdr);
        EXPECT_STREQ(axisToString(row.axes), row.name);
    }
    EXPECT_STREQ(axisToString(static_cast<colorAxes_e>(21)), "undefined");
}

TEST(ColourSpace, LevelsScaleWithDepthExceptSLog3Black) {
    EXPECT_EQ(ColourSpace(Colour_YCbCr_709, 12).whiteLevel, 3760);
    EXPECT_EQ(ColourSpace(Colour_RGB, 16).whiteLevel, 65535);
    const ColourSpace slog12(Colour_YCbCr_SLog3_Live, 12);
    EXPECT_EQ(slog12.blackLevel, 95);
    EXPECT_EQ(slog12.whiteLevel, 4079);
}

TEST(ColourSpace, NormalisationUsesStudioLevelsOrFullRange) {
    const ColourSpace ycc(Colour_YCbCr_709, 10);
    EXPECT_EQ(ycc.normaliseLuma(940), 1.0);
    EXPECT_EQ(ycc.normaliseLuma(64), 0.0);
    EXPECT_EQ(ycc.normaliseChroma(512), 0.0);
    EXPECT_EQ(ycc.normaliseChroma(960), 0.5);
    EXPECT_EQ(ycc.normaliseChroma(64), -0.5);
    EXPECT_LT(ycc.normaliseLuma(4), 0.0);
    // S-Log3 stores black 95 but still normalises from studio black.
    EXPECT_EQ(ColourSpace(Colour_YCbCr_SLog3, 10).normaliseLuma(64), 0.0);
    const ColourSpace rgb(Colour_RGB, 12);
    EXPECT_EQ(rgb.normaliseLuma(4095), 1.0);
    EXPECT_EQ(rgb.normaliseChroma(0), 0.0);
}

namespace {
// The clipped code, negated when the limit reports no change (so both results are checked at once).
int limited(const ColourSpace& cs, int code, bool luma) {
    const bool changed = luma ? cs.limitLuma(code) : cs.limitChroma(code);
    return changed ? code : -code;
}
}  // namespace

TEST(ColourSpace, LimitsClipToLegalOrFullRange) {
    const ColourSpace ycc(Colour_YCbCr_709, 10), rgb(Colour_RGB, 10);
    EXPECT_EQ(limited(ycc, 1023, true), 1019);
    EXPECT_EQ(limited(ycc, 0, true), 4);
    EXPECT_EQ(limited(ycc, 500, true), -500);
    EXPECT_EQ(limited(rgb, 1023, true), -1023);
    EXPECT_EQ(limited(rgb, -3, true), 0);
    // Chroma is held to the legal range even for full-range RGB.
    EXPECT_EQ(limited(rgb, 1023, false), 1019);
    EXPECT_EQ(limited(ColourSpace(Colour_RGB, 8), 0, false), 1);
}

TEST(ColourSpace, GammaLawQuirks) {
    const ColourSpace type0(Colour_YCbCr_601, 10), type1(Colour_YCbCr_709, 10), type2(Colour_YCbCr_2020, 10);
    EXPECT_DOUBLE_EQ(type2.linearFloatToGamma(0.01), 0.045);
    EXPECT_DOUBLE_EQ(type1.linearFloatToGamma(0.01), std::pow(0.01, 0.45));
    // 0.0181 itself still takes the linear segment.
    EXPECT_DOUBLE_EQ(type2.linearFloatToGamma(0.0181), 4.5 * 0.0181);
    EXPECT_NEAR(type2.linearFloatToGamma(1.0), 1.0, 1e-12);
    // The decode and its inverse power pair up; negative values pass through untouched.
    EXPECT_DOUBLE_EQ(type2.gammaFloatLinearToNonLinear(type2.gammaFloatToLinear(0.3)), 0.3);
    EXPECT_DOUBLE_EQ(type1.gammaFloatLinearToNonLinear(type1.gammaFloatToLinear(0.3)), 0.3);
    for (const ColourSpace* cs : {&type0, &type1, &type2}) {
        EXPECT_EQ(cs->gammaFloatToLinear(-0.25), -0.25);
        EXPECT_EQ(cs->gammaFloatLinearToNonLinear(-0.25), -0.25);
    }
    // The code variants normalise first, except type 0's linearToGamma, which returns the code.
    EXPECT_DOUBLE_EQ(type1.gammaToLinear(502), std::pow(0.5, 2.4));
    EXPECT_DOUBLE_EQ(type2.linearToGamma(70), 4.5 * (6 / 876.0));
    EXPECT_EQ(type0.linearToGamma(700), 700.0);
}
