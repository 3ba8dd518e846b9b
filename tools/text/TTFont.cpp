// Finding a font family through Fontconfig and loading its first file with FreeType for Cairo.
#include "text/TTFont.h"

#include <cairo-ft.h>
#include <cairo.h>
#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H

#include <cstdio>
#include <string>
#include <vector>

namespace {

// Shown in the messages when no font file matched the family.
const char* const noFontPath = "(none)";

// Loaded faces live for the whole run and TTFont copies share them, so nothing ever releases them.
// Each FreeType library (which owns its faces) and Cairo face is recorded here so they stay reachable
// rather than lost when the last TTFont copy goes away.
struct KeptFont {
    FT_Library library;
    cairo_font_face_t* cairoFace;
};

std::vector<KeptFont>& keptFonts() {
    // Deliberately never destroyed: the recorded objects outlive every static destructor.
    static std::vector<KeptFont>* kept = new std::vector<KeptFont>();
    return *kept;
}

// Reads the "file" property of a listed font; false when it has none.
bool fontFilePath(FcPattern* font, std::string& path) {
    FcChar8* file = nullptr;
    if (FcPatternGetString(font, FC_FILE, 0, &file) != FcResultMatch || file == nullptr) return false;
    path = reinterpret_cast<const char*>(file);
    return true;
}

// Lists the installed fonts of one family with the properties we report.
FcFontSet* listFamily(const char* family) {
    FcInit();
    FcConfig* config = FcConfigGetCurrent();
    // The font list is not re-read while the program runs.
    FcConfigSetRescanInterval(config, 0);

    FcPattern* pattern = FcPatternBuild(nullptr, FC_FAMILY, FcTypeString, family, static_cast<char*>(nullptr));
    FcObjectSet* properties = FcObjectSetBuild(FC_FAMILY, FC_STYLE, FC_LANG, FC_FILE, static_cast<char*>(nullptr));
    FcFontSet* matches = FcFontList(config, pattern, properties);
    FcObjectSetDestroy(properties);
    FcPatternDestroy(pattern);
    return matches;
}

// Prints the matches and returns the first one's file, or "" when there is none.
std::string reportMatches(const FcFontSet* matches) {
    const int count = matches ? matches->nfont : 0;
    printf("Available fonts: %d\n", count);
    if (count == 0) {
        printf("Font: %s\n", noFontPath);
        return "";
    }
    std::string firstPath;
    if (fontFilePath(matches->fonts[0], firstPath)) printf("Font: %s\n", firstPath.c_str());
    for (int i = 1; i < count; ++i) {
        std::string altPath;
        if (fontFilePath(matches->fonts[i], altPath)) printf("Alt Font: %s\n", altPath.c_str());
    }
    return firstPath;
}

const char* orEmpty(const char* text) { return text ? text : ""; }

}  // namespace

int TTFont::createCairoFontfaceFromFile(cairo_t* /*cr*/, const char* family) {
    FcFontSet* matches = listFamily(family ? family : "");
    const std::string path = reportMatches(matches);
    if (matches) FcFontSetDestroy(matches);

    if (path.empty()) {
        printf("FreetypeFont: Failed to load '%s' \n", noFontPath);
        return OpenFailed;
    }

    FT_Library library = nullptr;
    if (FT_Init_FreeType(&library) != 0 || FT_New_Face(library, path.c_str(), 0, &face) != 0) {
        face = nullptr;
        if (library) FT_Done_FreeType(library);
        printf("FreetypeFont: Failed to load '%s' \n", path.c_str());
        return OpenFailed;
    }

    cairoFace = cairo_ft_font_face_create_for_ft_face(face, FT_LOAD_NO_AUTOHINT);
    keptFonts().push_back(KeptFont{library, cairoFace});
    if (cairo_font_face_status(cairoFace) != CAIRO_STATUS_SUCCESS) {
        printf("FreetypeFont: Failed to make Cairo font '%s' \n", path.c_str());
        return CairoFailed;
    }

    printf("FreetypeFont: '%s'  style: '%s'\n", orEmpty(face->family_name), orEmpty(face->style_name));
    return Loaded;
}

std::string TTFont::fontDescForSize(int size) const {
    if (face == nullptr) return "";
    return std::string(orEmpty(face->family_name)) + ", " + orEmpty(face->style_name) + " " + std::to_string(size);
}
