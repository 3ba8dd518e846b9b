// The PM5544 test card. setup() fills a padded line buffer per row with the pixels render()
// defines, shapes each edge with a raised-cosine transition of its own choosing and keeps the
// finished frame; body() only looks pixels up.
//
// render(x, y) is the card's reference definition. setup() fills its lines from per-column
// tables instead (fillLineFast), which give the same pixels at a fraction of the cost, and
// shapes only the pixels near a change of colour, copying those the line above already shaped
// from the same neighbourhood.
#include "philips-PM5544-new.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "pattern/LargeBuffer.h"

using PatternGen::colorAxes_e;

namespace {

constexpr double pi = 3.141592653589793;

// Rise time of the card's narrow-edge transition: 15 ns at the 74.25 MHz luma clock.
constexpr double narrowEdgeRiseTimeNs = 15.0;
constexpr double narrowEdgeClockMHz = 74.25;

// Frequency gratings: five packets, each a sine about 50% between black and white.
constexpr int gratingPackets = 5;
constexpr int gratingScale = 4096;

// The background grid's lines are 2 thick; drawn hard-edged (n = 0), a vertical grid line is
// thickness + 1 wide in line units.
constexpr int gridThickness = 2;
constexpr int gridLineWidth = gridThickness + 1;

// Code values of one palette entry: (Y', Cb, Cr), or (G, B, R) for the studio RGB table.
struct Codes {
    int a;
    int b;
    int c;
};

constexpr int paletteSize = 16;

// Every table lists the entries in member order.
Pixel PhilipsPm5544Spec::*const paletteMembers[paletteSize] = {
    &PhilipsPm5544Spec::black,  &PhilipsPm5544Spec::grey20,  &PhilipsPm5544Spec::grey40,
    &PhilipsPm5544Spec::grey50, &PhilipsPm5544Spec::grey60,  &PhilipsPm5544Spec::grey75,
    &PhilipsPm5544Spec::grey80, &PhilipsPm5544Spec::white,   &PhilipsPm5544Spec::yellow75,
    &PhilipsPm5544Spec::cyan75, &PhilipsPm5544Spec::green75, &PhilipsPm5544Spec::magenta75,
    &PhilipsPm5544Spec::red75,  &PhilipsPm5544Spec::blue75,  &PhilipsPm5544Spec::yellow100,
    &PhilipsPm5544Spec::red100,
};

// Studio-range R'G'B' (G, B, R). The 10-bit 60% grey is 602 and the 12-bit 75% yellow is
// brighter than the other 75% colours: both are the card's own levels.
const Codes studioRgb12[paletteSize] = {
    {256, 256, 256},     // black
    {957, 957, 957},     // grey 20%
    {1658, 1658, 1658},  // grey 40%
    {2008, 2008, 2008},  // grey 50%
    {2358, 2358, 2358},  // grey 60%
    {2884, 2884, 2884},  // grey 75%
    {3059, 3059, 3059},  // grey 80%
    {3760, 3760, 3760},  // white
    {2948, 512, 2948},   // 75% yellow
    {2884, 2884, 256},   // 75% cyan
    {2884, 256, 256},    // 75% green
    {256, 2884, 2884},   // 75% magenta
    {256, 256, 2884},    // 75% red
    {256, 2884, 256},    // 75% blue
    {3760, 256, 3760},   // 100% yellow
    {256, 256, 3760},    // 100% red
};

const Codes studioRgb10[paletteSize] = {
    {64, 64, 64},     // black
    {239, 239, 239},  // grey 20%
    {414, 414, 414},  // grey 40%
    {502, 502, 502},  // grey 50%
    {602, 602, 602},  // grey 60%
    {721, 721, 721},  // grey 75%
    {765, 765, 765},  // grey 80%
    {940, 940, 940},  // white
    {721, 64, 721},   // 75% yellow
    {721, 721, 64},   // 75% cyan
    {721, 64, 64},    // 75% green
    {64, 721, 721},   // 75% magenta
    {64, 64, 721},    // 75% red
    {64, 721, 64},    // 75% blue
    {940, 64, 940},   // 100% yellow
    {64, 64, 940},    // 100% red
};

// Y'CbCr BT.709 (Y', Cb, Cr).
const Codes ycbcr709_12[paletteSize] = {
    {256, 2048, 2048},   // black
    {957, 2048, 2048},   // grey 20%
    {1658, 2048, 2048},  // grey 40%
    {2008, 2048, 2048},  // grey 50%
    {2358, 2048, 2048},  // grey 60%
    {2884, 2048, 2048},  // grey 75%
    {3059, 2048, 2048},  // grey 80%
    {3760, 2048, 2048},  // white
    {2694, 704, 2171},   // 75% yellow
    {2325, 2356, 704},   // 75% cyan
    {2136, 1012, 827},   // 75% green
    {1004, 3084, 3269},  // 75% magenta
    {815, 1740, 3392},   // 75% red
    {446, 3392, 1925},   // 75% blue
    {3507, 256, 2212},   // 100% yellow
    {1001, 1637, 3840},  // 100% red
};

const Codes ycbcr709_10[paletteSize] = {
    {64, 512, 512},   // black
    {239, 512, 512},  // grey 20%
    {414, 512, 512},  // grey 40%
    {502, 512, 512},  // grey 50%
    {602, 512, 512},  // grey 60%
    {721, 512, 512},  // grey 75%
    {765, 512, 512},  // grey 80%
    {940, 512, 512},  // white
    {674, 176, 543},  // 75% yellow
    {581, 589, 176},  // 75% cyan
    {534, 253, 207},  // 75% green
    {251, 771, 817},  // 75% magenta
    {204, 435, 848},  // 75% red
    {111, 848, 481},  // 75% blue
    {877, 64, 553},   // 100% yellow
    {250, 409, 960},  // 100% red
};

// Y'CbCr BT.2020 (Y', Cb, Cr).
const Codes ycbcr2020_12[paletteSize] = {
    {256, 2048, 2048},   // black
    {957, 2048, 2048},   // grey 20%
    {1658, 2048, 2048},  // grey 40%
    {2008, 2048, 2048},  // grey 50%
    {2358, 2048, 2048},  // grey 60%
    {2884, 2048, 2048},  // grey 75%
    {3059, 2048, 2048},  // grey 80%
    {3760, 2048, 2048},  // white
    {2728, 704, 2156},   // 75% yellow
    {2194, 2423, 704},   // 75% cyan
    {2038, 1079, 812},   // 75% green
    {1102, 3017, 3284},  // 75% magenta
    {946, 1673, 3392},   // 75% red
    {412, 3392, 1940},   // 75% blue
    {3552, 256, 2192},   // 100% yellow
    {1177, 1548, 3840},  // 100% red
};

const Codes ycbcr2020_10[paletteSize] = {
    {64, 512, 512},   // black
    {239, 512, 512},  // grey 20%
    {414, 512, 512},  // grey 40%
    {502, 512, 512},  // grey 50%
    {602, 512, 512},  // grey 60%
    {721, 512, 512},  // grey 75%
    {765, 512, 512},  // grey 80%
    {940, 512, 512},  // white
    {682, 176, 539},  // 75% yellow
    {548, 606, 176},  // 75% cyan
    {509, 270, 203},  // 75% green
    {276, 754, 821},  // 75% magenta
    {237, 418, 848},  // 75% red
    {103, 848, 485},  // 75% blue
    {888, 64, 548},   // 100% yellow
    {294, 387, 960},  // 100% red
};

// Which table a set of output axes starts from, and whether its entries are then converted.
struct PaletteChoice {
    colorAxes_e tableAxes;
    bool convert;
};

PaletteChoice paletteFor(colorAxes_e axes) {
    switch (axes) {
        case PatternGen::Colour_RGB:
        case PatternGen::Colour_RGB_219:
            return {PatternGen::Colour_RGB_219, false};
        case PatternGen::Colour_YCbCr_709:
            return {PatternGen::Colour_YCbCr_709, false};
        case PatternGen::Colour_YCbCr_2020:
            return {PatternGen::Colour_YCbCr_2020, false};
        case PatternGen::Colour_YCbCr_PQ:
        case PatternGen::Colour_YCbCr_HLG:
        case PatternGen::Colour_YCbCr_SLog3:
        case PatternGen::Colour_YCbCr_SLog3_Live:
            return {PatternGen::Colour_YCbCr_2020, true};
        default:  // 601, the Mapped Y'CbCr axes and every R'G'B' HDR axis
            return {PatternGen::Colour_RGB_219, true};
    }
}

const Codes* tableFor(colorAxes_e tableAxes, bool tenBit) {
    switch (tableAxes) {
        case PatternGen::Colour_YCbCr_709:
            return tenBit ? ycbcr709_10 : ycbcr709_12;
        case PatternGen::Colour_YCbCr_2020:
            return tenBit ? ycbcr2020_10 : ycbcr2020_12;
        default:
            return tenBit ? studioRgb10 : studioRgb12;
    }
}

// True if one of the count pixels after position i differs from it (the scan stops at the end).
bool changeAfter(const std::vector<Pixel>& line, size_t i, size_t count) {
    for (size_t k = 1; k <= count && i + k < line.size(); ++k) {
        if (!line[i + k].sameCodes(line[i])) return true;
    }
    return false;
}

// True if one of the count pixels before position i differs from it (the scan stops at the start).
bool changeBefore(const std::vector<Pixel>& line, size_t i, size_t count) {
    for (size_t k = 1; k <= count && k <= i; ++k) {
        if (!line[i - k].sameCodes(line[i])) return true;
    }
    return false;
}

// The coefficient tables chosen for one pixel and how many pixels each side of an edge they shape.
struct EdgeShape {
    const std::deque<double>& luma;
    const std::deque<double>& chroma;
    int pixelsInFront;
    int pixelsBehind;
};

// Blends the pixel at i towards the first differing pixel within pixelsInFront after it; the
// nearer that pixel, the larger its weight.
Pixel transitionTo(const std::vector<Pixel>& line, size_t i, const EdgeShape& shape, const Pixel& shaped) {
    if (i + 1 >= line.size()) {
        puts("Error - transitionTo iterator starting at end of line");
        return shaped;
    }
    if (shape.pixelsInFront == 0) return shaped;
    for (int k = 0; k < shape.pixelsInFront; ++k) {
        const size_t position = i + static_cast<size_t>(k) + 1;
        if (position >= line.size()) {
            printf("Error - hit unexpected end on line.  pixelsInFront=%u i=%u\n",
                   static_cast<unsigned>(shape.pixelsInFront), static_cast<unsigned>(k));
            return shaped;
        }
        if (!line[position].sameCodes(line[i])) {
            const size_t j = static_cast<size_t>(shape.pixelsBehind - 1 - k);
            return line[position].blend(shape.luma.at(j), shape.chroma.at(j), shaped);
        }
    }
    return shaped;
}

// Blends the pixel at i with the first differing pixel within pixelsBehind before it; the
// nearer that pixel, the smaller the pixel's own weight.
Pixel transitionFrom(const std::vector<Pixel>& line, size_t i, const EdgeShape& shape, const Pixel& shaped) {
    if (i == 0) {
        puts("Error - transitionFrom starting at beginning of line");
        return shaped;
    }
    if (shape.pixelsBehind == 0) return shaped;
    for (int k = 0; k < shape.pixelsBehind; ++k) {
        const size_t position = i - static_cast<size_t>(k) - 1;
        if (!line[position].sameCodes(line[i])) {
            const size_t j = static_cast<size_t>(shape.pixelsBehind + k);
            return shaped.blend(shape.luma.at(j), shape.chroma.at(j), line[position]);
        }
        if (position == 0 && k + 1 < shape.pixelsBehind) {
            puts("Error - hit unexpected beginning on line");
            return shaped;
        }
    }
    return shaped;
}

// Whether a line buffer equals the one above it within a window. Windows are asked for from
// left to right (neither end ever moves left), so each position is compared at most once.
class UnchangedWindow {
public:
    UnchangedWindow(const std::vector<Pixel>& line, const std::vector<Pixel>& above) : line_(line), above_(above) {}

