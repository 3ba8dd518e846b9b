// YUV4MPEG2 output: the Y'CbCr full frame as planar video frames, one or more repeats of it.
#pragma once

#include <memory>

#include "output/ImageWriter.h"

namespace Y4mWriter {

// The depths a Y4M colour-space tag names: 8 bits plain, or the p10, p12 and p16 forms.
bool takesBits(int bits);

// Rows of width x four host-order 16-bit samples (Cr, Y, Cb, A) rounded to the header's depth, Y'CbCr
// axes only. The sampling picks C444, C422 or C420 (chroma of the even columns, and of the even rows
// for 4:2:0); the pixel aspect follows the display aspect aspectNum:aspectDen; the range is limited.
// The frame is written `frames` times at rateNum/rateDen frames a second.
std::unique_ptr<ImageWriter> make(int frames, int rateNum, int rateDen, int aspectNum, int aspectDen);

}  // namespace Y4mWriter
