// The render driver: options, pattern initialisation, then the rows of the loop the format table
// names streamed into the format's writer.
#include "PatternRender.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

#include "OutputFormats.h"
#include "library/Card.h"
#include "output/ImageWriter.h"
#include "output/OutputFile.h"
#include "output/StopSignals.h"
#include "pattern/FrameRow.h"
#include "output/RowPipeline.h"
#include "preview/Preview.h"
#include "selftest/UnitTests.h"
#include "text/TextMemory.h"

using PatternGen::colorAxes_e;

namespace PatternRender {

namespace {

std::unique_ptr<RowSource> makeRows(Loop loop, PatternSpec& pattern, const Settings& s, LineRepeats& lineRepeats) {
    switch (loop) {
        case Loop::LineRepeats:
            return pattern.lineRepeatRows(s.width, s.height, lineRepeats);
        case Loop::DeviceLines:
            return pattern.deviceRows(s.width, s.height, lineRepeats);
        case Loop::FullFrame:
            break;
    }
    return pattern.fullFrameRows(s.width, s.height);
}

// The progress lines name --format's word, else the extension as typed; a name without a dot says
// that it is written as PNG by default.
void announce(const OutputFormat& format, const Settings& s) {
    bool hasDot = false;
    const std::string ext = fileExtension(s.fileName, hasDot);
    if (s.format.empty() && !hasDot) {
        std::puts("Writing PNG file by default");
        return;
    }
    if (format.loop != Loop::DeviceLines) std::printf("writing to: %s\n", s.fileName.c_str());
    std::printf("Writing %s file\n", s.format.empty() ? ext.c_str() : s.format.c_str());
}

// The format's own failure line, then the system's reason once. A file that could not be created is
// said so first, where the format has its own words for that.
void reportFailure(const OutputFormat& format, const std::string& fileName, const OutputFile& out, const char* detail) {
    std::fflush(stdout);
    if (detail != nullptr) {
        std::fprintf(stderr, "Error: %s\n", detail);
    } else {
        if (!out.opened() && format.cannotCreate != nullptr) std::fputs(format.cannotCreate, stderr);
        std::fprintf(stderr, format.failure, fileName.c_str());
    }
    if (!out.reason().empty()) std::fprintf(stderr, "%s\n", out.reason().c_str());
}

using Clock = std::chrono::steady_clock;

// Adds the time `action` takes to *seconds, when the stages are timed.
template <typename Action>
auto timed(double* seconds, Action&& action) {
    if (seconds == nullptr) return action();
    const Clock::time_point start = Clock::now();
    const auto result = action();
    *seconds += std::chrono::duration<double>(Clock::now() - start).count();
    return result;
}

// A row source whose rendering time is counted.
class TimedRows final : public RowSource {
public:
    TimedRows(RowSource& rows, double* seconds) : rows_(rows), seconds_(seconds) {}
    int rows() const override { return rows_.rows(); }
    size_t rowSamples() const override { return rows_.rowSamples(); }
    void nextRow(uint16_t* row) override {
        timed(seconds_, [&] { return rows_.nextRow(row), true; });
    }

private:
    RowSource& rows_;
    double* seconds_;
};

// The rows of a video frame after the first that differ from the frame before: a clock burnt into
// the card moves on, so the rows it crosses are rendered again.
struct FrameRows {
    int firstRow;
    std::unique_ptr<RowSource> rows;
};

// Where the rows of a video's frames come from, once the first frame's have been streamed.
struct VideoFrames {
    int count = 1;
    // The rows of frame n that differ from frame n - 1; unset when every frame repeats the first.
    std::function<FrameRows(int frame)> changedRows;
    // Every row of frame n, for a writer that takes each frame's rows more than once.
    std::function<std::unique_ptr<RowSource>(int frame)> allRows;
};

// Streams the rows into the writer through the file, and finishes it; the caller commits it. False
// after reporting.
bool writeOutput(const OutputFormat& format, const Settings& s, RowSource& source, const LineRepeats& lineRepeats,
                 const VideoFrames& video, OutputFile& out, StageTimes* times) {
    ImageHeader header;
    header.width = s.width;
    header.height = source.rows();
    header.bits = s.bits;
    header.axes = s.axes;
    header.sampling = s.sampling;
    header.lineRepeats = &lineRepeats;
    const std::unique_ptr<ImageWriter> writer = format.makeWriter(s);
    double* renderTime = times != nullptr ? &times->render : nullptr;
    double* writeTime = times != nullptr ? &times->write : nullptr;
    const size_t pixels = static_cast<size_t>(s.width);
    const std::function<void(uint16_t*)> roundRow = [&](uint16_t* row) {
        timed(renderTime, [&] { return FrameRow::round(row, pixels, s.axes, s.bits), true; });
    };
    const auto writeRow = [&](const uint16_t* row) { return timed(writeTime, [&] { return writer->writeRow(row); }); };
    const auto stream = [&](RowSource& frameRows) {
        TimedRows rows(frameRows, renderTime);
        return streamRows(rows, format.loop == Loop::FullFrame ? roundRow : nullptr, writeRow);
    };
    const auto laterFrames = [&] {
        for (int frame = 1; video.changedRows && frame < video.count; ++frame) {
            const FrameRows next = video.changedRows(frame);
            if (!writer->startNextFrame(next.firstRow) || !stream(*next.rows)) return false;
        }
        return true;
    };
    // A writer that cannot hold a frame takes all its rows once per pass, rendered again each time.
    const auto framesPassByPass = [&] {
        for (int frame = 0; frame < video.count; ++frame)
            for (int pass = frame == 0 ? 1 : 0; pass < writer->rowPasses(); ++pass)
                if (!stream(*video.allRows(frame))) return false;
        return true;
    };
    const auto frames = [&] {
        if (!stream(source)) return false;
        return writer->rowPasses() > 1 ? framesPassByPass() : laterFrames();
    };
    const auto finish = [&] { return timed(writeTime, [&] { return writer->finish() && out.finish(); }); };
    try {
        const bool written =
            out.open(format.needSeek) && writer->begin(out, header) && frames() && finish();
        if (!written) reportFailure(format, s.fileName, out, nullptr);
        return written;
    } catch (const std::runtime_error& error) {
        // The device file's writer names what it could not write.
        std::string message = error.what();
        while (!message.empty() && message.back() == '\n') message.pop_back();
        reportFailure(format, s.fileName, out, message.c_str());
        return false;
    }
}

// The preview is a pass of its own over the full frame, rounded as a PNG of the same settings is, so
// that whatever the main format it shows the same picture. It is finished, not committed: the caller
// commits it with the main output. False after reporting, as the PNG format reports a failure.
bool writePreview(pm5544::Card& card, const Settings& s, OutputFile& out) {
    Preview preview(s.axes, s.bits, s.width, s.height, s.aspectNum, s.aspectDen);
    const std::unique_ptr<RowSource> rows = card.frameRows();
    const size_t pixels = static_cast<size_t>(s.width);
    const bool written = out.open() && preview.begin(out) &&
                         streamRows(
                             *rows, [&](uint16_t* row) { FrameRow::round(row, pixels, s.axes, s.bits); },
                             [&](const uint16_t* row) { return preview.addRow(row); }) &&
                         preview.finish() && out.finish();
    if (!written) reportFailure(previewFormat(), s.preview, out, nullptr);
    return written;
}

// Both outputs complete in their temporaries before either replaces its name, so that a run that fails
// changes no file. Only a failing rename of the second (the temporaries sit beside their names, so
// hardly possible) leaves the first replaced. Bytes sent to standard output cannot be taken back.
bool commitOutputs(const OutputFormat& format, const Settings& s, OutputFile& output, OutputFile* preview) {
    if (!output.commit()) {
        reportFailure(format, s.fileName, output, nullptr);
        return false;
    }
    if (preview != nullptr && !preview->commit()) {
        reportFailure(previewFormat(), s.preview, *preview, nullptr);
        return false;
    }
    return true;
}

// Pango and Fontconfig may start threads of their own when text is first laid out: they are started with
// the stop signals blocked, so that the handler that removes temporaries runs on the main thread. No
// output is open yet, so a signal held back meanwhile loses nothing: it is handled once the text is set.
template <typename Action>
auto withStopSignalsBlocked(Action&& action) {
    const StopSignals::Blocked blocked;
    return action();
}

int render(PatternSpec& pattern, const Settings& s, FILE* standardOutput, StageTimes* times) {
    const OutputFormat& format = formatFor(s);
    if (format.settingsFit != nullptr && !format.settingsFit(s)) return 1;

    std::printf("size %dx%d\n", s.width, s.height);
    pattern.textTrial = drawsWithinMemoryLimit;
    pm5544::Card card(pattern, printingSink());
    const bool prepared = timed(times != nullptr ? &times->setup : nullptr,
                                [&] { return withStopSignalsBlocked([&] { return card.prepare(s); }); });
    if (!prepared) {
        std::fflush(stdout);
        std::fprintf(stderr, "Error: %s\n", card.fault().c_str());
        return 1;
    }
    VideoFrames video;
    if (format.takesFrames) {
        video.count = s.frames;
        if (s.clock) {
            video.changedRows = [&](int frame) {
                const pm5544::RowSpan changed = card.showFrame(frame);
                return FrameRows{changed.first, card.frameRows(changed)};
            };
        }
        video.allRows = [&](int frame) {
            card.showFrame(frame);
            return card.frameRows();
        };
    }

    LineRepeats lineRepeats;
    const std::unique_ptr<RowSource> rows = makeRows(format.loop, pattern, s, lineRepeats);
    announce(format, s);
    OutputFile output(s.fileName, standardOutput);
    const bool written = timed(times != nullptr ? &times->stream : nullptr,
                               [&] { return writeOutput(format, s, *rows, lineRepeats, video, output, times); });
    if (!written) return 1;
    std::unique_ptr<OutputFile> preview;
    if (!s.preview.empty()) {
        preview = std::make_unique<OutputFile>(s.preview, standardOutput);
        if (!writePreview(card, s, *preview)) return 1;
    }
    return commitOutputs(format, s, output, preview.get()) ? 0 : 1;
}

// Two names for one file would have the preview replace the main output, or interleave both on
// standard output. Checked before anything is written; "-" is still the real standard output here.
bool outputsApart(const Settings& s) {
    if (s.preview.empty() || !OutputFile::sameDestination(s.fileName, s.preview)) return true;
    std::fprintf(stderr, "Error: --preview %s is the output file as well\n", s.preview.c_str());
    return false;
}

}  // namespace

int renderPattern(int argc, char** argv, PatternSpec& pattern, StageTimes* times) {
    if (const int status = handleInformationalOptions(argc, argv); status >= 0) return status;
    Settings settings;
    if (!parseCommandLine(argc, argv, settings)) return 1;
    if (settings.selfTest)
        return UnitTests::runUnitTests(settings.width, settings.height, settings.aspectNum, settings.aspectDen,
                                       settings.axes);
    if (!settings.haveFileName || settings.fileName.empty()) {
        std::fprintf(stderr, "Error: Filename not given\n");
        printHelpHint();
        return 1;
    }
    // The full canvas has no quarters: refused before anything is checked or set up, whatever the format.
    if (settings.quadrant != PatternGen::Quadrant_None && pattern.useFullCanvasSize()) {
        std::fprintf(stderr, "Error: Quadrant mode is depracated\n");
        return 1;
    }
    if (const std::string fault = pm5544::rasterFault(settings); !fault.empty()) {
        std::fprintf(stderr, "Error: %s\n", fault.c_str());
        return 1;
    }
    if (!outputsApart(settings)) return 1;
    warnAboutSettings(settings);
    // With "-" (the file or the preview) that output goes to the real standard output and every progress
    // line to standard error.
    FILE* data = stdout;
    const bool toStandardOutput = settings.fileName == "-" || settings.preview == "-";
    if (toStandardOutput && (data = divertProgressFromStandardOutput()) == nullptr) return 1;
    const std::unique_ptr<FILE, int (*)(FILE*)> divertedData(data != stdout ? data : nullptr, std::fclose);
    try {
        return render(pattern, settings, data, times);
    } catch (const std::bad_alloc&) {
        std::fflush(stdout);
        std::fprintf(stderr, "Error: Not enough memory to render %dx%d\n", settings.width, settings.height);
    } catch (const std::runtime_error& error) {
        std::string message = error.what();
        while (!message.empty() && message.back() == '\n') message.pop_back();
        std::fflush(stdout);
        std::fprintf(stderr, "Error: %s\n", message.c_str());
    }
    return 1;
}

}  // namespace PatternRender
