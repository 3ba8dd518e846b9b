// The pattern framework: transitions, geometry, drawing primitives, the full-frame and line-repeat loops.
// R'G'B' pixels blend linearly (other * (1 - w) + this * w, truncated), so with levels 0 and 1000 and
// the 25 ns / 74.25 MHz ramp (0.068797, 0.330117, 0.669883, 0.931203) a rise reads 68, 330, 669, 931.
// -1 marks "not drawn".
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <vector>

#include "TestPattern.h"
#include "colour/ConversionCache.h"

using namespace PatternGen;

namespace {

using Row = std::vector<int>;
using Samples = std::vector<uint16_t>;
using Lines = std::vector<std::pair<int, int>>;

std::deque<double> ramp(double riseTime, double clockMHz) {
    std::deque<double> c{0.25, 0.75};  // stale content must be replaced
    TestPattern().calculateTransition(c, riseTime, clockMHz);
    return c;
}

void expectRamp(const std::deque<double>& actual, const std::vector<double>& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) EXPECT_NEAR(actual[i], expected[i], 5e-7) << "index " << i;
}

void resize(TestPattern& p, int w, int h, int an, int ad) {
    p.width = w, p.height = h, p.aspectNum = an, p.aspectDen = ad;
}

Pixel rgb(int r, int g, int b) { return Pixel(g, b, r, Colour_RGB); }
Pixel grey(int level) { return rgb(level, level, level); }
// Unique per coordinate: R from x, G from y, B from both.
Pixel coordinates(int x, int y) { return rgb(2000 + x, 100 + y, 1000 + x + 10 * y); }

// Level at each x from..to of a primitive that draws over `start` and says whether it drew.
Row row(int from, int to, const Pixel& start, const std::function<bool(int, Pixel&)>& draw) {
    Row levels;
    for (int x = from; x <= to; ++x) {
        Pixel px = start;
        levels.push_back(draw(x, px) ? px.sample[Pixel::Y_G] : -1);
    }
    return levels;
}

Samples frameOf(TestPattern& p, int w, int h) {
    Samples f(static_cast<size_t>(w) * h * 4, 0xABCD);
    EXPECT_TRUE(p.run_body(0, w, h, f.data()));
    return f;
}

// Frame samples 0..2 of an R'G'B' pixel are R, G, B times 16.
void expectStored(const uint16_t* px, const Pixel& chroma, const Pixel& luma) {
    EXPECT_EQ(Samples(px, px + 3),
              (Samples{uint16_t(chroma.sample[Pixel::CR_R] * 16), uint16_t(luma.sample[Pixel::Y_G] * 16),
                       uint16_t(chroma.sample[Pixel::CB_B] * 16)}));
}

}  // namespace

TEST(Transitions, WorkedCoefficientsSampleRateAndSubsampling) {
    expectRamp(ramp(25, 74.25), {0.068797, 0.330117, 0.669883, 0.931203});
    expectRamp(ramp(25, 148.5), {0.008452, 0.068797, 0.180447, 0.330117, 0.5, 0.669883, 0.819553, 0.931203, 0.991548});
    EXPECT_TRUE(ramp(25, 13.5).empty());
    // The sample rate follows the height: 250 kHz is this many pixels (2160 lines before init).
    TestPattern p;
    for (const auto& [lines, pixels] :
         {std::pair<int, double>{2160, 594.0}, {1090, 594.0}, {1089, 297.0}, {599, 54.0}}) {
        p.height = lines;
        EXPECT_DOUBLE_EQ(p.freqToPixels(250000.0), pixels) << lines << " lines";
    }
    // Subsampled chroma runs at half the clock; a zero rise time turns transitions off but keeps the lists.
    TestPattern sub;
    sub.initQuietly(1920, 1080, 16, 9, Colour_RGB, Sampling_420);
    expectRamp(sub.chromaTransition, {0.180447, 0.180447, 0.819553, 0.819553});
    const std::deque<double> chroma = sub.chromaTransition;
    sub.calculateTransition(0.0, 74.25);
    EXPECT_TRUE(!sub.riseTimeEnabled && sub.transitionLength == 0 && sub.chromaTransition == chroma);
}

