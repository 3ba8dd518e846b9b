// Fonts and the text overlay: font lines printed, getFont sizes, and text read back from layer 0;
// LeakSanitizer checks the Pango and Cairo objects.
#include <ft2build.h>
#include FT_FREETYPE_H
#include <gtest/gtest.h>
#include <pango/pango.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "pattern/PatternWrapper.h"
#include "TestFiles.h"


namespace {

using TestFiles::stdoutOf;

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

constexpr int W = 320, H = 180;
constexpr size_t kLayerBytes = size_t(W) * H * 4;

// One line of text at a cursor in percent of the frame, at size 100.
struct Caption {
    const char* text = "HH";
    int x = 0, y = 10;
    TextSlug::horizAlign_e horiz = TextSlug::left;
    TextSlug::vertAlign_e vert = TextSlug::top;
    std::function<void(TextLine&)> adjust = nullptr;
};

// A pattern whose setup defines the caption's font and layer and places its text.
class CaptionPattern : public PatternSpec {
public:
    explicit CaptionPattern(Caption caption) : c(std::move(caption)) {}
    void setup() override {
        defineFont("DejaVu Sans");
        newLayer();
        textCursor(c.x, c.y);
        textAlign(c.horiz, c.vert);
        setText(c.text);
        if (c.adjust) c.adjust(*textLines.back());
    }
    Pixel body(int, int) override { return Pixel(); }
    const Caption c;
};

// Runs setup through init, fills the layer with garbage and draws the caption over it.
std::unique_ptr<CaptionPattern> draw(const Caption& c) {
    auto pattern = std::make_unique<CaptionPattern>(c);
    stdoutOf([&] {
        pattern->init(W, H, 16, 9, PatternGen::Colour_RGB, PatternGen::Sampling_444, 12, PatternGen::Quadrant_None, 0,
                      false);
    });
    std::memset(pattern->layers[0], 0xA5, kLayerBytes);
    EXPECT_EQ(0, pattern->render_text(W, H));
    EXPECT_EQ(nullptr, pattern->cairoContext);
    return pattern;
}

struct InkBox {
    int minX = INT_MAX, minY = INT_MAX, maxX = -1, maxY = -1;
    long count = 0;
};

// Bounding box of the overlay pixels that carry any text level.
InkBox inkOf(const PatternSpec& pattern) {
    InkBox box;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x)
            if (pattern.getOverlay(0, 0, y, x, W) != 0)
                box = {std::min(box.minX, x), std::min(box.minY, y), std::max(box.maxX, x), std::max(box.maxY, y),
                       box.count + 1};
    return box;
}

const TextSlug& slug(const PatternSpec& pattern, size_t index = 0) { return *pattern.textLines.at(0)->slugs.at(index); }

}  // namespace

// Every match is reported, the first as "Font:"; the face loaded is the first file's.
TEST(FontLoading, ReportsEveryMatchAndLoadsTheFirst) {
    const size_t matches =
        splitLines(TestFiles::commandOutput("fc-list 'DejaVu Sans Mono' --format='%{file}\\n' 2>/dev/null")).size();
    if (matches < 2) GTEST_SKIP() << "fc-list or the DejaVu fonts are missing";
    TTFont font;
    int status = -1;
    const std::vector<std::string> lines =
        splitLines(stdoutOf([&] { status = font.createCairoFontfaceFromFile(nullptr, "DejaVu Sans Mono"); }));
    ASSERT_TRUE(TTFont::Loaded == status && font.cairoFace != nullptr && lines.size() == matches + 2);
    EXPECT_EQ("Available fonts: " + std::to_string(matches), lines[0]);
    EXPECT_TRUE(lines[1].rfind("Font: /", 0) == 0 && lines[matches].rfind("Alt Font: /", 0) == 0);
    const std::string style = font.face->style_name;
    EXPECT_EQ("FreetypeFont: 'DejaVu Sans Mono'  style: '" + style + "'", lines.back());
    EXPECT_EQ("DejaVu Sans Mono, " + style + " 100", font.fontDescForSize(100));
}

