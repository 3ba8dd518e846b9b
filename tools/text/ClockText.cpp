// Clock and timecode text per frame.
#include "text/ClockText.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr int64_t secondsPerMinute = 60;
constexpr int64_t secondsPerHour = 3600;
constexpr int64_t secondsPerDay = 24 * secondsPerHour;

int64_t secondsOfDay(const ClockStart& start) {
    return start.hours * secondsPerHour + start.minutes * secondsPerMinute + start.seconds;
}

// HH:MM:SS of a number of seconds within one day.
std::string hoursMinutesSeconds(int64_t seconds) {
    char text[16];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d", static_cast<int>(seconds / secondsPerHour),
                  static_cast<int>(seconds / secondsPerMinute % 60), static_cast<int>(seconds % secondsPerMinute));
    return text;
}

}  // namespace

namespace ClockText {

ClockStart timeOfDay(std::time_t when) {
    std::tm local{};
    localtime_r(&when, &local);
    ClockStart start;
    start.hours = local.tm_hour;
    start.minutes = local.tm_min;
    // A leap second shows as the last second of its minute.
    start.seconds = std::min(local.tm_sec, 59);
    return start;
}

int nominalFrameRate(int rateNum, int rateDen) {
    if (rateDen <= 0) return 1;
    return std::max(1, static_cast<int>((int64_t{rateNum} + rateDen / 2) / rateDen));
}

std::string clockText(const ClockStart& start, int64_t frame, int rateNum, int rateDen) {
    if (!start.timecode) {
        // frame * rateDen stays far inside 64 bits for any frame count and rate the command line takes.
        const int64_t elapsed = rateNum > 0 ? frame * rateDen / rateNum : 0;
        return hoursMinutesSeconds((secondsOfDay(start) + elapsed) % secondsPerDay);
    }
    const int64_t fps = nominalFrameRate(rateNum, rateDen);
    const int64_t count = (secondsOfDay(start) * fps + start.frames + frame) % (secondsPerDay * fps);
    char frames[16];
    std::snprintf(frames, sizeof frames, ":%02d", static_cast<int>(count % fps));
    return hoursMinutesSeconds(count / fps) + frames;
}

}  // namespace ClockText