    // Positions from..to, inclusive.
    bool within(size_t from, size_t to) {
        for (size_t p = std::max(checkedTo_, from); p <= to; ++p) {
            if (!line_[p].identicalTo(above_[p])) {
                lastDifference_ = p;
                anyDifference_ = true;
            }
        }
        checkedTo_ = std::max(checkedTo_, to + 1);
        return !anyDifference_ || lastDifference_ < from;
    }

private:
    const std::vector<Pixel>& line_;
    const std::vector<Pixel>& above_;
    size_t checkedTo_ = 0;
    size_t lastDifference_ = 0;
    bool anyDifference_ = false;
};

}  // namespace

// What render(x, y) computes from the column alone, for the fast line fill. The rows of pixels
// are built on first use: inside the circle one per band, centre-strip row and centre-cross
// row; outside it one per field row, grid-line row and border-line row.
struct PhilipsPm5544Spec::LineTables {
    static constexpr int bandCount = static_cast<int>(Band::BottomCap) + 1;

    bool usable = false;  // false: the grid or the circle cannot be tabulated, lines are rendered
    int centreX = 0;
    int centreY = 0;
    int64_t innerRadiusSquared = 0;    // h(252)^2: the circle
    int64_t outlineRadiusSquared = 0;  // h(254)^2: the circle with its outline
    std::vector<int64_t> dxSquared;    // per canvas column: the horizontal offset in lines, squared
    // Rows of pixels per canvas column; once built, a row is never resized, so pointers into it last.
    std::vector<Pixel> inside[bandCount][2][2];
    std::vector<Pixel> outside[2][2][2];
};

