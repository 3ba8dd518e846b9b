// The text overlay's blocks: runs of text in one font and style, and the lines they form.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

typedef struct _PangoFontDescription PangoFontDescription;

// One block of text in one font and style.
struct TextSlug {
    // The alignment types carry the suffix _e so that the members may keep their names.
    enum horizAlign_e { centre = 0, left = 1, right = 2 };
    enum vertAlign_e { middle = 0, top = 1, bottom = 2 };

    std::string text;
    PangoFontDescription* font = nullptr;
    int size = 100;
    bool italic = false;
    bool bold = true;
    bool uprightWhenRotated = false;
    double gap = 0.0;
    double x = 0.0;
    double y = 0.0;
    double letterSpacing = 0.0;
    horizAlign_e horizAlign = centre;
    vertAlign_e vertAlign = middle;
    int measuredWidth = 0;
    int measuredHeight = 0;
    int baseline = 0;
    int fontPixelSize = 0;
};

// A line of text blocks drawn one after another.
struct TextLine {
    std::vector<TextSlug*> slugs;
    bool rotated = false;
};

// How renderTextInto sets one line of text in a coverage raster: centred, lineHeight pixels from the
// top of the line to its bottom (ascent plus descent), shrunk when it is wider than the raster less
// sideMargin pixels at each end, and clipped to the raster.
struct TextFit {
    double lineHeight = 0.0;
    double sideMargin = 0.0;
    // Display width of a pixel over its height: the text is drawn 1/pixelAspect as wide in pixels,
    // so that its letters keep their shape on the display.
    double pixelAspect = 1.0;
};

// The anti-aliased coverage of text: one byte a pixel from 0 (none) to 255 (full), rows stride bytes
// apart (the layout of Cairo's A8 images).
struct TextCoverage {
    int width = 0;
    int height = 0;
    int stride = 0;
    std::vector<uint8_t> levels;

    uint8_t at(int x, int y) const { return levels[static_cast<size_t>(y) * stride + static_cast<size_t>(x)]; }
};
