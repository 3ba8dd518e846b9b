// Placeholder definitions; replaced by the font loader.
#include "TTFont.h"
int TTFont::createCairoFontfaceFromFile(cairo_t*, const char*) { return OpenFailed; }
std::string TTFont::fontDescForSize(int) const { return ""; }
