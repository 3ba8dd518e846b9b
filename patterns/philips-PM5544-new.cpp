// The PM5544 test card's layout, described once. Each row of the card is, from left to right, the
// outside of the circle, its white outline, the inside, the outline again and the outside. What
// a row shows inside the circle depends on the row only through its InsideKind (band, centre
// strip, centre cross), and outside through its OutsideKind (field, grid line, border line).
//
// render(x, y) reads the layout pixel by pixel: the card's reference definition. body() serves
// rows that Rows assembles from one table of pixels per row kind and shapes (see
// philips-PM5544-rows.h), so a few rows of pixels stand for the whole frame.
#include "philips-PM5544-new.h"

#include <cmath>
#include <cstdlib>

#include "philips-PM5544-rows.h"
#include "philips-PM5544-text.h"

namespace {

constexpr double pi = 3.141592653589793;

// Frequency gratings: five packets, each a sine about 50% between black and white.
constexpr int gratingPackets = 5;
constexpr int gratingScale = 4096;

// The field's grid lines are 2 thick.
constexpr int gridThickness = 2;

}  // namespace

PhilipsPm5544Spec::PhilipsPm5544Spec()
    : squareWavePeriod(static_cast<int>(freqToPixels(250000.0))), burstStartFreq(800000), burstFreqStep(1000000) {}

PhilipsPm5544Spec::~PhilipsPm5544Spec() = default;

bool PhilipsPm5544Spec::useFullCanvasSize() { return true; }

void PhilipsPm5544Spec::setup() {
    choosePalette();
    deriveParameters();
    rows = std::make_unique<Rows>(*this);
    drawTextBoxes();
}

void PhilipsPm5544Spec::deriveParameters() {
    // The framework's primitives draw hard edges while the card renders; the card shapes
    // its edges itself afterwards.
    savedTransitionLength = transitionLength;
    transitionLength = 0;
    riseTimeEnabled = false;

    squareWavePeriod = static_cast<int>(freqToPixels(500000.0));
    if (height > 2000) {
        burstStartFreq *= 4;
        burstFreqStep *= 4;
    } else if (height > 600) {
        burstStartFreq *= 2;
        burstFreqStep *= 2;
    }
    idBoxWidth = h(168);
    pulseBarWidth = h(252);
    redBoxWidth = h(42);
    fieldGridClear = clearColumn(&PhilipsPm5544Spec::drawFieldGrid, gridPitch());
    borderClear = clearColumn(&PhilipsPm5544Spec::drawBorder, 2 * gridPitch());
}

Pixel PhilipsPm5544Spec::render(int x, int y) {
    const int X = x - widthFraction(1, 2);
    const int Y = y - heightFraction(1, 2);
    if (withinRadius(X, Y, innerRadius())) return insidePixel(insideKind(Y), X);
    if (withinRadius(X, Y, outlineRadius())) return white;  // the circle's outline
    return outsidePixel(X, Y);
}

// The circle is round on the display: the horizontal offset is measured in lines.
bool PhilipsPm5544Spec::withinRadius(int X, int Y, int radius) const { return insideCircleHeight(X, Y, 0, 0, radius); }

// ---------------------------------------------------------------------------------------------
// Inside the circle

// The bands from top to bottom; the first test that holds decides. The centre strip, which also
// depends on the column, is left to insideKind().
PhilipsPm5544Spec::Band PhilipsPm5544Spec::bandOfRow(int Y) const {
    if (Y < -h(231) - 1) return Band::TopCap;
    if (Y < -h(189) - 1) return Band::IdBox;
    if (Y < 1 - h(147)) return Band::WhiteBar;
    if (Y < 1 - h(105)) return Band::SquareWave;
    if (-h(21) < Y && Y < h(21)) return Band::Centre;
    if (Y < 1 - h(21)) return Band::ColourBars;
    if (h(21) - 1 <= Y && Y <= h(105)) return Band::Gratings;
    if (h(105) - 1 <= Y && Y <= h(147)) return Band::GreyScale;
    if (h(147) - 1 <= Y && Y <= h(189)) return Band::BlackBar;
    return Band::BottomCap;  // every remaining row lies at or below h(189) - 1
}

// Within h(63) of the centre, the bands tested after the centre band have the centre strip cut
// into them; the centre cross runs along rows -1 and 0.
PhilipsPm5544Spec::InsideKind PhilipsPm5544Spec::insideKind(int Y) const {
    const Band band = bandOfRow(Y);
    return {band, band > Band::Centre && -h(63) < Y && Y < h(63), Y == -1 || Y == 0};
}

Pixel PhilipsPm5544Spec::insidePixel(InsideKind kind, int X) {
    if (kind.strip && std::abs(X) < heightFraction(39, 1080)) return centrePixel(kind.cross, X);
    return bandPixel(kind.band, kind.cross, X);
}

