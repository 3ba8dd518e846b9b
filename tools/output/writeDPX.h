// DPX output: SMPTE 268M "V2.0" files with one image element of 10-bit samples packed three to a
// 32-bit word (method A), every number little-endian.
#pragma once

#include <memory>
#include <string>

#include "output/ImageWriter.h"

namespace DPX {

// The packed data is always 10 bits a sample.
constexpr int kDataBits = 10;

// Image-element descriptor codes; the values are the codes stored in the file.
enum eFormat {
    kRGB = 50,        // R, G, B: one word per pixel
    kRGBA = 51,       // header sized only, pixel data left zero
    kABGR = 52,       // header sized only, pixel data left zero
    kCbYCrY = 100,    // 4:2:2: two samples per pixel, chroma of the even pixels
    kCbYACrYA = 101,  // header sized only, pixel data left zero
    kCbYCr = 102,     // 4:4:4: one word per pixel
    kCbYCrA = 103     // header sized only, pixel data left zero
};

// Texts for the file header's creator (100 bytes), project (200) and copyright (200) fields.
struct Metadata {
    std::string creator;
    std::string project;
    std::string copyright;
};

}  // namespace DPX

namespace DPXWriter {

// The descriptor a frame is written under: RGB for the SDR R'G'B' encodings, CbYCr 4:4:4 for BT.709
// 4:4:4, CbYCrY 4:2:2 for everything else.
DPX::eFormat descriptorFor(PatternGen::colorAxes_e axes, int sampling);

// Rows of width x four host-order 16-bit samples (R, G, B, A or Cr, Y, Cb, A; alpha is not stored),
// packed into lines of the given descriptor; the header says 10 bits.
std::unique_ptr<FullFrameWriter> make(DPX::eFormat format, const DPX::Metadata& metadata);

}  // namespace DPXWriter
