// A font found through Fontconfig's matching and loaded with FreeType for Cairo.
#pragma once

#include <memory>

#include "messages/Messages.h"

typedef struct _cairo cairo_t;
typedef struct _cairo_font_face cairo_font_face_t;
typedef struct FT_FaceRec_* FT_Face;
typedef struct _FcPattern FcPattern;

class TTFont {
public:
    // Load status codes.
    enum { Loaded = 0, OpenFailed = 2, CairoFailed = 3 };

    // Null until loaded. Copies share them; the last copy releases them (Cairo lets the FreeType face go
    // once it holds no reference to it).
    cairo_font_face_t* cairoFace = nullptr;
    FT_Face face = nullptr;
    // The font Fontconfig matched, which text is drawn with.
    FcPattern* match = nullptr;

    // Finds the best match for a Fontconfig name ("DejaVu Sans", "Monospace", "Sans:bold"; what the name
    // leaves open is taken as bold, upright and of normal width, the look of the text), opens it and wraps
    // it for Cairo, reporting the font found to `messages`. A name whose family is not installed, and that
    // the configuration names no substitute for, fails like a name that matches nothing.
    int load(const char* name, const MessageSink& messages);

private:
    struct Resources;
    std::shared_ptr<Resources> resources_;
};