// height * percent * 1024 / 792, truncated, in Pango units; pixels are that / 1024, truncated. A font that
// failed keeps its place, and its family is left to Pango's default.
TEST(FontSize, FollowsFrameHeightAndPercentageWithOrWithoutAFont) {
    CaptionPattern pattern({});  // no font until setup runs
    int failed = -1, loaded = -1;
    EXPECT_EQ("Available fonts: 0\nFont: (none)\nFreetypeFont: Failed to load '(none)' \n",
              stdoutOf([&] { failed = pattern.defineFont("Nonexistent Family 7f3e"); }));
    stdoutOf([&] { loaded = pattern.defineFont("DejaVu Sans"); });
    ASSERT_TRUE(TTFont::OpenFailed == failed && pattern.fonts.size() == 2 && pattern.fonts[0].face == nullptr);
    EXPECT_EQ("", pattern.fonts[0].fontDescForSize(100));
    if (loaded != TTFont::Loaded) GTEST_SKIP() << "DejaVu Sans is missing";
    const int cases[][4] = {{1080, 100, 139636, 136}, {576, 50, 37236, 36}, {4320, 400, 2234181, 2181}};
    for (int font : {0, 1})
        for (const auto& c : cases) {
            int pixelSize = -1;
            PangoFontDescription* description = pattern.getFont(font, c[0], c[1], pixelSize);
            EXPECT_EQ(c[2], pango_font_description_get_size(description)) << c[0] << " " << c[1];
            EXPECT_TRUE(pango_font_description_get_size_is_absolute(description));
            EXPECT_EQ(c[3], pixelSize) << c[0] << " " << c[1];
            EXPECT_EQ(font == 1, pango_font_description_get_family(description) != nullptr);
            pango_font_description_free(description);
        }
}

// White text on a cleared layer inside its box (size 100 is 22 pixels on 180 lines). Left starts at the
// cursor, right ends there, centred straddles the middle of the frame; bottom puts the layout one baseline
// lower than top, middle half a baseline higher; rotation turns the line.
TEST(TextOverlay, PlacementAlignmentAndRotation) {
    auto left = draw({"Hello", 50, 40});
    const InkBox l = inkOf(*left), r = inkOf(*draw({"Hello", 50, 40, TextSlug::right, TextSlug::bottom}));
    const InkBox c = inkOf(*draw({"Hello", 0, 40, TextSlug::centre, TextSlug::middle}));
    const int advance = slug(*left).measuredWidth, b = slug(*left).baseline, y0 = H * 40 / 100;
    ASSERT_GT(l.count, 0);
    EXPECT_EQ(22, slug(*left).fontPixelSize);
    EXPECT_TRUE(l.minX >= W / 2 && l.minX <= W / 2 + 6 && l.maxX <= W / 2 + advance) << l.minX;
    EXPECT_TRUE(l.minY >= y0 && l.maxY <= y0 + b) << l.minY;
    EXPECT_LE(r.maxX, W / 2);
    EXPECT_EQ(advance, l.minX - r.minX);
    EXPECT_EQ((W / 2 - advance / 2) - (W / 2 - advance), c.minX - r.minX);
    EXPECT_EQ(b, r.minY - l.minY);
    EXPECT_EQ(b / 2, l.minY - c.minY);
    const auto rotate = [](TextLine& t) { t.rotated = true; };
    const InkBox up = inkOf(*draw({"Hello", 0, 0, TextSlug::centre, TextSlug::middle, rotate}));
    EXPECT_GT(up.maxY - up.minY, 2 * (up.maxX - up.minX));
    EXPECT_TRUE(up.minY < H / 2 && up.maxY > H / 2);
    // Read as 30-bit words: grey everywhere (red = green = blue) and full white inside.
    uint32_t brightest = 0;
    for (size_t at = 0; at < kLayerBytes; at += 4) {
        uint32_t word;
        std::memcpy(&word, left->layers[0] + at, 4);
        const uint32_t red = (word >> 20) & 0x3FF, green = (word >> 10) & 0x3FF, blue = word & 0x3FF;
        ASSERT_TRUE(red == green && green == blue) << at;
        brightest = std::max(brightest, green);
    }
    EXPECT_EQ(1023u, brightest);
}

// Only the last slug of a line loses its trailing blanks; a gap advances the pen by gap x font size.
TEST(TextOverlay, OnlyTheLastSlugLosesTrailingBlanksAndGapsAdvanceThePen) {
    auto plain = draw({}), padded = draw({"HH  \t\r\n"});
    EXPECT_EQ("HH", slug(*padded).text);
    auto twoSlugs = draw({"HH  ", 0, 10, TextSlug::left, TextSlug::top, [](TextLine& l) {
                              l.slugs[0]->gap = 1.5;
                              l.slugs.push_back(new TextSlug(*l.slugs[0]));
                          }});
    const TextSlug& first = slug(*twoSlugs, 0);
    EXPECT_EQ("HH  ", first.text);
    EXPECT_EQ("HH", slug(*twoSlugs, 1).text);
    EXPECT_GT(first.measuredWidth, slug(*plain).measuredWidth);
    EXPECT_EQ(inkOf(*plain).maxX + first.measuredWidth + static_cast<int>(first.fontPixelSize * 1.5),
              inkOf(*twoSlugs).maxX);
}
