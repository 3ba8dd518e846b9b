// The text overlay read back from layer 0: placement, alignment, trimming, gaps, rotation and attributes.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <utility>

#include "PatternWrapper.h"

// Leak checking of the font libraries. Fontconfig leaks while parsing its configuration, and Pango's
// fontconfig backend keeps caches that LeakSanitizer cannot see; neither is ours, while our own Fontconfig
// and Pango allocations stay checked. Matching them needs whole allocation stacks, which the frame-pointer
// unwinder loses inside those libraries. (Leaked font descriptions show only with G_SLICE=always-malloc set
// in the environment: GLib's slice allocator keeps them reachable otherwise.)
extern "C" const char* __asan_default_options() { return "fast_unwind_on_malloc=0"; }
extern "C" const char* __lsan_default_suppressions() {
    return "leak:FcInitLoadConfigAndFonts\n"
           "leak:libpangoft2-1.0.so\n";
}

namespace {

constexpr int W = 320;
constexpr int H = 180;

using Script = std::function<void(PatternSpec&)>;

// A pattern that only carries captions: optional font and layer, then the test's text calls.
class CaptionPattern : public PatternSpec {
public:
    CaptionPattern(Script script, bool withLayer, const char* family)
        : script_(std::move(script)), withLayer_(withLayer), family_(family) {}
    void setup() override {
        if (family_) defineFont(family_);
        if (withLayer_) newLayer();
        script_(*this);
    }
    Pixel body(int, int) override { return Pixel(); }

private:
    Script script_;
    bool withLayer_;
    const char* family_;
};

struct InkBox {
    int minX = INT_MAX, minY = INT_MAX, maxX = -1, maxY = -1;
    long count = 0;
};

// Bounding box of the overlay pixels that carry any text level.
InkBox inkOf(const PatternSpec& pattern) {
    InkBox box;
    for (int y = 0; y < H; ++y) {
        for (int x = 0; x < W; ++x) {
            if (pattern.getOverlay(0, 0, y, x, W) == 0) continue;
            box = {std::min(box.minX, x), std::min(box.minY, y), std::max(box.maxX, x), std::max(box.maxY, y),
                   box.count + 1};
        }
    }
    return box;
}

// Runs setup through init, fills the layer with garbage and draws the text over it.
std::unique_ptr<CaptionPattern> draw(Script script, bool withLayer = true, const char* family = "DejaVu Sans") {
    auto pattern = std::make_unique<CaptionPattern>(std::move(script), withLayer, family);
    testing::internal::CaptureStdout();
    pattern->init(W, H, 16, 9, PatternGen::Colour_RGB, PatternGen::Sampling_444, 12, PatternGen::Quadrant_None, 0,
                  false);
    testing::internal::GetCapturedStdout();
    if (withLayer) std::memset(pattern->layers[0], 0xA5, static_cast<size_t>(W) * H * 4);
    EXPECT_EQ(pattern->render_text(W, H), 0);
    EXPECT_EQ(pattern->cairoContext, nullptr);
    return pattern;
}

// One line at a cursor with an alignment, at size 100 (22 pixels on 180 lines).
Script line(const char* text, int x, int y, TextSlug::horizAlign_e horiz, TextSlug::vertAlign_e vert) {
    return [=](PatternSpec& p) {
        p.textCursor(x, y);
        p.textAlign(horiz, vert);
        p.setText(text);
    };
}

const TextSlug& slug(const PatternSpec& pattern, size_t index = 0) { return *pattern.textLines.at(0)->slugs.at(index); }

}  // namespace

TEST(TextOverlay, WhiteTextOnAClearedLayerInsideItsBox) {
    auto pattern = draw(line("HHHH", 10, 20, TextSlug::left, TextSlug::top));
    const InkBox ink = inkOf(*pattern);
    const int x0 = W * 10 / 100, y0 = H * 20 / 100;
    ASSERT_GT(ink.count, 0);
    EXPECT_EQ(slug(*pattern).fontPixelSize, 22);
    EXPECT_GE(ink.minX, x0);
    EXPECT_LE(ink.minX, x0 + 6);
    EXPECT_LE(ink.maxX, x0 + slug(*pattern).measuredWidth);
    EXPECT_GE(ink.minY, y0);
    EXPECT_LE(ink.maxY, y0 + slug(*pattern).baseline);

    // Read as raw little-endian 30-bit words: grey everywhere (red = green = blue) and full white inside.
    uint32_t brightest = 0;
    for (size_t i = 0; i < static_cast<size_t>(W) * H; ++i) {
        const unsigned char* p = pattern->layers[0] + 4 * i;
        const uint32_t word = p[0] | p[1] << 8 | p[2] << 16 | static_cast<uint32_t>(p[3]) << 24;
        const uint32_t red = (word >> 20) & 0x3FF, green = (word >> 10) & 0x3FF, blue = word & 0x3FF;
        ASSERT_TRUE(red == green && green == blue) << i;
        brightest = std::max(brightest, green);
    }
    EXPECT_EQ(brightest, 1023u);
}

