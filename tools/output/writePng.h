// PNG output: 16-bit RGBA through libpng, written row by row as the rows arrive.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "output/ImageWriter.h"

namespace PngWriter {

// Rows of width x four host-order 16-bit samples (R, G, B, A or Cr, Y, Cb, A), stored unchanged as
// the PNG's red, green, blue and alpha. The YCbCr flag and the bit depth do not change the file.
std::unique_ptr<FullFrameWriter> make();

}  // namespace PngWriter
