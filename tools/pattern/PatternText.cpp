// Text overlay: text blocks placed by the pattern, laid out with Pango and drawn with Cairo into layer 0.
#include <cairo.h>
#include <pango/pangocairo.h>
#include <pango/pangofc-fontmap.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>

#include "pattern/PatternWrapper.h"

namespace {

// Text of size 100% is 100/792 of the frame height high (72 pixels at 576 lines).
constexpr int32_t linesPerHundredPercent = 792;

// A quarter turn in radians.
constexpr double quarterTurn = 1.57079632679489661923;

// The family of text fitted into a box when font 0 did not load.
const char* const fallbackFamily = "Sans";

// Weight of the bold attribute.
constexpr int boldWeight = 700;

// The extra advance after a slug: its gap in whole pixels.
int slugGap(const TextSlug& slug) { return static_cast<int>(slug.fontPixelSize * slug.gap); }

// The sum of the advances of all blocks of a measured line.
int lineAdvance(const TextLine& line) {
    int total = 0;
    for (const TextSlug* slug : line.slugs) total += slug->measuredWidth + slugGap(*slug);
    return total;
}

bool isTrailingBlank(char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }

void trimTrailingBlanks(std::string& text) {
    size_t end = text.size();
    while (end > 0 && isTrailingBlank(text[end - 1])) --end;
    text.erase(end);
}

// Italic, bold and letter spacing of the slug, applied to the whole text of the layout.
void applyAttributes(PangoLayout* layout, const TextSlug& slug) {
    PangoAttrList* attributes = pango_attr_list_new();
    if (slug.italic) pango_attr_list_insert(attributes, pango_attr_style_new(PANGO_STYLE_ITALIC));
    if (slug.bold) pango_attr_list_insert(attributes, pango_attr_weight_new(static_cast<PangoWeight>(boldWeight)));
    if (slug.letterSpacing != 0.0) {
        const int spacing = static_cast<int>(slug.fontPixelSize * slug.letterSpacing * PANGO_SCALE);
        pango_attr_list_insert(attributes, pango_attr_letter_spacing_new(spacing));
    }
    pango_layout_set_attributes(layout, attributes);
    pango_attr_list_unref(attributes);
}

void applyGravity(PangoLayout* layout, PangoGravity gravity, PangoGravityHint hint) {
    PangoContext* context = pango_layout_get_context(layout);
    pango_context_set_base_gravity(context, gravity);
    pango_context_set_gravity_hint(context, hint);
    pango_layout_context_changed(layout);
}

// Sideways glyphs on a quarter-turned line, unless the slug asks to stay upright.
void applyLineGravity(PangoLayout* layout, bool sideways) {
    if (sideways)
        applyGravity(layout, PANGO_GRAVITY_EAST, PANGO_GRAVITY_HINT_STRONG);
    else
        applyGravity(layout, PANGO_GRAVITY_SOUTH, PANGO_GRAVITY_HINT_LINE);
}

struct PenPosition {
    int x;
    int y;
};

// The start coordinate for each alignment; values other than left/right and top/bottom act as centred.
int byAlignment(TextSlug::horizAlign_e align, int centred, int left, int right) {
    return align == TextSlug::left ? left : align == TextSlug::right ? right : centred;
}

int byAlignment(TextSlug::vertAlign_e align, int middle, int top, int bottom) {
    return align == TextSlug::top ? top : align == TextSlug::bottom ? bottom : middle;
}

// Where the first block of a measured line starts, from its cursor, alignment and total advance T.
// On a turned line x runs across the text (by the baseline b) and y along it (by T).
PenPosition lineStart(const TextSlug& first, int total, int width, int height, bool rotated) {
    const int x0 = static_cast<int>(width * first.x / 100);
    const int y0 = static_cast<int>(height * first.y / 100);
    const int b = first.baseline;
    if (!rotated) {
        return PenPosition{byAlignment(first.horizAlign, x0 + width / 2 - total / 2, x0, x0 - total),
                           byAlignment(first.vertAlign, y0 - b / 2, y0, y0 + b)};
    }
    return PenPosition{byAlignment(first.horizAlign, x0 + width / 2 - b / 2, (width - b) - x0, x0),
                       byAlignment(first.vertAlign, height / 2 - y0 - total / 2, (height - total) - y0, y0)};
}

// Turns the frame a quarter turn about its centre so that a line runs down the picture.
void rotateQuarterTurn(cairo_t* cr, int width, int height) {
    cairo_translate(cr, width / 2.0, height / 2.0);
    cairo_rotate(cr, quarterTurn);
    cairo_translate(cr, -height / 2.0, -width / 2.0);
}

// Outlines scaled smoothly: grey anti-aliasing, no hinting and unrounded metrics and glyph positions,
// so that a line's extents grow in proportion to its size and letters keep their shape when scaled.
void useUnhintedOutlines(PangoLayout* layout) {
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    PangoContext* context = pango_layout_get_context(layout);
    pango_cairo_context_set_font_options(context, options);
    pango_context_set_round_glyph_positions(context, FALSE);
    cairo_font_options_destroy(options);
    pango_layout_context_changed(layout);
}

// The layout's logical extents (advance and line height) in Pango units, at `size` pixels.
PangoRectangle logicalExtentsAt(PangoLayout* layout, PangoFontDescription* font, double size) {
    pango_font_description_set_absolute_size(font, size * PANGO_SCALE);
    pango_layout_set_font_description(layout, font);
    PangoRectangle logical;
    pango_layout_get_extents(layout, nullptr, &logical);
    return logical;
}

// Without a loaded font, the generic sans-serif family (rather than Pango's default, a serif) in the look
// a font is matched for: bold, upright and of normal width. A loaded font's description is its own.
void useFallbackWithoutAFont(PangoFontDescription* font) {
    if ((pango_font_description_get_set_fields(font) & PANGO_FONT_MASK_FAMILY) != 0) return;
    pango_font_description_set_family(font, fallbackFamily);
    pango_font_description_set_weight(font, PANGO_WEIGHT_BOLD);
    pango_font_description_set_style(font, PANGO_STYLE_NORMAL);
    pango_font_description_set_stretch(font, PANGO_STRETCH_NORMAL);
}

// The size in pixels that makes the line fit.lineHeight high, or less if it is then wider than `room`
// (user units). Extents grow in proportion to the size, so one measurement does.
double fittedSize(PangoLayout* layout, PangoFontDescription* font, double room, const TextFit& fit) {
    const double trialSize = fit.lineHeight;
    const PangoRectangle logical = logicalExtentsAt(layout, font, trialSize);
    if (logical.height <= 0 || logical.width <= 0) return 0.0;
    const double height = double(logical.height) / PANGO_SCALE, width = double(logical.width) / PANGO_SCALE;
    return std::min(trialSize * fit.lineHeight / height, trialSize * room / width);
}

// Fills the layout's outlines, taken in user units, drawn 1/pixelAspect as wide in pixels. (Scaling
// the context before laying out would scale the glyphs but not the advances between them.)
void fillNarrowed(cairo_t* cr, PangoLayout* layout, double pixelAspect) {
    pango_cairo_layout_path(cr, layout);
    cairo_path_t* outlines = cairo_copy_path(cr);
    cairo_new_path(cr);
    cairo_scale(cr, 1.0 / pixelAspect, 1.0);
    cairo_append_path(cr, outlines);
    cairo_path_destroy(outlines);
    cairo_set_source_rgba(cr, 1, 1, 1, 1);
    cairo_fill(cr);
}

}  // namespace

