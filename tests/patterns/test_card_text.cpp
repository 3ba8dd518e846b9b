// Text in the card's black boxes against the plain card: position, codes, centring, shape, fonts, updates.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <string>
#include <vector>

#include "TestFiles.h"
#include "philips-PM5544-new.h"

using namespace PatternGen;

namespace {

struct Raster {
    int width, height, aspectNum, aspectDen;
};

std::unique_ptr<PhilipsPm5544Spec> makeCard(const Raster& r, colorAxes_e axes, const std::string& upper = "",
                                            const std::string& lower = "", const std::string& family = "",
                                            int bits = 12, sampling_e sampling = Sampling_444) {
    auto card = std::make_unique<PhilipsPm5544Spec>();
    TestFiles::stdoutOf([&] {
        card->init(r.width, r.height, r.aspectNum, r.aspectDen, axes, sampling, bits, Quadrant_None, 0, false);
        if (!upper.empty() || !lower.empty()) card->setBoxTexts(family, upper, lower);
    });
    return card;
}

// A card box in canvas pixels, inclusive: the ident box atop the circle, the bar below the grey scale.
struct Box {
    int left, right, top, bottom;
    int lineRight;  // the line's rightmost column, or INT_MIN
    double centre() const { return (left + right + 1) / 2.0; }
    double middle() const { return (top + bottom + 1) / 2.0; }
    bool holds(int x, int y) const { return top <= y && y <= bottom && left <= x && x <= right; }
};

Box upperBox(const Raster& r) {
    auto h = [&](int k) { return r.height * k / 576; };
    const int cx = r.width / 2, cy = r.height / 2;
    return {cx + 1 - h(84), cx + h(168) - h(84), cy - h(231) - 1, cy - h(189) - 2, INT_MIN};
}

Box lowerBox(const Raster& r) {
    auto h = [&](int k) { return r.height * k / 576; };
    const int cx = r.width / 2, cy = r.height / 2;
    return {cx - h(126), cx + h(252) - h(126) - 1, cy + h(147) + 1, cy + h(189), cx + h(21) - h(126) + 1};
}

// Edge shaping reaches two pixels from an edge; text keeps clear of that.
constexpr int kShapingReach = 2;

// Extents of the pixels that differ from the plain card, and of those at least half way from black to white.
struct Ink {
    struct Extent {
        int minX = INT_MAX, maxX = INT_MIN, minY = INT_MAX, maxY = INT_MIN;
        void add(int x, int y) {
            minX = std::min(minX, x), maxX = std::max(maxX, x), minY = std::min(minY, y), maxY = std::max(maxY, y);
        }
        double width() const { return maxX - minX + 1; }
        double height() const { return maxY - minY + 1; }
        double centre() const { return (minX + maxX + 1) / 2.0; }
        double middle() const { return (minY + maxY + 1) / 2.0; }
    };
    Extent changed, bright;
};

// Compares the box's rows of a card with text to the plain card (R'G'B' cards, read through green).
Ink inkIn(PhilipsPm5544Spec& text, PhilipsPm5544Spec& plain, const Box& box) {
    Ink ink;
    const int black = plain.black.sample[Pixel::Y_G], white = plain.white.sample[Pixel::Y_G];
    for (int y = box.top; y <= box.bottom; ++y)
        for (int x = 0; x < plain.width; ++x) {
            const Pixel p = text.body(x, y);
            if (p.sameCodes(plain.body(x, y))) continue;
            ink.changed.add(x, y);
            if (2 * (p.sample[Pixel::Y_G] - black) >= white - black) ink.bright.add(x, y);
        }
    return ink;
}

}  // namespace

