// The one interface every writer sits behind. A writer is told the geometry, then takes the rows
// top to bottom as they are rendered, then finishes; it writes only through the OutputFile it is
// given, which the caller has opened and commits afterwards. A writer takes rows of one kind (their
// layout), and the loop that renders its rows is the one whose rows are of that kind.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <variant>
#include <vector>

#include "colour/ColourSpace.h"
#include "output/OutputFile.h"
#include "messages/Messages.h"
#include "pattern/RowSource.h"
#include "pattern/Scan.h"

using LineRepeats = std::vector<std::pair<int, int>>;

// What a writer knows before the first row.
struct ImageHeader {
    int width = 0;
    int height = 0;  // rows that follow
    int bits = 12;   // output depth the samples were rounded to
    PatternGen::colorAxes_e axes = PatternGen::Colour_RGB;
    int sampling = 444;
    PatternGen::Scan scan = PatternGen::Scan::Progressive;  // video: the field order it is tagged with
    const LineRepeats* lineRepeats = nullptr;               // the pattern's list, where the loop has one

    bool isYCbCr() const { return PatternGen::isYCbCrAxes(axes); }
};

class ImageWriter {
public:
    virtual ~ImageWriter() = default;
    // Each returns false on failure; the OutputFile then holds the system's reason, if any.
    virtual bool begin(OutputFile& out, const ImageHeader& header) = 0;
    virtual bool finish() = 0;
    // Video: the frame so far is complete and written; the rows that follow are the next frame's
    // from firstRow on (rows above it stay as they were). A still has no next frame: false.
    virtual bool startNextFrame(int /*firstRow*/) { return false; }
    // How often, once begun, the writer takes all rows of each frame, frame after frame. Above one,
    // startNextFrame is not used: a planar stream too large to hold takes the rows once per plane.
    virtual int rowPasses() const { return 1; }

    // Where the writer's own complaints go (a library's error, a header the format cannot hold), as
    // warnings, before it returns false; none unless its owner gives it a sink.
    void setMessages(MessageSink messages) { messages_ = std::move(messages); }

protected:
    MessageSink messages_;
};

// A writer of rows of one kind.
template <typename Kind>
class ImageWriterOf : public ImageWriter {
public:
    virtual bool writeRow(RowOf<Kind> row) = 0;
};

using FullFrameWriter = ImageWriterOf<RowKind::FullFrame>;
using LineRepeatWriter = ImageWriterOf<RowKind::LineRepeat>;
using DeviceFileWriter = ImageWriterOf<RowKind::DeviceFile>;

// A writer of any kind, as the format table makes it; its kind picks the loop.
using AnyImageWriter = std::variant<std::unique_ptr<FullFrameWriter>, std::unique_ptr<LineRepeatWriter>,
                                    std::unique_ptr<DeviceFileWriter>>;
