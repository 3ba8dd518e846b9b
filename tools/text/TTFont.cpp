// Finding a font through Fontconfig's matching and loading it with FreeType for Cairo.
#include "text/TTFont.h"

#include <cairo-ft.h>
#include <cairo.h>
#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

// Shown in the messages when no font file matched the name.
const char* const noFontPath = "(none)";

// Cairo may keep a face cached after its last user lets it go: the FreeType face and library are
// released with the Cairo face, through its user data.
const cairo_user_data_key_t freeTypeKey{};

struct FreeTypeFace {
    FT_Library library = nullptr;
    FT_Face face = nullptr;
    ~FreeTypeFace() {
        if (face) FT_Done_Face(face);
        if (library) FT_Done_FreeType(library);
    }
};

void releaseFreeType(void* data) { delete static_cast<FreeTypeFace*>(data); }

// Reads the "file" property of a font; false when it has none.
bool fontFilePath(const FcPattern* font, std::string& path) {
    FcChar8* file = nullptr;
    if (FcPatternGetString(font, FC_FILE, 0, &file) != FcResultMatch || file == nullptr) return false;
    path = reinterpret_cast<const char*>(file);
    return true;
}

// The face within the font's file (a collection holds several); 0 when not given.
int faceIndex(const FcPattern* font) {
    int index = 0;
    return FcPatternGetInteger(font, FC_INDEX, 0, &index) == FcResultMatch ? index : 0;
}

std::string familyOf(const FcPattern* font) {
    FcChar8* family = nullptr;
    return FcPatternGetString(font, FC_FAMILY, 0, &family) == FcResultMatch ? reinterpret_cast<const char*>(family)
                                                                            : "";
}

// The look the text is drawn in, wherever the name does not say otherwise: bold, upright, normal width.
void preferBoldUpright(FcPattern* request) {
    const struct {
        const char* object;
        int value;
    } preferences[] = {{FC_WEIGHT, FC_WEIGHT_BOLD}, {FC_SLANT, FC_SLANT_ROMAN}, {FC_WIDTH, FC_WIDTH_NORMAL}};
    FcValue given;
    for (const auto& preference : preferences)
        if (FcPatternGet(request, preference.object, 0, &given) != FcResultMatch)
            FcPatternAddInteger(request, preference.object, preference.value);
}

// Where a family stands in the request's list of families; -1 when it is not there.
int familyPosition(const FcPattern* request, const FcChar8* family) {
    FcChar8* listed = nullptr;
    for (int i = 0; FcPatternGetString(request, FC_FAMILY, i, &listed) == FcResultMatch; ++i)
        if (FcStrCmpIgnoreCase(listed, family) == 0) return i;
    return -1;
}

// Whether the match only stands in for a family that is not installed. Substituting, the configuration
// puts the families it takes for a name (the fonts of Monospace or serif, an alias's family) before the
// name, or replaces the name, and appends its general fallback after it: a match from after the name is
// that fallback.
bool isFallback(const std::string& requested, const FcPattern* request, const FcPattern* match) {
    int matched = -1;
    FcChar8* family = nullptr;
    for (int i = 0; FcPatternGetString(match, FC_FAMILY, i, &family) == FcResultMatch; ++i) {
        const int at = familyPosition(request, family);
        if (at >= 0 && (matched < 0 || at < matched)) matched = at;
    }
    if (matched < 0) return true;
    const int asked = familyPosition(request, reinterpret_cast<const FcChar8*>(requested.c_str()));
    return !requested.empty() && asked >= 0 && matched > asked;
}

// Fontconfig's best match for a name, as fc-match finds it; null when the name does not parse, or only
// the fallback matches.
FcPattern* matchName(FcConfig* config, const char* name) {
    FcPattern* request = FcNameParse(reinterpret_cast<const FcChar8*>(name));
    if (request == nullptr) return nullptr;
    const std::string requested = familyOf(request);
    preferBoldUpright(request);
    FcConfigSubstitute(config, request, FcMatchPattern);
    FcDefaultSubstitute(request);
    FcResult result = FcResultNoMatch;
    FcPattern* match = FcFontMatch(config, request, &result);
    if (match != nullptr && isFallback(requested, request, match)) {
        FcPatternDestroy(match);
        match = nullptr;
    }
    FcPatternDestroy(request);
    return match;
}

