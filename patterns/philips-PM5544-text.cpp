// The card's text boxes: where the text may go, its font, and its blend into the rows.
#include "philips-PM5544-text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "philips-PM5544-rows.h"

namespace {

// The family drawn when none is asked for: a clean sans-serif that Debian installs with the program.
const char* const defaultFontFamily = "DejaVu Sans";

// Space above and below a line of text, and at its ends, as a fraction of the box's height.
constexpr double textMargin = 0.1;

constexpr int fullCoverage = 255;

}  // namespace

void PhilipsPm5544Spec::setBoxTexts(const std::string& family, const std::string& upper, const std::string& lower) {
    fontFamily = family;
    boxTexts[UpperBox] = upper;
    boxTexts[LowerBox] = lower;
    drawTextBoxes();
}

// A clock showing whole seconds keeps its text for many frames: only a new text is drawn.
std::pair<int, int> PhilipsPm5544Spec::setLowerText(const std::string& lower) {
    if (lower == boxTexts[LowerBox]) return {0, 0};
    boxTexts[LowerBox] = lower;
    if (!rows) return {0, 0};
    auto [first, end] = drawTextBox(LowerBox);
    rows->textChanged();
    // Rows that share chroma are rendered together (whole 4:2:0 row pairs, or interlaced, pairs of each field).
    if (const int group = PatternGen::chromaRowGroup(sampling, scan); first < end && group > 1) {
        first -= first % group;
        end += (group - end % group) % group;
    }
    return {first, std::min(end, height)};
}

// Before setup() the geometry is unknown; setup() draws the boxes then. The first text starts Pango,
// which aborts the process when memory runs out: the host's trial, if any, comes first, and a shortfall
// there is reported as one here.
void PhilipsPm5544Spec::drawTextBoxes() {
    if (!rows) return;
    const bool startsPango = fonts.empty() && !(boxTexts[UpperBox].empty() && boxTexts[LowerBox].empty());
    const auto drawBoth = [this] {
        for (TextBoxPlace place : {UpperBox, LowerBox}) drawTextBox(place);
    };
    if (startsPango && textTrial && !textTrial(drawBoth)) throw std::bad_alloc();
    drawBoth();
    rows->textChanged();
}

// The canvas rows first .. end - 1 outside which the box's pixels stay as they were.
std::pair<int, int> PhilipsPm5544Spec::drawTextBox(TextBoxPlace place) {
    const TextArea area = textArea(place);
    const std::pair<int, int> wholeArea{area.top, area.top + area.height};
    if (boxTexts[place].empty()) {
        const bool hadText = textBoxes[place] != nullptr;
        textBoxes[place].reset();
        return hadText ? wholeArea : std::pair{0, 0};
    }
    loadFont();
    if (!textBoxes[place]) {
        textBoxes[place] = std::make_unique<TextBox>(area, black, white);
        textBoxes[place]->draw(*this, boxTexts[place], pixelAspect());
        return wholeArea;
    }
    return textBoxes[place]->draw(*this, boxTexts[place], pixelAspect());
}

// Font 0, loaded once, by the family of the first call with text. A family that matches nothing
// leaves the text to the framework's fallback, the generic sans-serif.
void PhilipsPm5544Spec::loadFont() {
    if (!fonts.empty()) return;
    const std::string family = fontFamily.empty() ? defaultFontFamily : fontFamily;
    if (defineFont(family.c_str()) != TTFont::Loaded) {
        report(messages, MessageKind::Warning,
               "Warning: Font \"%s\" could not be loaded; the text is drawn in the default sans-serif\n",
               family.c_str());
    }
}

