// Clock and timecode text per frame: rates, drop-frame against an independent count, midnight, local time.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>
#include <tuple>
#include <utility>

#include "text/ClockText.h"

namespace {

ClockStart timeOfDay(int h, int m, int s) { return ClockStart{false, h, m, s, 0}; }
ClockStart timecode(int h, int m, int s, int f) { return ClockStart{true, h, m, s, f, false}; }
ClockStart dropFrame(int h, int m, int s, int f) { return ClockStart{true, h, m, s, f, true}; }

// The next label of a drop-frame count as a tape counter reaches it: one frame on, then past the numbers
// a minute not divisible by ten skips at its start.
ClockStart nextLabel(ClockStart t, int fps, int dropped) {
    if (++t.frames == fps) t.frames = 0, ++t.seconds;
    if (t.seconds == 60) t.seconds = 0, ++t.minutes;
    if (t.minutes == 60) t.minutes = 0, ++t.hours;
    if (t.hours == 24) t.hours = 0;
    if (t.frames == 0 && t.seconds == 0 && t.minutes % 10 != 0) t.frames = dropped;
    return t;
}

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
        {timecode(23, 59, 59, 29), 1, 30000, 1001, "00:00:00:00"},
        // 26/5 is 5.2 frames a second: counted as 5, so frame 4 is the last of a second.
        {timecode(10, 0, 0, 4), 1, 26, 5, "10:00:01:00"},
        {timecode(10, 0, 0, 0), 5, 26, 5, "10:00:01:00"},
        {timecode(0, 0, 0, 0), 61, 121, 2, "00:00:01:00"},  // 60.5 rounds to 61
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.text, ClockText::clockText(c.start, c.frame, c.rateNum, c.rateDen))
            << c.frame << " at " << c.rateNum << "/" << c.rateDen;
}