// Lists the installed fonts of one family with the properties we report.
FcFontSet* listFamily(FcConfig* config, const std::string& family) {
    FcPattern* pattern = FcPatternBuild(nullptr, FC_FAMILY, FcTypeString, family.c_str(), static_cast<char*>(nullptr));
    FcObjectSet* properties =
        FcObjectSetBuild(FC_FAMILY, FC_STYLE, FC_LANG, FC_FILE, FC_INDEX, static_cast<char*>(nullptr));
    FcFontSet* fonts = FcFontList(config, pattern, properties);
    FcObjectSetDestroy(properties);
    FcPatternDestroy(pattern);
    return fonts;
}

// Reports the fonts of the matched family: the match first as "Font:", then the others.
void reportMatch(FcConfig* config, const FcPattern* match, const std::string& path, const MessageSink& messages) {
    std::vector<std::string> others;
    FcFontSet* family = listFamily(config, familyOf(match));
    for (int i = 0; family != nullptr && i < family->nfont; ++i) {
        std::string other;
        const bool isMatch =
            fontFilePath(family->fonts[i], other) && other == path && faceIndex(family->fonts[i]) == faceIndex(match);
        if (!other.empty() && !isMatch) others.push_back(other);
    }
    if (family != nullptr) FcFontSetDestroy(family);
    report(messages, MessageKind::Progress, "Available fonts: %d\n", static_cast<int>(others.size()) + 1);
    report(messages, MessageKind::Progress, "Font: %s\n", path.c_str());
    for (const std::string& other : others) report(messages, MessageKind::Progress, "Alt Font: %s\n", other.c_str());
}

const char* orEmpty(const char* text) { return text ? text : ""; }

}  // namespace

struct TTFont::Resources {
    FcPattern* match = nullptr;
    cairo_font_face_t* cairoFace = nullptr;
    ~Resources() {
        if (cairoFace) cairo_font_face_destroy(cairoFace);
        if (match) FcPatternDestroy(match);
    }
};

int TTFont::load(const char* name, const MessageSink& messages) {
    FcInit();
    FcConfig* config = FcConfigGetCurrent();
    // The font list is not re-read while the program runs.
    FcConfigSetRescanInterval(config, 0);

    FcPattern* found = matchName(config, name ? name : "");
    std::string path;
    if (found == nullptr || !fontFilePath(found, path)) {
        if (found != nullptr) FcPatternDestroy(found);
        report(messages, MessageKind::Progress, "Available fonts: 0\nFont: %s\n", noFontPath);
        report(messages, MessageKind::Progress, "FreetypeFont: Failed to load '%s' \n", noFontPath);
        return OpenFailed;
    }
    reportMatch(config, found, path, messages);
    auto resources = std::make_shared<Resources>();
    resources->match = found;

    auto freeType = std::make_unique<FreeTypeFace>();
    if (FT_Init_FreeType(&freeType->library) != 0 ||
        FT_New_Face(freeType->library, path.c_str(), faceIndex(found), &freeType->face) != 0) {
        report(messages, MessageKind::Progress, "FreetypeFont: Failed to load '%s' \n", path.c_str());
        return OpenFailed;
    }
    resources->cairoFace = cairo_ft_font_face_create_for_ft_face(freeType->face, FT_LOAD_NO_AUTOHINT);
    FT_Face loaded = freeType->face;
    if (cairo_font_face_status(resources->cairoFace) != CAIRO_STATUS_SUCCESS ||
        cairo_font_face_set_user_data(resources->cairoFace, &freeTypeKey, freeType.get(), releaseFreeType) !=
            CAIRO_STATUS_SUCCESS) {
        report(messages, MessageKind::Progress, "FreetypeFont: Failed to make Cairo font '%s' \n", path.c_str());
        resources.reset();  // before the FreeType face it was made from
        return CairoFailed;
    }
    freeType.release();  // now the Cairo face's

    resources_ = std::move(resources);
    cairoFace = resources_->cairoFace;
    face = loaded;
    match = found;
    report(messages, MessageKind::Progress, "FreetypeFont: '%s'  style: '%s'\n", orEmpty(face->family_name),
           orEmpty(face->style_name));
    return Loaded;
}
