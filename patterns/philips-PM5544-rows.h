// The shaped rows of the card that body() serves. A row is assembled from the tables of its row
// kinds (one table of pixels per kind, built when first needed) and the circle's column bounds,
// padded with black, and shaped; a row crossing a text box is served from a copy with the text
// blended in, so rows shaped once stay free of text. Only the current row and one shaped before it
// are kept: memory grows with the width alone.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "philips-PM5544-new.h"
#include "philips-PM5544-shaping.h"

class PhilipsPm5544Spec::Rows {
public:
    explicit Rows(PhilipsPm5544Spec& card);

    // The shaped pixel at canvas column x of row y, both inside the canvas. Along a row this is a
    // look-up; a move to another row shapes that row, unless it is laid out as the current one.
    const Pixel& shaped(int x, int y) { return row(y)[x]; }
    // Row y, inside the canvas, for canvas columns 0 .. width - 1; valid until another row is asked for.
    const Pixel* row(int y) {
        if (y != currentY) moveTo(y);
        return served;
    }
    // The text of a box changed: the current row takes the new text.
    void textChanged() {
        if (currentY >= 0) serve();
    }

private:
    friend struct CardTestAccess;  // tests compare the row fill and the shaping with their references

    // One row in canvas columns, clipped to the filled ones: the outside kind's pixels up to
    // outlineBegin, white up to innerBegin, the inside kind's up to innerEnd, white up to
    // outlineEnd, the outside kind's after it. Rows with equal layouts are equal.
    struct Layout {
        const Pixel* inside = nullptr;
        const Pixel* outside = nullptr;
        int outlineBegin = 0;
        int innerBegin = 0;
        int innerEnd = 0;
        int outlineEnd = 0;

        bool sameKinds(const Layout& other) const { return inside == other.inside && outside == other.outside; }
        bool operator==(const Layout& other) const {
            return sameKinds(other) && outlineBegin == other.outlineBegin && innerBegin == other.innerBegin &&
                   innerEnd == other.innerEnd && outlineEnd == other.outlineEnd;
        }
    };

    Layout layoutOf(int y);
    std::pair<int, int> columnsWithin(int Y, int radius) const;
    const Pixel* insideRow(InsideKind kind);
    const Pixel* outsideRow(OutsideKind kind, int Y);
    // The row before shaping: canvas column x at line position x + edgeShaper.front(), with black
    // padding in the columns the layout does not fill and beyond both ends.
    void fill(const Layout& layout, std::vector<Pixel>& line) const;
    void fillColumns(const Layout& layout, int from, int to, Pixel* line) const;
    void moveTo(int y);
    void moveBounds(const Layout& next);
    void shapeAfresh(const Layout& next, bool reuse);
    void serve();

    PhilipsPm5544Spec& card;
    CardEdgeShaper edgeShaper;
    int centreX;
    int centreY;
    int firstFilled;  // canvas columns firstFilled .. endFilled - 1 come from the layout
    int endFilled;
    size_t padFront;  // black pixels before them in a line, and after them
    size_t padBack;

    // The pixels of each row kind, for every canvas column; never resized once built.
    std::vector<Pixel> insideRows[bandCount][2][2];
    std::vector<Pixel> outsideRows[2][2][2];

    // The current row (before and after shaping) and another shaped earlier, whose pixels can be
    // copied where its line has the same neighbourhood.
    int currentY = -1;
    Layout current;
    std::vector<Pixel> line;
    std::vector<Pixel> shapedRow;
    std::vector<Pixel> earlierLine;
    std::vector<Pixel> earlierShaped;
    // The current row as body() serves it: shapedRow, or textRow with the text of the boxes it crosses.
    const Pixel* served = nullptr;
    std::vector<Pixel> textRow;
};