void PatternSpec::releaseText() {
    for (TextLine* line : textLines) {
        for (TextSlug* slug : line->slugs) {
            if (slug->font) pango_font_description_free(slug->font);
            delete slug;
        }
        delete line;
    }
    textLines.clear();
}

int PatternSpec::textCursor(int x, int y) {
    textCursorX = x;
    textCursorY = y;
    return 0;
}

int PatternSpec::textAlign(TextSlug::horizAlign_e horiz, TextSlug::vertAlign_e vert) {
    textHorizAlign = horiz;
    textVertAlign = vert;
    return 0;
}

int PatternSpec::textSize(int sizePercent) {
    textSizePercent = sizePercent;
    return 0;
}

int PatternSpec::defineFont(const char* family) {
    TTFont font;
    const int status = font.load(family, messages);
    // Kept even when loading failed, so font numbers follow the order of the calls.
    fonts.push_back(font);
    return status;
}

int PatternSpec::setText(const char* text) {
    auto slug = std::make_unique<TextSlug>();
    slug->text = text ? text : "";
    // Style fields keep their defaults: bold, upright, no gap and no letter spacing.
    slug->size = textSizePercent;
    slug->x = textCursorX;
    slug->y = textCursorY;
    slug->horizAlign = textHorizAlign;
    slug->vertAlign = textVertAlign;

    auto line = std::make_unique<TextLine>();
    line->slugs.push_back(slug.get());
    textLines.push_back(line.get());
    // Both are owned by the pattern from here on and released by releaseText.
    slug.release();
    line.release();
    return 0;
}

