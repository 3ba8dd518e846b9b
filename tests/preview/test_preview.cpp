// Previews read back by ffmpeg and pngcheck: colours agree across encodings, circles round, HDR to SDR.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "pattern/FrameRow.h"
#include "PatternRender.h"
#include "TestFiles.h"
#include "output/OutputFile.h"
#include "philips-PM5544-new.h"
#include "preview/Preview.h"

using namespace PatternGen;

namespace {

using Rgb8 = std::array<int, 3>;

struct Image {
    int width = 0;
    int height = 0;
    TestFiles::Bytes rgb;

    Rgb8 at(double x, double y) const {
        const size_t i = 3 * (static_cast<size_t>(std::lround(y)) * width + static_cast<size_t>(std::lround(x)));
        return {rgb.at(i), rgb.at(i + 1), rgb.at(i + 2)};
    }
};

struct Render {
    colorAxes_e axes;
    int bits;
    int width, height, aspectNum, aspectDen;
};

// The card through the full-frame loop, rounded as the driver does, into a preview PNG read by ffmpeg.
Image preview(const Render& r, const TestFiles::ScratchDir& dir) {
    PhilipsPm5544Spec card;
    std::vector<uint16_t> frame(size_t(r.width) * r.height * 4);
    TestFiles::stdoutOf([&] {
        card.init(r.width, r.height, r.aspectNum, r.aspectDen, r.axes, Sampling_444, r.bits, Quadrant_None, 0, false);
        card.run_body(0, r.width, r.height, frame.data());
    });
    FrameRow::round(frame.data(), size_t(r.width) * r.height, r.axes, r.bits);
    const std::string path = dir.path(std::string(axisToString(r.axes)) + ".png");
    OutputFile out(path);
    Preview p(r.axes, r.bits, r.width, r.height, r.aspectNum, r.aspectDen);
    bool ok = out.open() && p.begin(out);
    for (int y = 0; y < r.height; ++y) ok = p.addRow({frame.data() + size_t(y) * r.width * 4}) && ok;
    ok = p.finish() && ok;
    EXPECT_TRUE(ok && out.commit()) << out.reason();
    Image image{p.width(), p.height(), {}};
    const std::string raw = TestFiles::commandOutput("ffmpeg -v error -i " + path + " -f rawvideo -pix_fmt rgb24 -");
    image.rgb.assign(raw.begin(), raw.end());
    EXPECT_EQ(image.rgb.size(), 3 * size_t(image.width) * image.height) << path;
    return image;
}

// Card layout in 576ths of the height from the circle's centre (the preview has square pixels):
// the middle rows of the colour bars and of the grey scale, and the middle of each bar and step.
constexpr double barsRow = -42, greysRow = 126, topCapRow = -242;
constexpr double barCentres[] = {-210, -126, -42, 42, 126, 210};               // yellow cyan green magenta red blue
constexpr double stepCentres[] = {-197.5, -118.5, -39.5, 39.5, 118.5, 197.5};  // black .. white

double toPixels(const Image& image, double units) { return units * image.height / 576.0; }
Rgb8 cardAt(const Image& image, double x, double y) {
    return image.at(image.width / 2.0 + toPixels(image, x), image.height / 2.0 + toPixels(image, y));
}

}  // namespace

// The RGB and 709 palettes hold the same 75 % bars and grey steps at 10 bits, as R'G'B' codes and as
// Y'CbCr codes (at 12 bits the studio table's yellow is the card's own brighter 2948, 512, 2948). Each Y'CbCr code is
// rounded to its step, and decoding spreads half a 10-bit step of Cb or Cr over R'G'B' with factors up to 1.86 (under
// one 8-bit code); with the 8-bit rounding of each preview the two may differ by 2 codes, no more.
TEST(Preview, Bt709AndRgbCardsAgree) {
    const TestFiles::ScratchDir dir;
    const Image rgb = preview({Colour_RGB, 10, 768, 432, 16, 9}, dir);
    const Image ycc = preview({Colour_YCbCr_709, 10, 768, 432, 16, 9}, dir);
    ASSERT_EQ(rgb.width, 768);
    for (double row : {barsRow, greysRow})
        for (double x : row == barsRow ? barCentres : stepCentres) {
            const Rgb8 a = cardAt(rgb, x, row), b = cardAt(ycc, x, row);
            for (int c = 0; c < 3; ++c) EXPECT_NEAR(a[c], b[c], 2) << "row " << row << " x " << x << " channel " << c;
        }
    // The bars themselves: 75 % of 255 in the lit channels of yellow, cyan, green, magenta, red, blue.
    const Rgb8 bars[] = {{191, 191, 0}, {0, 191, 191}, {0, 191, 0}, {191, 0, 191}, {191, 0, 0}, {0, 0, 191}};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(cardAt(rgb, barCentres[i], barsRow), bars[i]) << i;
    // An independent reader finds the sRGB chunk and no error.
    const std::string check = TestFiles::commandOutput("pngcheck -v " + dir.path("Colour_YCbCr_709.png"));
    EXPECT_NE(check.find("chunk sRGB"), std::string::npos) << check;
    EXPECT_NE(check.find("No errors detected"), std::string::npos) << check;
}