// Ink centred within two pixels; long texts shrink and stay centred, far too long ones stay in the box.
TEST(CardText, CentredAndLongTextShrinksInsideItsBox) {
    const Raster r{1024, 576, 16, 9};
    auto plain = makeCard(r, Colour_RGB);
    double shortHeight = 0;
    for (const std::string upper : {"PM5544", "PM5544 TEST CARD STATION"}) {
        auto text = makeCard(r, Colour_RGB, upper, upper == "PM5544" ? "12:34:56" : "A long caption, shrunk");
        for (const Box& box : {upperBox(r), lowerBox(r)}) {
            const Ink::Extent ink = inkIn(*text, *plain, box).bright;
            EXPECT_NEAR(box.centre(), ink.centre(), 2.0) << upper;
            EXPECT_NEAR(box.middle(), ink.middle(), 2.0) << upper;
        }
        const double height = inkIn(*text, *plain, upperBox(r)).bright.height();
        if (shortHeight == 0)
            shortHeight = height;
        else
            EXPECT_LT(height, shortHeight * 0.8) << "a long text is not shrunk";
    }
    auto tooLong = makeCard(r, Colour_RGB, std::string(300, 'W'), std::string(300, 'M'));
    for (const Box& box : {upperBox(r), lowerBox(r)}) {
        const Ink::Extent changed = inkIn(*tooLong, *plain, box).changed;
        EXPECT_TRUE(changed.minX != INT_MAX && box.holds(changed.minX, changed.minY) &&
                    box.holds(changed.maxX, changed.maxY));
    }
}

// On the display the letters keep their shape: square pixels, 720x576 at 4:3 (pixels 16:15 wide) and
// 1920x1080 at 4:3 (pixels 3:4 wide) give the same ink width (times the pixel's width) over height.
TEST(CardText, LettersKeepTheirShapeOnNonSquarePixels) {
    const Raster rasters[] = {{768, 576, 4, 3}, {720, 576, 4, 3}, {1920, 1080, 4, 3}};
    double reference = 0;
    for (const Raster& r : rasters) {
        auto plain = makeCard(r, Colour_RGB), text = makeCard(r, Colour_RGB, "HMH");
        const Ink::Extent ink = inkIn(*text, *plain, upperBox(r)).bright;
        const double pixelAspect = double(r.aspectNum) * r.height / (double(r.aspectDen) * r.width);
        const double shape = ink.width() * pixelAspect / ink.height();
        if (reference == 0) reference = shape;
        EXPECT_NEAR(reference, shape, reference * 0.05) << r.width << "x" << r.height;
    }
}

// A family that matches nothing is reported as a warning, and the text is still drawn.
TEST(CardText, MissingFontFallsBackWithAMessage) {
    const Raster r{768, 576, 4, 3};
    auto plain = makeCard(r, Colour_RGB);
    std::string message;
    auto text = std::make_unique<PhilipsPm5544Spec>();
    text->messages = [&message](MessageKind kind, const std::string& line) {
        if (kind == MessageKind::Warning) message += line;
    };
    text->init(r.width, r.height, r.aspectNum, r.aspectDen, Colour_RGB, Sampling_444, 12, Quadrant_None, 0, false);
    text->setBoxTexts("Nonexistent Family 7f3e", "PM5544", "");
    EXPECT_NE(std::string::npos, message.find("Font \"Nonexistent Family 7f3e\"")) << message;
    EXPECT_GT(inkIn(*text, *plain, upperBox(r)).bright.width(), 50);
}

// A lower text replaced mid-frame gives the rows a card with that text gives; texts set before init count.
TEST(CardText, LowerTextReplacedBetweenFramesEqualsAFreshCard) {
    const Raster r{480, 270, 16, 9};
    auto moving = std::make_unique<PhilipsPm5544Spec>();
    moving->setBoxTexts("", "PM5544", "10:00:00");
    TestFiles::stdoutOf(
        [&] { moving->init(r.width, r.height, 16, 9, Colour_YCbCr_709, Sampling_422, 10, Quadrant_None, 0, false); });
    auto expectRowsOf = [&](const std::string& lower, int firstRow) {
        auto fresh = makeCard(r, Colour_YCbCr_709, "PM5544", lower, "", 10, Sampling_422);
        for (int y = firstRow; y < r.height; ++y)
            for (int x = 0; x < r.width; ++x)
                ASSERT_TRUE(moving->body(x, y).sameCodes(fresh->body(x, y))) << lower << " x=" << x << " y=" << y;
    };
    expectRowsOf("10:00:00", 0);
    const int row = (lowerBox(r).top + lowerBox(r).bottom) / 2;
    moving->body(0, row);
    moving->setLowerText("23:59:59");
    expectRowsOf("23:59:59", row);
    expectRowsOf("23:59:59", 0);
}

