// Pixel arithmetic, scaling, level operations, blending, depth changes, printing and Rounding.
#include <gtest/gtest.h>

#include <string>

#include "Pixel.h"
#include "rounding.h"

using namespace PatternGen;

namespace {

// Y', Cb, Cr (or G, B, R) of a pixel, in constructor order.
void expectCodes(const Pixel& p, int y, int cb, int cr) {
    EXPECT_EQ(p.sample[Pixel::Y_G], y);
    EXPECT_EQ(p.sample[Pixel::CB_B], cb);
    EXPECT_EQ(p.sample[Pixel::CR_R], cr);
}

std::string printed(const Pixel& p, const char* label) {
    testing::internal::CaptureStdout();
    p.print(label);
    return testing::internal::GetCapturedStdout();
}

}  // namespace

TEST(Pixel, Constructors) {
    const Pixel black;
    expectCodes(black, 256, 2048, 2048);
    EXPECT_EQ(black.sample[Pixel::ALPHA], 4095);
    EXPECT_EQ(black.colourSpace.axes(), Colour_YCbCr_709);
    EXPECT_EQ(black.colourSpace.bitDepth, 12);
    const Pixel rgb(10, 20, 30, Colour_RGB_219, 10);
    EXPECT_EQ(rgb.sample[Pixel::CR_R], 30);  // the third argument is R
    EXPECT_EQ(rgb.sample[Pixel::ALPHA], 1023);
    EXPECT_EQ(rgb.colourSpace.blackLevel, 64);
}

TEST(Pixel, ScaleTruncatesTowardZeroAboutEachReference) {
    expectCodes(Pixel(3760, 2048, 2048).scale(75, 100), 2884, 2048, 2048);
    expectCodes(Pixel(3507, 256, 2212).scale(75, 100), 2694, 705, 2171);
    // One code above a reference stays one above; one below falls back to the reference.
    expectCodes(Pixel(257, 2049, 2047).scale(75, 100), 257, 2049, 2048);
    // RGB components all move about black; full-range black is 0.
    expectCodes(Pixel(4095, 100, 0, Colour_RGB).scale(1, 2), 2048, 50, 0);
    expectCodes(Pixel(3760, 2048, 1000).scale(0.5), 2008, 2048, 1524);
    expectCodes(Pixel(3760, 2048, 1000).scaleLumChrom(0.5, 0.0), 2008, 2048, 2048);
    expectCodes(Pixel(4095, 4095, 0, Colour_RGB).scaleLumChrom(0.5, 0.0), 2047, 2047, 0);
}

TEST(Pixel, AdditionIsRelativeToTheReferenceAndKeepsAlpha) {
    Pixel base(1000, 1500, 2600);
    base.sample[Pixel::ALPHA] = 7;
    const Pixel offset(256 + 100, 2048 - 30, 2048 + 40);
    const Pixel sum = base + offset;
    expectCodes(sum, 1100, 1470, 2640);
    EXPECT_EQ(sum.sample[Pixel::ALPHA], 7);
    EXPECT_TRUE((base + Pixel()).sameCodes(base));  // black with neutral chroma is the identity
    Pixel acc = base;
    acc += offset;
    EXPECT_TRUE(acc.sameCodes(sum));
}

TEST(Pixel, ScaleWithClipAndWithGamma) {
    expectCodes(Pixel(3760, 256, 3840).scaleWithClip(12, 10), 4079, 16, 4079);
    expectCodes(Pixel(4000, 4095, 0, Colour_RGB).scaleWithClip(2, 1), 4095, 4095, 0);
    // gammaType 0 (601) scales luma linearly; chroma always scales linearly with rounding.
    expectCodes(Pixel(3760, 2148, 1948, Colour_YCbCr_601).scaleWithGamma(1, 2), 2008, 2098, 1999);
    // Full-range RGB white and black are fixed points of any law.
    expectCodes(Pixel(4095, 0, 4095, Colour_RGB).scaleWithGamma(1, 1), 4095, 0, 4095);
}

TEST(Pixel, LevelOperationsPerAxisGroup) {
    const Pixel rgb(500, 600, 700, Colour_RGB, 10), rgb219(500, 600, 700, Colour_RGB_219, 10);
    const Pixel ycc(500, 600, 700, Colour_YCbCr_SLog3, 10), rgbHdr(500, 600, 700, Colour_RGB_HLG, 10);
    expectCodes(rgb.subBlack(), 500, 600, 700);
    expectCodes(rgb219.subBlack(), 4, 4, 4);
    expectCodes(ycc.subBlack(), 4, 512, 512);
    expectCodes(rgbHdr.subBlack(), 500, 600, 700);
    expectCodes(rgb.superWhite(), 500, 600, 700);
    expectCodes(rgb219.superWhite(), 1019, 1019, 1019);
    expectCodes(ycc.superWhite(), 1019, 512, 512);
    expectCodes(rgbHdr.superWhite(), 1019, 1019, 1019);
    EXPECT_EQ(rgb.noAlpha().sample[Pixel::ALPHA], 4);
    EXPECT_EQ(rgb219.noAlpha().sample[Pixel::ALPHA], 64);
    EXPECT_EQ(ycc.noAlpha().sample[Pixel::ALPHA], 64);
    EXPECT_EQ(rgbHdr.noAlpha().sample[Pixel::ALPHA], 4);
    expectCodes(Pixel(0, 1023, 512, Colour_RGB, 10).legalise(), 4, 1019, 512);
    expectCodes(Pixel(0, 255, 3, Colour_YCbCr_709, 8).legalise(), 1, 254, 3);
}

