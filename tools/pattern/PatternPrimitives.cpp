// Per-pixel drawing primitives: bars, square waves, grids, edges and vertical lines, each edge
// shaped with the luma and chroma transition coefficients.
#include <cstdarg>
#include <cstdint>

#include "pattern/PatternWrapper.h"

namespace {

// Coefficient k of a rising ramp. An index at or past the end of the list stands for the level
// the ramp rises to (1.0). The chroma list can be one shorter than the luma list (odd luma length
// with subsampled chroma); its missing last index is read as 1.0 by the same rule.
double coefficient(const std::deque<double>& ramp, int k) {
    if (k < 0) return 0.0;
    if (static_cast<size_t>(k) >= ramp.size()) return 1.0;
    return ramp[static_cast<size_t>(k)];
}

// Position of bar edge i: evenly divided span, or the running sum of the given widths.
class BarEdges {
public:
    BarEdges(int count, int span, const int* widths) : count_(count), span_(span), widths_(widths) {}
    // Called with i = 0, 1, ..., count in order.
    int at(int i) {
        if (widths_ == nullptr) return count_ == 0 ? 0 : (i * span_) / count_;
        if (i > 0) running_ += widths_[i - 1];
        return running_;
    }

private:
    int count_;
    int span_;
    const int* widths_;
    int running_ = 0;
};

// The colour at x of a row of bars whose colours are read from ap (Pixel pointers), with the
// outside colour before the first bar and after the last. Edge i has its transition zone from
// e - zoneBefore to e + zoneAfter (exclusive), rising from the colour before it to the one after.
Pixel barColour(int x, const Pixel& outside, int count, BarEdges edges, int zoneBefore, int zoneAfter,
                const std::deque<double>& luma, const std::deque<double>& chroma, va_list ap) {
    const Pixel* before = &outside;
    for (int i = 0; i <= count; ++i) {
        const Pixel* after = i == count ? &outside : va_arg(ap, Pixel*);
        const int e = edges.at(i);
        const int zoneStart = e - zoneBefore;
        if (x >= zoneStart && x < e + zoneAfter) {
            const int k = x - zoneStart;
            return after->blend(coefficient(luma, k), coefficient(chroma, k), *before);
        }
        if (x < e) return *before;
        if (i == count) return *after;
        before = after;
    }
    return outside;
}

// One vertical grid line at offset remX into the pitch. lineWidth is the width W of a line with
// its ramps; alwaysSolid draws the whole width in the line colour.
bool verticalGridLine(int remX, int lineWidth, int n, int thickness, bool alwaysSolid, const std::deque<double>& luma,
                      Pixel& inout, const Pixel& line) {
    if (remX >= lineWidth) return false;
    if (alwaysSolid) {
        inout = line;
        return true;
    }
    const int fallStart = n + thickness - 2;
    if (remX < n) {
        const double c = coefficient(luma, remX);
        inout = line.blend(c, c, inout);
    } else if (remX >= fallStart) {
        const double c = coefficient(luma, remX - fallStart);
        inout = inout.blend(c, c, line);
    } else {
        inout = line;
    }
    return true;
}

}  // namespace

// Evenly divided bars over 0..span-1 with black outside; transitions centred on each edge.
bool PatternSpec::bars(int x, Pixel& out, int count, int span, ...) {
    if (count < 0) return true;
    const int n = transitionLength;
    va_list ap;
    va_start(ap, span);
    out = barColour(x, bars100[7], count, BarEdges(count, span, nullptr), (n + 1) / 2, (n + 1) / 2, lumaTransition,
                    chromaTransition, ap);
    va_end(ap);
    return true;
}

// Evenly divided bars drawn over the incoming pixel, which stays as it is outside the bars.
bool PatternSpec::barsLayered(int x, Pixel& inout, int count, int span, ...) {
    if (count < 0) return true;
    const int n = transitionLength;
    const Pixel incoming = inout;
    va_list ap;
    va_start(ap, span);
    inout = barColour(x, incoming, count, BarEdges(count, span, nullptr), (n + 1) / 2, (n - 1) / 2, lumaTransition,
                      chromaTransition, ap);
    va_end(ap);
    return true;
}

