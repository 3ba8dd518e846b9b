// Rows rendered one after another, and the pipeline that renders them on a worker thread a bounded
// number of rows ahead of whoever consumes them (a writer), so that rendering and encoding share
// the cores and memory stays a few rows deep whatever the height.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

class RowSource {
public:
    virtual ~RowSource() = default;
    virtual int rows() const = 0;
    virtual size_t rowSamples() const = 0;
    // Fills the next row, top to bottom; rows may depend on the ones before (held chroma).
    virtual void nextRow(uint16_t* row) = 0;
};

// Renders every row of `source` on a worker thread, runs `prepare` on each there (rounding, say), and
// hands the rows in order to `consume` on the calling thread. Stops early when `consume` returns
// false (then returns false). An exception thrown while rendering is rethrown here.
bool streamRows(RowSource& source, const std::function<void(uint16_t*)>& prepare,
                const std::function<bool(const uint16_t*)>& consume);
