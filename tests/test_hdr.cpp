// HDR conversions: transfer functions against their forward curves, golden codes, the R'G'B'
// HDR axes and the assertion reports of unsupported targets.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>

#include "Pixel.h"

using namespace PatternGen;

namespace {

void expectCodes(const Pixel& p, int y, int cb, int cr) {
    EXPECT_EQ(p.sample[Pixel::Y_G], y);
    EXPECT_EQ(p.sample[Pixel::CB_B], cb);
    EXPECT_EQ(p.sample[Pixel::CR_R], cr);
}

// The ST 2084 EOTF written out independently: PQ signal to light in units of 100 cd/m2.
double pqEotf(double signal) {
    const double m1 = 2610.0 / 16384, m2 = 2523.0 / 4096 * 128;
    const double c1 = 3424.0 / 4096, c2 = 2413.0 / 4096 * 32, c3 = 2392.0 / 4096 * 32;
    const double p = std::pow(signal, 1 / m2);
    return 100 * std::pow(std::max(p - c1, 0.0) / (c2 - c3 * p), 1 / m1);
}

// The BT.2100 HLG inverse OETF: signal to scene light.
double hlgInverseOetf(double signal) {
    const double a = 0.17883277, b = 1 - 4 * 0.17883277, c = 0.5 - a * std::log(4 * a);
    return signal <= 0.5 ? signal * signal / 3 : (std::exp((signal - c) / a) + b) / 12;
}

double sLog3(double x, bool negative = false) { return Pixel::applySLog3OETFAndRestoreAbsolutisedInput(x, negative); }

}  // namespace

TEST(HdrTransfer, PqInvertsTheEotf) {
    EXPECT_NEAR(Pixel::applyPqInverseEOTF(1.0), 0.508078, 1e-6);
    EXPECT_NEAR(Pixel::applyPqInverseEOTF(100.0), 1.0, 1e-12);
    EXPECT_EQ(Pixel::applyPqInverseEOTF(0.0), 0.0);
    EXPECT_EQ(Pixel::applyPqInverseEOTF(-1.0), 0.0);
    EXPECT_EQ(Pixel::applyPqInverseEOTF(std::nan("")), 0.0);
    for (double light : {0.0001, 0.01, 0.5, 1.0, 2.03, 10.0, 57.0, 100.0})
        EXPECT_NEAR(pqEotf(Pixel::applyPqInverseEOTF(light)), light, 1e-9 * light + 1e-12) << light;
}

TEST(HdrTransfer, HlgInvertsItsInverseOetf) {
    EXPECT_NEAR(Pixel::applyHlgOETF(1.0 / 12), 0.5, 1e-15);
    EXPECT_NEAR(Pixel::applyHlgOETF(1.0), 1.0, 1e-6);
    EXPECT_EQ(Pixel::applyHlgOETF(0.0), 0.0);
    EXPECT_EQ(Pixel::applyHlgOETF(-0.5), 0.0);
    for (double scene : {0.001, 0.05, 0.08, 0.09, 0.14678, 0.5, 0.9})
        EXPECT_NEAR(hlgInverseOetf(Pixel::applyHlgOETF(scene)), scene, 1e-7) << scene;
}

TEST(HdrTransfer, SLog3CodesAndMirroring) {
    EXPECT_EQ(sLog3(0.0), 95.0);
    EXPECT_NEAR(sLog3(1.0), 420 + 261.5 * std::log10(0.91 / 0.19), 1e-12);
    EXPECT_NEAR(sLog3(1.0), 597.9, 0.05);
    EXPECT_NEAR(sLog3(0.0124999), 171.21, 0.01);
    EXPECT_NEAR(sLog3(0.0125), 171.21, 0.01);
    EXPECT_EQ(sLog3(-0.1), 0.0);
    for (double x : {0.005, 0.5}) {
        const double base = x < 0.0125 ? 95.0 : 420.0;
        EXPECT_DOUBLE_EQ(sLog3(x, true), 2 * base - sLog3(x));
    }
    EXPECT_EQ(Pixel::applySLog3InverseOOTF(1.0), 1.0);
    EXPECT_DOUBLE_EQ(Pixel::applySLog3InverseOOTF(3.0), std::pow(3.0, 0.8333333333333334));
    EXPECT_DOUBLE_EQ(Pixel::applySLog3InverseOOTF(4.0), (4.0 + 0.7474385637693104) / 1.2 / 1.2457309396155174);
}

TEST(HdrTransfer, Bt709To2020Mapping) {
    // Each BT.2087 row sums to one: neutral colours stay neutral, black stays black.
    const Pixel rgb(0, 0, 0, Colour_RGB);
    for (double v : {0.0, 0.2, 1.0}) {
        double mr = v, mg = v, mb = v;
        rgb.applyMatrixRGB709ValuesIn2020(mr, mg, mb);
        for (double m : {mr, mg, mb}) EXPECT_NEAR(m, std::pow(v, 2.4), 1e-12);
    }
    double pr = 1.0, pg = 0.0, pb = 0.0;
    rgb.applyMatrixRGB709ValuesIn2020(pr, pg, pb);
    EXPECT_DOUBLE_EQ(pr, 0.6274);
    EXPECT_DOUBLE_EQ(pg, 0.0691);
    EXPECT_DOUBLE_EQ(pb, 0.0164);
}

