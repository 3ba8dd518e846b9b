// DPX output without a DPX library, one packed line at a time as the rows arrive: both headers are filled byte by byte
// and every number is stored little-endian, whatever the host's byte order, so the magic reads "XPDS".
#include "output/writeDPX.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <utility>
#include <vector>

#include "output/DPXLayout.h"
#include "pattern/FrameRow.h"

namespace {

using namespace DPX;

const uint8_t kBT709 = 6;  // transfer characteristic and colorimetric code
const int kReferenceBlack8 = 16;
const int kReferenceWhite8 = 235;
const char kTimeFormat[] = "%Y:%m:%d:%T:%Z";

void putU8(std::vector<uint8_t>& bytes, size_t at, uint8_t value) { bytes[at] = value; }

void putU16(std::vector<uint8_t>& bytes, size_t at, uint16_t value) {
    bytes[at] = static_cast<uint8_t>(value);
    bytes[at + 1] = static_cast<uint8_t>(value >> 8);
}

void putU32(uint8_t* bytes, uint32_t value) {
    bytes[0] = static_cast<uint8_t>(value);
    bytes[1] = static_cast<uint8_t>(value >> 8);
    bytes[2] = static_cast<uint8_t>(value >> 16);
    bytes[3] = static_cast<uint8_t>(value >> 24);
}

void putU32(std::vector<uint8_t>& bytes, size_t at, uint32_t value) { putU32(&bytes[at], value); }

// Copies at most fieldSize bytes; the zero-filled header supplies the terminator when there is room.
void putText(std::vector<uint8_t>& bytes, size_t at, size_t fieldSize, const char* text) {
    const size_t length = std::strlen(text);
    std::memcpy(&bytes[at], text, length < fieldSize ? length : fieldSize);
}

const char* baseName(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

// Bytes per line of the image data. 4:2:2 holds two samples per pixel, three to a word, so a line is
// ceil(2 * width / 3) words; for widths that are multiples of 6 that is 16 * width / 6 bytes.
uint32_t lineSizeInBytes(DPX::eFormat format, int width) {
    const uint32_t w = static_cast<uint32_t>(width);
    switch (format) {
        case DPX::kRGB:
        case DPX::kCbYACrYA:
        case DPX::kCbYCr:
            return w * 4;
        case DPX::kRGBA:
        case DPX::kABGR:
        case DPX::kCbYCrA:
            return w * 16 / 3;
        case DPX::kCbYCrY:
            return (2 * w + 2) / 3 * 4;
    }
    return 0;
}

uint32_t referenceCode(int code8, int bits) {
    return bits >= 8 ? static_cast<uint32_t>(code8) << (bits - 8) : static_cast<uint32_t>(code8) >> (8 - bits);
}

// Local time at the call. The format can exceed the field when the zone abbreviation is long; it is
// then cut to 23 characters so the field stays zero-terminated.
void putCreationTime(std::vector<uint8_t>& header) {
    char formatted[128] = {0};
    const std::time_t now = std::time(nullptr);
    const std::tm* local = std::localtime(&now);
    if (local != nullptr) std::strftime(formatted, sizeof formatted, kTimeFormat, local);
    putText(header, Layout::kTimeAt, Layout::kTimeSize - 1, formatted);
}

void fillFileHeader(std::vector<uint8_t>& header, uint32_t fileSize, const char* fileName,
                    const DPX::Metadata& metadata) {
    using namespace Layout;
    putU32(header, kMagicAt, kMagic);
    putU32(header, kImageOffsetAt, kImageDataOffset);
    putText(header, kVersionAt, sizeof kVersion, kVersion);
    putU32(header, kFileSizeAt, fileSize);
    putU32(header, kGenericSizeAt, kGenericHeaderSize);
    putText(header, kFileNameAt, kFileNameSize, baseName(fileName));
    putCreationTime(header);
    putText(header, kCreatorAt, kCreatorSize, metadata.creator.c_str());
    putText(header, kProjectAt, kProjectSize, metadata.project.c_str());
    putText(header, kCopyrightAt, kCopyrightSize, metadata.copyright.c_str());
    putU32(header, kEncryptionKeyAt, kNotEncrypted);
}

// Orientation, data sign, low quantity, encoding and paddings stay zero.
void fillImageHeader(std::vector<uint8_t>& header, DPX::eFormat format, int width, int height, int bits) {
    using namespace Layout;
    putU16(header, kOrientationAt, 0);
    putU16(header, kElementCountAt, 1);
    putU32(header, kPixelsPerLineAt, static_cast<uint32_t>(width));
    putU32(header, kLinesAt, static_cast<uint32_t>(height));
    putU32(header, kLowCodeAt, referenceCode(kReferenceBlack8, bits));
    putU32(header, kHighCodeAt, referenceCode(kReferenceWhite8, bits));
    putU32(header, kHighQuantityAt, kFloatOneBits);
    putU8(header, kDescriptorAt, static_cast<uint8_t>(format));
    putU8(header, kTransferAt, kBT709);
    putU8(header, kColorimetricAt, kBT709);
    putU8(header, kBitSizeAt, static_cast<uint8_t>(bits));
    putU16(header, kPackingAt, kPackingFilledA);
    putU32(header, kDataOffsetAt, kImageDataOffset);
}

constexpr size_t kWordBytes = sizeof(uint32_t);

// Top 10 bits of three 16-bit samples in bits 31-22, 21-12 and 11-2; bits 1-0 stay zero.
uint32_t packWord(uint16_t high, uint16_t middle, uint16_t low) {
    return (static_cast<uint32_t>(high >> 6) << kFilledAShift[0]) |
           (static_cast<uint32_t>(middle >> 6) << kFilledAShift[1]) |
           (static_cast<uint32_t>(low >> 6) << kFilledAShift[2]);
}

// One word per pixel: R or Cr high, G or Y' middle, B or Cb low.
void packLine444(const unsigned short* line, int width, uint8_t* out) {
    for (int x = 0; x < width; ++x) {
        const unsigned short* pixel = line + FrameRow::samplesPerPixel * static_cast<size_t>(x);
        putU32(out + kWordBytes * static_cast<size_t>(x),
               packWord(pixel[FrameRow::crOrR], pixel[FrameRow::yOrG], pixel[FrameRow::cbOrB]));
    }
}

// The k-th sample of a 4:2:2 line in the order Cb0 Y0 Cr0 Y1 Cb2 Y2 Cr2 Y3 ...: chroma comes from the
// even pixel of each pair. Past the line's 2 * width samples, and for a missing odd pixel, it is zero.
uint16_t sample422(const unsigned short* line, int width, int k) {
    if (k >= 2 * width) return 0;
    const int evenPixel = k / 4 * 2;
    const int pixel = k % 4 == 3 ? evenPixel + 1 : evenPixel;
    if (pixel >= width) return 0;
    static const int kSampleOfSlot[4] = {FrameRow::cbOrB, FrameRow::yOrG, FrameRow::crOrR, FrameRow::yOrG};
    return line[FrameRow::samplesPerPixel * static_cast<size_t>(pixel) + kSampleOfSlot[k % 4]];
}

// Three consecutive samples per word, the first in the low bits.
void packLine422(const unsigned short* line, int width, uint32_t words, uint8_t* out) {
    for (uint32_t w = 0; w < words; ++w) {
        const int k = static_cast<int>(3 * w);
        putU32(out + kWordBytes * static_cast<size_t>(w),
               packWord(sample422(line, width, k + 2), sample422(line, width, k + 1), sample422(line, width, k)));
    }
}

// Descriptors without a defined packing keep the zero-filled line.
void packLine(const unsigned short* line, DPX::eFormat format, int width, std::vector<uint8_t>& out) {
    if (format == DPX::kRGB || format == DPX::kCbYCr)
        packLine444(line, width, out.data());
    else if (format == DPX::kCbYCrY)
        packLine422(line, width, static_cast<uint32_t>(out.size() / kWordBytes), out.data());
}

// Packed lines are gathered into batches of about this many bytes, so that the file is written in
// a few hundred large pieces rather than several pieces per line.
constexpr size_t kBatchBytes = 256 * 1024;

class Writer final : public FullFrameWriter {
public:
    Writer(DPX::eFormat format, DPX::Metadata metadata) : format_(format), metadata_(std::move(metadata)) {}

    bool begin(OutputFile& out, const ImageHeader& header) override {
        out_ = &out;
        width_ = header.width;
        line_.assign(lineSizeInBytes(format_, header.width), 0);
        batch_.clear();
        batch_.reserve(std::max(kBatchBytes, line_.size()));
        const uint32_t fileSize =
            Layout::kImageDataOffset + static_cast<uint32_t>(line_.size()) * static_cast<uint32_t>(header.height);
        std::vector<uint8_t> headers(Layout::kImageDataOffset, 0);
        fillFileHeader(headers, fileSize, out.name().c_str(), metadata_);
        fillImageHeader(headers, format_, header.width, header.height, DPX::kDataBits);
        return out.write(headers.data(), headers.size());
    }

    bool writeRow(RowOf<RowKind::FullFrame> row) override {
        packLine(row.samples, format_, width_, line_);
        batch_.insert(batch_.end(), line_.begin(), line_.end());
        return batch_.size() + line_.size() <= batch_.capacity() || writeBatch();
    }

    bool finish() override { return writeBatch() && !out_->failed(); }

private:
    bool writeBatch() {
        const bool written = out_->write(batch_.data(), batch_.size());
        batch_.clear();
        return written;
    }

    DPX::eFormat format_;
    DPX::Metadata metadata_;
    OutputFile* out_ = nullptr;
    int width_ = 0;
    std::vector<uint8_t> line_;
    std::vector<uint8_t> batch_;  // packed lines not yet written
};

}  // namespace

namespace DPXWriter {

DPX::eFormat descriptorFor(PatternGen::colorAxes_e axes, int sampling) {
    if (axes == PatternGen::Colour_RGB || axes == PatternGen::Colour_RGB_219) return DPX::kRGB;
    if (axes == PatternGen::Colour_YCbCr_709 && sampling == 444) return DPX::kCbYCr;
    return DPX::kCbYCrY;
}

std::unique_ptr<FullFrameWriter> make(DPX::eFormat format, const DPX::Metadata& metadata) {
    return std::make_unique<Writer>(format, metadata);
}

}  // namespace DPXWriter
