// A frame held whole in memory written through a writer, for tests that build a frame and read the
// file back.
#pragma once

#include <cstddef>
#include <cstdint>

#include "output/ImageWriter.h"

namespace WholeFrame {

// Opens fileName, writes header.height rows of rowSamples samples each from frame and commits: 0, or -1
// with no file left.
int write(ImageWriter& writer, const ImageHeader& header, const uint16_t* frame, size_t rowSamples,
          const char* fileName, bool needSeek = false);

}  // namespace WholeFrame