TEST(Pixel, BlendWeightsThisPixel) {
    const Pixel a(3000, 1000, 3000), b(1000, 3000, 1000);
    EXPECT_TRUE(a.blend(1.0, 1.0, b).sameCodes(a));
    EXPECT_TRUE(a.blend(0.0, 0.0, b).sameCodes(b));
    expectCodes(a.blend(1.0, 0.0, b), 3000, 3000, 1000);  // luma and chroma mix independently
    expectCodes(a.blend(0.5, 0.5, b), 2000, 2000, 2000);
    const Pixel rgbA(101, 0, 4095, Colour_RGB), rgbB(0, 4095, 4095, Colour_RGB);
    expectCodes(rgbA.blend(0.5, 0.0, rgbB), 50, 2047, 4095);  // truncated mean, chroma weight unused
}

TEST(Pixel, DepthChanges) {
    const Pixel scaledYellow(2694, 705, 2171);
    const Pixel truncated = scaledYellow.truncateTo(8);
    expectCodes(truncated, 168, 44, 135);
    EXPECT_EQ(truncated.sample[Pixel::ALPHA], 255);
    EXPECT_EQ(truncated.colourSpace.bitDepth, 8);
    EXPECT_EQ(truncated.colourSpace.blackLevel, 256);  // levels are not rescaled
    expectCodes(Pixel(2884, 704, 2048).roundTo(8), 180, 44, 128);
    // Chroma below the zero truncates, at or above it rounds; luma rounds.
    expectCodes(Pixel(3507, 256, 2212).roundTo(10), 877, 64, 553);
    expectCodes(Pixel(255, 2047, 2050, Colour_YCbCr_709).roundTo(10), 64, 511, 513);
    // RGB components all round like luma.
    expectCodes(Pixel(2, 2, 1, Colour_RGB).roundTo(10), 1, 1, 0);
    // Equal depths keep the codes; deeper targets shift.
    EXPECT_TRUE(Pixel(3507, 256, 2212).roundTo(12).sameCodes(Pixel(3507, 256, 2212)));
    const Pixel deeper = Pixel(877, 64, 553, Colour_YCbCr_709, 10).roundTo(12);
    expectCodes(deeper, 3508, 256, 2212);
    EXPECT_EQ(deeper.sample[Pixel::ALPHA], 4092);
}

TEST(Pixel, PrintAndPrintDiff) {
    EXPECT_EQ(printed(Pixel(3507, 256, 2212), "yl "), "yl Y: 3507 Cb: -1792( 256) Cr:  164(2212)\n");
    EXPECT_EQ(printed(Pixel(877, 64, 553, Colour_YCbCr_709, 10), ""), "Y:  877 Cb: -448(  64) Cr:   41( 553)\n");
    EXPECT_EQ(printed(Pixel(1, 2, 3, Colour_RGB), "%s "), "%s R:    3 G:    1 B:    2\n");

    testing::internal::CaptureStdout();
    EXPECT_EQ(Pixel(3507, 256, 2212).printDiff("same", Pixel(3507, 256, 2212, Colour_RGB)), 0);
    EXPECT_EQ(Pixel(100, 2048, 2050).printDiff("  cr %% ", Pixel(100, 2048, 2048)), 1);
    EXPECT_EQ(Pixel(90, 2000, 2050).printDiff("all", Pixel(100, 2048, 2048)), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "  cr %% Cr 2050   +2\t\n"
              "allY   90  -10\tCb 2000  -48\tCr 2050   +2\t\n");
}

TEST(Rounding, GoldenValues) {
    EXPECT_EQ(Rounding::roundChromaTo(16, 6, 0x7FE0), 0x7FC0);
    EXPECT_EQ(Rounding::roundChromaTo(16, 6, 0x8020), 0x8040);
    EXPECT_EQ(Rounding::roundLumaTo(16, 8, 0xFFFF), 0xFE00);
    EXPECT_EQ(Rounding::roundTo(8, 0xFFFF), 0xFF00);
    EXPECT_EQ(Rounding::roundLumaTo(16, 6, 0xFFFF), 0xFEC0);
    EXPECT_EQ(Rounding::roundLumaTo(16, 4, 0xFFFF), 0xFEF0);
    EXPECT_EQ(Rounding::roundLumaTo(16, 6, 0x1020), 0x1040);
}

TEST(Rounding, NothingToDropKeepsTheValue) {
    for (unsigned v : {0u, 1u, 0x7FFFu, 0x8000u, 0xFEFFu, 0xFFFFu}) {
        EXPECT_EQ(Rounding::roundTo(0, v), v);
        EXPECT_EQ(Rounding::roundChromaTo(16, 0, v), v);
        EXPECT_EQ(Rounding::roundLumaTo(16, 0, v), v <= 0xFEFF ? v : 0xFEFFu);
    }
}

TEST(Rounding, ResultsAreOnTheOutputGridAndWithinHalfAStep) {
    for (int s : {4, 6, 8}) {
        const unsigned step = 1u << s;
        for (unsigned v = 0; v <= 0xFFFF; v += 7) {
            const unsigned r = Rounding::roundTo(s, v);
            EXPECT_EQ(r % step, 0u);
            if (v + step / 2 <= 0xFFFF) {
                EXPECT_LE(r > v ? r - v : v - r, step / 2) << s << " " << v;
            }
            const unsigned c = Rounding::roundChromaTo(16, s, v);
            EXPECT_EQ(c % step, 0u);
            if (v < 0x8000) {
                EXPECT_EQ(c, v & ~(step - 1));
            }
            const unsigned l = Rounding::roundLumaTo(16, s, v);
            EXPECT_LE(l, 0xFEFFu & ~(step - 1));
            if (v + step / 2 <= (0xFEFFu & ~(step - 1))) {
                EXPECT_EQ(l, r);
            }
        }
    }
}