// One row of the fast line fill, in canvas columns clipped to the rendered ones: the outside
// table up to outlineBegin, white up to innerBegin, the inside table up to innerEnd, white up
// to outlineEnd, the outside table after it. Rows with equal layouts have equal pixels.
struct PhilipsPm5544Spec::RowLayout {
    const Pixel* inside = nullptr;
    const Pixel* outside = nullptr;
    int outlineBegin = 0;
    int innerBegin = 0;
    int innerEnd = 0;
    int outlineEnd = 0;

    bool operator==(const RowLayout& other) const {
        return inside == other.inside && outside == other.outside && outlineBegin == other.outlineBegin &&
               innerBegin == other.innerBegin && innerEnd == other.innerEnd && outlineEnd == other.outlineEnd;
    }
};

PhilipsPm5544Spec::PhilipsPm5544Spec()
    : squareWavePeriod(static_cast<int>(freqToPixels(250000.0))), burstStartFreq(800000), burstFreqStep(1000000) {}

PhilipsPm5544Spec::~PhilipsPm5544Spec() = default;

bool PhilipsPm5544Spec::useFullCanvasSize() { return true; }

void PhilipsPm5544Spec::setup() {
    choosePalette();
    deriveParameters();

    std::deque<double> edgeTransition;
    calculateTransition(edgeTransition, narrowEdgeRiseTimeNs, narrowEdgeClockMHz);

    // Copying shaped pixels from the line above is only safe when shaping cannot print a
    // message, since a copy would not print it again.
    const bool reuseAbove = shapingIsSilent(edgeTransition);
    const size_t reach = shapingReach(edgeTransition);
    const size_t lineSize = static_cast<size_t>(savedTransitionLength) + static_cast<size_t>(width);
    std::vector<Pixel> line;
    std::vector<Pixel> above;
    line.reserve(lineSize);
    above.reserve(lineSize);
    buildLineTables();
    RowLayout previous;
    for (int y = 0; y < height; ++y) {
        const bool aboveUsable = reuseAbove && y > 0;
        if (!lineTables->usable) {
            fillLineReference(y, line);
            appendShapedLine(line, aboveUsable ? &above : nullptr, edgeTransition, reach);
            line.swap(above);
            continue;
        }
        const RowLayout row = rowLayout(y);
        if (aboveUsable && row == previous) {  // the same line as above: the same shaped row
            appendRowAbove();
            continue;
        }
        fillLine(row, line);
        if (aboveUsable && row.inside == previous.inside && row.outside == previous.outside) {
            appendShapedLineWithMovedBounds(row, previous, line, edgeTransition, reach);
        } else {
            appendShapedLine(line, aboveUsable ? &above : nullptr, edgeTransition, reach);
        }
        line.swap(above);
        previous = row;
    }
    lineTables.reset();
}

