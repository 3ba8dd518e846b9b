// YUV4MPEG2 output: the Y'CbCr full frame as planar video frames, one or more repeats of it.
#pragma once

#include <cstddef>
#include <memory>

#include "output/ImageWriter.h"

namespace Y4mWriter {

// The depths a Y4M colour-space tag names: 8 bits plain, or the p10, p12 and p16 forms.
bool takesBits(int bits);

// Rows of width x four host-order 16-bit samples (Cr, Y, Cb, A) rounded to the header's depth, Y'CbCr
// encodings only. The sampling picks C444, C422 or C420 (chroma of the even columns, and of the even rows
// for 4:2:0, of each field's when interlaced; 8-bit 4:2:0 is tagged with that top-left siting); the
// header's scan picks Ip, It or Ib; the pixel aspect follows the display
// aspect aspectNum:aspectDen in lowest terms (begin() refuses terms past 32 bits); the range is limited.
// The frame is written `frames` times at rateNum/rateDen frames a second. To a destination that cannot
// be written in place (a pipe, a device), a frame of up to heldFrameBudget bytes is held in memory
// (1080p and 2160p clips); a larger one asks for each frame's rows three times, one plane a pass.
constexpr size_t kHeldFrameBudget = size_t(64) << 20;
std::unique_ptr<FullFrameWriter> make(int frames, int rateNum, int rateDen, int aspectNum, int aspectDen,
                                      size_t heldFrameBudget = kHeldFrameBudget);

}  // namespace Y4mWriter
