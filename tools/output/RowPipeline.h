// The pipeline that renders rows on a worker thread a bounded number of rows ahead of whoever consumes
// them (a writer), so that rendering and encoding share the cores and memory stays a few rows deep
// whatever the height.
#pragma once

#include <cstdint>
#include <functional>

#include "pattern/RowSource.h"

// Renders every row of `source` on a worker thread, runs `prepare` on each there (rounding, say), and
// hands the rows in order to `consume` on the calling thread. Stops early when `consume` returns
// false (then returns false). An exception thrown while rendering is rethrown here.
bool streamRows(RowSource& source, const std::function<void(uint16_t*)>& prepare,
                const std::function<bool(const uint16_t*)>& consume);