TEST(TextOverlay, AlignmentsShiftTheInkByAdvanceAndBaseline) {
    auto left = draw(line("Hello", 50, 40, TextSlug::left, TextSlug::top));
    auto right = draw(line("Hello", 50, 40, TextSlug::right, TextSlug::bottom));
    auto centred = draw(line("Hello", 0, 40, TextSlug::centre, TextSlug::middle));
    const int advance = slug(*left).measuredWidth, b = slug(*left).baseline;
    const InkBox l = inkOf(*left), r = inkOf(*right), c = inkOf(*centred);
    ASSERT_GT(l.count, 0);
    // Left starts at the cursor, right ends there, centred straddles the middle of the frame.
    EXPECT_GE(l.minX, W / 2);
    EXPECT_LE(r.maxX, W / 2);
    EXPECT_EQ(l.minX - r.minX, advance);
    EXPECT_EQ(c.minX - r.minX, (W / 2 - advance / 2) - (W / 2 - advance));
    // Bottom puts the layout one baseline lower than top; middle half a baseline higher.
    EXPECT_EQ(r.minY - l.minY, b);
    EXPECT_EQ(l.minY - c.minY, b / 2);
}

TEST(TextOverlay, OnlyTheLastSlugLosesTrailingBlanksAndGapsAdvanceThePen) {
    auto plain = draw(line("HH", 0, 10, TextSlug::left, TextSlug::top));
    auto padded = draw(line("HH  \t\r\n", 0, 10, TextSlug::left, TextSlug::top));
    EXPECT_EQ(slug(*padded).text, "HH");
    EXPECT_EQ(slug(*padded).measuredWidth, slug(*plain).measuredWidth);
    EXPECT_EQ(inkOf(*padded).maxX, inkOf(*plain).maxX);

    // Two slugs "HH  " on one line, the first followed by a gap of 1.5 font sizes.
    auto twoSlugs = draw([](PatternSpec& p) {
        line("HH  ", 0, 10, TextSlug::left, TextSlug::top)(p);
        TextSlug* first = p.textLines.back()->slugs[0];
        first->gap = 1.5;
        p.textLines.back()->slugs.push_back(new TextSlug(*first));
    });
    const TextSlug& first = slug(*twoSlugs, 0);
    EXPECT_EQ(first.text, "HH  ");
    EXPECT_EQ(slug(*twoSlugs, 1).text, "HH");
    EXPECT_GT(first.measuredWidth, slug(*plain).measuredWidth);
    EXPECT_EQ(inkOf(*twoSlugs).maxX,
              inkOf(*plain).maxX + first.measuredWidth + static_cast<int>(first.fontPixelSize * 1.5));
}

TEST(TextOverlay, RotatedLineRunsDownTheFrame) {
    auto level = draw(line("HHHHHH", 0, 0, TextSlug::centre, TextSlug::middle));
    auto turned = draw([](PatternSpec& p) {
        line("HHHHHH", 0, 0, TextSlug::centre, TextSlug::middle)(p);
        p.textLines.back()->rotated = true;
    });
    const InkBox flat = inkOf(*level), upright = inkOf(*turned);
    ASSERT_GT(upright.count, 0);
    EXPECT_GT(flat.maxX - flat.minX, 2 * (flat.maxY - flat.minY));
    EXPECT_GT(upright.maxY - upright.minY, 2 * (upright.maxX - upright.minX));
    EXPECT_LT(upright.minY, H / 2);
    EXPECT_GT(upright.maxY, H / 2);
}

TEST(TextOverlay, AttributesChangeTheLayoutWithTheDefaultFamily) {
    // No font defined: Pango's default family, upright and of normal weight unless the slug says otherwise.
    auto styled = [](bool bold, bool italic, double spacing) {
        return draw(
            [=](PatternSpec& p) {
                line("Hello", 0, 0, TextSlug::left, TextSlug::top)(p);
                TextSlug* s = p.textLines.back()->slugs[0];
                s->bold = bold;
                s->italic = italic;
                s->letterSpacing = spacing;
            },
            true, nullptr);
    };
    auto regular = styled(false, false, 0.0), bold = styled(true, false, 0.0);
    auto italic = styled(false, true, 0.0), spaced = styled(false, false, 0.5);
    EXPECT_GT(inkOf(*regular).count, 0);
    EXPECT_GT(slug(*bold).measuredWidth, slug(*regular).measuredWidth);
    EXPECT_NE(std::memcmp(italic->layers[0], regular->layers[0], static_cast<size_t>(W) * H * 4), 0);
    // Five letters spaced by half a font size: two to two and a half font sizes wider.
    const int extra = slug(*spaced).measuredWidth - slug(*regular).measuredWidth;
    EXPECT_GE(extra, 2 * 22 - 2);
    EXPECT_LE(extra, 5 * 22 / 2 + 2);
}

TEST(TextOverlay, WithoutALayerNothingIsLaidOut) {
    auto pattern = draw(line("HHHH", 10, 20, TextSlug::left, TextSlug::top), false);
    EXPECT_TRUE(pattern->layers.empty());
    EXPECT_EQ(slug(*pattern).measuredWidth, 0);
    EXPECT_EQ(slug(*pattern).font, nullptr);
}
