// Text in the card's black boxes. A box keeps the anti-aliased coverage of its text, drawn by the
// text framework over the box's clear area, and blends the card's white over the box's black by it.
// The blend follows the card's edge shaping: the area keeps farther from every edge than the shaping
// reaches, so it is plain black before and after, and the text's own edges are smooth already.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "philips-PM5544-new.h"

class PhilipsPm5544Spec::TextBox {
public:
    TextBox(const TextArea& area, const Pixel& black, const Pixel& white);

    // Draws the text afresh: centred, as high as the box less a margin, shrunk to fit its width. Returns
    // the canvas rows first .. end - 1 outside which its coverage is what the text before left.
    std::pair<int, int> draw(PatternSpec& pattern, const std::string& text, double pixelAspect);

    bool crossesRow(int y) const { return y >= area.top && y < area.top + area.height; }
    // Blends the text of canvas row y into the row's pixels.
    void blendInto(int y, Pixel* row) const;

private:
    TextArea area;
    std::pair<int, int> changedRows() const;

    TextCoverage coverage;
    TextCoverage previous;  // of the text drawn before
    std::vector<Pixel> shades;  // white over black, by coverage level
};
