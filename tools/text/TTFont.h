// A TrueType font found through Fontconfig and loaded with FreeType for Cairo.
#pragma once

#include <string>

typedef struct _cairo cairo_t;
typedef struct _cairo_font_face cairo_font_face_t;
typedef struct FT_FaceRec_* FT_Face;

class TTFont {
public:
    // Load status codes.
    enum { Loaded = 0, OpenFailed = 2, CairoFailed = 3 };

    // Shared between copies and kept for the whole run: the destructor releases nothing.
    cairo_font_face_t* cairoFace = nullptr;
    FT_Face face = nullptr;

    // Finds the family, opens its first match and wraps it for Cairo; the context is not used.
    int createCairoFontfaceFromFile(cairo_t* cr, const char* family);

    // "Family, Style size", or "" when no face is loaded.
    std::string fontDescForSize(int size) const;
};
