// The render-ahead pipeline: rows in order with the preparation applied, refusal stops the worker,
// exceptions reach the caller; the rounding preparation.
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <vector>

#include "PatternRender.h"
#include "RowPipeline.h"
#include "colour/rounding.h"
#include "pattern/FrameRow.h"

namespace {

// Row y holds y in every sample; rendering row `failAt` throws.
class CountingRows : public FullFrameRowSource {
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

uint16_t roundFull(unsigned value, int s) { return Rounding::roundTo(s, value); }
uint16_t roundLuma(unsigned value, int s) { return Rounding::roundLumaTo(16, s, value); }
uint16_t roundChroma(unsigned value, int s) { return Rounding::roundChromaTo(16, s, value); }

}  // namespace

TEST(RowPipeline, RowsInOrderRefusalStopsErrorsReachTheCaller) {
    // Far more rows than the ring holds; the preparation runs once per row.
    CountingRows rows(1000);
    std::vector<int> seen;
    EXPECT_TRUE(streamRows(
        rows, [](uint16_t* row) { row[4] += 7; },
        [&](RowOf<RowKind::FullFrame> row) {
            EXPECT_EQ(row.samples[0] + 7, row.samples[4]);
            seen.push_back(row.samples[0]);
            return true;
        }));
    ASSERT_EQ(1000u, seen.size());
    for (int y = 0; y < 1000; ++y) ASSERT_EQ(y, seen[y]);
    // A consumer that refuses row 10 gets no further row, and the worker stops within the ring.
    CountingRows refused(100000);
    int consumed = 0;
    EXPECT_FALSE(
        streamRows(refused, nullptr, [&](RowOf<RowKind::FullFrame> row) { return ++consumed, row.samples[0] < 10; }));
    EXPECT_EQ(11, consumed);
    EXPECT_LT(refused.next_.load(), 1000);
    CountingRows failing(100, 50);
    consumed = 0;
    EXPECT_THROW(streamRows(failing, nullptr, [&](RowOf<RowKind::FullFrame>) { return ++consumed, true; }),
                 std::runtime_error);
    EXPECT_LE(consumed, 50);
    CountingRows none(0);
    EXPECT_TRUE(streamRows(none, nullptr, [](RowOf<RowKind::FullFrame>) { return false; }));
}

// The worker's rounding takes each run of equal pixels at once: rows of runs 1 to 40 long, ending at
// every distance from the end of the row, round as each sample rounds alone (R'G'B' by the full-range
// rule, Y'CbCr with chroma in samples 0 and 2 and luma in 1 and 3).
TEST(RowRounding, RunsRoundAsSamplesRoundAlone) {
    const struct {
        PatternGen::colorAxes_e axes;
        int bits;
        uint16_t (*rule[4])(unsigned value, int s);
    } cases[] = {
        {PatternGen::Colour_RGB, 10, {roundFull, roundFull, roundFull, roundFull}},
        {PatternGen::Colour_YCbCr_709, 10, {roundChroma, roundLuma, roundChroma, roundLuma}},
        {PatternGen::Colour_YCbCr_709, 8, {roundChroma, roundLuma, roundChroma, roundLuma}},
    };
    for (const auto& c : cases)
        for (size_t pixels = 150; pixels < 190; ++pixels) {
            std::vector<uint16_t> row;
            for (size_t x = 0, run = 0; x < pixels; ++run)
                for (size_t n = 0; n < run % 41 + 1 && x < pixels; ++n, ++x)
                    for (int i = 0; i < 4; ++i)
                        row.push_back(uint16_t(0x7FE0 + 37 * run * (i + 1) + (run % 3) * 0x7F00));
            std::vector<uint16_t> expected(row);
            for (size_t i = 0; i < expected.size(); ++i) expected[i] = c.rule[i % 4](expected[i], 16 - c.bits);
            FrameRow::round(row.data(), pixels, c.axes, c.bits);
            ASSERT_EQ(row, expected) << "axes " << c.axes << ", " << pixels << " pixels";
        }
}
