// A font found through Fontconfig's matching and loaded with FreeType for Cairo.
#pragma once

typedef struct _cairo cairo_t;
typedef struct _cairo_font_face cairo_font_face_t;
typedef struct FT_FaceRec_* FT_Face;
typedef struct _FcPattern FcPattern;

class TTFont {
public:
    // Load status codes.
    enum { Loaded = 0, OpenFailed = 2, CairoFailed = 3 };

    // Shared between copies and kept for the whole run: the destructor releases nothing.
    cairo_font_face_t* cairoFace = nullptr;
    FT_Face face = nullptr;
    // The font Fontconfig matched, which text is drawn with; null until loaded.
    FcPattern* match = nullptr;

    // Finds the best match for a Fontconfig name ("DejaVu Sans", "Monospace", "Sans:bold"; what the name
    // leaves open is taken as bold, upright and of normal width, the look of the text), opens it and wraps
    // it for Cairo; the context is not used. A name whose family is not installed, and that the
    // configuration names no substitute for, fails like a name that matches nothing.
    int createCairoFontfaceFromFile(cairo_t* cr, const char* name);
};