// The upper box is the black identification box; the lower one the black bar below the grey scale,
// whose white line (left of the centre) the text keeps clear of. The area is centred on the box and
// as wide as the part of it symmetric about its centre that is black in every row: clear of the
// line and inside the circle, which is narrowest at the box's row farthest from the centre.
PhilipsPm5544Spec::TextArea PhilipsPm5544Spec::textArea(TextBoxPlace place) const {
    const bool upper = place == UpperBox;
    const std::pair<int, int> boxRows = bandRows(upper ? Band::IdBox : Band::BlackBar);
    const int boxLeft = upper ? idBoxLeft() : pulseBarLeft();
    const int boxEnd = boxLeft + (upper ? idBoxWidth : pulseBarWidth);

    int clearLeft = upper ? boxLeft : std::max(boxLeft, pulseLineCentre() + 2);
    int clearEnd = boxEnd;
    for (int Y : {boxRows.first, boxRows.second}) {
        while (clearLeft < clearEnd && !withinRadius(clearLeft, Y, innerRadius())) ++clearLeft;
        while (clearLeft < clearEnd && !withinRadius(clearEnd - 1, Y, innerRadius())) --clearEnd;
    }
    // Twice the box's centre, and the half-width (doubled) of the clear part about it, in whole pixels.
    const int centre2 = boxLeft + boxEnd;
    int half2 = std::min(centre2 - 2 * clearLeft, 2 * clearEnd - centre2);
    if ((centre2 - half2) % 2 != 0) --half2;
    // Edge shaping changes no pixel farther than the transition length from an edge.
    const int reach = savedTransitionLength;

    // On a picture narrower than the circle (tall rasters, wide pixel aspects) the box runs past the
    // canvas: the area keeps to the canvas columns, the rows the text is blended into.
    const int left = widthFraction(1, 2) + (centre2 - half2) / 2 + reach;
    const int end = left + std::max(0, half2 - 2 * reach);
    TextArea area;
    area.left = std::clamp(left, 0, width);
    area.width = std::max(0, std::min(end, width) - area.left);
    area.top = heightFraction(1, 2) + boxRows.first;
    area.height = std::max(0, boxRows.second - boxRows.first + 1);
    return area;
}

// The first and last row (Y about the centre) of a band inside the circle; last < first if none.
std::pair<int, int> PhilipsPm5544Spec::bandRows(Band band) const {
    int first = 0, last = -1;
    for (int Y = -innerRadius(); Y <= innerRadius(); ++Y) {
        if (bandOfRow(Y) != band) continue;
        if (last < first) first = Y;
        last = Y;
    }
    return {first, last};
}

// Display width of a pixel over its height.
double PhilipsPm5544Spec::pixelAspect() const {
    return (static_cast<double>(aspectNum) * height) / (static_cast<double>(aspectDen) * width);
}

PhilipsPm5544Spec::TextBox::TextBox(const TextArea& area, const Pixel& black, const Pixel& white) : area(area) {
    shades.reserve(fullCoverage + 1);
    shades.push_back(black);
    for (int level = 1; level < fullCoverage; ++level) {
        const double mix = static_cast<double>(level) / fullCoverage;
        shades.push_back(white.blend(mix, mix, black));
    }
    shades.push_back(white);
}

std::pair<int, int> PhilipsPm5544Spec::TextBox::draw(PatternSpec& pattern, const std::string& text,
                                                     double pixelAspect) {
    // The text before is kept to find the rows the new one changes; the two rasters take turns.
    std::swap(coverage, previous);
    TextFit fit;
    fit.lineHeight = area.height * (1.0 - 2.0 * textMargin);
    fit.sideMargin = area.height * textMargin / pixelAspect;
    fit.pixelAspect = pixelAspect;
    coverage.width = area.width;
    coverage.height = area.height;
    pattern.renderTextInto(coverage, text, fit);
    return changedRows();
}

std::pair<int, int> PhilipsPm5544Spec::TextBox::changedRows() const {
    if (previous.levels.size() != coverage.levels.size()) return {area.top, area.top + area.height};
    if (coverage.levels.empty()) return {0, 0};  // a box with no room for text
    const size_t stride = static_cast<size_t>(coverage.stride);
    const auto rowDiffers = [&](int r) {
        const size_t at = static_cast<size_t>(r) * stride;
        return std::memcmp(coverage.levels.data() + at, previous.levels.data() + at, stride) != 0;
    };
    int first = 0, end = area.height;
    while (first < end && !rowDiffers(first)) ++first;
    while (end > first && !rowDiffers(end - 1)) --end;
    if (first == end) return {0, 0};
    return {area.top + first, area.top + end};
}

void PhilipsPm5544Spec::TextBox::blendInto(int y, Pixel* row) const {
    const int coverageRow = y - area.top;
    Pixel* out = row + area.left;
    for (int x = 0; x < area.width; ++x) {
        const uint8_t level = coverage.at(x, coverageRow);
        if (level != 0) out[x] = shades[level];
    }
}
