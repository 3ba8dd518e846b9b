// TIFF output: the line-repeat renderer's buffer as a 16-bit, three-sample LZW TIFF, with the
// line-repeat list in the private ASCII tag 65456 "LineRepeat" as compact JSON.
#pragma once

#include <utility>
#include <vector>

namespace TiffWriter {

// Writes width x height pixels of three host-order 16-bit samples (R, G, B or Y, Cb, Cr) to fileName
// as one strip. isYCbCr selects photometric YCbCr instead of RGB; bits does not change the file; an
// empty lineRepeats leaves the tag out. Returns 0 on success, -1 on failure (message on stderr); a
// file that could not be completed is removed.
int writeTiff(unsigned char* buffer, bool isYCbCr, int width, int height, int bits,
              const std::vector<std::pair<int, int>>& lineRepeats, const char* fileName);

}  // namespace TiffWriter
