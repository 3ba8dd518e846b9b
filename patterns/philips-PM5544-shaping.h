// Edge shaping of the card's hard-edged lines: every change of colour gets a raised-cosine
// transition, the framework's ramp between wide areas and a shorter one where changes come close
// together. A line is padded with black on both sides: its first output pixel is at front().
#pragma once

#include <cstddef>
#include <deque>
#include <vector>

#include "colour/Pixel.h"
#include "messages/Messages.h"

class CardEdgeShaper {
public:
    // transitionLength n and the framework's luma ramp; chroma is the ramp colour difference
    // follows; narrow is the short luma ramp for changes close together. A ramp that cannot shape an
    // edge is reported to messages (the card's, which outlives the shaper), and the pixel left unshaped.
    CardEdgeShaper(int transitionLength, std::deque<double> luma, std::deque<double> chroma, std::deque<double> narrow,
                   const MessageSink& messages);

    // Line position of the first output pixel: (n + 1) / 2.
    size_t front() const { return front_; }
    // Shaping prints nothing (no ramp is empty or longer than the chroma ramp), so a shaped pixel
    // may be reused for an identical neighbourhood instead of being shaped again.
    bool silent() const { return silent_; }

    // The shaped pixel at line position i, from the unshaped line alone. The faster paths below
    // give exactly this for every position.
    Pixel shapePixel(const std::vector<Pixel>& line, size_t i) const;

    // Shapes positions front() .. front() + count - 1 into out[0 .. count - 1]. Given another line
    // (above) with its shaped pixels, a pixel whose neighbourhood is the same there is copied.
    void shapeLine(const std::vector<Pixel>& line, size_t count, const std::vector<Pixel>* above,
                   const Pixel* shapedAbove, Pixel* out) const;

    // out holds count shaped pixels of a line that differed from line only at positions
    // [changedFrom, changedTo): reshapes the pixels within reach of those positions.
    void reshapeAround(const std::vector<Pixel>& line, size_t count, size_t changedFrom, size_t changedTo,
                       Pixel* out) const;

private:
    size_t n_;
    size_t front_;
    size_t back_;
    std::deque<double> luma_;
    std::deque<double> chroma_;
    std::deque<double> narrow_;
    size_t reach_;  // how far from a pixel shapePixel() reads
    bool silent_;
    const MessageSink& messages_;
};