// Every raster shape and pixel aspect the program accepts, with short, long and far too long texts, and a
// 4:3 card in every encoding: text pixels lie inside their box on black, between black and full white.
TEST(CardText, EveryAcceptedShapeAndEncodingKeepsTheTextInsideItsBox) {
    struct Case {
        Raster raster;
        colorAxes_e axes;
        std::string text;
    };
    std::vector<Case> cases;
    const struct {
        int width, height;
    } rasters[] = {{64, 64}, {64, 16384}, {16384, 64}, {64, 1200}, {300, 900}, {67, 255}, {1920, 1080}};
    // Pixel aspects (width over height on the display) as a fraction, 1:4 to 4:1.
    const struct { int num, den; } pixelAspects[] = {{1, 4}, {1, 2}, {1, 1}, {4, 1}};
    for (const auto& raster : rasters)
        for (const auto& aspect : pixelAspects)
            for (const std::string& text :
                 {std::string("I"), std::string("PM5544 Station"), std::string(60, 'W'), std::string(300, 'M')})
                cases.push_back({{raster.width, raster.height, raster.width * aspect.num, raster.height * aspect.den},
                                 Colour_RGB,
                                 text});
    const size_t shapes = cases.size();
    for (int axis = 0; axis < colourAxesCount; ++axis)
        cases.push_back({{384, 288, 4, 3}, colorAxes_e(axis), "A CAPTION"});
    std::vector<Pixel> scratchText, scratchPlain;
    for (size_t n = 0; n < cases.size(); ++n) {
        const Raster& r = cases[n].raster;
        const Box boxes[] = {upperBox(r), lowerBox(r)};
        auto plain = makeCard(r, cases[n].axes), card = makeCard(r, cases[n].axes, cases[n].text, cases[n].text);
        const Pixel &black = plain->black, &white = plain->white;
        const std::string where = std::to_string(r.width) + "x" + std::to_string(r.height) + " at " +
                                  std::to_string(r.aspectNum) + ":" + std::to_string(r.aspectDen) + " " +
                                  axisToString(cases[n].axes) + " text " + std::to_string(cases[n].text.size());
        long changed[2] = {0, 0}, fullWhite = 0;
        for (int y = 0; y < r.height; ++y) {
            const Pixel* withText = card->bodyRow(y, 0, r.width, scratchText);
            const Pixel* without = plain->bodyRow(y, 0, r.width, scratchPlain);
            for (int x = 0; x < r.width; ++x) {
                const Pixel& p = withText[x];
                if (p.sameCodes(without[x])) continue;
                const int in = boxes[0].holds(x, y) ? 0 : 1;
                const Box& box = boxes[in];
                ASSERT_TRUE(box.holds(x, y) && x > box.lineRight + kShapingReach && without[x].sameCodes(black))
                    << where << " x=" << x << " y=" << y;
                // A box edge on the canvas is shaped: the text keeps clear of it.
                ASSERT_TRUE((box.left < 0 || x > box.left + kShapingReach) &&
                            (box.right >= r.width || x < box.right - kShapingReach))
                    << where << " x=" << x << " y=" << y;
                for (int i = Pixel::CB_B; i <= Pixel::ALPHA; ++i)
                    ASSERT_TRUE(std::min(black.sample[i], white.sample[i]) <= p.sample[i] &&
                                p.sample[i] <= std::max(black.sample[i], white.sample[i]))
                        << where << " sample " << i;
                ++changed[in];
                fullWhite += p.sameCodes(white);
            }
        }
        if (n >= shapes) {
            EXPECT_TRUE(changed[0] > 50 && changed[1] > 50 && fullWhite > 0) << where;
        }
    }
}