void PhilipsPm5544Spec::choosePalette() {
    const auto axes = colourSpace.axes();
    const bool tenBit = colourSpace.bitDepth == 10;
    const int bits = tenBit ? 10 : 12;
    const PaletteChoice choice = paletteFor(axes);
    const Codes* table = tableFor(choice.tableAxes, tenBit);
    for (int i = 0; i < paletteSize; ++i) {
        const Pixel entry(table[i].a, table[i].b, table[i].c, choice.tableAxes, bits);
        this->*paletteMembers[i] = choice.convert ? entry.convertTo(axes) : entry;
    }
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
    cardFrame.reserve(static_cast<size_t>(width) * static_cast<size_t>(height));
    LargeBuffer::adviseHugePages(cardFrame.data(), cardFrame.capacity() * sizeof(Pixel));
}

// Black padding, then the rendered pixels, then black padding: output column x lands at buffer
// position x + front, and the outermost n/2 columns at each end are padding.
void PhilipsPm5544Spec::fillLineReference(int y, std::vector<Pixel>& line) {
    const int n = savedTransitionLength;
    const int front = (n + 1) / 2;
    const int back = n - front;
    line.clear();
    line.insert(line.end(), static_cast<size_t>(front + n / 2), black);
    for (int x = n / 2; x < width - n / 2; ++x) {
        line.push_back(render(x, y));
    }
    line.insert(line.end(), static_cast<size_t>(back + n / 2), black);
}

Pixel PhilipsPm5544Spec::shapePixel(const std::vector<Pixel>& line, size_t i,
                                    const std::deque<double>& edgeTransition) const {
    const Pixel& pixel = line[i];
    const size_t n = static_cast<size_t>(savedTransitionLength);
    const size_t front = (n + 1) / 2;
    const size_t back = n - front;

    // A feature one pixel wide keeps its full amplitude.
    const bool differsBefore = i > 0 && !line[i - 1].sameCodes(pixel);
    const bool differsAfter = i + 1 < line.size() && !line[i + 1].sameCodes(pixel);
    if (differsBefore && differsAfter) return pixel;

    const bool nearBefore = changeBefore(line, i, front);
    const bool nearAfter = changeAfter(line, i, back);
    if (!nearBefore && !nearAfter) return pixel;
    const bool wideAfter = changeAfter(line, i, n);
    const bool wideBefore = changeBefore(line, i, n);

    // Changes close together on both sides get the shorter ramp.
    const bool narrow = (nearBefore && wideAfter) || (nearAfter && wideBefore);
    const std::deque<double>& luma = narrow ? edgeTransition : lumaTransition;
    const std::deque<double>& chroma = sampling == PatternGen::Sampling_444 ? lumaTransition : chromaTransition;
    const int lumaSize = static_cast<int>(luma.size());
    const int chromaSize = static_cast<int>(chroma.size());
    if (lumaSize == 0 || lumaSize > chromaSize) {
        printf("Error transition size problem - luma size=%d chroma size=%d\n", lumaSize, chromaSize);
        return pixel;
    }
    const int pixelsInFront = (lumaSize + 1) / 2;
    const EdgeShape shape{luma, chroma, pixelsInFront, lumaSize - pixelsInFront};

    Pixel shaped = pixel;
    if (wideAfter) shaped = transitionTo(line, i, shape, shaped);  // "to" first, "from" on top
    if (wideBefore) shaped = transitionFrom(line, i, shape, shaped);
    return shaped;
}

Pixel PhilipsPm5544Spec::body(int x, int y) {
    if (x < 0 || y < 0) printf("PhilipsPm5544Spec::body x=%d y=%d\n", x, y);
    const unsigned index = static_cast<unsigned>(x) + static_cast<unsigned>(width) * static_cast<unsigned>(y);
    return cardFrame.at(index);
}

