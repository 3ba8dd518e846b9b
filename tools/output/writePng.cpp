// PNG output through libpng, one row at a time: each row is byte-swapped into one reused buffer and
// handed to png_write_row, with libpng's default compression and filters. libpng writes through
// the OutputFile; its errors come back through setjmp in each call.
#include "output/writePng.h"

#include <png.h>

#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "pattern/FrameRow.h"

namespace {

constexpr int kBytesPerPixel = FrameRow::samplesPerPixel * sizeof(uint16_t);
constexpr int kBitDepth = 16;
static_assert(kBytesPerPixel == sizeof(uint64_t), "a pixel is swapped as one 64-bit word");

bool hostIsLittleEndian() {
    const uint16_t one = 1;
    uint8_t first = 0;
    std::memcpy(&first, &one, 1);
    return first == 1;
}

// Stores each 16-bit sample most significant byte first, whatever the host's byte order: a little-endian
// host swaps the bytes of the four samples of a pixel at once.
void copyRowBigEndian(const uint16_t* samples, int width, png_bytep row) {
    const size_t bytes = static_cast<size_t>(width) * kBytesPerPixel;
    if (!hostIsLittleEndian()) {
        std::memcpy(row, samples, bytes);
        return;
    }
    constexpr uint64_t lowBytes = 0x00FF00FF00FF00FFu;
    const unsigned char* in = reinterpret_cast<const unsigned char*>(samples);
    for (size_t at = 0; at < bytes; at += kBytesPerPixel) {
        uint64_t pixel;
        std::memcpy(&pixel, in + at, sizeof pixel);
        pixel = ((pixel >> 8) & lowBytes) | ((pixel & lowBytes) << 8);
        std::memcpy(row + at, &pixel, sizeof pixel);
    }
}

class Writer final : public FullFrameWriter {
public:
    ~Writer() override {
        if (png_ != nullptr) png_destroy_write_struct(&png_, &info_);
    }

    bool begin(OutputFile& out, const ImageHeader& header) override {
        out_ = &out;
        width_ = header.width;
        row_.resize(static_cast<size_t>(header.width) * kBytesPerPixel);
        png_ = png_create_write_struct(PNG_LIBPNG_VER_STRING, this, onError, nullptr);
        if (png_ == nullptr) return false;
        info_ = png_create_info_struct(png_);
        if (info_ == nullptr) return false;
        if (setjmp(png_jmpbuf(png_))) return false;
        png_set_write_fn(png_, this, onWrite, onFlush);
        png_set_IHDR(png_, info_, static_cast<png_uint_32>(header.width), static_cast<png_uint_32>(header.height),
                     kBitDepth, PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                     PNG_FILTER_TYPE_DEFAULT);
        png_write_info(png_, info_);
        return true;
    }

    bool writeRow(RowOf<RowKind::FullFrame> row) override {
        copyRowBigEndian(row.samples, width_, row_.data());
        if (setjmp(png_jmpbuf(png_))) return false;
        png_write_row(png_, row_.data());
        return true;
    }

    bool finish() override {
        if (setjmp(png_jmpbuf(png_))) return false;
        png_write_end(png_, info_);
        return true;
    }

private:
    static Writer& of(png_structp png) { return *static_cast<Writer*>(png_get_io_ptr(png)); }

    static void onWrite(png_structp png, png_bytep data, size_t length) {
        if (!of(png).out_->write(data, length)) png_error(png, "write failed");
    }
    static void onFlush(png_structp) {}

    // A failed write is reported by the caller with the system's reason; libpng's own complaints
    // (an impossible header, say) are reported here, in the words of libpng's default handler.
    static void onError(png_structp png, png_const_charp message) {
        const Writer* writer = static_cast<const Writer*>(png_get_error_ptr(png));
        if (!writer->out_->failed()) report(writer->messages_, MessageKind::Warning, "libpng error: %s\n", message);
        png_longjmp(png, 1);
    }

    OutputFile* out_ = nullptr;
    int width_ = 0;
    std::vector<png_byte> row_;
    png_structp png_ = nullptr;
    png_infop info_ = nullptr;
};

}  // namespace

namespace PngWriter {

std::unique_ptr<FullFrameWriter> make() { return std::make_unique<Writer>(); }

}  // namespace PngWriter