// Drop-frame at 30000/1001 skips frame numbers 00 and 01 at each minute except every tenth, so ten minutes
// hold 10 * 1800 - 9 * 2 = 17982 frames and an hour 6 * 17982 = 107892; at 60000/1001 it skips 00 to 03,
// twice as many frames in the same times.
TEST(ClockText, DropFrameCountsBySkippingFrameNumbers) {
    const struct {
        ClockStart start;
        int64_t frame;
        int rateNum;
        const char* text;
    } cases[] = {
        {dropFrame(0, 0, 0, 0), 0, 30000, "00:00:00;00"},
        {dropFrame(0, 0, 0, 0), 1799, 30000, "00:00:59;29"},
        {dropFrame(0, 0, 0, 0), 1800, 30000, "00:01:00;02"},
        {dropFrame(0, 0, 0, 0), 1800 + 1798, 30000, "00:02:00;02"},
        {dropFrame(0, 0, 0, 0), 17981, 30000, "00:09:59;29"},
        {dropFrame(0, 0, 0, 0), 17982, 30000, "00:10:00;00"},
        {dropFrame(0, 0, 0, 0), 17982 + 1800, 30000, "00:11:00;02"},
        {dropFrame(0, 0, 0, 0), 107892, 30000, "01:00:00;00"},
        {dropFrame(0, 0, 0, 0), 24 * 107892, 30000, "00:00:00;00"},
        {dropFrame(0, 0, 59, 29), 1, 30000, "00:01:00;02"},
        {dropFrame(0, 1, 0, 2), 0, 30000, "00:01:00;02"},
        {dropFrame(10, 0, 0, 5), 1, 30000, "10:00:00;06"},
        {dropFrame(23, 59, 59, 29), 1, 30000, "00:00:00;00"},
        {dropFrame(0, 0, 0, 0), 3599, 60000, "00:00:59;59"},
        {dropFrame(0, 0, 0, 0), 3600, 60000, "00:01:00;04"},
        {dropFrame(0, 0, 0, 0), 35964, 60000, "00:10:00;00"},
        {dropFrame(0, 0, 0, 0), 215784, 60000, "01:00:00;00"},
        {dropFrame(23, 59, 59, 59), 1, 60000, "00:00:00;00"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.text, ClockText::clockText(c.start, c.frame, c.rateNum, 1001)) << c.frame << " at " << c.rateNum;
}

// A drop-frame clock equals a label-by-label counter for 80 minutes across skipped minutes and midnight.
TEST(ClockText, DropFrameStepsLikeACounter) {
    for (const auto& [rateNum, fps, dropped] : {std::tuple{30000, 30, 2}, std::tuple{60000, 60, 4}}) {
        const ClockStart start = dropFrame(23, 51, 0, dropped);
        ClockStart expected = start;
        for (int64_t frame = 0; frame < 80 * 60 * fps; ++frame) {
            ASSERT_EQ(ClockText::timecodeText(expected), ClockText::clockText(start, frame, rateNum, 1001))
                << frame << " at " << rateNum;
            expected = nextLabel(expected, fps, dropped);
        }
    }
}

// Frames up to INT64_MAX: each clock repeats daily, so the last frames show their count's time of day
// (values worked out with exact integers).
TEST(ClockText, FramesNearTheLargestCountShowTheirTimeOfDay) {
    // 16,143,417,781,924 frames at one frame in 1,000,000 s: the first whose seconds pass 2^63.
    EXPECT_EQ("23:06:40", ClockText::clockText(timeOfDay(0, 0, 0), 16143417781924, 1, 1000000));
    EXPECT_EQ("08:26:40", ClockText::clockText(timeOfDay(0, 0, 0), INT64_MAX, 1, 1000000));
    EXPECT_EQ("18:21:26", ClockText::clockText(timeOfDay(12, 0, 0), INT64_MAX, 30000, 1001));
    EXPECT_EQ("10:37:12:07", ClockText::clockText(timecode(10, 0, 0, 0), INT64_MAX, 25, 1));
    EXPECT_EQ("22:22:15;29", ClockText::clockText(dropFrame(0, 0, 0, 0), INT64_MAX, 30000, 1001));
    EXPECT_EQ("22:22:15;28", ClockText::clockText(dropFrame(0, 0, 0, 0), INT64_MAX - 1, 30000, 1001));
    EXPECT_EQ("23:11:07;59", ClockText::clockText(dropFrame(0, 0, 0, 0), INT64_MAX, 60000, 1001));
}

// A timecode names a frame when its frame number is within the nominal rate and, drop-frame, not one of
// the numbers skipped. Drop-frame exists at 30000/1001 and 60000/1001 (however written) only.
TEST(ClockText, WhichTimecodesExist) {
    EXPECT_EQ(2, ClockText::droppedFrameNumbers(30000, 1001));
    EXPECT_EQ(2, ClockText::droppedFrameNumbers(60000, 2002));
    EXPECT_EQ(4, ClockText::droppedFrameNumbers(60000, 1001));
    for (const auto& [num, den] : {std::pair{30, 1}, std::pair{25, 1}, std::pair{24000, 1001}, std::pair{30001, 1001}})
        EXPECT_EQ(0, ClockText::droppedFrameNumbers(num, den)) << num << "/" << den;
    EXPECT_FALSE(ClockText::isCounted(dropFrame(0, 1, 0, 0), 30000, 1001));
    EXPECT_FALSE(ClockText::isCounted(dropFrame(0, 1, 0, 1), 30000, 1001));
    EXPECT_TRUE(ClockText::isCounted(dropFrame(0, 1, 0, 2), 30000, 1001));
    EXPECT_TRUE(ClockText::isCounted(dropFrame(0, 10, 0, 0), 30000, 1001));
    EXPECT_TRUE(ClockText::isCounted(dropFrame(0, 1, 1, 0), 30000, 1001));
    EXPECT_FALSE(ClockText::isCounted(dropFrame(0, 1, 0, 3), 60000, 1001));
    EXPECT_TRUE(ClockText::isCounted(dropFrame(0, 1, 0, 4), 60000, 1001));
    EXPECT_TRUE(ClockText::isCounted(timecode(0, 1, 0, 0), 30000, 1001));
    EXPECT_TRUE(ClockText::isCounted(timecode(0, 0, 0, 4), 26, 5));
    EXPECT_FALSE(ClockText::isCounted(timecode(0, 0, 0, 5), 26, 5));
}

// A time-of-day clock starts at local time, two hours east of UTC (a POSIX zone, no zone files needed).
TEST(ClockText, TimeOfDayStartIsTheLocalTime) {
    setenv("TZ", "XXX-2", 1);
    tzset();
    const ClockStart start = ClockText::timeOfDay(std::time_t{86400 * 3 + 3661});
    EXPECT_FALSE(start.timecode);
    EXPECT_EQ("03:01:01", ClockText::clockText(start, 0, 25, 1));
}
