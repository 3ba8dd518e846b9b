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
#include "colour/rounding.h"
#include "output/ImageWriter.h"
#include "output/OutputFile.h"
#include "output/StopSignals.h"
#include "pattern/RowSource.h"
#include "preview/Preview.h"
#include "selftest/UnitTests.h"
#include "text/ClockText.h"

using PatternGen::colorAxes_e;

namespace PatternRender {

namespace {

using namespace Limits;

constexpr int samplesPerFramePixel = 4;

// Rejects rasters the integer geometry cannot represent, before any memory is committed. The
// canvas is what the pattern draws on: twice the size in each direction in quadrant mode.
bool checkRaster(const Settings& s) {
    const int scale = s.quadrant == PatternGen::Quadrant_None ? 1 : 2;
    const int64_t canvasWidth = int64_t(s.width) * scale, canvasHeight = int64_t(s.height) * scale;
    if (s.width < minimumSide || s.height < minimumSide || canvasWidth > maximumSide || canvasHeight > maximumSide) {
        std::fprintf(stderr, "Error: Size %dx%d is outside %dx%d to %dx%d (-d)\n", s.width, s.height, minimumSide,
                     minimumSide, maximumSide / scale, maximumSide / scale);
        return false;
    }
    if (s.aspectNum <= 0 || s.aspectDen <= 0) {
        std::fprintf(stderr, "Error: Aspect ratio %d:%d must be two positive numbers (-a)\n", s.aspectNum, s.aspectDen);
        return false;
    }
    // Pixels more than four times wider or narrower than high leave the grids degenerate.
    const double pixelAspect = (double(s.aspectDen) * s.width) / (double(s.aspectNum) * s.height);
    if (pixelAspect < minimumPixelAspect || pixelAspect > maximumPixelAspect) {
        std::fprintf(
            stderr, "Error: Aspect ratio %d:%d gives %dx%d pixels an aspect of 1:%.3f, outside 1:%.2f to 1:%.2f (-a)\n",
            s.aspectNum, s.aspectDen, s.width, s.height, pixelAspect, minimumPixelAspect, maximumPixelAspect);
        return false;
    }
    if (s.bits < minimumBits || s.bits > maximumBits) {
        std::fprintf(stderr, "Error: Bit depth %d is outside %d to %d (-b)\n", s.bits, minimumBits, maximumBits);
        return false;
    }
    return true;
}

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
        timed(renderTime, [&] { return roundFrame(row, pixels, s.axes, s.bits), true; });
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

// ---- Text in the card's boxes: the ident above, a caption or a clock below.

bool hasBoxText(const Settings& s) { return !s.ident.empty() || !s.caption.empty() || s.clock; }

ClockStart clockStart(const Settings& s) {
    if (!s.timecode) return ClockText::timeOfDay(std::time(nullptr));
    const Timecode& t = *s.timecode;
    return ClockStart{true, t.hours, t.minutes, t.seconds, t.frames, t.dropFrame};
}

// The lower box's text in a given frame: the clock moves on with the frames, a caption stays.
std::string lowerText(const Settings& s, const ClockStart& start, int frame) {
    return s.clock ? ClockText::clockText(start, frame, s.rateNum, s.rateDen) : s.caption;
}

// Rows are mostly runs of equal pixels: each run is rounded once and copied along. A long run is
// found a block at a time: a block that starts with the run's pixel and equals itself shifted by one
// pixel holds nothing else. A pixel moves as one 64-bit word.
template <typename RoundPixel>
void roundEachPixel(uint16_t* frame, size_t pixels, RoundPixel roundPixel) {
    using PixelWord = uint64_t;
    static_assert(sizeof(PixelWord) == samplesPerFramePixel * sizeof(uint16_t), "a pixel is one word");
    constexpr size_t blockPixels = 16;
    const auto load = [](const uint16_t* p) {
        PixelWord word;
        std::memcpy(&word, p, sizeof word);
        return word;
    };
    uint16_t* p = frame;
    uint16_t* const end = frame + pixels * samplesPerFramePixel;
    while (p != end) {
        const PixelWord in = load(p);
        uint16_t rounded[samplesPerFramePixel];
        std::memcpy(rounded, p, sizeof rounded);
        roundPixel(rounded);
        const PixelWord out = load(rounded);
        const auto store = [&] {
            std::memcpy(p, &out, sizeof out);
            p += samplesPerFramePixel;
        };
        store();
        while (static_cast<size_t>(end - p) >= blockPixels * samplesPerFramePixel && load(p) == in &&
               std::memcmp(p, p + samplesPerFramePixel, (blockPixels - 1) * sizeof in) == 0) {
            for (size_t i = 0; i < blockPixels; ++i) store();
        }
        while (p != end && load(p) == in) store();
    }
}

// The preview is a pass of its own over the full frame, rounded as a PNG of the same settings is, so
// that whatever the main format it shows the same picture. It is finished, not committed: the caller
// commits it with the main output. False after reporting, as the PNG format reports a failure.
bool writePreview(PatternSpec& pattern, const Settings& s, OutputFile& out) {
    Preview preview(s.axes, s.bits, s.width, s.height, s.aspectNum, s.aspectDen);
    const std::unique_ptr<RowSource> rows = pattern.fullFrameRows(s.width, s.height);
    const size_t pixels = static_cast<size_t>(s.width);
    const bool written = out.open() && preview.begin(out) &&
                         streamRows(
                             *rows, [&](uint16_t* row) { roundFrame(row, pixels, s.axes, s.bits); },
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
    timed(times != nullptr ? &times->setup : nullptr, [&] {
        pattern.init(s.width, s.height, s.aspectNum, s.aspectDen, s.axes, s.sampling, s.bits, s.quadrant, s.optionValue,
                     s.edgeTaperOff);
        const int canvasScale = s.quadrant == PatternGen::Quadrant_None ? 1 : 2;
        return withStopSignalsBlocked(
            [&] { return pattern.render_text(s.width * canvasScale, s.height * canvasScale); });
    });

    const ClockStart start = clockStart(s);
    if (hasBoxText(s))
        withStopSignalsBlocked([&] { return pattern.setBoxTexts(s.font, s.ident, lowerText(s, start, 0)), true; });
    VideoFrames video;
    if (format.takesFrames) {
        video.count = s.frames;
        if (s.clock) {
            video.changedRows = [&](int frame) {
                pattern.setLowerText(lowerText(s, start, frame));
                const auto [first, end] = pattern.lowerTextRows();
                return FrameRows{first, pattern.fullFrameRows(s.width, s.height, first, end)};
            };
        }
        video.allRows = [&](int frame) {
            if (s.clock) pattern.setLowerText(lowerText(s, start, frame));
            return pattern.fullFrameRows(s.width, s.height);
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
        if (!writePreview(pattern, s, *preview)) return 1;
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

void roundFrame(uint16_t* frame, size_t pixels, colorAxes_e axes, int bits) {
    const int s = 16 - bits;
    constexpr int inBits = 16;
    if (axes == PatternGen::Colour_RGB) {
        roundEachPixel(frame, pixels, [s](uint16_t* p) {
            for (int i = 0; i < samplesPerFramePixel; ++i) p[i] = Rounding::roundTo(s, p[i]);
        });
    } else if (axes == PatternGen::Colour_RGB_219) {
        roundEachPixel(frame, pixels, [s](uint16_t* p) {
            for (int i = 0; i < samplesPerFramePixel; ++i) p[i] = Rounding::roundLumaTo(inBits, s, p[i]);
        });
    } else {
        // Samples 0 and 2 carry chroma (or R and B, which take the chroma rule too).
        roundEachPixel(frame, pixels, [s](uint16_t* p) {
            p[0] = Rounding::roundChromaTo(inBits, s, p[0]);
            p[1] = Rounding::roundLumaTo(inBits, s, p[1]);
            p[2] = Rounding::roundChromaTo(inBits, s, p[2]);
            p[3] = Rounding::roundLumaTo(inBits, s, p[3]);
        });
    }
}

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
    if (!checkRaster(settings) || !outputsApart(settings)) return 1;
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
