// Clock and timecode text per frame.
#include "text/ClockText.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr int64_t secondsPerMinute = 60;
constexpr int64_t secondsPerHour = 3600;
constexpr int64_t secondsPerDay = 24 * secondsPerHour;
constexpr int64_t minutesPerDay = 24 * 60;
// Drop-frame counting skips no frame numbers in every tenth minute.
constexpr int64_t wholeMinuteInterval = 10;

// The rates drop-frame timecode is defined for, and the frame numbers it skips there (SMPTE ST 12-1).
struct DropFrameRate {
    int64_t num, den;
    int droppedNumbers;
};
constexpr DropFrameRate dropFrameRates[] = {{30000, 1001, 2}, {60000, 1001, 4}};

int64_t secondsOfDay(const ClockStart& start) {
    return start.hours * secondsPerHour + start.minutes * secondsPerMinute + start.seconds;
}

// The whole seconds `frame` frames last at rateNum/rateDen frames a second, within a day: frame * rateDen
// / rateNum with frame split as wholeRates * rateNum + rest, so that no product leaves 64 bits whatever
// the frame (wholeRates * rateNum frames last exactly wholeRates * rateDen seconds).
int64_t elapsedSecondsOfDay(int64_t frame, int64_t rateNum, int64_t rateDen) {
    const int64_t wholeRates = frame / rateNum, rest = frame % rateNum;
    return ((wholeRates % secondsPerDay) * (rateDen % secondsPerDay) + rest * rateDen / rateNum) % secondsPerDay;
}

// HH:MM:SS of a number of seconds within one day.
std::string hoursMinutesSeconds(int64_t seconds) {
    char text[16];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d", static_cast<int>(seconds / secondsPerHour),
                  static_cast<int>(seconds / secondsPerMinute % 60), static_cast<int>(seconds % secondsPerMinute));
    return text;
}

// The timecode of a frame count within one day, counted at `fps` nominal frames a second.
ClockStart timecodeOfCount(int64_t count, int64_t fps, bool dropFrame) {
    const int64_t seconds = count / fps;
    return ClockStart{true,
                      static_cast<int>(seconds / secondsPerHour),
                      static_cast<int>(seconds / secondsPerMinute % 60),
                      static_cast<int>(seconds % secondsPerMinute),
                      static_cast<int>(count % fps),
                      dropFrame};
}

// Drop-frame counting: each minute skips the first `dropped` frame numbers, except every tenth minute.
// A count of frames is turned into the non-drop count of its label (which includes the skipped
// numbers) and back.
struct DropFrameCount {
    int64_t fps, dropped;

    int64_t framesPerTenMinutes() const {
        return wholeMinuteInterval * secondsPerMinute * fps - (wholeMinuteInterval - 1) * dropped;
    }
    int64_t framesPerDay() const { return minutesPerDay / wholeMinuteInterval * framesPerTenMinutes(); }

    // Frames counted up to a label: its non-drop count less the numbers skipped in the minutes before.
    int64_t frameOfLabel(const ClockStart& t) const {
        const int64_t minutes = t.hours * 60 + t.minutes;
        const int64_t skippingMinutes = minutes - minutes / wholeMinuteInterval;
        return secondsOfDay(t) * fps + t.frames - dropped * skippingMinutes;
    }

    // The non-drop count of the label of a frame: the numbers skipped before it added back. Of each ten
    // minutes the first is whole; every later one has `dropped` frames fewer.
    int64_t labelCountOfFrame(int64_t frame) const {
        const int64_t tens = frame / framesPerTenMinutes(), within = frame % framesPerTenMinutes();
        const int64_t wholeMinute = secondsPerMinute * fps, shortMinute = wholeMinute - dropped;
        const int64_t skippingMinutes = within < wholeMinute ? 0 : 1 + (within - wholeMinute) / shortMinute;
        return frame + dropped * ((wholeMinuteInterval - 1) * tens + skippingMinutes);
    }
};

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

int droppedFrameNumbers(int rateNum, int rateDen) {
    for (const DropFrameRate& rate : dropFrameRates)
        if (int64_t{rateNum} * rate.den == int64_t{rateDen} * rate.num) return rate.droppedNumbers;
    return 0;
}

bool isCounted(const ClockStart& t, int rateNum, int rateDen) {
    const bool skipped = t.dropFrame && t.seconds == 0 && t.minutes % wholeMinuteInterval != 0 &&
                         t.frames < droppedFrameNumbers(rateNum, rateDen);
    return t.frames < nominalFrameRate(rateNum, rateDen) && !skipped;
}

std::string timecodeText(const ClockStart& t) {
    char frames[16];
    std::snprintf(frames, sizeof frames, "%c%02d", t.dropFrame ? ';' : ':', t.frames);
    return hoursMinutesSeconds(secondsOfDay(t)) + frames;
}

std::string clockText(const ClockStart& start, int64_t frame, int rateNum, int rateDen) {
    // Every clock repeats each day: the frame is reduced to its day first, so that the sums stay in range.
    if (!start.timecode) {
        const int64_t elapsed = rateNum > 0 && rateDen > 0 ? elapsedSecondsOfDay(frame, rateNum, rateDen) : 0;
        return hoursMinutesSeconds((secondsOfDay(start) + elapsed) % secondsPerDay);
    }
    const int64_t fps = nominalFrameRate(rateNum, rateDen);
    if (!start.dropFrame) {
        const int64_t framesPerDay = secondsPerDay * fps;
        const int64_t count = (secondsOfDay(start) * fps + start.frames + frame % framesPerDay) % framesPerDay;
        return timecodeText(timecodeOfCount(count, fps, false));
    }
    const DropFrameCount counting{fps, droppedFrameNumbers(rateNum, rateDen)};
    const int64_t framesPerDay = counting.framesPerDay();
    const int64_t count = (counting.frameOfLabel(start) + frame % framesPerDay) % framesPerDay;
    return timecodeText(timecodeOfCount(counting.labelCountOfFrame(count), fps, true));
}

}  // namespace ClockText
