// Rows rendered one after another, top to bottom. Every row is of one kind, the layout of its samples;
// the kind is part of the type of the source that fills the rows and of the writer that reads them, so
// that rows reach only a writer of their own layout.
#pragma once

#include <cstddef>
#include <cstdint>

namespace RowKind {
struct FullFrame {};   // the full frame's four samples a pixel (pattern/FrameRow.h)
struct LineRepeat {};  // the line-repeat loop's stored lines: three samples a pixel
struct DeviceFile {};  // device-file samples (output/writeTovaKelm.h)
}  // namespace RowKind

// A rendered row of one kind, as a writer of that kind reads it.
template <typename Kind>
struct RowOf {
    const uint16_t* samples;
};

template <typename Kind>
class RowSourceOf {
public:
    virtual ~RowSourceOf() = default;
    virtual int rows() const = 0;
    virtual size_t rowSamples() const = 0;
    // Fills the next row, top to bottom; rows may depend on the ones before (held chroma).
    virtual void nextRow(uint16_t* row) = 0;
};

using FullFrameRowSource = RowSourceOf<RowKind::FullFrame>;
using LineRepeatRowSource = RowSourceOf<RowKind::LineRepeat>;
using DeviceFileRowSource = RowSourceOf<RowKind::DeviceFile>;
