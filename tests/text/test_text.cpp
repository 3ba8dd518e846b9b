// Fonts and the text overlay read back from layer 0; LeakSanitizer checks the Pango and Cairo objects.
#include <ft2build.h>
#include FT_FREETYPE_H
#include <fontconfig/fontconfig.h>
#include <gtest/gtest.h>
#include <pango/pangocairo.h>
#include <pango/pangofc-font.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "TestFiles.h"
#include "TestPattern.h"
#include "pattern/PatternWrapper.h"

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

// The file Pango loads for a description.
std::string fileDrawnFor(const PangoFontDescription* description) {
    PangoFontMap* map = pango_cairo_font_map_get_default();
    PangoContext* context = pango_font_map_create_context(map);
    PangoFont* font = pango_font_map_load_font(map, context, description);
    FcChar8* file = nullptr;
    const bool found = font != nullptr && FcPatternGetString(pango_fc_font_get_pattern(PANGO_FC_FONT(font)), FC_FILE, 0,
                                                             &file) == FcResultMatch;
    const std::string path = found ? reinterpret_cast<const char*>(file) : "";
    if (font != nullptr) g_object_unref(font);
    g_object_unref(context);
    return path;
}

// A name resolves as fc-match resolves it, bold unless the name says otherwise; the family's fonts are
// listed, the match first, and Pango draws in that file.
TEST(FontLoading, NamesResolveAsFontconfigMatchesThem) {
    for (const char* name : {"Monospace", "serif", "Sans", "Sans:bold", "DejaVu Sans Mono", "DejaVu Sans:book"}) {
        const std::string family = TestFiles::commandOutput(std::string("fc-match -f '%{family[0]}' '") + name + "'");
        const std::string listCommand = "fc-list '" + family + "' --format='%{file}\\n' 2>/dev/null";
        const size_t familyFonts = splitLines(TestFiles::commandOutput(listCommand)).size();
        if (family.empty() || familyFonts == 0) GTEST_SKIP() << "fc-match or the fonts are missing";
        CaptionPattern pattern({});
        std::string printed;
        pattern.messages = into(printed);
        const int status = pattern.defineFont(name);
        const std::vector<std::string> lines = splitLines(printed);
        const TTFont& font = pattern.fonts.at(0);
        ASSERT_TRUE(TTFont::Loaded == status && font.face != nullptr && lines.size() == familyFonts + 2) << name;
        EXPECT_EQ("Available fonts: " + std::to_string(familyFonts), lines[0]) << name;
        EXPECT_EQ(0u, lines[1].rfind("Font: /", 0)) << name;
        const std::string style = font.face->style_name;
        EXPECT_EQ("FreetypeFont: '" + family + "'  style: '" + style + "'", lines.back()) << name;
        EXPECT_EQ(std::string(name).find(":book") == std::string::npos, style.find("Bold") != std::string::npos)
            << name << ": " << style;
        int pixelSize = 0;
        PangoFontDescription* description = pattern.getFont(0, H, 100, pixelSize);
        EXPECT_EQ(lines[1].substr(6), fileDrawnFor(description)) << name;
        pango_font_description_free(description);
    }
}

// A family that matches nothing is reported as such and keeps its place among the pattern's fonts.
TEST(FontLoading, AFamilyThatMatchesNothingKeepsItsPlace) {
    CaptionPattern pattern({});  // no font until setup runs
    std::string printed;
    pattern.messages = into(printed);
    const int status = pattern.defineFont("Nonexistent Family 7f3e");
    EXPECT_EQ("Available fonts: 0\nFont: (none)\nFreetypeFont: Failed to load '(none)' \n", printed);
    EXPECT_TRUE(TTFont::OpenFailed == status && pattern.fonts.size() == 1 && pattern.fonts[0].face == nullptr);
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

// The line's trailing blanks are dropped before it is measured.
TEST(TextOverlay, TrailingBlanksAreDropped) { EXPECT_EQ("HH", slug(*draw({"HH  \t\r\n"})).text); }
