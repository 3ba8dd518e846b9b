// Rows rendered one after another, top to bottom.
#pragma once

#include <cstddef>
#include <cstdint>

class RowSource {
public:
    virtual ~RowSource() = default;
    virtual int rows() const = 0;
    virtual size_t rowSamples() const = 0;
    // Fills the next row, top to bottom; rows may depend on the ones before (held chroma).
    virtual void nextRow(uint16_t* row) = 0;
};
