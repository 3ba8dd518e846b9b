// The compressed-line rendering loop as a row producer: rows of device-file samples (one per pixel,
// or one per pixel pair for Y'CbCr with subsampled chroma), which the device file's block builder
// compresses as they come. run_body fills a TovaKelmPatternFile from the same producer.
#include <cstdio>
#include <memory>
#include <vector>

#include "colour/ConversionCache.h"
#include "output/writeTovaKelm.h"
#include "pattern/ListedLineRows.h"
#include "pattern/PatternWrapper.h"
#include "pattern/RowSource.h"

namespace {

constexpr int validWidths[] = {1280, 1920, 2048};

bool isDeviceFileWidth(int width) {
    for (int valid : validWidths)
        if (width == valid) return true;
    return false;
}

class DeviceFileRows final : public ListedLineRows<RowKind::DeviceFile> {
public:
    DeviceFileRows(PatternSpec& pattern, int width, std::vector<int> sourceLines)
        : ListedLineRows(pattern, width, std::move(sourceLines), false),
          pairs_(DeviceFile::usesSamplePairs(pattern.colourSpace.axes(), pattern.sampling)) {}

    size_t rowSamples() const override {
        return static_cast<size_t>(DeviceFile::samplesPerLine(width_, pairs_)) * DeviceFile::samplesComponents;
    }

    // Components Cr or R, Y or G, Cb or B, then the odd pixel's Y (pairs) or 0. With an odd width the
    // last pair has no odd pixel inside the picture: its second luma repeats the last column's (body
    // is never asked for x = width).
    void nextRow(uint16_t* row) override {
        const Pixel* source = nextSourceLine();
        for (int x = 0; x < width_; ++x, row += DeviceFile::samplesComponents) {
            const Pixel& q = cache_.convert(source[x]);
            row[0] = q.sample[Pixel::CR_R];
            row[1] = q.sample[Pixel::Y_G];
            row[2] = q.sample[Pixel::CB_B];
            row[3] = pairs_ ? q.sample[Pixel::Y_G] : 0;
            if (pairs_ && x + 1 < width_) row[3] = cache_.convert(source[++x]).sample[Pixel::Y_G];
        }
    }

private:
    bool pairs_;
};

}  // namespace

std::unique_ptr<DeviceFileRowSource> PatternSpec::deviceFileRows(int width, int height,
                                                                 std::vector<std::pair<int, int>>& lineRepeats) {
    if (!isDeviceFileWidth(width))
        report(messages, MessageKind::Progress, "Warning %d is not a valid Tova or Kelm pattern width\n", width);
    getLineRepeats(lineRepeats);
    // Every picture line, or the last source line of each listed block, in list order.
    std::vector<int> sourceLines;
    if (lineRepeats.empty())
        for (int y = 0; y < height; ++y) sourceLines.push_back(y);
    for (const std::pair<int, int>& entry : lineRepeats) sourceLines.push_back(entry.second);
    return std::make_unique<DeviceFileRows>(*this, width, std::move(sourceLines));
}

bool PatternSpec::run_body(int, int width, int height, std::vector<std::pair<int, int>>& lineRepeats,
                           TovaKelmPatternFile& file) {
    const std::unique_ptr<DeviceFileRowSource> rows = deviceFileRows(width, height, lineRepeats);
    DeviceFileBlockBuilder builder(file, width, DeviceFile::usesSamplePairs(colourSpace.axes(), sampling), lineRepeats);
    std::vector<uint16_t> row(rows->rowSamples());
    for (int y = 0; y < rows->rows(); ++y) {
        rows->nextRow(row.data());
        builder.addRow(row.data());
    }
    builder.finish();
    return true;
}
