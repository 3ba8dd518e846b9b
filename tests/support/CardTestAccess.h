// The card's rows as its tests look at them on their own: a row filled but not yet shaped, and the
// edge shaper that shapes it.
#pragma once

#include <vector>

#include "philips-PM5544-new.h"
#include "philips-PM5544-rows.h"

struct CardTestAccess {
    // Row y before shaping: canvas column x at line position x + shaper(card).front(), with black
    // padding in the columns the layout does not fill and beyond both ends.
    static void fillLine(PhilipsPm5544Spec& card, int y, std::vector<Pixel>& line) {
        PhilipsPm5544Spec::Rows& rows = *card.rows;
        rows.fill(rows.layoutOf(y), line);
    }
    static const CardEdgeShaper& shaper(const PhilipsPm5544Spec& card) { return card.rows->edgeShaper; }
};
