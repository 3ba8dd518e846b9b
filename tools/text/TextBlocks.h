// The text overlay's blocks: runs of text in one font and style, and the lines they form.
#pragma once

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
