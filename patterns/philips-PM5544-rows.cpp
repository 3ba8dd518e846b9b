// The card's rows, assembled from row kinds and shaped one at a time as body() asks for them.
#include "philips-PM5544-rows.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <stdexcept>

#include "philips-PM5544-text.h"

namespace {

// Rise time of the card's narrow-edge ramp: 15 ns at the 74.25 MHz luma clock.
constexpr double narrowEdgeRiseTimeNs = 15.0;
constexpr double narrowEdgeClockMHz = 74.25;

std::deque<double> narrowEdgeRamp(const PatternSpec& pattern) {
    std::deque<double> ramp;
    pattern.calculateTransition(ramp, narrowEdgeRiseTimeNs, narrowEdgeClockMHz);
    return ramp;
}

// The first value in [from, to) where pred, false up to some value and true from it on, holds;
// to if none.
template <typename Predicate>
int firstWhere(int from, int to, Predicate pred) {
    while (from < to) {
        const int middle = from + (to - from) / 2;
        if (pred(middle)) {
            to = middle;
        } else {
            from = middle + 1;
        }
    }
    return from;
}

// (x, y) read as an index into a frame of width x height pixels, formed in unsigned arithmetic: a
// column left of the picture wraps into the row above. An index past the frame is an error.
std::pair<int, int> positionInFrame(int x, int y, int width, int height) {
    const uint32_t columns = static_cast<uint32_t>(width);
    const uint32_t index = static_cast<uint32_t>(x) + columns * static_cast<uint32_t>(y);
    const size_t pixels = static_cast<size_t>(columns) * static_cast<size_t>(height);
    if (index >= pixels) {
        char message[128];
        snprintf(message, sizeof message, "vector::_M_range_check: __n (which is %zu) >= this->size() (which is %zu)",
                 static_cast<size_t>(index), pixels);
        throw std::out_of_range(message);
    }
    return {static_cast<int>(index % columns), static_cast<int>(index / columns)};
}

}  // namespace

Pixel PhilipsPm5544Spec::body(int x, int y) {
    if (rows && static_cast<uint32_t>(x) < static_cast<uint32_t>(width) &&
        static_cast<uint32_t>(y) < static_cast<uint32_t>(height)) {
        return rows->shaped(x, y);
    }
    if (x < 0 || y < 0) report(messages, MessageKind::Progress, "PhilipsPm5544Spec::body x=%d y=%d\n", x, y);
    const std::pair<int, int> position = positionInFrame(x, y, width, rows ? height : 0);
    return rows->shaped(position.first, position.second);
}

// A row within the canvas is served in place.
const Pixel* PhilipsPm5544Spec::bodyRow(int y, int x0, int x1, std::vector<Pixel>& scratch) {
    if (rows && 0 <= x0 && x0 <= x1 && x1 <= width && static_cast<uint32_t>(y) < static_cast<uint32_t>(height))
        return rows->row(y) + x0;
    return PatternSpec::bodyRow(y, x0, x1, scratch);
}

PhilipsPm5544Spec::Rows::Rows(PhilipsPm5544Spec& card)
    : card(card),
      edgeShaper(card.savedTransitionLength, card.lumaTransition,
                 card.sampling == PatternGen::Sampling_444 ? card.lumaTransition : card.chromaTransition,
                 narrowEdgeRamp(card), card.messages),
      centreX(card.widthFraction(1, 2)),
      centreY(card.heightFraction(1, 2)) {
    // The outermost n/2 columns at each end are black padding, shaped like the rest.
    const int n = card.savedTransitionLength;
    firstFilled = n / 2;
    endFilled = std::max(firstFilled, card.width - n / 2);
    padFront = edgeShaper.front() + static_cast<size_t>(n / 2);
    padBack = static_cast<size_t>(n) - edgeShaper.front() + static_cast<size_t>(n / 2);
    shapedRow.resize(static_cast<size_t>(card.width));
    earlierShaped.resize(static_cast<size_t>(card.width));
}

// Rows laid out like the current one are the current one; rows made of the same kinds differ from
// it only around the circle's bounds; any other row is shaped afresh.
void PhilipsPm5544Spec::Rows::moveTo(int y) {
    const Layout next = layoutOf(y);
    // Reuse is only safe when shaping prints nothing, since a copy would not print it again.
    const bool reuse = edgeShaper.silent() && currentY >= 0;
    if (!(reuse && next == current)) {
        if (reuse && next.sameKinds(current)) {
            moveBounds(next);
        } else {
            shapeAfresh(next, reuse);
        }
        current = next;
    }
    currentY = y;
    serve();
}

void PhilipsPm5544Spec::Rows::serve() {
    served = shapedRow.data();
    for (const auto& box : card.textBoxes) {
        if (!box || !box->crossesRow(currentY)) continue;
        if (served != textRow.data()) {
            textRow.assign(shapedRow.begin(), shapedRow.end());
            served = textRow.data();
        }
        box->blendInto(currentY, textRow.data());
    }
}

