// The pipeline that renders rows on a worker thread a bounded number of rows ahead of whoever consumes
// them (a writer), so that rendering and encoding share the cores and memory stays a few rows deep
// whatever the height.
#pragma once

#include <cstdint>
#include <functional>

#include "pattern/RowSource.h"

// What takes the rows of a kind. The kind of streamRows is taken from the source alone (the consumer's
// type is not deduced), so that a lambda taking rows of that kind can be the consumer.
template <typename Kind>
struct RowConsumer {
    using type = std::function<bool(RowOf<Kind>)>;
};

// Renders every row of `source` on a worker thread, runs `prepare` on each there (rounding, say), and
// hands the rows in order to `consume` on the calling thread. Stops early when `consume` returns
// false (then returns false). An exception thrown while rendering is rethrown here.
template <typename Kind>
bool streamRows(RowSourceOf<Kind>& source, const std::function<void(uint16_t*)>& prepare,
                const typename RowConsumer<Kind>::type& consume);
