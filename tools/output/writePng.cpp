// PNG output through libpng: the frame is copied into big-endian rows and written in one call.
#include "output/writePng.h"

#include <png.h>

#include <csetjmp>
#include <cstddef>
#include <cstdio>

#include "output/OutputFile.h"

namespace {

const int kSamplesPerPixel = 4;
const int kBytesPerPixel = kSamplesPerPixel * 2;

// The row copies handed to libpng. Kept outside the function that calls setjmp, so their values are
// well defined when libpng jumps back with an error and they can still be freed.
struct RowCopies {
    png_bytepp rows = nullptr;
    int allocated = 0;
};

// Stores each 16-bit sample most significant byte first, independent of the host's byte order.
void copyRowBigEndian(const unsigned short* samples, int width, png_bytep row) {
    const int count = width * kSamplesPerPixel;
    for (int i = 0; i < count; ++i) {
        row[2 * i] = static_cast<png_byte>(samples[i] >> 8);
        row[2 * i + 1] = static_cast<png_byte>(samples[i] & 0xFF);
    }
}

// Allocates with libpng's allocator (which raises a libpng error when memory runs out); `copies`
// records every allocation as it happens so the error path can free exactly what exists.
void makeRowCopies(png_structp png, const unsigned short* frame, int width, int height, RowCopies& copies) {
    copies.rows = static_cast<png_bytepp>(png_malloc(png, sizeof(png_bytep) * static_cast<size_t>(height)));
    const size_t rowBytes = static_cast<size_t>(width) * kBytesPerPixel;
    const size_t rowSamples = static_cast<size_t>(width) * kSamplesPerPixel;
    for (int y = 0; y < height; ++y) {
        copies.rows[y] = static_cast<png_bytep>(png_malloc(png, rowBytes));
        copies.allocated = y + 1;
        copyRowBigEndian(frame + rowSamples * static_cast<size_t>(y), width, copies.rows[y]);
    }
}

void freeRowCopies(png_structp png, RowCopies& copies) {
    if (copies.rows == nullptr) return;
    for (int y = 0; y < copies.allocated; ++y) png_free(png, copies.rows[y]);
    png_free(png, copies.rows);
    copies.rows = nullptr;
    copies.allocated = 0;
}

// Every libpng error raised in here comes back through setjmp and makes the result false. No local
// of this function changes after setjmp; the row state lives in the caller's `copies`.
bool writeImage(png_structp png, png_infop info, FILE* file, const unsigned short* frame, int width, int height,
                RowCopies& copies) {
    if (setjmp(*png_set_longjmp_fn(png, longjmp, sizeof(jmp_buf)))) return false;
    png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), 16,
                 PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    makeRowCopies(png, frame, width, height, copies);
    png_init_io(png, file);
    png_set_rows(png, info, copies.rows);
    png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    return true;
}

// Creates libpng's structures for the open file and writes the image; false on any failure.
bool writeToOpenFile(FILE* file, const unsigned short* frame, int width, int height) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    if (png == nullptr) return false;
    png_infop info = png_create_info_struct(png);
    if (info == nullptr) {
        png_destroy_write_struct(&png, nullptr);
        return false;
    }
    RowCopies copies;
    const bool written = writeImage(png, info, file, frame, width, height, copies);
    freeRowCopies(png, copies);
    png_destroy_write_struct(&png, &info);
    return written;
}

}  // namespace

namespace PngWriter {

int writePng(unsigned short* frame, bool /*isYCbCr*/, int width, int height, int /*bits*/, const char* fileName) {
    FILE* file = std::fopen(fileName, "wb");
    if (file == nullptr) return -1;
    const bool written = writeToOpenFile(file, frame, width, height);
    const bool closed = std::fclose(file) == 0;
    if (written && closed) return 0;
    OutputFile::removeIncomplete(fileName);
    return -1;
}

}  // namespace PngWriter