Pixel PhilipsPm5544Spec::render(int x, int y) {
    const int X = x - widthFraction(1, 2);
    const int Y = y - heightFraction(1, 2);
    if (!insideCircleHeight(X, Y, 0, 0, h(252))) return renderOutsideCircle(X, Y);

    // Bands inside the circle, top to bottom; the first test that holds decides.
    Pixel result;
    if (Y < -h(231) - 1) return white;
    if (Y < -h(189) - 1) {  // black identification box on white
        result = white;
        int widths[] = {idBoxWidth};
        barsLayered(X + h(84) - 1, result, 1, widths, &black);
        return result;
    }
    if (Y < 1 - h(147)) {  // white bar on black, with a black line in it
        result = black;
        int widths[] = {pulseBarWidth};
        barsLayered(X + h(126), result, 1, widths, &white);
        if (h(21) - 1 <= X + h(126) && X + h(126) <= h(21) + 1) result = black;
        return result;
    }
    if (Y < 1 - h(105)) return squareWave(X, squareWavePeriod, grey75, black);
    if (-h(21) < Y && Y < h(21)) return renderCentre(X, Y);
    if (-h(63) < Y && Y < h(63) && std::abs(X) < heightFraction(39, 1080)) return renderCentre(X, Y);
    if (Y < 1 - h(21)) {  // six 75% colour bars, centred
        const int span = h(504);
        bars(X + fractionOf(span, 3, 6), result, 6, span, &yellow75, &cyan75, &green75, &magenta75, &red75, &blue75);
        return result;
    }
    if (h(21) - 1 <= Y && Y <= h(105)) return renderGratings(X);
    if (h(105) - 1 <= Y && Y <= h(147)) {  // six-step grey scale, centred
        const int span = h(474);
        bars(X + fractionOf(span, 3, 6), result, 6, span, &black, &grey20, &grey40, &grey60, &grey80, &white);
        return result;
    }
    if (h(147) - 1 <= Y && Y <= h(189)) {  // black bar on white, with a white line in it
        result = white;
        int widths[] = {pulseBarWidth};
        barsLayered(X + h(126), result, 1, widths, &black);
        if (h(21) - 1 <= X + h(126) && X + h(126) <= h(21) + 1) result = white;
        return result;
    }
    // Bottom cap (every remaining row lies at or below h(189) - 1): red box on yellow.
    result = yellow100;
    int widths[] = {redBoxWidth};
    barsLayered(X + h(21) - 1, result, 1, widths, &red100);
    return result;
}

Pixel PhilipsPm5544Spec::renderOutsideCircle(int X, int Y) {
    if (insideCircleHeight(X, Y, 0, 0, h(254))) return white;  // the circle's outline

    const int gridPitch = heightFraction(79, 1080);
    const bool fieldRows = -heightFraction(47, 100) <= Y && Y <= heightFraction(47, 100);
    const bool fieldColumns = -widthFraction(47, 100) <= X && X < widthFraction(47, 100);
    Pixel result;
    if (fieldRows && fieldColumns) {  // white grid on 50% grey
        result = grey50;
        grid(X, Y, gridPitch, 2, result, white);
        return result;
    }
    // The border: white castellations on black, crossed by the grid lines at the sides.
    result = black;
    gridFlipVphase(X, Y, 2 * gridPitch, gridPitch, result, white);
    if (fieldRows) grid(X, Y, gridPitch, 2, result, white);
    return result;
}

// Black with the two-pixel centre cross and the grid's vertical lines.
Pixel PhilipsPm5544Spec::renderCentre(int X, int Y) {
    Pixel result = (Y == -1 || Y == 0 || X == -1 || X == 0) ? white : black;
    gridVertical(X, Y, heightFraction(79, 1080), 1, result, white);
    return result;
}

