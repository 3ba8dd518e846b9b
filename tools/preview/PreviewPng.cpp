// libpng reports errors by longjmp: each function that calls it sets its own return point, and
// keeps no local state across it. Bytes go through OutputFile::write, which records errno.
#include "preview/PreviewPng.h"

#include <png.h>

#include <cerrno>
#include <csetjmp>

#include "output/OutputFile.h"

namespace {

constexpr int bitDepth = 8;

OutputFile& fileOf(png_structp png) { return *static_cast<OutputFile*>(png_get_io_ptr(png)); }

void writeBytes(png_structp png, png_bytep data, png_size_t length) {
    if (!fileOf(png).write(data, length)) png_error(png, "write failed");
}

void flushFile(png_structp) {}  // the file is flushed when the caller commits it

// Any other libpng error (memory, an unusable header) is recorded without an errno of its own.
void onError(png_structp png, png_const_charp) {
    static_cast<OutputFile*>(png_get_error_ptr(png))->fail(0);
    png_longjmp(png, 1);
}

void onWarning(png_structp, png_const_charp) {}

}  // namespace

PreviewPng::~PreviewPng() { release(); }

void PreviewPng::release() {
    if (png_ != nullptr) png_destroy_write_struct(&png_, info_ != nullptr ? &info_ : nullptr);
    png_ = nullptr;
    info_ = nullptr;
}

bool PreviewPng::begin(OutputFile& out, int width, int height) {
    out_ = &out;
    if (width <= 0 || height <= 0 || width > PNG_USER_WIDTH_MAX || height > PNG_USER_HEIGHT_MAX) {
        out.fail(EINVAL);
        failed_ = true;
        return false;
    }
    png_ = png_create_write_struct(PNG_LIBPNG_VER_STRING, &out, onError, onWarning);
    if (png_ != nullptr) info_ = png_create_info_struct(png_);
    if (info_ == nullptr) {
        out.fail(ENOMEM);
        failed_ = true;
        return false;
    }
    if (setjmp(png_jmpbuf(png_))) {
        failed_ = true;
        return false;
    }
    png_set_write_fn(png_, &out, writeBytes, flushFile);
    png_set_IHDR(png_, info_, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), bitDepth,
                 PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_sRGB_gAMA_and_cHRM(png_, info_, PNG_sRGB_INTENT_PERCEPTUAL);
    png_write_info(png_, info_);
    return true;
}

bool PreviewPng::writeRow(const uint8_t* rgb) {
    if (failed_ || png_ == nullptr) return false;
    if (setjmp(png_jmpbuf(png_))) {
        failed_ = true;
        return false;
    }
    png_write_row(png_, rgb);
    return true;
}

bool PreviewPng::finish() {
    if (failed_ || png_ == nullptr) return false;
    if (setjmp(png_jmpbuf(png_))) {
        failed_ = true;
        return false;
    }
    png_write_end(png_, info_);
    release();
    return !out_->failed();
}
