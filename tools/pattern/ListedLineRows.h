// Rows rendered from a list of a pattern's source lines, each converted into the output encoding: what the
// line-repeat loop and the device-file loop share.
#pragma once

#include <utility>
#include <vector>

#include "colour/ConversionCache.h"
#include "pattern/PatternWrapper.h"
#include "pattern/RowSource.h"

template <typename Kind>
class ListedLineRows : public RowSourceOf<Kind> {
public:
    int rows() const override { return static_cast<int>(sourceLines_.size()); }

protected:
    // widenTenBit: converted 10-bit codes are brought to 12 bits, as the frame loops store them.
    ListedLineRows(PatternSpec& pattern, int width, std::vector<int> sourceLines, bool widenTenBit)
        : width_(width),
          cache_(pattern.colourSpace.axes(), widenTenBit),
          pattern_(pattern),
          sourceLines_(std::move(sourceLines)) {}

    // The next listed line as body() gives it, columns 0 .. width - 1.
    const Pixel* nextSourceLine() { return pattern_.bodyRow(sourceLines_.at(next_++), 0, width_, scratch_); }

    int width_;
    ConversionCache cache_;

private:
    PatternSpec& pattern_;
    std::vector<int> sourceLines_;
    size_t next_ = 0;
    std::vector<Pixel> scratch_;  // the pattern's row, where it has none of its own to lend
};