// Five packets of rising frequency, the phase running on continuously from packet to packet.
Pixel PhilipsPm5544Spec::renderGratings(int X) {
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

std::vector<Pixel> PhilipsPm5544Spec::referenceFrame() {
    std::deque<double> edgeTransition;
    calculateTransition(edgeTransition, narrowEdgeRiseTimeNs, narrowEdgeClockMHz);
    const size_t front = static_cast<size_t>((savedTransitionLength + 1) / 2);
    std::vector<Pixel> frame;
    frame.reserve(static_cast<size_t>(width) * static_cast<size_t>(height));
    std::vector<Pixel> line;
    for (int y = 0; y < height; ++y) {
        fillLineReference(y, line);
        for (size_t i = front; i < front + static_cast<size_t>(width); ++i) {
            frame.push_back(shapePixel(line, i, edgeTransition));
        }
    }
    return frame;
}

// ---------------------------------------------------------------------------------------------
// Shaping a whole line

// Shaping prints a message only when a luma table it may choose is empty or longer than the
// chroma table; the padding keeps every scan inside the buffer.
bool PhilipsPm5544Spec::shapingIsSilent(const std::deque<double>& edgeTransition) const {
    const size_t chromaSize = (sampling == PatternGen::Sampling_444 ? lumaTransition : chromaTransition).size();
    for (const size_t lumaSize : {edgeTransition.size(), lumaTransition.size()}) {
        if (lumaSize == 0 || lumaSize > chromaSize) return false;
    }
    return true;
}

// How far from a pixel shapePixel() reads: n each way for the change tests, and at most half
// of the longer luma table for the blends.
size_t PhilipsPm5544Spec::shapingReach(const std::deque<double>& edgeTransition) const {
    const size_t longest = std::max(edgeTransition.size(), lumaTransition.size());
    return std::max(static_cast<size_t>(savedTransitionLength), (longest + 1) / 2);
}

// Appends the shaped pixels of buffer positions front .. front + width - 1 to cardFrame. The
// buffer is walked in runs of equal pixels: a pixel with no change within front positions
// before it and back positions after it is what shapePixel() would return unchanged, so it is
// copied as it is. Every other pixel is shaped by shapePixel(), unless the line above (when
// given) held identical pixels within reach of it: then the pixel shaped there is copied.
void PhilipsPm5544Spec::appendShapedLine(const std::vector<Pixel>& line, const std::vector<Pixel>* above,
                                         const std::deque<double>& edgeTransition, size_t reach) {
    const size_t n = static_cast<size_t>(savedTransitionLength);
    const size_t front = (n + 1) / 2;
    const size_t back = n - front;
    const size_t end = front + static_cast<size_t>(width);
    const size_t size = line.size();
    const bool useAbove = above != nullptr && above->size() == size;
    const size_t shapedAboveStart = useAbove ? cardFrame.size() - static_cast<size_t>(width) : 0;
    UnchangedWindow unchanged(line, useAbove ? *above : line);

    auto appendEdgePixel = [&](size_t i) {
        const size_t from = i >= reach ? i - reach : 0;
        const size_t to = std::min(size - 1, i + reach);
        if (useAbove && unchanged.within(from, to)) {
            cardFrame.push_back(cardFrame[shapedAboveStart + (i - front)]);
        } else {
            cardFrame.push_back(shapePixel(line, i, edgeTransition));
        }
    };

    size_t runStart = 0;
    while (runStart < end) {
        size_t runEnd = runStart + 1;
        while (runEnd < size && line[runEnd].sameCodes(line[runStart])) ++runEnd;
        // The positions of this run whose front predecessors and back successors all lie in
        // it; a run that touches an end of the buffer has no change on that side.
        const size_t plainFrom = runStart == 0 ? 0 : runStart + front;
        const size_t plainTo = runEnd == size ? size : (runEnd > back ? runEnd - back : 0);
        const size_t from = std::max(runStart, front);
        const size_t to = std::min(runEnd, end);
        const size_t plainBegin = std::min(std::max(plainFrom, from), to);
        const size_t plainEnd = std::max(std::min(plainTo, to), plainBegin);
        for (size_t i = from; i < plainBegin; ++i) appendEdgePixel(i);
        cardFrame.insert(cardFrame.end(), line.begin() + static_cast<std::ptrdiff_t>(plainBegin),
                         line.begin() + static_cast<std::ptrdiff_t>(plainEnd));
        for (size_t i = plainEnd; i < to; ++i) appendEdgePixel(i);
        runStart = runEnd;
    }
}

void PhilipsPm5544Spec::appendRowAbove() {
    const size_t aboveStart = cardFrame.size() - static_cast<size_t>(width);
    for (size_t i = 0; i < static_cast<size_t>(width); ++i) cardFrame.push_back(cardFrame[aboveStart + i]);
}

// The line of row, built from the same tables as the line above (laid out as rowAbove),
// differs from it only in the columns between the old and the new place of each interval
// bound. So the shaped row above is appended and only the pixels within reach of those
// columns are shaped again.
void PhilipsPm5544Spec::appendShapedLineWithMovedBounds(const RowLayout& row, const RowLayout& rowAbove,
                                                        const std::vector<Pixel>& line,
                                                        const std::deque<double>& edgeTransition, size_t reach) {
    appendRowAbove();
    const size_t rowStart = cardFrame.size() - static_cast<size_t>(width);
    // Canvas column x is buffer position x + front; output positions run from front.
    const std::ptrdiff_t front = (savedTransitionLength + 1) / 2;
    const std::ptrdiff_t range = static_cast<std::ptrdiff_t>(reach);
    const std::pair<int, int> bounds[] = {{row.outlineBegin, rowAbove.outlineBegin},
                                          {row.innerBegin, rowAbove.innerBegin},
                                          {row.innerEnd, rowAbove.innerEnd},
                                          {row.outlineEnd, rowAbove.outlineEnd}};
    for (const auto& [now, before] : bounds) {
        if (now == before) continue;
        const std::ptrdiff_t from = std::max<std::ptrdiff_t>(std::min(now, before) + front - range, front);
        const std::ptrdiff_t to = std::min<std::ptrdiff_t>(std::max(now, before) + front + range, front + width);
        for (std::ptrdiff_t i = from; i < to; ++i) {
            cardFrame[rowStart + static_cast<size_t>(i - front)] =
                shapePixel(line, static_cast<size_t>(i), edgeTransition);
        }
    }
}

// ---------------------------------------------------------------------------------------------
// Fast line fill: the pixels of render(x, y), looked up by row and column

void PhilipsPm5544Spec::buildLineTables() {
    lineTables = std::make_unique<LineTables>();
    LineTables& tables = *lineTables;
    // With a grid pitch under one line the grids' own arithmetic divides by zero; such a
    // raster keeps the reference fill, and fails there as it always did.
    const int gridPitch = heightFraction(79, 1080);
    if (width <= 0 || aspectDen <= 0 || gridPitch <= 0 || toLineUnits(gridPitch) <= 0) return;

    tables.centreX = widthFraction(1, 2);
    tables.centreY = heightFraction(1, 2);
    // insideCircleHeight's test r > sqrt(dx^2 + Y^2) is r^2 > dx^2 + Y^2 for integers far
    // below 2^26: the sum is exact in a double, sqrt rounds correctly and r is exact, so
    // rounding can neither lift a root below r to r nor drop one at or above r below it.
    const int64_t inner = h(252);
    const int64_t outline = h(254);
    tables.innerRadiusSquared = inner * inner;
    tables.outlineRadiusSquared = outline * outline;
    tables.dxSquared.reserve(static_cast<size_t>(width));
    for (int x = 0; x < width; ++x) {
        const int64_t dx = toLineUnits(x - tables.centreX);  // as insideCircleHeight
        tables.dxSquared.push_back(dx * dx);
    }
    // The column intervals of a row rely on dx^2 falling towards the centre column and rising
    // after it.
    const auto centre = tables.dxSquared.begin() + tables.centreX;
    tables.usable = std::is_sorted(tables.dxSquared.rbegin() + (width - tables.centreX - 1), tables.dxSquared.rend()) &&
                    std::is_sorted(centre, tables.dxSquared.end());
}

// The canvas columns whose squared horizontal offset in lines is below limitSquared: one
// interval about the centre column, where the offset is 0 (empty if limitSquared <= 0).
std::pair<int, int> PhilipsPm5544Spec::columnsCloserThan(int64_t limitSquared) const {
    const LineTables& tables = *lineTables;
    const int centreX = tables.centreX;
    if (limitSquared <= 0) return {centreX, centreX};
    const auto first = tables.dxSquared.begin();
    const auto centre = first + centreX;
    const auto begin = std::partition_point(first, centre, [&](int64_t d) { return d >= limitSquared; });
    const auto end = std::partition_point(centre, tables.dxSquared.end(), [&](int64_t d) { return d < limitSquared; });
    return {static_cast<int>(begin - first), static_cast<int>(end - first)};
}

PhilipsPm5544Spec::RowLayout PhilipsPm5544Spec::rowLayout(int y) {
    const LineTables& tables = *lineTables;
    const int Y = y - tables.centreY;
    const int64_t ySquared = static_cast<int64_t>(Y) * Y;
    const int n = savedTransitionLength;
    const int firstRendered = n / 2;
    const int endRendered = std::max(firstRendered, width - n / 2);
    auto rendered = [&](int x) { return std::min(std::max(x, firstRendered), endRendered); };

    RowLayout row;
    // A row that misses the circle needs no inside pixels.
    row.inside = ySquared < tables.innerRadiusSquared ? insideRow(Y).data() : nullptr;
    row.outside = outsideRow(Y).data();
    const auto inner = columnsCloserThan(tables.innerRadiusSquared - ySquared);
    const auto outline = columnsCloserThan(tables.outlineRadiusSquared - ySquared);
    row.outlineBegin = rendered(outline.first);
    row.innerBegin = rendered(inner.first);
    row.innerEnd = rendered(inner.second);
    row.outlineEnd = rendered(outline.second);
    return row;
}

void PhilipsPm5544Spec::fillLine(const RowLayout& row, std::vector<Pixel>& line) {
    const int n = savedTransitionLength;
    const size_t padFront = static_cast<size_t>((n + 1) / 2 + n / 2);
    const size_t padBack = static_cast<size_t>(n - (n + 1) / 2 + n / 2);
    const int firstRendered = n / 2;
    const int endRendered = std::max(firstRendered, width - n / 2);
    const size_t size = padFront + static_cast<size_t>(endRendered - firstRendered) + padBack;
    if (line.size() != size) line.assign(size, black);

    Pixel* out = line.data();
    auto copyColumns = [&](const Pixel* table, int from, int to) {
        if (from < to) out = std::copy(table + from, table + to, out);
    };
    auto fillColumns = [&](const Pixel& pixel, size_t count) { out = std::fill_n(out, count, pixel); };
    fillColumns(black, padFront);
    copyColumns(row.outside, firstRendered, row.outlineBegin);
    fillColumns(white, static_cast<size_t>(row.innerBegin - row.outlineBegin));
    copyColumns(row.inside, row.innerBegin, row.innerEnd);
    fillColumns(white, static_cast<size_t>(row.outlineEnd - row.innerEnd));
    copyColumns(row.outside, row.outlineEnd, endRendered);
    fillColumns(black, padBack);
}

void PhilipsPm5544Spec::fillLineFast(int y, std::vector<Pixel>& line) {
    if (!lineTables) buildLineTables();
    if (lineTables->usable) {
        fillLine(rowLayout(y), line);
    } else {
        fillLineReference(y, line);
    }
}

// The band of a row inside the circle, by render()'s tests in render()'s order; the centre
// strip, which also depends on the column, is left to insideRow().
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
    return Band::BottomCap;
}

