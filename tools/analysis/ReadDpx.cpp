// DPX captures: one image element of R'G'B' (descriptor 50) at 8, 10 or 16 bits, or the program's
// Y'CbCr (100, CbYCrY 4:2:2, and 102, CbYCr 4:4:4) at 10 bits, in either byte order.
#include <vector>

#include "analysis/CaptureReaders.h"
#include "output/DPXLayout.h"
#include "output/writeDPX.h"

namespace pm5544::analysis::capture {

namespace {

using namespace DPX::Layout;

constexpr uint32_t undefinedField = 0xFFFFFFFF;

struct Header {
    bool bigEndian = false;
    uint32_t dataOffset = 0;
    int64_t width = 0, height = 0;
    int descriptor = 0, bits = 0, packing = 0;
    uint32_t linePadding = 0;
};

class Fields {
public:
    Fields(const uint8_t* bytes, bool bigEndian) : bytes_(bytes), bigEndian_(bigEndian) {}
    uint32_t u32(size_t at) const {
        uint32_t value = 0;
        for (int i = 0; i < 4; ++i) value |= uint32_t(bytes_[at + size_t(i)]) << (bigEndian_ ? 24 - 8 * i : 8 * i);
        return value;
    }
    uint16_t u16(size_t at) const {
        return uint16_t(bigEndian_ ? bytes_[at] << 8 | bytes_[at + 1] : bytes_[at + 1] << 8 | bytes_[at]);
    }
    uint8_t u8(size_t at) const { return bytes_[at]; }

private:
    const uint8_t* bytes_;
    bool bigEndian_;
};

Header readHeader(File& file) {
    uint8_t bytes[kFirstElementEnd];
    file.read(bytes, sizeof bytes, "the header");
    Header header;
    header.bigEndian = bytes[kMagicAt] == 'S';  // "SDPX"; "XPDS" is little-endian
    const Fields fields(bytes, header.bigEndian);
    if (fields.u16(kElementCountAt) < 1) refuse(file.path(), "the header names no image element");
    header.width = fields.u32(kPixelsPerLineAt);
    header.height = fields.u32(kLinesAt);
    header.descriptor = fields.u8(kDescriptorAt);
    header.bits = fields.u8(kBitSizeAt);
    header.packing = fields.u16(kPackingAt);
    header.dataOffset = fields.u32(kDataOffsetAt);
    if (header.dataOffset == 0 || header.dataOffset == undefinedField) header.dataOffset = fields.u32(kImageOffsetAt);
    const uint32_t padding = fields.u32(kEndOfLinePaddingAt);
    header.linePadding = padding == undefinedField ? 0 : padding;
    return header;
}

void checkFormat(const Header& h, const std::string& path) {
    const bool rgb = h.descriptor == DPX::kRGB, ycbcr = h.descriptor == DPX::kCbYCrY || h.descriptor == DPX::kCbYCr;
    if (!rgb && !ycbcr)
        refuse(path, "descriptor " + std::to_string(h.descriptor) + " is not read (50 R'G'B', 100 CbYCrY, 102 CbYCr)");
    const bool packed10 =
        h.bits == DPX::kDataBits && (h.packing == DPX::kPackingFilledA || h.packing == DPX::kPackingFilledB);
    const bool whole = (h.bits == 8 || h.bits == 16) && rgb;
    if (!packed10 && !whole)
        refuse(path, std::to_string(h.bits) + "-bit samples in packing " + std::to_string(h.packing) +
                         " are not read (10 bits filled into words, or R'G'B' at 8 or 16 bits)");
    if (h.linePadding > (1u << 20)) refuse(path, "a line padding of " + std::to_string(h.linePadding) + " bytes");
}

// The plane and column that sample k of a line goes to.
struct Target {
    int plane, x;
};
Target targetOf(int descriptor, int64_t k) {
    if (descriptor == DPX::kRGB) return {int(k % 3), int(k / 3)};
    if (descriptor == DPX::kCbYCr) {
        static const int plane[3] = {1, 0, 2};  // Cb, Y', Cr
        return {plane[k % 3], int(k / 3)};
    }
    static const int plane[4] = {1, 0, 2, 0};  // Cb, Y'0, Cr, Y'1
    return {plane[k % 4], k % 2 == 1 ? int(k / 2) : int(k / 4)};
}

// Sample k of a line of words filled with three 10-bit samples each; the program's Y'CbCr words hold
// their first sample at the bottom, R'G'B' words at the top.
unsigned wordSample(const Fields& line, int64_t k, const Header& h) {
    const int* shifts = h.packing == DPX::kPackingFilledA ? DPX::kFilledAShift : DPX::kFilledBShift;
    const int slot = int(k % 3);
    const int shift = h.descriptor == DPX::kRGB ? shifts[slot] : shifts[2 - slot];
    return (line.u32(size_t(k / 3) * 4) >> shift) & 0x3FF;
}

}  // namespace

Picture readDpx(File& file) {
    const Header h = readHeader(file);
    checkFormat(h, file.path());
    Picture picture;
    setRaster(picture, file.path(), h.width, h.height);
    picture.bits = h.bits;
    picture.components = h.descriptor == DPX::kRGB ? Components::RGB : Components::YCbCr;
    picture.chromaShiftX = h.descriptor == DPX::kCbYCrY ? 1 : 0;
    const int64_t samples = h.descriptor == DPX::kCbYCrY ? 2 * h.width : 3 * h.width;
    // Lines are whole 32-bit words: three 10-bit samples a word, or 8- and 16-bit samples padded to one.
    const uint64_t dataBytes = h.bits == DPX::kDataBits ? uint64_t(samples + 2) / 3 * 4
                                                        : (uint64_t(samples) * uint64_t(h.bits / 8) + 3) / 4 * 4;
    const uint64_t lineBytes = dataBytes + h.linePadding;
    if (fseeko(file.stream(), 0, SEEK_END) != 0) refuse(file.path(), "cannot find the file's size");
    const uint64_t fileSize = uint64_t(ftello(file.stream()));
    if (fileSize < h.dataOffset || (fileSize - h.dataOffset) / lineBytes < uint64_t(h.height))
        refuse(file.path(), "the file ends before its " + std::to_string(h.height) + " lines (truncated)");
    if (fseeko(file.stream(), off_t(h.dataOffset), SEEK_SET) != 0) refuse(file.path(), "cannot reach the image data");
    picture.allocate();
    std::vector<uint8_t> bytes(static_cast<size_t>(lineBytes));
    const Fields line(bytes.data(), h.bigEndian);
    for (int y = 0; y < picture.height; ++y) {
        file.read(bytes.data(), bytes.size(), "the image data");
        for (int64_t k = 0; k < samples; ++k) {
            const Target t = targetOf(h.descriptor, k);
            if (t.x >= picture.planeWidth(t.plane)) continue;  // the padding of an odd 4:2:2 line
            const unsigned value = h.bits == DPX::kDataBits ? wordSample(line, k, h)
                                   : h.bits == 16           ? line.u16(size_t(k) * 2)
                                                            : line.u8(size_t(k));
            picture.planes[t.plane][size_t(y) * size_t(picture.planeWidth(t.plane)) + size_t(t.x)] = uint16_t(value);
        }
    }
    return picture;
}

}  // namespace pm5544::analysis::capture
