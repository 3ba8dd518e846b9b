// Clock and timecode text per frame: known values at common rates, wrapping at midnight, the local time.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>

#include "text/ClockText.h"

namespace {

ClockStart timeOfDay(int h, int m, int s) { return ClockStart{false, h, m, s, 0}; }
ClockStart timecode(int h, int m, int s, int f) { return ClockStart{true, h, m, s, f}; }

}  // namespace

// A time of day moves on by frame / rate seconds, whole seconds shown: at 30000/1001 frame 30 is 1.001 s
// on and frame 30000 exactly 1001 s; 29 frames are not yet a second. A timecode counts frames at the
// nominal integer rate (30 for 30000/1001). Both wrap at 24 hours.
TEST(ClockText, FrameNIsFrameZeroPlusNOverTheRate) {
    const struct {
        ClockStart start;
        int64_t frame;
        int rateNum, rateDen;
        const char* text;
    } cases[] = {
        {timeOfDay(12, 0, 0), 0, 25, 1, "12:00:00"},
        {timeOfDay(12, 0, 0), 24, 25, 1, "12:00:00"},
        {timeOfDay(12, 0, 0), 25, 25, 1, "12:00:01"},
        {timeOfDay(12, 0, 0), 180000, 50, 1, "13:00:00"},
        {timeOfDay(12, 0, 0), 29, 30000, 1001, "12:00:00"},
        {timeOfDay(12, 0, 0), 30, 30000, 1001, "12:00:01"},
        {timeOfDay(12, 0, 0), 29999, 30000, 1001, "12:16:40"},
        {timeOfDay(12, 0, 0), 30000, 30000, 1001, "12:16:41"},
        {timeOfDay(23, 59, 59), 25, 25, 1, "00:00:00"},
        {timeOfDay(0, 0, 0), 1000000, 1, 1, "13:46:40"},  // more than a day: 11 days and 13:46:40
        {timecode(10, 0, 0, 0), 29, 30000, 1001, "10:00:00:29"},
        {timecode(10, 0, 0, 0), 30, 30000, 1001, "10:00:01:00"},
        {timecode(10, 0, 0, 0), 108000, 30000, 1001, "11:00:00:00"},
        {timecode(1, 2, 3, 4), 46, 50, 1, "01:02:04:00"},
        {timecode(0, 59, 59, 23), 1, 24000, 1001, "01:00:00:00"},
        {timecode(23, 59, 59, 24), 1, 25, 1, "00:00:00:00"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.text, ClockText::clockText(c.start, c.frame, c.rateNum, c.rateDen))
            << c.frame << " at " << c.rateNum << "/" << c.rateDen;
}

// The start of a time-of-day clock is the local time, here two hours east of UTC (a zone given in the
// POSIX form, which needs no zone files).
TEST(ClockText, TimeOfDayStartIsTheLocalTime) {
    setenv("TZ", "XXX-2", 1);
    tzset();
    const ClockStart start = ClockText::timeOfDay(std::time_t{86400 * 3 + 3661});
    EXPECT_FALSE(start.timecode);
    EXPECT_EQ("03:01:01", ClockText::clockText(start, 0, 25, 1));
}