// The pixel of a band at column X, drawn as render() draws it; only the centre depends on Y.
Pixel PhilipsPm5544Spec::bandPixel(Band band, int X, int Y) {
    Pixel result = black;
    switch (band) {
        case Band::TopCap:
            return white;
        case Band::IdBox: {
            result = white;
            int widths[] = {idBoxWidth};
            barsLayered(X + h(84) - 1, result, 1, widths, &black);
            return result;
        }
        case Band::WhiteBar: {
            int widths[] = {pulseBarWidth};
            barsLayered(X + h(126), result, 1, widths, &white);
            if (h(21) - 1 <= X + h(126) && X + h(126) <= h(21) + 1) result = black;
            return result;
        }
        case Band::SquareWave:
            return squareWave(X, squareWavePeriod, grey75, black);
        case Band::Centre:
            return renderCentre(X, Y);
        case Band::ColourBars: {
            const int span = h(504);
            bars(X + fractionOf(span, 3, 6), result, 6, span, &yellow75, &cyan75, &green75, &magenta75, &red75,
                 &blue75);
            return result;
        }
        case Band::Gratings:
            return renderGratings(X);
        case Band::GreyScale: {
            const int span = h(474);
            bars(X + fractionOf(span, 3, 6), result, 6, span, &black, &grey20, &grey40, &grey60, &grey80, &white);
            return result;
        }
        case Band::BlackBar: {
            result = white;
            int widths[] = {pulseBarWidth};
            barsLayered(X + h(126), result, 1, widths, &black);
            if (h(21) - 1 <= X + h(126) && X + h(126) <= h(21) + 1) result = white;
            return result;
        }
        case Band::BottomCap: {
            result = yellow100;
            int widths[] = {redBoxWidth};
            barsLayered(X + h(21) - 1, result, 1, widths, &red100);
            return result;
        }
    }
    return result;
}