// Bars of the given widths, starting at 0, drawn over the incoming pixel.
bool PatternSpec::barsLayered(int x, Pixel& inout, int count, int* widths, ...) {
    if (count < 0) return true;
    const int n = transitionLength;
    const Pixel incoming = inout;
    va_list ap;
    va_start(ap, widths);
    inout = barColour(x, incoming, count, BarEdges(count, 0, widths), (n + 1) / 2, (n - 1) / 2, lumaTransition,
                      chromaTransition, ap);
    va_end(ap);
    return true;
}

// High for the first half period, low for the second; the n/2 shift centres each transition on
// the half-period boundary.
Pixel PatternSpec::squareWave(int x, int period, Pixel& low, Pixel& high) {
    const int n = transitionLength;
    const int half = period / 2;
    const int phase = positiveMod(x + n / 2, period);
    if (phase < half) {
        if (phase >= n) return high;
        return high.blend(coefficient(lumaTransition, phase), coefficient(chromaTransition, phase), low);
    }
    const int fallPhase = phase - half;
    if (fallPhase >= n) return low;
    return low.blend(coefficient(lumaTransition, fallPhase), coefficient(chromaTransition, fallPhase), high);
}

bool PatternSpec::grid(int x, int y, int pitch, int thickness, Pixel& inout, Pixel line) {
    const int remY = positiveMod(y + thickness / 2 - pitch / 2, pitch);
    if (remY <= thickness) {
        inout = line;
        return true;
    }
    return gridVertical(x, y, pitch, thickness, inout, line);
}

bool PatternSpec::gridVertical(int x, int, int pitch, int thickness, Pixel& inout, Pixel line) {
    const int n = transitionLength;
    const int ramps = 2 * n - 1;
    const int lineWidth = ramps < 1 ? thickness + 1 : thickness + ramps;
    const int pitchLines = toLineUnits(pitch);
    const int xLines = toLineUnits(x);
    const int remX = positiveMod(xLines + lineWidth / 2 - (pitchLines + 1) / 2, pitchLines);
    return verticalGridLine(remX, lineWidth, n, thickness, n <= 0, lumaTransition, inout, line);
}

// The grid with the horizontal lines half a pitch away from grid()'s, and vertical lines whose
// falling ramp ends on the last coefficient.
bool PatternSpec::gridFlipVphase(int x, int y, int pitch, int thickness, Pixel& inout, Pixel line) {
    const int remY = positiveMod(y + pitch / 2 - thickness / 2, pitch);
    if (remY <= thickness) {
        inout = line;
        return true;
    }
    const int n = transitionLength;
    const int lineWidth = thickness + 2 * (n - 1);
    const int pitchLines = toLineUnits(pitch);
    const int xLines = toLineUnits(x);
    const int remX = positiveMod(xLines + lineWidth / 2 - (pitchLines + 1) / 2, pitchLines);
    return verticalGridLine(remX, lineWidth, n, thickness, false, lumaTransition, inout, line);
}

void PatternSpec::edge(Pixel& inout, int steps, Pixel target, int step) {
    if (step >= steps) {
        inout = target;
        return;
    }
    inout = target.blend(coefficient(lumaTransition, step), coefficient(chromaTransition, step), inout);
}

void PatternSpec::edgeInv(Pixel& inout, int steps, Pixel target, int step) {
    if (step >= steps) {
        inout = target;
        return;
    }
    inout = target.blend(1.0 - coefficient(lumaTransition, step), 1.0 - coefficient(chromaTransition, step), inout);
}

namespace {
// Half-widths (before halving) of the soft border around a vertical line: subsampled chroma
// needs a wider border.
constexpr int softBorder444 = 3;
constexpr int softBorderSubsampled = 5;
constexpr double softBorderMix = 0.5;
}  // namespace

bool PatternSpec::vertLineAt(int centre, int x, int thickness, Pixel left, Pixel line, Pixel right, Pixel& out) {
    if (!riseTimeEnabled) {
        const int half = thickness / 2;
        if (x > centre - half && x <= centre + half + 1) {
            out = line;
            return true;
        }
        return false;
    }
    const int border = sampling == PatternGen::Sampling_444 ? softBorder444 : softBorderSubsampled;
    const int reach = (border + thickness) / 2;
    const int half = (thickness + 1) / 2;
    if (x <= centre - reach || x >= centre + reach) return false;
    if (x > centre - half && x < centre + half) {
        out = line;
        return true;
    }
    out = line.blend(softBorderMix, softBorderMix, centre < x ? right : left);
    return true;
}
