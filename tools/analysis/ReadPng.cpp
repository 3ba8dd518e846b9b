// PNG captures through libpng: 8 or 16 bits, grey (replicated to R'G'B'), grey and alpha, RGB, RGBA
// (alpha dropped) and palettes (expanded), as R'G'B' at the file's depth. libpng reports errors by
// longjmp, so the calls that may fail sit in functions that hold no object with a destructor.
#include <png.h>

#include <csetjmp>
#include <cstring>
#include <vector>

#include "analysis/CaptureReaders.h"

namespace pm5544::analysis::capture {

namespace {

constexpr int channels = 3;

struct Reading {
    png_structp png = nullptr;
    png_infop info = nullptr;
    char error[256] = {};
};

void onError(png_structp png, png_const_charp message) {
    Reading& reading = *static_cast<Reading*>(png_get_error_ptr(png));
    std::snprintf(reading.error, sizeof reading.error, "%s", message);
    png_longjmp(png, 1);
}
void onWarning(png_structp, png_const_charp) {}  // the library prints nothing

struct Raster {
    png_uint_32 width = 0, height = 0;
    int bits = 0;
    bool interlaced = false;
};

// Reads the header and sets the transformations that give three samples a pixel.
bool readHeader(Reading& r, FILE* stream, Raster& raster) {
    if (setjmp(png_jmpbuf(r.png))) return false;
    png_init_io(r.png, stream);
    png_read_info(r.png, r.info);
    const int colour = png_get_color_type(r.png, r.info);
    raster.width = png_get_image_width(r.png, r.info);
    raster.height = png_get_image_height(r.png, r.info);
    raster.interlaced = png_get_interlace_type(r.png, r.info) != PNG_INTERLACE_NONE;
    if (colour == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(r.png);
    if (colour == PNG_COLOR_TYPE_GRAY && png_get_bit_depth(r.png, r.info) < 8) png_set_expand_gray_1_2_4_to_8(r.png);
    if (colour == PNG_COLOR_TYPE_GRAY || colour == PNG_COLOR_TYPE_GRAY_ALPHA) png_set_gray_to_rgb(r.png);
    if (colour & PNG_COLOR_MASK_ALPHA) png_set_strip_alpha(r.png);
    png_read_update_info(r.png, r.info);
    raster.bits = png_get_bit_depth(r.png, r.info);
    return png_get_channels(r.png, r.info) == channels;
}

bool readRow(Reading& r, png_bytep row) {
    if (setjmp(png_jmpbuf(r.png))) return false;
    png_read_row(r.png, row, nullptr);
    return true;
}

}  // namespace

Picture readPng(File& file) {
    Reading r;
    r.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &r, onError, onWarning);
    if (r.png != nullptr) r.info = png_create_info_struct(r.png);
    struct Release {
        Reading& r;
        ~Release() { png_destroy_read_struct(&r.png, &r.info, nullptr); }
    } release{r};
    if (r.info == nullptr) throw std::bad_alloc();
    Raster raster;
    if (!readHeader(r, file.stream(), raster))
        refuse(file.path(), r.error[0] != '\0' ? r.error : "not three colour samples a pixel");
    if (raster.interlaced) refuse(file.path(), "interlaced (Adam7) PNG is not read: save it without interlacing");
    Picture picture;
    setRaster(picture, file.path(), raster.width, raster.height);
    picture.bits = raster.bits;
    picture.components = Components::RGB;
    picture.allocate();
    const size_t sampleBytes = raster.bits > 8 ? 2 : 1;
    std::vector<png_byte> row(size_t(picture.width) * channels * sampleBytes);
    for (int y = 0; y < picture.height; ++y) {
        if (!readRow(r, row.data())) refuse(file.path(), "row " + std::to_string(y) + ": " + r.error);
        const size_t at = size_t(y) * size_t(picture.width);
        for (size_t i = 0; i < size_t(picture.width) * channels; ++i) {
            const unsigned value = sampleBytes == 1 ? row[i] : unsigned(row[2 * i]) << 8 | row[2 * i + 1];
            picture.planes[i % channels][at + i / channels] = uint16_t(value);
        }
    }
    return picture;
}

}  // namespace pm5544::analysis::capture
