// The card's palette: sixteen colours per table, a table per encoding family and bit depth, chosen
// for the output encoding and converted into it where no table is written in that encoding.
#include "philips-PM5544-new.h"

using PatternGen::colorAxes_e;

namespace {

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

// Which table an output encoding starts from, and whether its entries are then converted.
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
        default:  // 601, the Mapped Y'CbCr encodings and every R'G'B' HDR encoding
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

}  // namespace

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