// Row Y inside the circle, for every canvas column. Rows of the same band share it, except
// that the bands render() tests after the centre band have the centre strip cut into them
// within h(63) of the centre, and the centre cross runs along rows -1 and 0.
const std::vector<Pixel>& PhilipsPm5544Spec::insideRow(int Y) {
    const Band band = bandOfRow(Y);
    const bool stripRow = band > Band::Centre && -h(63) < Y && Y < h(63);
    const bool crossRow = Y == -1 || Y == 0;
    std::vector<Pixel>& row = lineTables->inside[static_cast<int>(band)][stripRow][crossRow];
    if (!row.empty()) return row;

    const int stripHalfWidth = heightFraction(39, 1080);
    row.reserve(static_cast<size_t>(width));
    for (int x = 0; x < width; ++x) {
        const int X = x - lineTables->centreX;
        row.push_back(stripRow && std::abs(X) < stripHalfWidth ? renderCentre(X, Y) : bandPixel(band, X, Y));
    }
    return row;
}

// Row Y outside the circle's outline, for every canvas column: the field's white grid on 50%
// grey, and the border's castellations with the grid's lines crossing the side borders. The
// grids' hard-edged geometry is taken per row (horizontal lines) and per column (vertical ones).
const std::vector<Pixel>& PhilipsPm5544Spec::outsideRow(int Y) {
    const int pitch = heightFraction(79, 1080);
    const int borderPitch = 2 * pitch;
    const int borderThickness = pitch;
    const int borderLineWidth = borderThickness - 2;
    const int fieldHalfHeight = heightFraction(47, 100);
    const int fieldHalfWidth = widthFraction(47, 100);

    const bool fieldRow = -fieldHalfHeight <= Y && Y <= fieldHalfHeight;
    const bool gridRow = positiveMod(Y + gridThickness / 2 - pitch / 2, pitch) <= gridThickness;
    const bool borderRow = positiveMod(Y + borderPitch / 2 - borderThickness / 2, borderPitch) <= borderThickness;
    std::vector<Pixel>& row = lineTables->outside[fieldRow][gridRow][borderRow];
    if (!row.empty()) return row;

    // A column lies on a vertical line when its offset in lines, shifted by half a line width
    // less half a pitch, falls within the line width modulo the pitch in lines.
    auto onVerticalLine = [&](int X, int linePitch, int lineWidth) {
        const int pitchLines = toLineUnits(linePitch);
        return positiveMod(toLineUnits(X) + lineWidth / 2 - (pitchLines + 1) / 2, pitchLines) < lineWidth;
    };
    row.reserve(static_cast<size_t>(width));
    for (int x = 0; x < width; ++x) {
        const int X = x - lineTables->centreX;
        const bool onGrid = gridRow || onVerticalLine(X, pitch, gridLineWidth);
        if (fieldRow && -fieldHalfWidth <= X && X < fieldHalfWidth) {
            row.push_back(onGrid ? white : grey50);
        } else {
            const bool onBorderMark = borderRow || onVerticalLine(X, borderPitch, borderLineWidth);
            row.push_back(onBorderMark || (fieldRow && onGrid) ? white : black);
        }
    }
    return row;
}
