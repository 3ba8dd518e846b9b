// The text of a clock burnt into video frames: a time of day (HH:MM:SS) or a timecode (HH:MM:SS:FF,
// or HH:MM:SS;FF counted drop-frame), advanced frame by frame at the frame rate. Pure functions, so a
// frame loop can call them per frame.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

struct ClockStart {
    // A timecode counts frames at the nominal rate; a time of day shows whole seconds.
    bool timecode = false;
    int hours = 0, minutes = 0, seconds = 0, frames = 0;
    // A timecode counted drop-frame (SMPTE ST 12-1), at 30000/1001 or 60000/1001 only.
    bool dropFrame = false;
};

namespace ClockText {

// The local time of day at `when`, as the start of a time-of-day clock.
ClockStart timeOfDay(std::time_t when);

// The whole frames per second a timecode counts, its frame numbers running from 0 to one less: the
// rate rounded to the nearest integer (30 for 30000/1001, 5 for 26/5), at least 1.
int nominalFrameRate(int rateNum, int rateDen);

// The frame numbers a drop-frame timecode skips at the start of every minute except every tenth: 2 at
// 30000/1001, 4 at 60000/1001 (or a rate equal to either); 0 at any other rate, which has no drop-frame
// counting.
int droppedFrameNumbers(int rateNum, int rateDen);

// Whether a drop-frame timecode at this rate names a frame: false for the numbers it skips
// (00:01:00;00 at 30000/1001). Every timecode within the nominal rate is a frame of a non-drop count.
bool isCounted(const ClockStart& timecode, int rateNum, int rateDen);

// A timecode as shown: HH:MM:SS:FF, or HH:MM:SS;FF when it is counted drop-frame.
std::string timecodeText(const ClockStart& timecode);

// The clock shown in frame `frame` (0 for the first, never negative) of video at rateNum/rateDen
// frames per second: the start advanced by frame / rate seconds (a time of day, truncated to whole
// seconds) or by frame frames (a timecode, skipping the drop-frame numbers); both wrap at 24 hours.
// Any frame up to INT64_MAX, at any positive rate. A timecode start is one isCounted accepts.
std::string clockText(const ClockStart& start, int64_t frame, int rateNum, int rateDen);

}  // namespace ClockText