// Fractions multiply left to right, then truncate once; circles compare truncated distances with the radius.
TEST(Geometry, FractionsAndCircles) {
    TestPattern p;
    resize(p, 1920, 1080, 16, 9);
    EXPECT_EQ((Row{p.heightFraction(7, 3), p.widthFraction(-1, 3), p.fractionOf(-7, 1, 2)}), (Row{2520, -640, -3}));
    // Square pixels: strictly inside the Euclidean circle about the centre given.
    EXPECT_TRUE(p.insideCircleHeight(103, -36, 100, -40, 6) && !p.insideCircleHeight(103, -36, 100, -40, 5));
    EXPECT_TRUE(p.insideCircleWidth(-2, 15, -7, 3, 14) && !p.insideCircleWidth(-2, 15, -7, 3, 13));
    resize(p, 720, 576, 4, 3);
    EXPECT_EQ(p.aspectAdjustedVertFraction(1, 2), 384);     // (576*4*1)/(3*2)
    EXPECT_EQ(p.aspectAdjustedHorizFraction(1, 7), 77);     // (720*3*1)/(4*7) = 77.1
    EXPECT_TRUE(p.insideCircleHeight(100, 0, 0, 0, 107));   // x 100 is 106.67 lines, kept as 106
    EXPECT_FALSE(p.insideCircleHeight(100, 0, 0, 0, 106));  // exactly on the radius: outside
    EXPECT_TRUE(p.insideCircleWidth(0, 100, 0, 0, 94));     // y 100 is 93.75 pixels, kept as 93
    resize(p, 8192, 4320, 256, 135);  // 4320 x 4095 x 256 exceeds 32 bits, yet the pixels are square
    EXPECT_TRUE(p.insideCircleHeight(4095, 0, 0, 0, 4096) && !p.insideCircleHeight(4095, 0, 0, 0, 4095));
}

// 1920x1080 16:9 R'G'B' 4:4:4 with the default four-sample ramp.
struct Primitives : testing::Test {
    TestPattern p;
    Pixel black = grey(0), white = grey(1000), incoming = grey(77);
    void SetUp() override { p.initQuietly(1920, 1080); }
    Row bars(int from, int to, Pixel* a, Pixel* b) {
        return row(from, to, incoming, [&](int x, Pixel& px) { return p.bars(x, px, 2, 100, a, b); });
    }
};

// Bars centre their transitions on each edge; layered bars end their zone on the edge and keep the incoming pixel
// outside; a negative count draws nothing.
TEST_F(Primitives, Bars) {
    EXPECT_EQ(bars(47, 53, &black, &white), (Row{0, 68, 330, 669, 931, 1000, 1000}));
    EXPECT_EQ(bars(97, 103, &black, &white), (Row{1000, 931, 669, 330, 68, 0, 0}));  // black outside
    auto layered = [&](int from, int to) {
        return row(from, to, incoming, [&](int x, Pixel& px) { return p.barsLayered(x, px, 2, 100, &black, &white); });
    };
    EXPECT_EQ(layered(97, 101), (Row{1000, 936, 695, 381, 77}));
    p.calculateTransition(0.0, 74.25);
    int widths[] = {3, 2};
    EXPECT_EQ(row(-1, 5, incoming, [&](int x, Pixel& px) { return p.barsLayered(x, px, 2, widths, &black, &white); }),
              (Row{77, 0, 0, 0, 1000, 1000, 77}));
    EXPECT_EQ(row(5, 5, incoming, [&](int x, Pixel& px) { return p.bars(x, px, -1, 100, &white); }), (Row{77}));
}

TEST_F(Primitives, SquareWaveEdgesAndVerticalLines) {
    auto wave = [&](int from, int to) {
        return row(from, to, black, [&](int x, Pixel& px) { return (px = p.squareWave(x, 10, black, white)), true; });
    };
    EXPECT_EQ(wave(-2, 8), (Row{68, 330, 669, 931, 1000, 931, 669, 330, 68, 0, 68}));
    // Soft borders are half way to the neighbour, wider for subsampled chroma; hard lines are not.
    auto line = [&](int from, int to) {
        return row(from, to, incoming,
                   [&](int x, Pixel& px) { return p.vertLineAt(10, x, 2, grey(0), white, grey(2000), px); });
    };
    EXPECT_EQ(line(7, 13), (Row{-1, -1, 500, 1000, 1500, -1, -1}));
    p.sampling = Sampling_422;
    EXPECT_EQ(line(6, 14), (Row{-1, -1, 500, 500, 1000, 1500, 1500, -1, -1}));
    p.noRiseTime();
    EXPECT_EQ(line(8, 13), (Row{-1, -1, 1000, 1000, 1000, -1}));
    p.calculateTransition(0.0, 74.25);
    EXPECT_EQ(wave(-1, 6), (Row{0, 1000, 1000, 1000, 1000, 1000, 0, 0}));
}

