// Font loading through Fontconfig/FreeType and the Pango descriptions made from it.
#include <ft2build.h>
#include FT_FREETYPE_H
#include <gtest/gtest.h>
#include <pango/pango.h>

#include <cstdio>
#include <set>
#include <sstream>
#include <string>
#include <vector>

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

class FontOnlyPattern : public PatternSpec {
public:
    void setup() override {}
    Pixel body(int, int) override { return Pixel(); }
};

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

// The files that Fontconfig's own lister finds for a family (empty when the tool is missing).
std::set<std::string> filesListedByFcList(const std::string& family) {
    std::set<std::string> files;
    FILE* pipe = popen(("fc-list '" + family + "' --format='%{file}\\n' 2>/dev/null").c_str(), "r");
    if (!pipe) return files;
    char line[512];
    while (fgets(line, sizeof line, pipe)) files.insert(splitLines(line).at(0));
    pclose(pipe);
    return files;
}

}  // namespace

TEST(FontLoading, ReportsEveryMatchAndLoadsTheFirst) {
    const std::set<std::string> expected = filesListedByFcList("DejaVu Sans Mono");
    if (expected.size() < 2) GTEST_SKIP() << "fc-list or the DejaVu fonts are missing";

    TTFont font;
    testing::internal::CaptureStdout();
    ASSERT_EQ(font.createCairoFontfaceFromFile(nullptr, "DejaVu Sans Mono"), TTFont::Loaded);
    const std::vector<std::string> lines = splitLines(testing::internal::GetCapturedStdout());
    ASSERT_NE(font.cairoFace, nullptr);

    ASSERT_EQ(lines.size(), expected.size() + 2);
    EXPECT_EQ(lines[0], "Available fonts: " + std::to_string(expected.size()));
    ASSERT_EQ(lines[1].rfind("Font: ", 0), 0u);
    std::set<std::string> printed{lines[1].substr(6)};
    for (size_t i = 2; i + 1 < lines.size(); ++i) {
        ASSERT_EQ(lines[i].rfind("Alt Font: ", 0), 0u) << lines[i];
        printed.insert(lines[i].substr(10));
    }
    EXPECT_EQ(printed, expected);

    // The face is the first file's: a Bold file name gives a Bold style, and the description names it.
    const std::string style = font.face->style_name;
    EXPECT_EQ(lines.back(), "FreetypeFont: 'DejaVu Sans Mono'  style: '" + style + "'");
    EXPECT_EQ(lines[1].find("Bold") != std::string::npos, style.find("Bold") != std::string::npos);
    EXPECT_EQ(font.fontDescForSize(100), "DejaVu Sans Mono, " + style + " 100");
}

TEST(FontLoading, UnknownFamilyFailsAndStillTakesItsPlace) {
    FontOnlyPattern pattern;
    testing::internal::CaptureStdout();
    const int first = pattern.defineFont("Nonexistent Family 7f3e");
    const std::string printed = testing::internal::GetCapturedStdout();
    testing::internal::CaptureStdout();
    const int second = pattern.defineFont("DejaVu Sans");
    testing::internal::GetCapturedStdout();

    EXPECT_EQ(printed, "Available fonts: 0\nFont: (none)\nFreetypeFont: Failed to load '(none)' \n");
    EXPECT_EQ(first, TTFont::OpenFailed);
    ASSERT_EQ(pattern.fonts.size(), 2u);
    EXPECT_EQ(pattern.fonts[0].face, nullptr);
    EXPECT_EQ(pattern.fonts[0].fontDescForSize(100), "");
    if (second != TTFont::Loaded) GTEST_SKIP() << "DejaVu Sans is missing";
    EXPECT_STREQ(pattern.fonts[1].face->family_name, "DejaVu Sans");
}

TEST(FontSize, FollowsFrameHeightAndPercentageWithOrWithoutAFont) {
    FontOnlyPattern pattern;
    struct Case {
        int height, percent, pangoUnits, pixels;
    };
    // height * percent * 1024 / 792, truncated; pixels are that / 1024, truncated.
    const Case cases[] = {
        {1080, 100, 139636, 136}, {576, 50, 37236, 36}, {576, 100, 74472, 72}, {4320, 400, 2234181, 2181}};
    for (int defined = 0; defined < 2; ++defined) {
        for (const Case& c : cases) {
            int pixelSize = -1;
            PangoFontDescription* font = pattern.getFont(0, c.height, c.percent, pixelSize);
            EXPECT_EQ(pango_font_description_get_size(font), c.pangoUnits) << c.height << " " << c.percent;
            EXPECT_TRUE(pango_font_description_get_size_is_absolute(font));
            EXPECT_EQ(pixelSize, c.pixels) << c.height << " " << c.percent;
            // Without a usable font the family is left to Pango's default.
            EXPECT_EQ(pango_font_description_get_family(font) != nullptr, defined == 1);
            pango_font_description_free(font);
        }
        if (defined == 1) break;
        testing::internal::CaptureStdout();
        const int status = pattern.defineFont("DejaVu Sans");
        testing::internal::GetCapturedStdout();
        if (status != TTFont::Loaded) GTEST_SKIP() << "DejaVu Sans is missing";
    }
}
