#include "library/Card.h"

#include <ctime>
#include <utility>

namespace pm5544 {

namespace {

bool hasBoxText(const CardSettings& s) { return !s.ident.empty() || !s.caption.empty() || s.clock; }

ClockStart clockStartOf(const CardSettings& s) {
    if (s.timecode) {
        const Timecode& t = *s.timecode;
        return ClockStart{true, t.hours, t.minutes, t.seconds, t.frames, t.dropFrame};
    }
    if (s.timeOfDay) return ClockStart{false, s.timeOfDay->hours, s.timeOfDay->minutes, s.timeOfDay->seconds, 0, false};
    return ClockText::timeOfDay(std::time(nullptr));
}

}  // namespace

Card::Card(PatternSpec& pattern, MessageSink messages, const SettingNames& names)
    : pattern_(pattern), boxes_(dynamic_cast<PhilipsPm5544Spec*>(&pattern)), names_(names) {
    pattern_.messages = std::move(messages);
}

bool Card::prepare(const CardSettings& settings) {
    prepared_ = false;
    fault_ = settingsFault(settings, names_);
    if (!fault_.empty()) return false;
    settings_ = settings;
    const CardSettings& s = settings_;
    pattern_.scan = s.scan;
    pattern_.init(s.width, s.height, s.aspectNum, s.aspectDen, s.axes, s.sampling, s.bits, s.quadrant, s.optionValue,
                  s.edgeTaperOff);
    const int canvasScale = s.quadrant == PatternGen::Quadrant_None ? 1 : 2;
    pattern_.render_text(s.width * canvasScale, s.height * canvasScale);
    clockStart_ = clockStartOf(s);
    if (boxes_ != nullptr && hasBoxText(s)) boxes_->setBoxTexts(s.font, s.ident, lowerText(0));
    prepared_ = true;
    return true;
}

std::string Card::lowerText(int64_t frame) const {
    return settings_.clock ? ClockText::clockText(clockStart_, frame, settings_.rateNum, settings_.rateDen)
                           : settings_.caption;
}

RowSpan Card::showFrame(int64_t frame) {
    if (!settings_.clock || boxes_ == nullptr) return {};
    const auto [first, end] = boxes_->setLowerText(lowerText(frame));
    return {first, end - first};
}

std::unique_ptr<FullFrameRowSource> Card::frameRows(RowSpan span) {
    return pattern_.fullFrameRows(settings_.width, settings_.height, span.first, span.first + span.count);
}

std::unique_ptr<FullFrameRowSource> Card::frameRows() {
    return pattern_.fullFrameRows(settings_.width, settings_.height);
}

}  // namespace pm5544
