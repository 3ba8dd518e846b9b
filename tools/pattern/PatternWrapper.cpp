// The pattern core: construction, init, integer geometry, circle tests and overlay layers.
#include "pattern/PatternWrapper.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace {

// Colour bars as 12-bit full-range R'G'B' (G, B, R): white, yellow, cyan, green, magenta, red, blue, black.
constexpr int fullCode = 4095;
constexpr int barGBR[8][3] = {
    {fullCode, fullCode, fullCode},  // white
    {fullCode, 0, fullCode},         // yellow
    {fullCode, fullCode, 0},         // cyan
    {fullCode, 0, 0},                // green
    {0, fullCode, fullCode},         // magenta
    {0, 0, fullCode},                // red
    {0, fullCode, 0},                // blue
    {0, 0, 0},                       // black
};

// BT.601 colour bars as fixed 12-bit code values (Y, Cb, Cr), used instead of a conversion.
constexpr int bars601YCbCr[8][3] = {
    {3760, 2048, 2048},  // white
    {3360, 256, 2336},   // yellow
    {2704, 2656, 256},   // cyan
    {2304, 864, 544},    // green
    {1696, 3232, 3552},  // magenta
    {1296, 1440, 3840},  // red
    {640, 3840, 1760},   // blue
    {256, 2048, 2048},   // black
};

// The default transition: 25 ns rise time at the 74.25 MHz luma clock.
constexpr double defaultRiseTimeNs = 25.0;
constexpr double defaultClockMHz = 74.25;

constexpr int overlayBytesPerPixel = 4;

}  // namespace

PatternSpec::PatternSpec() {
    for (int i = 0; i < 8; ++i) {
        bars100[i] = Pixel(barGBR[i][0], barGBR[i][1], barGBR[i][2], PatternGen::Colour_RGB);
        bars75[i] = bars100[i];
    }
}

PatternSpec::~PatternSpec() {
    for (unsigned char* layer : layers) delete[] layer;
    layers.clear();
    releaseText();
}

void PatternSpec::getLineRepeats(std::vector<std::pair<int, int>>& list) { list.clear(); }

bool PatternSpec::useFullCanvasSize() { return false; }

bool PatternSpec::init(int width, int height, int aspectNum, int aspectDen, PatternGen::colorAxes_e axes,
                       PatternGen::sampling_e sampling, int bits, PatternGen::quadrant_e quadrant, int optionValue,
                       bool edgeTaperOff) {
    this->optionValue = optionValue;
    // In quadrant mode the canvas is twice the rendered quarter in each direction.
    const int canvasScale = quadrant != PatternGen::Quadrant_None ? 2 : 1;
    this->width = width * canvasScale;
    this->height = height * canvasScale;
    this->aspectNum = aspectNum;
    this->aspectDen = aspectDen;
    colourSpace = ColourSpace(axes, bits);
    this->sampling = sampling;
    this->quadrant = quadrant;
    this->edgeTaperOff = edgeTaperOff;

    // The 75% bars come from the full-range bars before those are converted.
    for (int i = 0; i < 8; ++i) bars75[i] = bars100[i].scale(75, 100).convertTo(axes);
    for (int i = 0; i < 8; ++i) {
        if (axes == PatternGen::Colour_YCbCr_601)
            bars100[i] =
                Pixel(bars601YCbCr[i][0], bars601YCbCr[i][1], bars601YCbCr[i][2], PatternGen::Colour_YCbCr_601);
        else
            bars100[i] = bars100[i].convertTo(axes);
    }

    report(messages, MessageKind::Progress, "Width x Height: %dx%d\n", this->width, this->height);
    report(messages, MessageKind::Progress, "Aspect: %d:%d\n", this->aspectNum, this->aspectDen);
    const double pixelAspect =
        (static_cast<double>(this->aspectDen) * this->width) / (static_cast<double>(this->aspectNum) * this->height);
    report(messages, MessageKind::Progress, "Pixel aspect: 1:%.3lf\n", pixelAspect);

    calculateTransition(defaultRiseTimeNs, defaultClockMHz);
    setup();
    return true;
}

int PatternSpec::heightFraction(int num, int den) const { return (height * num) / den; }

int PatternSpec::widthFraction(int num, int den) const { return (width * num) / den; }

int PatternSpec::fractionOf(int value, int num, int den) const { return (value * num) / den; }

int PatternSpec::aspectAdjustedVertFraction(int num, int den) const {
    return static_cast<int>((int64_t{height} * aspectNum * num) / (int64_t{aspectDen} * den));
}

int PatternSpec::aspectAdjustedHorizFraction(int num, int den) const {
    return static_cast<int>((int64_t{width} * aspectDen * num) / (int64_t{aspectNum} * den));
}

int PatternSpec::toLineUnits(int value) const {
    return static_cast<int>((int64_t{height} * value * aspectNum) / (int64_t{aspectDen} * width));
}

int PatternSpec::positiveMod(int value, int divisor) {
    const int rem = value % divisor;
    return rem < 0 ? rem + divisor : rem;
}

bool PatternSpec::insideCircleHeight(int x, int y, int cx, int cy, int r) const {
    const double dx = static_cast<double>(toLineUnits(x)) - toLineUnits(cx);
    const double dy = static_cast<double>(y) - cy;
    return r > std::sqrt(dx * dx + dy * dy);
}

bool PatternSpec::insideCircleWidth(int x, int y, int cx, int cy, int r) const {
    const int64_t yPixels = (int64_t{width} * y * aspectDen) / (int64_t{aspectNum} * height);
    const int64_t cyPixels = (int64_t{width} * cy * aspectDen) / (int64_t{aspectNum} * height);
    const double dx = static_cast<double>(x) - cx;
    const double dy = static_cast<double>(yPixels) - cyPixels;
    return r > std::sqrt(dx * dx + dy * dy);
}

// The raster covers the whole canvas (already doubled in quadrant mode), one 32-bit word a pixel.
int PatternSpec::newLayer() {
    const size_t bytes = static_cast<size_t>(width) * static_cast<size_t>(height) * overlayBytesPerPixel;
    layers.push_back(nullptr);
    layers.back() = new unsigned char[bytes];
    return static_cast<int>(layers.size());
}

// The green field of the overlay word (text level), left-aligned in 16 bits.
unsigned PatternSpec::getOverlay(unsigned layer, int originX, int y, int x, int stride) const {
    if (layer >= layers.size() || layers[layer] == nullptr) return 0;
    const size_t index = static_cast<size_t>(static_cast<ptrdiff_t>(y) * stride + (x - originX));
    const unsigned char* p = layers[layer] + index * overlayBytesPerPixel;
    const uint32_t word = static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
                          (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
    return (word >> 4) & 0xFFC0u;
}
