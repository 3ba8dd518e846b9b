// Where the fields of a DPX file's headers sit, and the values the program writes there; the writer
// fills them and the capture reader reads them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace DPX {

// Layout of the 8192 bytes before the image data: file information header (0-767), image
// information header (768-1407), then zeros.
namespace Layout {
constexpr uint32_t kMagic = 0x53445058;  // "XPDS" when stored little-endian
constexpr uint32_t kImageDataOffset = 8192;
constexpr uint32_t kGenericHeaderSize = 768;
constexpr uint32_t kNotEncrypted = 0xFFFFFFFF;
constexpr uint32_t kFloatOneBits = 0x3F800000;  // IEEE single 1.0
constexpr char kVersion[] = "V2.0";

constexpr size_t kMagicAt = 0;
constexpr size_t kImageOffsetAt = 4;
constexpr size_t kVersionAt = 8;
constexpr size_t kFileSizeAt = 16;
constexpr size_t kGenericSizeAt = 24;
constexpr size_t kFileNameAt = 36, kFileNameSize = 100;
constexpr size_t kTimeAt = 136, kTimeSize = 24;
constexpr size_t kCreatorAt = 160, kCreatorSize = 100;
constexpr size_t kProjectAt = 260, kProjectSize = 200;
constexpr size_t kCopyrightAt = 460, kCopyrightSize = 200;
constexpr size_t kEncryptionKeyAt = 660;

constexpr size_t kOrientationAt = 768;
constexpr size_t kElementCountAt = 770;
constexpr size_t kPixelsPerLineAt = 772;
constexpr size_t kLinesAt = 776;
constexpr size_t kLowCodeAt = 784;
constexpr size_t kHighCodeAt = 792;
constexpr size_t kHighQuantityAt = 796;
constexpr size_t kDescriptorAt = 800;
constexpr size_t kTransferAt = 801;
constexpr size_t kColorimetricAt = 802;
constexpr size_t kBitSizeAt = 803;
constexpr size_t kPackingAt = 804;
constexpr size_t kDataOffsetAt = 808;
constexpr size_t kEndOfLinePaddingAt = 812;
constexpr size_t kFirstElementEnd = 840;  // the image header's fields of the first image element end here
}  // namespace Layout

// Packing of 10-bit samples into 32-bit words: method A fills them from the top bits down (bits 1-0
// zero), method B from the bottom (bits 31-30 zero).
constexpr uint16_t kPackingFilledA = 1;
constexpr uint16_t kPackingFilledB = 2;
// Method A's word: the high, middle and low sample's lowest bit. The program's R'G'B' words hold R, G, B
// from the top (as other writers do), its Y'CbCr words the descriptor's first sample at the bottom.
constexpr int kFilledAShift[3] = {22, 12, 2};
constexpr int kFilledBShift[3] = {20, 10, 0};
constexpr uint16_t kPackingPacked = 0;  // 8 and 16 bits: samples one after another

}  // namespace DPX
