// libpng reports errors by longjmp: the function that sets the return point holds no object with a
// destructor.
#include "AnnotationPng.h"

#include <png.h>

#include <csetjmp>

#include "CommandLineReading.h"

namespace Analyse {

namespace {

void onError(png_structp png, png_const_charp message) {
    std::snprintf(static_cast<char*>(png_get_error_ptr(png)), 256, "%s", message);
    png_longjmp(png, 1);
}
void onWarning(png_structp, png_const_charp) {}

bool writeRows(png_structp png, png_infop info, FILE* stream, const uint8_t* rgb, int width, int height,
               size_t stride) {
    if (setjmp(png_jmpbuf(png))) return false;
    png_init_io(png, stream);
    png_set_IHDR(png, info, png_uint_32(width), png_uint_32(height), 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < height; ++y) png_write_row(png, rgb + stride * size_t(y));
    png_write_end(png, info);
    return true;
}

}  // namespace

bool writeAnnotationPng(FILE* stream, const std::string& name, const uint8_t* rgb, int width, int height,
                        size_t stride) {
    char message[256] = "out of memory";
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, message, onError, onWarning);
    png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
    const bool written = info != nullptr && writeRows(png, info, stream, rgb, width, height, stride);
    png_destroy_write_struct(&png, &info);
    return written || PatternRender::CommandLineReading::error("Cannot write %s: %s", name.c_str(), message);
}

}  // namespace Analyse
