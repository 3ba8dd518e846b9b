// Edge shaping of one padded line. shapePixel() decides each pixel from its neighbours; shapeLine()
// gives the same result faster by walking the line in runs of equal pixels, since a pixel with no
// change near it is left as it is, and by copying pixels another line already shaped from the same
// neighbourhood.
#include "philips-PM5544-shaping.h"

#include <algorithm>
#include <utility>

namespace {

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

// The ramps chosen for one pixel and how many pixels each side of an edge they shape.
struct EdgeShape {
    const std::deque<double>& luma;
    const std::deque<double>& chroma;
    int pixelsInFront;
    int pixelsBehind;
    const MessageSink& messages;
};

// Blends the pixel at i towards the first differing pixel within pixelsInFront after it; the
// nearer that pixel, the larger its weight.
Pixel transitionTo(const std::vector<Pixel>& line, size_t i, const EdgeShape& shape, const Pixel& shaped) {
    if (i + 1 >= line.size()) {
        report(shape.messages, MessageKind::Progress, "Error - transitionTo iterator starting at end of line\n");
        return shaped;
    }
    if (shape.pixelsInFront == 0) return shaped;
    for (int k = 0; k < shape.pixelsInFront; ++k) {
        const size_t position = i + static_cast<size_t>(k) + 1;
        if (position >= line.size()) {
            report(shape.messages, MessageKind::Progress,
                   "Error - hit unexpected end on line.  pixelsInFront=%u i=%u\n",
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
        report(shape.messages, MessageKind::Progress, "Error - transitionFrom starting at beginning of line\n");
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
            report(shape.messages, MessageKind::Progress, "Error - hit unexpected beginning on line\n");
            return shaped;
        }
    }
    return shaped;
}

// Whether a line equals another within a window. Windows are asked for from left to right
// (neither end ever moves left), so each position is compared at most once.
class UnchangedWindow {
public:
    UnchangedWindow(const std::vector<Pixel>& line, const std::vector<Pixel>& other) : line_(line), other_(other) {}

    // Positions from..to, inclusive.
    bool within(size_t from, size_t to) {
        for (size_t p = std::max(checkedTo_, from); p <= to; ++p) {
            if (!line_[p].identicalTo(other_[p])) {
                lastDifference_ = p;
                anyDifference_ = true;
            }
        }
        checkedTo_ = std::max(checkedTo_, to + 1);
        return !anyDifference_ || lastDifference_ < from;
    }

private:
    const std::vector<Pixel>& line_;
    const std::vector<Pixel>& other_;
    size_t checkedTo_ = 0;
    size_t lastDifference_ = 0;
    bool anyDifference_ = false;
};

}  // namespace

CardEdgeShaper::CardEdgeShaper(int transitionLength, std::deque<double> luma, std::deque<double> chroma,
                               std::deque<double> narrow, const MessageSink& messages)
    : n_(static_cast<size_t>(transitionLength)),
      front_((n_ + 1) / 2),
      back_(n_ - front_),
      luma_(std::move(luma)),
      chroma_(std::move(chroma)),
      narrow_(std::move(narrow)),
      messages_(messages) {
    // The change tests read n each way, the blends at most half of the longer luma ramp.
    reach_ = std::max(n_, (std::max(luma_.size(), narrow_.size()) + 1) / 2);
    silent_ = true;
    for (const size_t lumaSize : {narrow_.size(), luma_.size()}) {
        if (lumaSize == 0 || lumaSize > chroma_.size()) silent_ = false;
    }
}

Pixel CardEdgeShaper::shapePixel(const std::vector<Pixel>& line, size_t i) const {
    const Pixel& pixel = line[i];
    // A feature one pixel wide keeps its full amplitude.
    const bool differsBefore = i > 0 && !line[i - 1].sameCodes(pixel);
    const bool differsAfter = i + 1 < line.size() && !line[i + 1].sameCodes(pixel);
    if (differsBefore && differsAfter) return pixel;

    const bool nearBefore = changeBefore(line, i, front_);
    const bool nearAfter = changeAfter(line, i, back_);
    if (!nearBefore && !nearAfter) return pixel;
    const bool wideAfter = changeAfter(line, i, n_);
    const bool wideBefore = changeBefore(line, i, n_);

    // Changes close together on both sides get the shorter ramp.
    const bool narrow = (nearBefore && wideAfter) || (nearAfter && wideBefore);
    const std::deque<double>& luma = narrow ? narrow_ : luma_;
    const int lumaSize = static_cast<int>(luma.size());
    const int chromaSize = static_cast<int>(chroma_.size());
    if (lumaSize == 0 || lumaSize > chromaSize) {
        report(messages_, MessageKind::Progress, "Error transition size problem - luma size=%d chroma size=%d\n",
               lumaSize, chromaSize);
        return pixel;
    }
    const int pixelsInFront = (lumaSize + 1) / 2;
    const EdgeShape shape{luma, chroma_, pixelsInFront, lumaSize - pixelsInFront, messages_};

    Pixel shaped = pixel;
    if (wideAfter) shaped = transitionTo(line, i, shape, shaped);  // "to" first, "from" on top
    if (wideBefore) shaped = transitionFrom(line, i, shape, shaped);
    return shaped;
}

// A pixel with no change within front positions before it and back positions after it is what
// shapePixel() returns unchanged: within each run of equal pixels those are copied as they are.
void CardEdgeShaper::shapeLine(const std::vector<Pixel>& line, size_t count, const std::vector<Pixel>* above,
                               const Pixel* shapedAbove, Pixel* out) const {
    const size_t end = front_ + count;
    const size_t size = line.size();
    const bool useAbove = above != nullptr && shapedAbove != nullptr && above->size() == size;
    UnchangedWindow unchanged(line, useAbove ? *above : line);

    auto shapeNearEdge = [&](size_t i) {
        const size_t from = i >= reach_ ? i - reach_ : 0;
        const size_t to = std::min(size - 1, i + reach_);
        out[i - front_] = useAbove && unchanged.within(from, to) ? shapedAbove[i - front_] : shapePixel(line, i);
    };

    size_t runStart = 0;
    while (runStart < end) {
        size_t runEnd = runStart + 1;
        while (runEnd < size && line[runEnd].sameCodes(line[runStart])) ++runEnd;
        // The positions of this run whose front predecessors and back successors all lie in
        // it; a run that touches an end of the line has no change on that side.
        const size_t plainFrom = runStart == 0 ? 0 : runStart + front_;
        const size_t plainTo = runEnd == size ? size : (runEnd > back_ ? runEnd - back_ : 0);
        const size_t from = std::max(runStart, front_);
        const size_t to = std::min(runEnd, end);
        const size_t plainBegin = std::min(std::max(plainFrom, from), to);
        const size_t plainEnd = std::max(std::min(plainTo, to), plainBegin);
        for (size_t i = from; i < plainBegin; ++i) shapeNearEdge(i);
        if (plainBegin < plainEnd) std::copy(&line[plainBegin], &line[0] + plainEnd, out + (plainBegin - front_));
        for (size_t i = plainEnd; i < to; ++i) shapeNearEdge(i);
        runStart = runEnd;
    }
}

void CardEdgeShaper::reshapeAround(const std::vector<Pixel>& line, size_t count, size_t changedFrom, size_t changedTo,
                                   Pixel* out) const {
    const size_t from = std::max(changedFrom > reach_ ? changedFrom - reach_ : 0, front_);
    const size_t to = std::min(changedTo + reach_, front_ + count);
    for (size_t i = from; i < to; ++i) out[i - front_] = shapePixel(line, i);
}