int PatternSpec::render_text(int width, int height) {
    if (layers.empty() || layers[0] == nullptr) return 0;

    const int stride = cairo_format_stride_for_width(CAIRO_FORMAT_RGB30, width);
    cairo_surface_t* surface =
        cairo_image_surface_create_for_data(layers[0], CAIRO_FORMAT_RGB30, width, height, stride);
    cairoContext = cairo_create(surface);

    cairo_set_source_rgb(cairoContext, 0, 0, 0);
    cairo_paint(cairoContext);
    rendertextInternal(cairoContext, width, height);

    cairo_destroy(cairoContext);
    cairoContext = nullptr;
    cairo_surface_flush(surface);
    cairo_surface_destroy(surface);
    return 0;
}

void PatternSpec::rendertextInternal(cairo_t* cr, int width, int height) {
    PangoLayout* layout = pango_cairo_create_layout(cr);
    for (TextLine* line : textLines) {
        if (line->slugs.empty()) continue;
        cairo_save(cr);
        if (line->rotated) rotateQuarterTurn(cr, width, height);

        for (size_t i = 0; i < line->slugs.size(); ++i)
            calcSlug(height, layout, line->slugs[i], i + 1 == line->slugs.size(), line->rotated);

        PenPosition pen = lineStart(*line->slugs.front(), lineAdvance(*line), width, height, line->rotated);
        const TextSlug* previous = nullptr;
        int previousAdvance = 0;
        for (TextSlug* slug : line->slugs) {
            if (previous) {
                const int step = previousAdvance + slugGap(*previous);
                (line->rotated ? pen.y : pen.x) += step;
            }
            previousAdvance = renderSlug(cr, layout, pen.x, pen.y, slug, slug->size / 10.0, line->rotated);
            previous = slug;
        }
        cairo_restore(cr);
    }
    g_object_unref(layout);
}

void PatternSpec::calcSlug(int height, PangoLayout* layout, TextSlug* slug, bool isLast, bool rotated) {
    // The slug keeps the description it is measured and drawn with; a re-measure replaces it.
    PangoFontDescription* font = getFont(0, height, slug->size, slug->fontPixelSize);
    if (slug->font) pango_font_description_free(slug->font);
    slug->font = font;
    pango_layout_set_font_description(layout, slug->font);

    applyAttributes(layout, *slug);
    applyLineGravity(layout, rotated);
    if (isLast) trimTrailingBlanks(slug->text);

    pango_layout_set_text(layout, slug->text.c_str(), -1);
    pango_layout_get_pixel_size(layout, &slug->measuredWidth, &slug->measuredHeight);
    slug->baseline = pango_layout_get_baseline(layout) / PANGO_SCALE;
}

