// The benchmark's view of a render: the seconds its stages take, measured where the driver runs them.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "pattern/RowSource.h"

namespace PatternRender {

// Seconds spent in the stages of one render, for the benchmark. Rows are rendered on a worker while
// the writer encodes the rows before them, so render and write overlap within stream.
struct StageTimes {
    double setup = 0;   // pattern initialisation, set-up and text
    double render = 0;  // worker: rows rendered and rounded
    double write = 0;   // writer: rows encoded and written, file committed
    double stream = 0;  // from the first row to the committed file
};

namespace StageTiming {

using Clock = std::chrono::steady_clock;

// Adds the time `action` takes to *seconds, when the stages are timed.
template <typename Action>
auto timed(double* seconds, Action&& action) {
    if (seconds == nullptr) return action();
    const Clock::time_point start = Clock::now();
    const auto result = action();
    *seconds += std::chrono::duration<double>(Clock::now() - start).count();
    return result;
}

// A row source whose rendering time is counted.
template <typename Kind>
class TimedRows final : public RowSourceOf<Kind> {
public:
    TimedRows(RowSourceOf<Kind>& rows, double* seconds) : rows_(rows), seconds_(seconds) {}
    int rows() const override { return rows_.rows(); }
    size_t rowSamples() const override { return rows_.rowSamples(); }
    void nextRow(uint16_t* row) override {
        timed(seconds_, [&] { return rows_.nextRow(row), true; });
    }

private:
    RowSourceOf<Kind>& rows_;
    double* seconds_;
};

}  // namespace StageTiming

}  // namespace PatternRender
