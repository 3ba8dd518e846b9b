// PNG output: one frame of 16-bit samples written as a 16-bit RGBA PNG through libpng.
#pragma once

namespace PngWriter {

// Writes width x height pixels of four host-order 16-bit samples (R, G, B, A or Cr, Y, Cb, A) to
// fileName as a 16-bit RGBA PNG. isYCbCr and bits do not change the file. Returns 0 on success,
// -1 on failure; a file that could not be completed is removed.
int writePng(unsigned short* frame, bool isYCbCr, int width, int height, int bits, const char* fileName);

}  // namespace PngWriter
