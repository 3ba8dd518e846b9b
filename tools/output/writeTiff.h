// TIFF output: the line-repeat renderer's buffer as a 16-bit, three-sample LZW TIFF, with the
// line-repeat list in the private ASCII tag 65456 "LineRepeat" as compact JSON.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "output/ImageWriter.h"

namespace TiffWriter {

// Rows of width x three host-order 16-bit samples (R, G, B or Y, Cb, Cr), the stored lines of the
// line-repeat loop; photometric YCbCr for Y'CbCr encodings; the header's line-repeat list goes into the tag.
// The file needs seeking: open its OutputFile with needSeek.
std::unique_ptr<LineRepeatWriter> make();

}  // namespace TiffWriter