int PatternSpec::renderSlug(cairo_t* cr, PangoLayout* layout, int x, int y, TextSlug* slug, double lineWidth,
                            bool rotated) {
    pango_layout_set_font_description(layout, slug->font);
    applyAttributes(layout, *slug);
    applyLineGravity(layout, rotated && !slug->uprightWhenRotated);

    // On a turned line the pen runs along the rotated frame's first axis.
    if (rotated)
        cairo_move_to(cr, y, x);
    else
        cairo_move_to(cr, x, y);

    cairo_set_source_rgba(cr, 0, 0, 0, 1);
    cairo_set_line_width(cr, lineWidth);
    cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
    cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);

    pango_layout_set_text(layout, slug->text.c_str(), -1);
    pango_cairo_layout_path(cr, layout);
    pango_cairo_update_layout(cr, layout);
    cairo_stroke_preserve(cr);

    cairo_set_source_rgba(cr, 1, 1, 1, 1);
    cairo_fill(cr);
    return slug->measuredWidth;
}

PangoFontDescription* PatternSpec::getFont(int fontIndex, int height, int sizePercent, int& pixelSize) {
    // The matched font's family, weight, slant and width as Pango reads them from Fontconfig, so that
    // Pango draws that face. Without it, an empty description leaves the family to Pango's default.
    const bool known = fontIndex >= 0 && static_cast<size_t>(fontIndex) < fonts.size();
    FcPattern* match = known ? fonts[fontIndex].match : nullptr;
    PangoFontDescription* font =
        match != nullptr ? pango_fc_font_description_from_pattern(match, FALSE) : pango_font_description_new();

    // height * size * 1024 / 792, truncated; formed in 64 bits so that no intermediate product overflows.
    const int64_t absoluteSize = static_cast<int64_t>(height) * sizePercent * PANGO_SCALE / linesPerHundredPercent;
    pango_font_description_set_absolute_size(font, static_cast<double>(static_cast<int32_t>(absoluteSize)));
    pixelSize = pango_font_description_get_size(font) / PANGO_SCALE;
    return font;
}

void PatternSpec::renderTextInto(TextCoverage& coverage, const std::string& text, const TextFit& fit) {
    const int width = std::max(coverage.width, 0), height = std::max(coverage.height, 0);
    coverage.stride = cairo_format_stride_for_width(CAIRO_FORMAT_A8, width);
    coverage.levels.assign(static_cast<size_t>(coverage.stride) * static_cast<size_t>(height), 0);
    if (width == 0 || height == 0 || text.empty() || fit.lineHeight <= 0.0 || fit.pixelAspect <= 0.0) return;

    cairo_surface_t* surface =
        cairo_image_surface_create_for_data(coverage.levels.data(), CAIRO_FORMAT_A8, width, height, coverage.stride);
    cairo_t* cr = cairo_create(surface);
    PangoLayout* layout = pango_cairo_create_layout(cr);
    useUnhintedOutlines(layout);
    pango_layout_set_text(layout, text.c_str(), -1);
    int pixelSize = 0;
    PangoFontDescription* font = getFont(0, height, 100, pixelSize);
    useFallbackWithoutAFont(font);

    // Laid out in units square on the display (pixel heights), in which the raster is width *
    // pixelAspect wide, and centred by the line's logical extents.
    const double rasterWidth = width * fit.pixelAspect;
    const double size = fittedSize(layout, font, rasterWidth - 2.0 * fit.sideMargin * fit.pixelAspect, fit);
    if (size > 0.0) {
        const PangoRectangle logical = logicalExtentsAt(layout, font, size);
        cairo_move_to(cr, (rasterWidth - double(logical.width) / PANGO_SCALE) / 2 - double(logical.x) / PANGO_SCALE,
                      (height - double(logical.height) / PANGO_SCALE) / 2 - double(logical.y) / PANGO_SCALE);
        fillNarrowed(cr, layout, fit.pixelAspect);
    }

    pango_font_description_free(font);
    g_object_unref(layout);
    cairo_destroy(cr);
    cairo_surface_flush(surface);
    cairo_surface_destroy(surface);
}
