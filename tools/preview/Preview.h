// A viewable preview of a rendered frame: 8-bit sRGB (see PreviewColour.h for the colour handling),
// square pixels (see SquarePixels.h), written as a PNG row by row while the frame is read.
//
// Use: open an OutputFile, begin(file), addRow() for each of the frame's rows top to bottom,
// finish(), then commit the file (abandon it if any call returned false; file.reason() says why).
#pragma once

#include <cstdint>
#include <vector>

#include "colour/ColourSpace.h"
#include "pattern/RowSource.h"
#include "preview/PreviewColour.h"
#include "preview/PreviewPng.h"
#include "preview/SquarePixels.h"

class OutputFile;

class Preview {
public:
    // encoding and bits as the frame was rounded; width x height the frame's size; the display aspect ratio.
    Preview(PatternGen::colorAxes_e axes, int bits, int width, int height, int aspectNum, int aspectDen);

    // The preview's size: round(height * aspectNum / aspectDen) x height, scaled down where a side would
    // pass SquarePixels::maximumSide.
    int width() const { return previewWidth_; }
    int height() const { return previewHeight_; }

    // Writes the PNG header; false (the file's failure recorded) for a size, depth or encoding it cannot show.
    bool begin(OutputFile& out);
    // frameRow: the frame's width pixels on the 16-bit scale; chroma already repeated per pixel.
    bool addRow(RowOf<RowKind::FullFrame> frameRow);
    // False also when fewer or more rows than the frame's height were added.
    bool finish();

private:
    bool usable_;  // encoding and depth the colour library knows (depths 8 to 16)
    int frameWidth_;
    int frameHeight_;
    int previewWidth_;
    int previewHeight_;
    int rows_ = 0;         // frame rows added
    int previewRows_ = 0;  // preview rows written
    PreviewColour colour_;
    SquarePixels squarePixels_;
    PreviewPng png_;
    std::vector<uint8_t> frameRgb_;    // one frame row as sRGB
    std::vector<uint8_t> previewRgb_;  // the same row with square pixels
};