TEST(HdrConversion, GoldenWhiteAndBlack) {
    const Pixel white709(3760, 2048, 2048), blackRgb(0, 0, 0, Colour_RGB);
    for (colorAxes_e pq : {Colour_YCbCr_PQ, Colour_YCbCr_PQ_Mapped}) {
        const Pixel p = white709.convertTo(pq);
        expectCodes(p, 509, 512, 512);
        EXPECT_EQ(p.colourSpace.bitDepth, 10);
        const Pixel black = blackRgb.convertTo(pq);
        expectCodes(black, 64, 512, 512);
        EXPECT_EQ(black.sample[Pixel::ALPHA], 4095);  // a 12-bit source's alpha is carried over unchanged
    }
    for (colorAxes_e hlg : {Colour_YCbCr_HLG, Colour_YCbCr_HLG_Mapped}) {
        expectCodes(white709.convertTo(hlg), 616, 512, 512);
        expectCodes(blackRgb.convertTo(hlg), 64, 512, 512);
    }
    for (int axis = Colour_YCbCr_SLog3; axis <= Colour_YCbCr_SLog3_Live_Mapped; ++axis) {
        const Pixel s = blackRgb.convertTo(static_cast<colorAxes_e>(axis));
        expectCodes(s, 95, 512, 512);
        EXPECT_EQ(s.colourSpace.blackLevel, 95);
        EXPECT_EQ(s.colourSpace.whiteLevel, 1019);
        expectCodes(white709.convertTo(static_cast<colorAxes_e>(axis)), 598, 512, 512);
    }
}

TEST(HdrConversion, MappedPqBarsMatchTheReferenceTable) {
    const struct {
        int y709[3];
        int pq10[3];
    } bars[] = {
        {{3507, 256, 2212}, {497, 421, 518}},   // yellow
        {{3015, 2459, 256}, {483, 526, 472}},   // cyan
        {{2763, 667, 420}, {468, 430, 476}},    // green
        {{1001, 1637, 3840}, {341, 446, 601}},  // red
        {{509, 3840, 1884}, {238, 654, 536}},   // blue
    };
    for (const auto& bar : bars) {
        const Pixel mapped = Pixel(bar.y709[0], bar.y709[1], bar.y709[2]).convertTo(Colour_YCbCr_PQ_Mapped);
        expectCodes(mapped, bar.pq10[0], bar.pq10[1], bar.pq10[2]);
    }
}

TEST(HdrConversion, RgbHdrAxesCarryTheSignalAtTwelveBits) {
    const Pixel pq = Pixel(3760, 2048, 2048).convertTo(Colour_YCbCr_PQ);
    const Pixel rgbPq = pq.convertTo(Colour_RGB_PQ);
    expectCodes(rgbPq, 4 * 509, 4 * 509, 4 * 509);
    EXPECT_EQ(rgbPq.colourSpace.axes(), Colour_RGB_PQ);
    EXPECT_EQ(rgbPq.colourSpace.bitDepth, 12);
    EXPECT_EQ(rgbPq.colourSpace.blackLevel, 256);
    // Straight from full-range RGB the result is the same.
    EXPECT_TRUE(Pixel(4095, 4095, 4095, Colour_RGB).convertTo(Colour_RGB_PQ).sameCodes(rgbPq));
    expectCodes(Pixel(4095, 4095, 4095, Colour_RGB).convertTo(Colour_RGB_SLog3), 2392, 2392, 2392);

    // Back from R'G'B' HDR: the Y'CbCr counterpart re-encodes at 12 bits, studio RGB relabels.
    expectCodes(rgbPq.convertTo(Colour_YCbCr_PQ), 2036, 2048, 2048);
    const Pixel studio = rgbPq.convertTo(Colour_RGB_219);
    EXPECT_TRUE(studio.sameCodes(Pixel(2036, 2036, 2036, Colour_RGB_219)));
    expectCodes(rgbPq.convertTo(Colour_RGB), 2080, 2080, 2080);  // round((2036 - 256) / 3504 * 4095)
    // HDR Y'CbCr to full-range RGB decodes the matrix only.
    expectCodes(pq.convertTo(Colour_RGB), 520, 520, 520);
}

TEST(HdrConversionDeathTest, UnsupportedTargetsReportTheAssertion) {
    const Pixel white709(3760, 2048, 2048);
    EXPECT_DEATH(white709.convertRGB709toYCbCrPQ(1, 1, 1, Colour_YCbCr_HLG),
                 "tools/Pixel.*Assertion `pqColourSpace == PatternGen::Colour_YCbCr_PQ \\|\\| pqColourSpace == "
                 "PatternGen::Colour_YCbCr_PQ_Mapped' failed");
    EXPECT_DEATH(white709.convertRGB709toYCbCrHLG(1, 1, 1, Colour_YCbCr_PQ), "Assertion `hlgColourSpace == ");
    EXPECT_DEATH(white709.convertRGB709toYCbCrSLog3(1, 1, 1, Colour_YCbCr_2020),
                 "slog3ColourSpace == PatternGen::Colour_YCbCr_SLog3_Live_Mapped' failed");
    EXPECT_DEATH(white709.convertRGB709toRGBHDR(1, 1, 1, Colour_YCbCr_PQ), "tools/Pixel.*Assertion `0' failed");
    EXPECT_DEATH(white709.convertTo(Colour_YCbCr_SLog3_Live).convertTo(Colour_RGB_SLog3),
                 "Pixel Pixel::convertYCbCrHDRToRGB\\(PatternGen::colorAxes_e\\) const: Assertion `toSpace == "
                 "PatternGen::Colour_RGB_SLog3_Live' failed");
    // The invalid-conversion message goes to standard output before the report.
    const Pixel rgbPq = white709.convertTo(Colour_RGB_PQ);
    EXPECT_DEATH(
        {
            dup2(2, 1);
            rgbPq.convertTo(Colour_YCbCr_HLG);
        },
        "convertHDRFromRGB invalid from 13 to 6\n.*tools/Pixel.*convertHDRFromRGB.*Assertion `0' failed");
}
