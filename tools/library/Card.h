// One card: its settings checked and set up on the PM5544 pattern, and the frames of a video of it, in
// which only a clock moves. The program and the C API both render through it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "library/CardSettings.h"
#include "messages/Messages.h"
#include "pattern/RowSource.h"
#include "philips-PM5544-new.h"
#include "text/ClockText.h"

namespace pm5544 {

// Frame rows first .. first + count - 1.
struct RowSpan {
    int first = 0;
    int count = 0;
    bool empty() const { return count <= 0; }
};

class Card {
public:
    // The pattern is the caller's (the program keeps its own on its stack). Text goes into the boxes of
    // the PM5544 card; other patterns have none. Faults name the settings by `names`.
    Card(PatternSpec& pattern, MessageSink messages, const SettingNames& names);

    // Checks the settings and sets the pattern up for them, with the text of frame 0 in its boxes. False
    // with fault() when the card cannot have them. Throws std::bad_alloc when memory runs out.
    bool prepare(const CardSettings& settings);
    const std::string& fault() const { return fault_; }
    bool prepared() const { return prepared_; }
    const CardSettings& settings() const { return settings_; }

    // Puts frame n's text in the lower box; returns the rows in which the picture now differs from the
    // frame shown before. Without a clock every frame is frame 0.
    RowSpan showFrame(int64_t frame);
    // The rows of the full frame in span (all of them when span is empty and whole), not yet rounded.
    std::unique_ptr<FullFrameRowSource> frameRows(RowSpan span);
    std::unique_ptr<FullFrameRowSource> frameRows();

    // The lower box's text in frame n: the clock moves on with the frames, a caption stays.
    std::string lowerText(int64_t frame) const;

private:
    PatternSpec& pattern_;
    PhilipsPm5544Spec* const boxes_;  // null for a pattern without text boxes
    const SettingNames& names_;
    CardSettings settings_;
    ClockStart clockStart_;
    std::string fault_;
    bool prepared_ = false;
};

}  // namespace pm5544
