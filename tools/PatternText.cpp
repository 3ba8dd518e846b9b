// Placeholder definitions; replaced by the text overlay.
#include "PatternWrapper.h"
void PatternSpec::releaseText() {}
int PatternSpec::textCursor(int, int) { return 0; }
int PatternSpec::textAlign(TextSlug::horizAlign_e, TextSlug::vertAlign_e) { return 0; }
int PatternSpec::textSize(int) { return 0; }
int PatternSpec::defineFont(const char*) { return 0; }
int PatternSpec::setText(const char*) { return 0; }
int PatternSpec::render_text(int, int) { return 0; }
void PatternSpec::rendertextInternal(cairo_t*, int, int) {}
void PatternSpec::calcSlug(int, PangoLayout*, TextSlug*, bool, bool) {}
int PatternSpec::renderSlug(cairo_t*, PangoLayout*, int, int, TextSlug*, double, bool) { return 0; }
PangoFontDescription* PatternSpec::getFont(int, int, int, int&) { return nullptr; }