TEST_F(Primitives, GridLines) {
    // Soft vertical lines: W = 2 + 2*4 - 1 = 9 from x 1.
    EXPECT_EQ(row(0, 10, black, [&](int x, Pixel& px) { return p.grid(x, 0, 10, 2, px, white); }),
              (Row{-1, 68, 330, 669, 931, 931, 669, 330, 68, 0, -1}));
    // Hard lines are thickness + 1 wide; the flipped grid's rows (2) are half a pitch from the grid's (1).
    p.calculateTransition(0.0, 74.25);
    Row rows;
    Pixel px = incoming;
    for (int v = -6; v <= 8; ++v)
        rows.push_back(p.grid(0, v, 10, 2, px, white) + 2 * p.gridFlipVphase(3, v, 10, 2, px, white));
    EXPECT_EQ(rows, (Row{1, 1, 3, 2, 2, 0, 0, 0, 0, 0, 1, 1, 3, 2, 2}));
}

// Rendered rows go to frame rows from the first; odd columns (and 4:2:0 odd rows) take chroma from the even
// one before; full-canvas patterns refuse quadrant mode before rendering.
TEST(FullFrameLoop, EveryQuadrantFillsTheFrameFromItsFirstRow) {
    const struct {
        quadrant_e quadrant;
        bool fullCanvas;
        int x0, y0;
        sampling_e sampling = Sampling_444;
    } cases[] = {{Quadrant_None, false, -8, 0},
                 {Quadrant_None, true, 0, 0},
                 {Quadrant_TL, false, -16, 0},
                 {Quadrant_TR, false, 0, 0},
                 {Quadrant_BL, false, -16, 6},
                 {Quadrant_BR, false, 0, 6},
                 {Quadrant_None, false, -8, 0, Sampling_422},
                 {Quadrant_None, false, -8, 0, Sampling_420}};
    for (const auto& c : cases) {
        TestPattern p(coordinates);
        p.fullCanvas = c.fullCanvas;
        p.initQuietly(16, 6, 16, 9, Colour_RGB, c.sampling, 12, c.quadrant, true);
        const Samples f = frameOf(p, 16, 6);
        EXPECT_EQ(p.bodyCalls, 96) << "quadrant " << c.quadrant;
        for (int i = 0; i < 96; ++i) {
            const int x = c.x0 + i % 16, y = c.y0 + i / 16;
            const int chromaX = c.sampling == Sampling_444 ? x : x - (x & 1),
                      chromaY = c.sampling == Sampling_420 ? y - (y & 1) : y;
            expectStored(&f[i * 4], coordinates(chromaX, chromaY), coordinates(x, y));
            EXPECT_EQ(f[i * 4 + 3], 4095 * 16);
        }
    }
    TestPattern refused;
    refused.fullCanvas = true;
    refused.initQuietly(16, 6, 16, 9, Colour_RGB, Sampling_444, 12, Quadrant_TL);
    Samples f(16 * 6 * 4, 0xABCD);
    EXPECT_THROW(refused.run_body(0, 16, 6, f.data()), std::runtime_error);
    EXPECT_EQ(f, Samples(16 * 6 * 4, 0xABCD));
}

// Ten-bit pixels widen to twelve; the outer two columns taper to black unless suppressed or transitions off.
TEST(FullFrameLoop, TenBitWideningAndEdgeTaper) {
    TestPattern ten([](int, int) { return Pixel(940, 512, 512, Colour_YCbCr_709, 10); });
    ten.initQuietly(4, 2, 16, 9, Colour_YCbCr_709, Sampling_444, 10, Quadrant_None, true);
    const Samples f = frameOf(ten, 4, 2);
    for (size_t i = 0; i < f.size(); i += 4)
        EXPECT_EQ(Samples(&f[i], &f[i + 4]), (Samples{32768, 60160, 32768, 65472}));
    const auto whiteFrame = [](int width, bool taperOff, bool riseTime) {  // samples divided by 16
        TestPattern p([](int, int) { return rgb(4095, 4095, 4095); });
        p.initQuietly(width, 1, 16, 9, Colour_RGB, Sampling_444, 12, Quadrant_None, taperOff);
        if (!riseTime) p.noRiseTime();
        Samples w = frameOf(p, width, 1);
        for (uint16_t& v : w) v /= 16;
        return w;
    };
    const int taper[] = {409, 2743, 4095, 4095, 4095, 4095, 2743, 409};  // 4095 x 0.1 and x 0.67, truncated
    const Samples wide = whiteFrame(8, false, true);
    for (int col = 0; col < 8; ++col) EXPECT_EQ(Samples(&wide[col * 4], &wide[col * 4 + 3]), Samples(3, taper[col]));
    EXPECT_EQ(whiteFrame(8, true, true)[0] + whiteFrame(8, false, false)[0], 2 * 4095);
}

