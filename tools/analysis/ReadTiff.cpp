// TIFF captures through libtiff: R'G'B' (photometric 2) and grey (1, replicated) at 8 or 16 bits, in one
// plane or one a sample, and Y'CbCr (6) without subsampling, as the program writes it (Y', Cb, Cr). Samples
// past the third (alpha) are dropped; libtiff's messages are kept for the refusal, never printed.
#include <tiffio.h>

#include <cstdarg>
#include <cstring>
#include <memory>
#include <vector>

#include "analysis/CaptureReaders.h"

namespace pm5544::analysis::capture {

namespace {

struct Messages {
    std::string first;
};

int keepError(TIFF*, void* data, const char* module, const char* format, va_list arguments) {
    Messages& messages = *static_cast<Messages*>(data);
    if (!messages.first.empty()) return 1;
    char text[512];
    std::vsnprintf(text, sizeof text, format, arguments);
    messages.first = module != nullptr ? std::string(module) + ": " + text : text;
    return 1;
}
int dropWarning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

struct Closer {
    void operator()(TIFF* tif) const { TIFFClose(tif); }
};
using TiffHandle = std::unique_ptr<TIFF, Closer>;

TiffHandle open(const std::string& path, Messages& messages) {
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    if (options == nullptr) throw std::bad_alloc();
    TIFFOpenOptionsSetErrorHandlerExtR(options, keepError, &messages);
    TIFFOpenOptionsSetWarningHandlerExtR(options, dropWarning, nullptr);
    TiffHandle tif(TIFFOpenExt(path.c_str(), "r", options));
    TIFFOpenOptionsFree(options);
    if (!tif) refuse(path, messages.first.empty() ? "libtiff cannot open it" : messages.first);
    return tif;
}

struct Layout {
    uint32_t width = 0, height = 0;
    uint16_t bits = 0, samples = 0, photometric = 0, planar = PLANARCONFIG_CONTIG;
    uint16_t subsamplingX = 1, subsamplingY = 1;
};

Layout readLayout(TIFF* tif, const std::string& path) {
    Layout l;
    TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &l.width);
    TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &l.height);
    TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &l.bits);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &l.samples);
    TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &l.planar);
    if (!TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &l.photometric)) refuse(path, "the file names no photometric");
    if (l.photometric == PHOTOMETRIC_YCBCR)
        TIFFGetFieldDefaulted(tif, TIFFTAG_YCBCRSUBSAMPLING, &l.subsamplingX, &l.subsamplingY);
    const bool grey = l.photometric == PHOTOMETRIC_MINISBLACK;
    const bool colour = l.photometric == PHOTOMETRIC_RGB || l.photometric == PHOTOMETRIC_YCBCR;
    if (!grey && !colour)
        refuse(path, "photometric " + std::to_string(l.photometric) + " is not read (RGB, Y'CbCr or grey)");
    if (l.bits != 8 && l.bits != 16) refuse(path, std::to_string(l.bits) + "-bit samples are not read (8 or 16)");
    if (l.samples < (grey ? 1 : 3)) refuse(path, std::to_string(l.samples) + " samples a pixel are too few");
    if (l.subsamplingX != 1 || l.subsamplingY != 1) refuse(path, "subsampled Y'CbCr is not read");
    if (TIFFIsTiled(tif)) refuse(path, "tiled TIFF is not read");
    return l;
}

unsigned sampleAt(const std::vector<uint8_t>& row, size_t index, int bits) {
    if (bits == 8) return row[index];
    uint16_t value;
    std::memcpy(&value, row.data() + 2 * index, sizeof value);  // libtiff gives host order
    return value;
}

}  // namespace

Picture readTiff(const std::string& path) {
    Messages messages;
    const TiffHandle tif = open(path, messages);
    const Layout l = readLayout(tif.get(), path);
    Picture picture;
    setRaster(picture, path, l.width, l.height);
    picture.bits = l.bits;
    picture.components = l.photometric == PHOTOMETRIC_YCBCR ? Components::YCbCr : Components::RGB;
    picture.allocate();
    const bool separate = l.planar == PLANARCONFIG_SEPARATE;
    const bool grey = l.photometric == PHOTOMETRIC_MINISBLACK;
    std::vector<uint8_t> row(size_t(TIFFScanlineSize64(tif.get())));
    const size_t stride = separate ? 1 : l.samples;
    if (row.size() < size_t(picture.width) * stride * (l.bits / 8)) refuse(path, "lines shorter than their pixels");
    const auto readLine = [&](uint32_t y, uint16_t sample) {
        if (TIFFReadScanline(tif.get(), row.data(), y, sample) < 0)
            refuse(path, "line " + std::to_string(y) + ": " + (messages.first.empty() ? "unreadable" : messages.first));
    };
    // Lines are read in the order they are stored (one plane after another when separate): libtiff
    // decodes a compressed strip again from its start to go back.
    const auto copy = [&](uint32_t y, int plane, size_t offset) {
        uint16_t* out = &picture.planes[plane][size_t(y) * size_t(picture.width)];
        for (size_t x = 0; x < size_t(picture.width); ++x)
            out[x] = uint16_t(sampleAt(row, x * stride + offset, l.bits));
    };
    if (separate) {
        for (int c = 0; c < (grey ? 1 : 3); ++c)
            for (uint32_t y = 0; y < l.height; ++y) readLine(y, uint16_t(c)), copy(y, c, 0);
    } else {
        for (uint32_t y = 0; y < l.height; ++y) {
            readLine(y, 0);
            for (int c = 0; c < (grey ? 1 : 3); ++c) copy(y, c, size_t(c));
        }
    }
    if (grey) picture.planes[1] = picture.planes[2] = picture.planes[0];
    return picture;
}

}  // namespace pm5544::analysis::capture
