// The render driver: options, pattern initialisation, then the format's writer and the rows of the
// loop of the writer's kind streamed into it.
#include "PatternRender.h"

#include <cerrno>
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
#include <variant>
#include <vector>

#include "OutputFormats.h"
#include "StageTiming.h"
#include "colour/PixelAssert.h"
#include "library/Card.h"
#include "output/ImageWriter.h"
#include "output/OutputFile.h"
#include "RowPipeline.h"
#include "StopSignals.h"
#include "pattern/FrameRow.h"
#include "pattern/RowSource.h"
#include "preview/Preview.h"
#include "selftest/UnitTests.h"
#include "TextMemory.h"

using PatternGen::colorAxes_e;
using PatternRender::StageTiming::timed;
using PatternRender::StageTiming::TimedRows;

namespace PatternRender {

namespace {

// The loop that renders each kind of row.
std::unique_ptr<FullFrameRowSource> makeRows(RowKind::FullFrame, PatternSpec& pattern, const Settings& s,
                                             LineRepeats&) {
    return pattern.fullFrameRows(s.width, s.height);
}
std::unique_ptr<LineRepeatRowSource> makeRows(RowKind::LineRepeat, PatternSpec& pattern, const Settings& s,
                                              LineRepeats& lineRepeats) {
    return pattern.lineRepeatRows(s.width, s.height, lineRepeats);
}
std::unique_ptr<DeviceFileRowSource> makeRows(RowKind::DeviceFile, PatternSpec& pattern, const Settings& s,
                                              LineRepeats& lineRepeats) {
    return pattern.deviceFileRows(s.width, s.height, lineRepeats);
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
    if (format.announcesFileName) std::printf("writing to: %s\n", s.fileName.c_str());
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

// The rows of a video frame after the first that differ from the frame before: a clock burnt into
// the card moves on, so the rows it crosses are rendered again.
struct FrameRows {
    int firstRow;
    std::unique_ptr<FullFrameRowSource> rows;
};

// Where the rows of a video's frames come from, once the first frame's have been streamed.
struct VideoFrames {
    int count = 1;
    // The rows of frame n that differ from frame n - 1; unset when every frame repeats the first.
    std::function<FrameRows(int frame)> changedRows;
    // Every row of frame n, for a writer that takes each frame's rows more than once.
    std::function<std::unique_ptr<FullFrameRowSource>(int frame)> allRows;
};

// Rounding to the output depth before the writer, where the format asks for it. Only full-frame rows
// are rounded; the other kinds keep the loops' 12-bit codes.
template <typename Kind>
std::function<void(uint16_t*)> depthRounding(const OutputFormat&, const Settings&, double*) {
    return nullptr;
}
template <>
std::function<void(uint16_t*)> depthRounding<RowKind::FullFrame>(const OutputFormat& format, const Settings& s,
                                                                 double* renderTime) {
    if (!format.roundsToOutputDepth) return nullptr;
    const size_t pixels = static_cast<size_t>(s.width);
    return [pixels, axes = s.axes, bits = s.bits, renderTime](uint16_t* row) {
        timed(renderTime, [&] { return FrameRow::round(row, pixels, axes, bits), true; });
    };
}

// The frames after the first, for a writer that takes frames: only full-frame writers do. A writer of
// another kind that asked for its rows more than once could not have them.
template <typename Kind, typename Stream>
bool laterFrames(ImageWriterOf<Kind>& writer, const VideoFrames&, const Stream&) {
    return writer.rowPasses() == 1;
}
template <typename Stream>
bool laterFrames(FullFrameWriter& writer, const VideoFrames& video, const Stream& stream) {
    // A writer that cannot hold a frame takes all its rows once per pass, rendered again each time.
    if (writer.rowPasses() > 1) {
        for (int frame = 0; frame < video.count; ++frame)
            for (int pass = frame == 0 ? 1 : 0; pass < writer.rowPasses(); ++pass)
                if (!stream(*video.allRows(frame))) return false;
        return true;
    }
    for (int frame = 1; video.changedRows && frame < video.count; ++frame) {
        const FrameRows next = video.changedRows(frame);
        if (!writer.startNextFrame(next.firstRow) || !stream(*next.rows)) return false;
    }
    return true;
}

// Streams the rows into the writer through the file, and finishes it; the caller commits it. False
// after reporting.
template <typename Kind>
bool writeOutput(const OutputFormat& format, const Settings& s, ImageWriterOf<Kind>& writer, RowSourceOf<Kind>& source,
                 const LineRepeats& lineRepeats, const VideoFrames& video, OutputFile& out, StageTimes* times) {
    ImageHeader header;
    header.width = s.width;
    header.height = source.rows();
    header.bits = s.bits;
    header.axes = s.axes;
    header.sampling = s.sampling;
    header.scan = s.scan;
    header.lineRepeats = &lineRepeats;
    double* renderTime = times != nullptr ? &times->render : nullptr;
    double* writeTime = times != nullptr ? &times->write : nullptr;
    const std::function<void(uint16_t*)> prepare = depthRounding<Kind>(format, s, renderTime);
    const std::function<bool(RowOf<Kind>)> writeRow = [&](RowOf<Kind> row) {
        return timed(writeTime, [&] { return writer.writeRow(row); });
    };
    const auto stream = [&](RowSourceOf<Kind>& rows) {
        TimedRows<Kind> timedRows(rows, renderTime);
        return streamRows(timedRows, prepare, writeRow);
    };
    const auto finish = [&] { return timed(writeTime, [&] { return writer.finish() && out.finish(); }); };
    try {
        const bool written = out.open(format.needSeek) && writer.begin(out, header) && stream(source) &&
                             laterFrames(writer, video, stream) && finish();
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

// Renders the rows of the loop of the writer's kind into it.
template <typename Kind>
bool renderInto(ImageWriterOf<Kind>& writer, const OutputFormat& format, PatternSpec& pattern, const Settings& s,
                const VideoFrames& video, OutputFile& out, StageTimes* times) {
    LineRepeats lineRepeats;
    const std::unique_ptr<RowSourceOf<Kind>> rows = makeRows(Kind{}, pattern, s, lineRepeats);
    announce(format, s);
    return timed(times != nullptr ? &times->stream : nullptr,
                 [&] { return writeOutput(format, s, writer, *rows, lineRepeats, video, out, times); });
}

// The preview is a pass of its own over the full frame, rounded as a PNG of the same settings is, so
// that whatever the main format it shows the same picture. It is finished, not committed: the caller
// commits it with the main output. False after reporting, as the PNG format reports a failure.
bool writePreview(pm5544::Card& card, const Settings& s, OutputFile& out) {
    Preview preview(s.axes, s.bits, s.width, s.height, s.aspectNum, s.aspectDen);
    const std::unique_ptr<FullFrameRowSource> rows = card.frameRows();
    const size_t pixels = static_cast<size_t>(s.width);
    const bool written = out.open() && preview.begin(out) &&
                         streamRows(
                             *rows, [&](uint16_t* row) { FrameRow::round(row, pixels, s.axes, s.bits); },
                             [&](RowOf<RowKind::FullFrame> row) { return preview.addRow(row); }) &&
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
    if (!fitsScan(format, s)) return 1;

    std::printf("size %dx%d\n", s.width, s.height);
    pattern.textTrial = drawsWithinMemoryLimit;
    pm5544::Card card(pattern, printingSink(), optionNames);
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

    // A writer may still reach its file as it goes (TIFF closes through it): made after the file, it
    // goes first.
    OutputFile output(s.fileName, standardOutput, &StopSignals::temporaries());
    const AnyImageWriter writer = format.makeWriter(s);
    std::visit([](const auto& kindWriter) { kindWriter->setMessages(printingSink()); }, writer);
    const bool written = std::visit(
        [&](const auto& kindWriter) { return renderInto(*kindWriter, format, pattern, s, video, output, times); },
        writer);
    if (!written) return 1;
    std::unique_ptr<OutputFile> preview;
    if (!s.preview.empty()) {
        preview = std::make_unique<OutputFile>(s.preview, standardOutput, &StopSignals::temporaries());
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

const char* programName() {
#if defined(__GLIBC__)
    return program_invocation_short_name;
#else
    return "pm5544";
#endif
}

// An impossible colour state is a programming error: the program ends as a failed standard assertion
// ends it, with the same report, after the note the library gave with it.
[[noreturn]] void stopAfter(const PixelAssert::Failure& failure) {
    printingSink()(MessageKind::Progress, failure.note());
    std::fflush(stdout);
    std::fprintf(stderr, "%s: %s\n", programName(), failure.what());
    std::fflush(stderr);
    std::abort();
}

int run(int argc, char** argv, PatternSpec& pattern, StageTimes* times) {
    if (const int status = handleInformationalOptions(argc, argv); status >= 0) return status;
    Settings settings;
    if (!parseCommandLine(argc, argv, settings)) return 1;
    if (settings.selfTest)
        return UnitTests::runUnitTests(settings.width, settings.height, settings.aspectNum, settings.aspectDen,
                                       settings.axes, printingSink());
    if (!settings.haveFileName || settings.fileName.empty()) {
        std::fprintf(stderr, "Error: Filename not given\n");
        printHelpHint();
        return 1;
    }
    // The full canvas has no quarters: refused before anything is checked or set up, whatever the format.
    if (settings.quadrant != PatternGen::Quadrant_None && pattern.useFullCanvasSize()) {
        std::fprintf(stderr, "Error: %s\n", PatternGen::quadrantRefusal);
        return 1;
    }
    if (const std::string fault = pm5544::rasterFault(settings, optionNames); !fault.empty()) {
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

}  // namespace

MessageSink printingSink() {
    return [](MessageKind kind, const std::string& line) {
        if (kind == MessageKind::Warning) {
            std::fflush(stdout);
            std::fputs(line.c_str(), stderr);
        } else {
            std::fputs(line.c_str(), stdout);
        }
    };
}

int renderPattern(int argc, char** argv, PatternSpec& pattern, StageTimes* times) {
    try {
        return run(argc, argv, pattern, times);
    } catch (const PixelAssert::Failure& failure) {
        stopAfter(failure);
    }
}

}  // namespace PatternRender