// Runs of 1 to 33 identical pixels, converted once, store what distinct pixels store (alpha aside), in every
// sampling, tapered or not, from even and odd columns.
TEST(FullFrameLoop, RunsStoreWhatSinglePixelsStore) {
    const auto runColour = [](int x, int y) {
        const int lengths[] = {1, 33, 2, 3, 4, 5, 15, 16, 17};  // 96 columns, repeated
        int offset = (x + 960) % 96, run = (x + 960) / 96 * 9;
        for (const int length : lengths) {
            if (offset < length) break;
            offset -= length, ++run;
        }
        return rgb(100 * (run % 7) + 3 * y, 300 + 50 * (run % 3) + 10 * (y / 2), 900 - 40 * (run % 5) + y);
    };
    const auto colourSamples = [&](int width, sampling_e sampling, bool taperOff, bool distinct) {
        TestPattern p([&](int x, int y) {
            Pixel q = runColour(x, y);
            if (distinct) q.sample[Pixel::ALPHA] = uint16_t(2000 + x + 40 * y);
            return q;
        });
        p.initQuietly(width, 5, 16, 9, Colour_RGB, sampling, 12, Quadrant_None, taperOff);
        Samples f = frameOf(p, width, 5);
        for (size_t i = 3; i < f.size(); i += 4) f[i] = 0;
        return f;
    };
    for (const int width : {16, 22, 17, 250})
        for (const sampling_e sampling : {Sampling_444, Sampling_422, Sampling_420})
            for (const bool taperOff : {false, true})
                EXPECT_EQ(colourSamples(width, sampling, taperOff, false),
                          colourSamples(width, sampling, taperOff, true))
                    << width << " wide, sampling " << sampling << (taperOff ? ", no taper" : "");
}

// The conversion cache gives what converting each pixel afresh gives, whatever the order and slot sharing.
TEST(ConversionCacheTest, GivesWhatConvertingAfreshGives) {
    ConversionCache cache(Colour_YCbCr_709, true);
    std::vector<Pixel> pixels;
    for (int i = 0; i < 1500; ++i) pixels.push_back(Pixel((i * 37) % 1024, (i * 11) % 1024, i % 1024, Colour_RGB, 10));
    for (int pass = 0; pass < 2; ++pass)
        for (size_t i = 0; i < pixels.size(); i += (i % 3 == 0 ? 1 : 2)) {
            const Pixel& in = pixels[(i * 7 + pass) % pixels.size()];
            Pixel expected = in.convertTo(Colour_YCbCr_709);
            ASSERT_EQ(expected.colourSpace.bitDepth, 10);
            for (uint16_t& v : expected.sample) v = uint16_t(v * 4);
            expected.colourSpace.bitDepth = 12;
            for (int again = 0; again < 2; ++again) ASSERT_TRUE(cache.convert(in).sameCodes(expected)) << i;
        }
}

// Stored line n shows the source line of the first pair for n; the first missing n ends the list. Without
// a list every line is stored, R'G'B' as R, G, B and Y'CbCr as Y, Cb, Cr widened to 12 bits.
TEST(LineRepeatLoop, StoredLinesFollowTheList) {
    const std::pair<Lines, std::vector<int>> cases[] = {
        {{{1, 5}, {0, 0}, {2, 9}}, {0, 5, 9}}, {{{0, 3}, {0, 8}, {1, 1}, {3, 6}}, {3, 1}}, {{{1, 3}}, {}}};
    for (const auto& [list, sources] : cases) {
        TestPattern p([](int x, int y) { return rgb(x, y, 7); });  // G is the source line
        p.lineRepeats = list;
        p.initQuietly(3, 10);
        Samples lines(3 * 10 * 3);
        Lines repeats;
        int height = 10;
        EXPECT_TRUE(p.run_body(0, 3, height, repeats, reinterpret_cast<unsigned char*>(lines.data())));
        EXPECT_EQ(repeats, list);
        std::vector<int> stored;
        for (int n = 0; n < height; ++n) stored.push_back(lines[n * 9 + 1] / 16);
        EXPECT_EQ(stored, sources);
    }
    TestPattern y([](int, int) { return Pixel(940, 512, 700, Colour_YCbCr_709, 10); });
    y.initQuietly(1, 1, 16, 9, Colour_YCbCr_709, Sampling_444, 10);
    Lines repeats{{9, 9}};
    Samples lines(3);
    int h = 1;
    y.run_body(0, 1, h, repeats, reinterpret_cast<unsigned char*>(lines.data()));
    EXPECT_TRUE(repeats.empty() && h == 1);
    EXPECT_EQ(lines, (Samples{60160, 32768, 44800}));  // Y, Cb, Cr
}
