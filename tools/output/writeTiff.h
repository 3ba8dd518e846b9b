// TIFF output: the line-repeat renderer's buffer as a 16-bit, three-sample LZW TIFF, with the
// line-repeat list in the private ASCII tag 65456 "LineRepeat" as compact JSON.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "output/ImageWriter.h"

namespace TiffWriter {

// Rows of width x three host-order 16-bit samples (R, G, B or Y, Cb, Cr), the stored lines of the
// line-repeat loop; photometric YCbCr for Y'CbCr axes; the header's line-repeat list goes into the tag.
// The file needs seeking: open its OutputFile with needSeek.
std::unique_ptr<ImageWriter> make();

// Writes width x height pixels of three host-order 16-bit samples (R, G, B or Y, Cb, Cr) to fileName
// as one strip. isYCbCr selects photometric YCbCr instead of RGB; bits does not change the file; an
// empty lineRepeats leaves the tag out. Returns 0 on success, -1 on failure (message on stderr); a
// file that could not be completed is removed.
int writeTiff(unsigned char* buffer, bool isYCbCr, int width, int height, int bits,
              const std::vector<std::pair<int, int>>& lineRepeats, const char* fileName);

}  // namespace TiffWriter
