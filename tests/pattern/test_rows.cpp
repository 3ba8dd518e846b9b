// The render-ahead pipeline: rows arrive in order with the worker's preparation applied, a consumer's
// refusal stops the worker, and an exception while rendering reaches the caller.
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <vector>

#include "pattern/RowSource.h"

namespace {

// Row y holds y in every sample; rendering row `failAt` throws.
class CountingRows : public RowSource {
public:
    CountingRows(int rows, int failAt = -1) : rows_(rows), failAt_(failAt) {}
    int rows() const override { return rows_; }
    size_t rowSamples() const override { return 5; }
    void nextRow(uint16_t* row) override {
        if (next_ == failAt_) throw std::runtime_error("row failed");
        for (size_t i = 0; i < rowSamples(); ++i) row[i] = uint16_t(next_);
        ++next_;
    }
    std::atomic<int> next_{0};

private:
    int rows_, failAt_;
};

}  // namespace

TEST(RowPipeline, RowsInOrderRefusalStopsErrorsReachTheCaller) {
    // Far more rows than the ring holds; the preparation runs once per row.
    CountingRows rows(1000);
    std::vector<int> seen;
    EXPECT_TRUE(streamRows(
        rows, [](uint16_t* row) { row[4] += 7; },
        [&](const uint16_t* row) {
            EXPECT_EQ(row[0] + 7, row[4]);
            seen.push_back(row[0]);
            return true;
        }));
    ASSERT_EQ(1000u, seen.size());
    for (int y = 0; y < 1000; ++y) ASSERT_EQ(y, seen[y]);
    // A consumer that refuses row 10 gets no further row, and the worker stops within the ring.
    CountingRows refused(100000);
    int consumed = 0;
    EXPECT_FALSE(streamRows(refused, nullptr, [&](const uint16_t* row) { return ++consumed, row[0] < 10; }));
    EXPECT_EQ(11, consumed);
    EXPECT_LT(refused.next_.load(), 1000);
    CountingRows failing(100, 50);
    consumed = 0;
    EXPECT_THROW(streamRows(failing, nullptr, [&](const uint16_t*) { return ++consumed, true; }), std::runtime_error);
    EXPECT_LE(consumed, 50);
    CountingRows none(0);
    EXPECT_TRUE(streamRows(none, nullptr, [](const uint16_t*) { return false; }));
}