Pixel PhilipsPm5544Spec::bandPixel(Band band, bool crossRow, int X) {
    Pixel result = black;
    switch (band) {
        case Band::TopCap:
            return white;
        case Band::IdBox: {  // black identification box on white
            result = white;
            int widths[] = {idBoxWidth};
            barsLayered(X - idBoxLeft(), result, 1, widths, &black);
            return result;
        }
        case Band::WhiteBar: {  // white bar on black, with a black line in it
            int widths[] = {pulseBarWidth};
            barsLayered(X - pulseBarLeft(), result, 1, widths, &white);
            if (std::abs(X - pulseLineCentre()) <= 1) result = black;
            return result;
        }
        case Band::SquareWave:
            return squareWave(X, squareWavePeriod, grey75, black);
        case Band::Centre:
            return centrePixel(crossRow, X);
        case Band::ColourBars: {  // six 75% colour bars, centred
            const int span = h(504);
            bars(X + fractionOf(span, 3, 6), result, 6, span, &yellow75, &cyan75, &green75, &magenta75, &red75,
                 &blue75);
            return result;
        }
        case Band::Gratings:
            return gratingPixel(X);
        case Band::GreyScale: {  // six-step grey scale, centred
            const int span = h(474);
            bars(X + fractionOf(span, 3, 6), result, 6, span, &black, &grey20, &grey40, &grey60, &grey80, &white);
            return result;
        }
        case Band::BlackBar: {  // black bar on white, with a white line in it
            result = white;
            int widths[] = {pulseBarWidth};
            barsLayered(X - pulseBarLeft(), result, 1, widths, &black);
            if (std::abs(X - pulseLineCentre()) <= 1) result = white;
            return result;
        }
        case Band::BottomCap: {  // red box on yellow
            result = yellow100;
            int widths[] = {redBoxWidth};
            barsLayered(X + h(21) - 1, result, 1, widths, &red100);
            return result;
        }
    }
    return result;
}

// Black with the two-pixel centre cross and the grid's vertical lines (which ignore the row).
Pixel PhilipsPm5544Spec::centrePixel(bool crossRow, int X) {
    Pixel result = (crossRow || X == -1 || X == 0) ? white : black;
    gridVertical(X, 0, gridPitch(), 1, result, white);
    return result;
}

// Five packets of rising frequency, the phase running on continuously from packet to packet.
Pixel PhilipsPm5544Spec::gratingPixel(int X) {
    const int blockWidth = h(395);
    const int p = X + fractionOf(blockWidth, 5, 10);
    if (p < 0 || p >= blockWidth) return p == -1 ? grey50 : black;

    double phase = 0.0;
    for (int k = 0; k < gratingPackets; ++k) {
        const int start = fractionOf(blockWidth, 2 * k, 10);
        const int end = fractionOf(blockWidth, 2 * (k + 1), 10);
        const int period = static_cast<int>(freqToPixels(burstStartFreq + k * burstFreqStep));
        if (p < end) {
            const int s = static_cast<int>(gratingScale / 2 +
                                           gratingScale / 2 * std::sin(2.0 * pi * (p - start) / period + phase));
            return white.scale(s, gratingScale);
        }
        phase += 2.0 * pi * (end - start) / period;
    }
    return black;  // not reached: the last packet ends at the block's end
}

// ---------------------------------------------------------------------------------------------
// Outside the circle

// The field's white grid on 50% grey, and the border's white castellations on black, crossed by
// the field's grid lines at the sides.
Pixel PhilipsPm5544Spec::outsidePixel(int X, int Y) {
    const bool fieldColumn = -widthFraction(47, 100) <= X && X < widthFraction(47, 100);
    Pixel result;
    if (inFieldRows(Y) && fieldColumn) {
        result = grey50;
        drawFieldGrid(X, Y, result);
        return result;
    }
    result = black;
    drawBorder(X, Y, result);
    if (inFieldRows(Y)) drawFieldGrid(X, Y, result);
    return result;
}

bool PhilipsPm5544Spec::inFieldRows(int Y) const {
    return -heightFraction(47, 100) <= Y && Y <= heightFraction(47, 100);
}

bool PhilipsPm5544Spec::drawFieldGrid(int X, int Y, Pixel& result) {
    return grid(X, Y, gridPitch(), gridThickness, result, white);
}

bool PhilipsPm5544Spec::drawBorder(int X, int Y, Pixel& result) {
    return gridFlipVphase(X, Y, 2 * gridPitch(), gridPitch(), result, white);
}

PhilipsPm5544Spec::OutsideKind PhilipsPm5544Spec::outsideKind(int Y) {
    const bool field = inFieldRows(Y);
    return {field, field && onHorizontalLine(&PhilipsPm5544Spec::drawFieldGrid, fieldGridClear, Y),
            onHorizontalLine(&PhilipsPm5544Spec::drawBorder, borderClear, Y)};
}

// A grid's lines are whole rows or whole columns. So at a column clear of its vertical lines, the
// grid draws exactly on its horizontal lines; with no clear column, every row is all lines.
bool PhilipsPm5544Spec::onHorizontalLine(GridDrawing draw, const std::optional<int>& clear, int Y) {
    Pixel result;
    return !clear || (this->*draw)(*clear, Y, result);
}

// A column where the grid draws nothing in some row. The grid repeats every pitch rows, and every
// pitch columns give or take the rounding into line units, so one pitch each way holds such a point
// if there is any.
std::optional<int> PhilipsPm5544Spec::clearColumn(GridDrawing draw, int pitch) {
    for (int X = 0; X <= pitch; ++X) {
        for (int Y = 0; Y < pitch; ++Y) {
            Pixel result;
            if (!(this->*draw)(X, Y, result)) return X;
        }
    }
    return std::nullopt;
}