// 720x576 at 4:3 has pixels 16/15 wide; the preview is 768 wide and its circle round. The radius is
// measured to the inner edge of the white outline: across the colour bars (yellow on the left, blue
// on the right meet it) and down through the yellow bottom cap, 63 lines beside the red box.
TEST(Preview, NonSquarePixelsAreResampledSoTheCircleIsRound) {
    const TestFiles::ScratchDir dir;
    const Image image = preview({Colour_YCbCr_709, 10, 720, 576, 4, 3}, dir);
    ASSERT_EQ(image.width, 768);
    ASSERT_EQ(image.height, 576);
    const auto white = [&](int x, int y) {
        const Rgb8 p = image.at(x, y);
        return std::min({p[0], p[1], p[2]}) > 128;
    };
    const double cx = image.width / 2.0, cy = image.height / 2.0;
    const int row = static_cast<int>(cy + barsRow);
    int left = static_cast<int>(cx + barCentres[0]), right = static_cast<int>(cx + barCentres[5]);
    while (left > 0 && !white(left, row)) --left;
    while (right < image.width - 1 && !white(right, row)) ++right;
    const double across = std::hypot((right - left) / 2.0, barsRow);
    const double dx = 63;
    int bottom = static_cast<int>(cy + 230);
    ASSERT_FALSE(white(static_cast<int>(cx + dx), bottom));  // in the yellow cap
    while (bottom < image.height - 1 && !white(static_cast<int>(cx + dx), bottom)) ++bottom;
    const double down = std::hypot(bottom - cy, dx);
    EXPECT_NEAR(across, 252, 2);  // h(252) of 576 lines
    EXPECT_NEAR(down, 252, 2);
    EXPECT_NEAR(across, down, 2);
    EXPECT_NEAR(left + right, 2 * cx, 2);  // and centred
}

// PQ and HLG white (100 cd/m2, the reference white) comes out neutral at 252 or 253: the highlight
// roll-off starts at 90 % of reference white and puts reference white at 97.6 % light, code 252.4;
// one step of the 10-bit signal moves it by less than one code. The grey scale rises step by step.
TEST(Preview, HdrGreyScaleRisesAndWhiteIsNearSrgbWhite) {
    const TestFiles::ScratchDir dir;
    for (colorAxes_e axes : {Colour_YCbCr_PQ, Colour_YCbCr_HLG, Colour_RGB_PQ_Mapped, Colour_YCbCr_HLG_Mapped}) {
        const Image image = preview({axes, 10, 768, 432, 16, 9}, dir);
        int previous = -1;
        for (double x : stepCentres) {
            const Rgb8 step = cardAt(image, x, greysRow);
            EXPECT_GT(step[1], previous) << axisToString(axes) << " step at " << x;
            EXPECT_LE(std::max({step[0], step[1], step[2]}) - std::min({step[0], step[1], step[2]}), 1)
                << axisToString(axes);
            previous = step[1];
        }
        EXPECT_EQ(cardAt(image, stepCentres[0], greysRow), Rgb8({0, 0, 0})) << axisToString(axes);
        for (int c = 0; c < 3; ++c) {
            EXPECT_NEAR(cardAt(image, 0, topCapRow)[c], 252.5, 1) << axisToString(axes);
            EXPECT_NEAR(cardAt(image, stepCentres[5], greysRow)[c], 252.5, 1) << axisToString(axes);
        }
    }
}

// Every encoding shows the bars in their colours: the lit channels well above the unlit ones.
TEST(Preview, EveryEncodingShowsTheBarsInTheirColours) {
    const TestFiles::ScratchDir dir;
    const std::array<bool, 3> lit[] = {{1, 1, 0}, {0, 1, 1}, {0, 1, 0}, {1, 0, 1}, {1, 0, 0}, {0, 0, 1}};
    for (int axis = 0; axis < colourAxesCount; ++axis) {
        const Image image = preview({colorAxes_e(axis), 12, 384, 216, 16, 9}, dir);
        for (int i = 0; i < 6; ++i) {
            const Rgb8 bar = cardAt(image, barCentres[i], barsRow);
            int litLow = 255, unlitHigh = 0;
            for (int c = 0; c < 3; ++c) {
                if (lit[i][c]) litLow = std::min(litLow, bar[c]);
                if (!lit[i][c]) unlitHigh = std::max(unlitHigh, bar[c]);
            }
            EXPECT_GT(litLow, 180) << axisToString(colorAxes_e(axis)) << " bar " << i;
            EXPECT_LT(unlitHigh, 40) << axisToString(colorAxes_e(axis)) << " bar " << i;
        }
    }
}
