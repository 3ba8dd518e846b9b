// Font loading through Fontconfig/FreeType and the Pango descriptions made from it.
#include <ft2build.h>
#include FT_FREETYPE_H
#include <gtest/gtest.h>
#include <pango/pango.h>

#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "PatternWrapper.h"
#include "TestFiles.h"

// Fontconfig leaks while parsing its configuration and Pango's fontconfig backend keeps caches LeakSanitizer
// cannot see; neither is ours. Matching them needs whole allocation stacks, which the frame-pointer unwinder
// loses inside those libraries.
extern "C" const char* __asan_default_options() { return "fast_unwind_on_malloc=0"; }
extern "C" const char* __lsan_default_suppressions() {
    return "leak:FcInitLoadConfigAndFonts\nleak:libpangoft2-1.0.so\n";
}

namespace {

using TestFiles::stdoutOf;

struct FontOnlyPattern : PatternSpec {
    void setup() override {}
    Pixel body(int, int) override { return Pixel(); }
};

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

TEST(FontLoading, ReportsEveryMatchAndLoadsTheFirst) {
    const std::vector<std::string> listed =
        splitLines(TestFiles::commandOutput("fc-list 'DejaVu Sans Mono' --format='%{file}\\n' 2>/dev/null"));
    const std::set<std::string> expected(listed.begin(), listed.end());
    if (expected.size() < 2) GTEST_SKIP() << "fc-list or the DejaVu fonts are missing";

    TTFont font;
    int status = -1;
    const std::vector<std::string> lines =
        splitLines(stdoutOf([&] { status = font.createCairoFontfaceFromFile(nullptr, "DejaVu Sans Mono"); }));
    ASSERT_EQ(TTFont::Loaded, status);
    ASSERT_NE(nullptr, font.cairoFace);
    ASSERT_EQ(expected.size() + 2, lines.size());
    EXPECT_EQ("Available fonts: " + std::to_string(expected.size()), lines[0]);
    std::set<std::string> printed;
    for (size_t i = 1; i + 1 < lines.size(); ++i) {
        const std::string prefix = i == 1 ? "Font: " : "Alt Font: ";
        ASSERT_EQ(0u, lines[i].rfind(prefix, 0)) << lines[i];
        printed.insert(lines[i].substr(prefix.size()));
    }
    EXPECT_EQ(expected, printed);

    // The face is the first file's: a Bold file name gives a Bold style, and the description names it.
    const std::string style = font.face->style_name;
    EXPECT_EQ("FreetypeFont: 'DejaVu Sans Mono'  style: '" + style + "'", lines.back());
    EXPECT_EQ(lines[1].find("Bold") != std::string::npos, style.find("Bold") != std::string::npos);
    EXPECT_EQ("DejaVu Sans Mono, " + style + " 100", font.fontDescForSize(100));
}

// A failed font keeps its place, so later font numbers follow the order of the calls.
TEST(FontLoading, UnknownFamilyFailsAndStillTakesItsPlace) {
    FontOnlyPattern pattern;
    int first = -1, second = -1;
    EXPECT_EQ("Available fonts: 0\nFont: (none)\nFreetypeFont: Failed to load '(none)' \n",
              stdoutOf([&] { first = pattern.defineFont("Nonexistent Family 7f3e"); }));
    stdoutOf([&] { second = pattern.defineFont("DejaVu Sans"); });
    EXPECT_EQ(TTFont::OpenFailed, first);
    ASSERT_EQ(2u, pattern.fonts.size());
    EXPECT_EQ(nullptr, pattern.fonts[0].face);
    EXPECT_EQ("", pattern.fonts[0].fontDescForSize(100));
    if (second != TTFont::Loaded) GTEST_SKIP() << "DejaVu Sans is missing";
    EXPECT_STREQ("DejaVu Sans", pattern.fonts[1].face->family_name);
}

// height * percent * 1024 / 792, truncated, in Pango units; pixels are that / 1024, truncated. Without a
// usable font the family is left to Pango's default.
TEST(FontSize, FollowsFrameHeightAndPercentageWithOrWithoutAFont) {
    FontOnlyPattern pattern;
    const int cases[][4] = {
        {1080, 100, 139636, 136}, {576, 50, 37236, 36}, {576, 100, 74472, 72}, {4320, 400, 2234181, 2181}};
    for (bool defined : {false, true}) {
        if (defined && stdoutOf([&] { pattern.defineFont("DejaVu Sans"); }).find("Failed") != std::string::npos)
            GTEST_SKIP() << "DejaVu Sans is missing";
        for (const auto& c : cases) {
            int pixelSize = -1;
            PangoFontDescription* font = pattern.getFont(0, c[0], c[1], pixelSize);
            EXPECT_EQ(c[2], pango_font_description_get_size(font)) << c[0] << " " << c[1];
            EXPECT_TRUE(pango_font_description_get_size_is_absolute(font));
            EXPECT_EQ(c[3], pixelSize) << c[0] << " " << c[1];
            EXPECT_EQ(defined, pango_font_description_get_family(font) != nullptr);
            pango_font_description_free(font);
        }
    }
}

}  // namespace
