// The compressed-line rendering loop: renders the pattern into run-length compressed lines of a
// Tova/Kelm device pattern file, merging identical consecutive lines into one block.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

#include "colour/ConversionCache.h"
#include "pattern/PatternWrapper.h"
#include "output/writeTovaKelm.h"

namespace {

namespace DeviceLimits {
constexpr int validWidths[] = {1280, 1920, 2048};
// A section's length is stored doubled in 16 bits, so longer runs and literals are split.
constexpr uint32_t maxSectionLength = 32767;
// A block's percentage is 16 bits; more identical lines than this continue in a further block.
constexpr uint32_t maxLinesPerBlock = 65535;
// Every block of a single-entry line-repeat list is marked as standing for the whole picture.
constexpr uint16_t singleEntryPercentage = 100;
}  // namespace DeviceLimits

bool isDeviceWidth(int width) {
    for (int valid : DeviceLimits::validWidths)
        if (width == valid) return true;
    return false;
}

// Y'CbCr with subsampled chroma packs two pixels into a sample; everything else one.
bool usesSamplePairs(const ColourSpace& colourSpace, PatternGen::sampling_e sampling) {
    const int axes = colourSpace.colourAxes;
    return axes >= PatternGen::Colour_YCbCr_601 && axes <= PatternGen::Colour_YCbCr_SLog3_Live_Mapped &&
           sampling != PatternGen::Sampling_444;
}

// Run-length encoder for one line: A B B B C becomes [A B], run 2 of B, [C]. The pending literal
// is kept across lines so its storage is reused.
class LineCompressor {
public:
    void start(CompressedLine* line) {
        line_ = line;
        literal_.clear();
        runCount_ = 0;
        hasPrevious_ = false;
    }

    void add(const Sample& sample) {
        if (hasPrevious_ && sample == previous_) {
            ++runCount_;
            flushLiteral();
        } else {
            flushRun();
            literal_.push_back(sample);
        }
        previous_ = sample;
        hasPrevious_ = true;
    }

    void finish() {
        if (runCount_ != 0)
            flushRun();
        else
            flushLiteral();
    }

private:
    void flushLiteral() {
        for (size_t done = 0; done < literal_.size();) {
            const size_t count = std::min<size_t>(literal_.size() - done, DeviceLimits::maxSectionLength);
            line_->AddArray(static_cast<unsigned short>(count), literal_.data() + done);
            done += count;
        }
        literal_.clear();
    }

    void flushRun() {
        while (runCount_ != 0) {
            const uint32_t count = std::min(runCount_, DeviceLimits::maxSectionLength);
            line_->AddRun(static_cast<unsigned short>(count), previous_);
            runCount_ -= count;
        }
    }

    CompressedLine* line_ = nullptr;
    std::vector<Sample> literal_;
    uint32_t runCount_ = 0;  // wider than the format's field so wide lines cannot wrap
    Sample previous_;
    bool hasPrevious_ = false;
};

// Renders source line y into samples and compresses it into a new line.
class DeviceLineRenderer {
public:
    DeviceLineRenderer(PatternSpec& pattern, int width)
        : pattern_(pattern),
          width_(width),
          axes_(pattern.colourSpace.axes()),
          cache_(axes_),
          pairs_(usesSamplePairs(pattern.colourSpace, pattern.sampling)) {}

    bool usesThreeWords() const { return !pairs_; }

    std::unique_ptr<CompressedLine> render(int y) {
        auto line = std::make_unique<CompressedLine>();
        compressor_.start(line.get());
        for (int x = 0; x < width_; ++x) compressor_.add(pairs_ ? pairSample(x, y) : singleSample(x, y));
        compressor_.finish();
        return line;
    }

private:
    Pixel converted(int x, int y) { return cache_.convert(pattern_.body(x, y)); }

    Sample singleSample(int x, int y) {
        const Pixel q = converted(x, y);
        Sample sample;
        sample.component[0] = q.sample[Pixel::CR_R];
        sample.component[1] = q.sample[Pixel::Y_G];
        sample.component[2] = q.sample[Pixel::CB_B];
        return sample;
    }

    // Advances x over the odd pixel of the pair. With an odd width the last pair has no odd pixel
    // inside the picture: its second luma repeats the last column's (body is never asked for x = width).
    Sample pairSample(int& x, int y) {
        const Pixel q = converted(x, y);
        Sample sample;
        sample.component[0] = q.sample[Pixel::CR_R];
        sample.component[1] = q.sample[Pixel::Y_G];
        sample.component[2] = q.sample[Pixel::CB_B];
        sample.component[3] = q.sample[Pixel::Y_G];
        if (x + 1 < width_) {
            ++x;
            sample.component[3] = converted(x, y).sample[Pixel::Y_G];
        }
        return sample;
    }

    PatternSpec& pattern_;
    int width_;
    PatternGen::colorAxes_e axes_;
    ConversionCache cache_;
    bool pairs_;
    LineCompressor compressor_;
};

void handOver(TovaKelmPatternFile& file, std::unique_ptr<CompressedLine> line, uint32_t percentage) {
    line->SetPercentage(static_cast<unsigned short>(percentage));
    file.AddBlock(line.release());
}

// Each block is a distinct line; its percentage is the number of consecutive frame lines it stands for.
void renderWholeFrame(DeviceLineRenderer& renderer, int height, TovaKelmPatternFile& file) {
    std::unique_ptr<CompressedLine> previous;
    uint32_t linesRepresented = 0;
    for (int y = 0; y < height; ++y) {
        std::unique_ptr<CompressedLine> line = renderer.render(y);
        if (previous && *line == *previous && linesRepresented < DeviceLimits::maxLinesPerBlock) {
            ++linesRepresented;  // the duplicate is freed as line goes out of scope
            continue;
        }
        if (previous) handOver(file, std::move(previous), linesRepresented);
        previous = std::move(line);
        linesRepresented = 1;
    }
    if (previous) handOver(file, std::move(previous), linesRepresented);
}

// One block per listed (block index, last source line) pair, rendered from that source line.
void renderLineRepeats(DeviceLineRenderer& renderer, const std::vector<std::pair<int, int>>& lineRepeats,
                       TovaKelmPatternFile& file) {
    const bool single = lineRepeats.size() == 1;
    int start = 0;
    for (const std::pair<int, int>& entry : lineRepeats) {
        const int y = entry.second;
        const int covered = single ? DeviceLimits::singleEntryPercentage : y - start + 1;
        handOver(file, renderer.render(y), static_cast<uint32_t>(covered));
        start = y + 1;
    }
}

}  // namespace

bool PatternSpec::run_body(int, int width, int height, std::vector<std::pair<int, int>>& lineRepeats,
                           TovaKelmPatternFile& file) {
    if (!isDeviceWidth(width)) printf("Warning %d is not a valid Tova or Kelm pattern width\n", width);

    file.lineWidth = static_cast<uint16_t>(width);
    getLineRepeats(lineRepeats);
    file.blockLayout = 1;

    DeviceLineRenderer renderer(*this, width);
    Sample::b3Words = renderer.usesThreeWords();

    if (lineRepeats.empty()) {
        file.singleBlock = false;
        renderWholeFrame(renderer, height, file);
    } else {
        file.singleBlock = lineRepeats.size() == 1;
        renderLineRepeats(renderer, lineRepeats, file);
    }
    return true;
}