// The line changes only between the old and the new place of each bound: those columns are filled
// again and the pixels within reach of them shaped again.
void PhilipsPm5544Spec::Rows::moveBounds(const Layout& next) {
    const std::pair<int, int> bounds[] = {{next.outlineBegin, current.outlineBegin},
                                          {next.innerBegin, current.innerBegin},
                                          {next.innerEnd, current.innerEnd},
                                          {next.outlineEnd, current.outlineEnd}};
    for (const auto& [now, before] : bounds) {
        if (now != before) fillColumns(next, std::min(now, before), std::max(now, before), line.data());
    }
    for (const auto& [now, before] : bounds) {
        if (now == before) continue;
        // Canvas column x is line position x + front.
        const size_t from = static_cast<size_t>(std::min(now, before)) + edgeShaper.front();
        const size_t to = static_cast<size_t>(std::max(now, before)) + edgeShaper.front();
        edgeShaper.reshapeAround(line, static_cast<size_t>(card.width), from, to, shapedRow.data());
    }
}

// The current row becomes the earlier one, whose shaped pixels are copied where the new line has
// the same neighbourhood.
void PhilipsPm5544Spec::Rows::shapeAfresh(const Layout& next, bool reuse) {
    line.swap(earlierLine);
    shapedRow.swap(earlierShaped);
    fill(next, line);
    edgeShaper.shapeLine(line, static_cast<size_t>(card.width), reuse ? &earlierLine : nullptr, earlierShaped.data(),
                         shapedRow.data());
}

PhilipsPm5544Spec::Rows::Layout PhilipsPm5544Spec::Rows::layoutOf(int y) {
    const int Y = y - centreY;
    const std::pair<int, int> inner = columnsWithin(Y, card.innerRadius());
    const std::pair<int, int> outline = columnsWithin(Y, card.outlineRadius());
    auto filled = [&](int x) { return std::min(std::max(x, firstFilled), endFilled); };

    Layout row;
    row.inside = inner.first < inner.second ? insideRow(card.insideKind(Y)) : nullptr;
    row.outside = outsideRow(card.outsideKind(Y), Y);
    row.outlineBegin = filled(outline.first);
    row.innerBegin = filled(inner.first);
    row.innerEnd = filled(inner.second);
    row.outlineEnd = filled(outline.second);
    return row;
}

// The canvas columns of row Y within the radius, [first, second): an interval about the centre
// column, since the distance from the centre only grows with |X|.
std::pair<int, int> PhilipsPm5544Spec::Rows::columnsWithin(int Y, int radius) const {
    auto within = [&](int X) { return card.withinRadius(X, Y, radius); };
    if (!within(0)) return {centreX, centreX};
    const int left = firstWhere(-centreX, 0, within);
    const int right = firstWhere(1, card.width - centreX, [&](int X) { return !within(X); });
    return {centreX + left, centreX + right};
}

const Pixel* PhilipsPm5544Spec::Rows::insideRow(InsideKind kind) {
    std::vector<Pixel>& row = insideRows[static_cast<int>(kind.band)][kind.strip][kind.cross];
    if (row.empty()) {
        row.reserve(static_cast<size_t>(card.width));
        for (int x = 0; x < card.width; ++x) row.push_back(card.insidePixel(kind, x - centreX));
    }
    return row.data();
}

// Y is a row of the kind: outsidePixel() gives the same pixels for every row of it.
const Pixel* PhilipsPm5544Spec::Rows::outsideRow(OutsideKind kind, int Y) {
    std::vector<Pixel>& row = outsideRows[kind.field][kind.gridLine][kind.borderLine];
    if (row.empty()) {
        row.reserve(static_cast<size_t>(card.width));
        for (int x = 0; x < card.width; ++x) row.push_back(card.outsidePixel(x - centreX, Y));
    }
    return row.data();
}

void PhilipsPm5544Spec::Rows::fill(const Layout& row, std::vector<Pixel>& out) const {
    out.resize(padFront + static_cast<size_t>(endFilled - firstFilled) + padBack);
    std::fill_n(out.begin(), padFront, card.black);
    fillColumns(row, firstFilled, endFilled, out.data());
    std::fill(out.end() - static_cast<std::ptrdiff_t>(padBack), out.end(), card.black);
}

// Writes the filled canvas columns among from .. to - 1 into the line, column x at position x + front.
void PhilipsPm5544Spec::Rows::fillColumns(const Layout& row, int from, int to, Pixel* out) const {
    const struct {
        int begin, end;
        const Pixel* table;  // the pixels of a row kind, or null for white
    } segments[] = {{firstFilled, row.outlineBegin, row.outside},
                    {row.outlineBegin, row.innerBegin, nullptr},
                    {row.innerBegin, row.innerEnd, row.inside},
                    {row.innerEnd, row.outlineEnd, nullptr},
                    {row.outlineEnd, endFilled, row.outside}};
    for (const auto& segment : segments) {
        const int begin = std::max(segment.begin, from);
        const int end = std::min(segment.end, to);
        if (begin >= end) continue;
        Pixel* position = out + edgeShaper.front() + static_cast<size_t>(begin);
        if (segment.table) {
            std::copy(segment.table + begin, segment.table + end, position);
        } else {
            std::fill_n(position, end - begin, card.white);
        }
    }
}
