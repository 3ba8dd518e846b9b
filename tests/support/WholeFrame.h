// A frame held whole in memory written through a writer, for tests that read the file back.
#pragma once

#include <cstddef>
#include <cstdint>

#include "output/ImageWriter.h"
#include "output/OutputFile.h"

namespace WholeFrame {

// Opens fileName, writes header.height rows of rowSamples samples each from frame and commits: 0, or -1
// with no file left.
template <typename Kind>
int write(ImageWriterOf<Kind>& writer, const ImageHeader& header, const uint16_t* frame, size_t rowSamples,
          const char* fileName, bool needSeek = false) {
    OutputFile out(fileName);
    if (!out.open(needSeek) || !writer.begin(out, header)) return -1;
    for (int y = 0; y < header.height; ++y)
        if (!writer.writeRow(RowOf<Kind>{frame + rowSamples * static_cast<size_t>(y)})) return -1;
    return writer.finish() && out.commit() ? 0 : -1;
}

}  // namespace WholeFrame
