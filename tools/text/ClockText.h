// The text of a clock burnt into video frames: a time of day (HH:MM:SS) or a timecode (HH:MM:SS:FF),
// advanced frame by frame at the frame rate. Pure functions, so a frame loop can call them per frame.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

struct ClockStart {
    // A timecode counts frames at the nominal rate; a time of day shows whole seconds.
    bool timecode = false;
    int hours = 0, minutes = 0, seconds = 0, frames = 0;
};

namespace ClockText {

// The local time of day at `when`, as the start of a time-of-day clock.
ClockStart timeOfDay(std::time_t when);

// The whole frames per second a timecode counts: the rate rounded to the nearest integer (30 for
// 30000/1001, 50 for 50), at least 1.
int nominalFrameRate(int rateNum, int rateDen);

// The clock shown in frame `frame` (0 for the first, never negative) of video at rateNum/rateDen
// frames per second: the start advanced by frame / rate seconds (a time of day, truncated to whole
// seconds) or by frame frames (a timecode); both wrap at 24 hours.
std::string clockText(const ClockStart& start, int64_t frame, int rateNum, int rateDen);

}  // namespace ClockText
