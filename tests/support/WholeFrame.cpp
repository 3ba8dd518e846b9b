#include "WholeFrame.h"

#include "output/OutputFile.h"

namespace WholeFrame {

int write(ImageWriter& writer, const ImageHeader& header, const uint16_t* frame, size_t rowSamples,
          const char* fileName, bool needSeek) {
    OutputFile out(fileName);
    if (!out.open(needSeek) || !writer.begin(out, header)) return -1;
    for (int y = 0; y < header.height; ++y)
        if (!writer.writeRow(frame + rowSamples * static_cast<size_t>(y))) return -1;
    return writer.finish() && out.commit() ? 0 : -1;
}

}  // namespace WholeFrame
