// TIFF output through libtiff: one LZW strip of 16-bit samples, plus the private "LineRepeat" tag
// that carries the pattern's line-repeat list as JSON.
#include "output/writeTiff.h"

#include <tiffio.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "output/OutputFile.h"

namespace {

const ttag_t kLineRepeatTag = 65456;
const int kSamplesPerPixel = 3;
const int kBitsPerSample = 16;
const tmsize_t kBytesPerPixel = kSamplesPerPixel * kBitsPerSample / 8;

// libtiff's description of the private tag: variable-length ASCII, set without a count.
TIFFFieldInfo xtiffFieldInfo[] = {
    {kLineRepeatTag, TIFF_VARIABLE, TIFF_VARIABLE, TIFF_ASCII, FIELD_CUSTOM, 0, 0, const_cast<char*>("LineRepeat")},
};

TIFFExtendProc parent_extender = nullptr;
bool first_time = true;

// Called by libtiff for every TIFF it opens: adds the private tag, then lets an earlier extender run.
void registerCustomTIFFTags(TIFF* tif) {
    TIFFMergeFieldInfo(tif, xtiffFieldInfo, 1);
    if (parent_extender != nullptr) parent_extender(tif);
}

// Installs the extender once per program run; it stays for every later TIFF.
void augment_libtiff_with_custom_tags() {
    if (!first_time) return;
    first_time = false;
    parent_extender = TIFFSetTagExtender(registerCustomTIFFTags);
}

// Compact JSON array of [first, second] arrays, e.g. [[0,2],[3,1]].
std::string lineRepeatsAsJson(const std::vector<std::pair<int, int>>& lineRepeats) {
    nlohmann::json list = nlohmann::json::array();
    for (const std::pair<int, int>& repeat : lineRepeats) list.push_back(repeat);
    return list.dump();
}

void setImageFields(TIFF* tif, bool isYCbCr, int width, int height) {
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(width));
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(height));
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    if (isYCbCr) {
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_YCBCR);
        TIFFSetField(tif, TIFFTAG_YCBCRSUBSAMPLING, 1, 1);
        TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    } else {
        TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    }
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, kBitsPerSample);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, kSamplesPerPixel);
}

// Writes the strip and the directory; false (after the message) when either fails.
bool writeImage(TIFF* tif, unsigned char* buffer, int width, int height) {
    const tmsize_t size = static_cast<tmsize_t>(width) * height * kBytesPerPixel;
    if (TIFFWriteEncodedStrip(tif, 0, buffer, size) < 0 || !TIFFFlush(tif)) {
        std::fputs("Could not write image\n", stderr);
        return false;
    }
    return true;
}

}  // namespace

namespace TiffWriter {

int writeTiff(unsigned char* buffer, bool isYCbCr, int width, int height, int /*bits*/,
              const std::vector<std::pair<int, int>>& lineRepeats, const char* fileName) {
    augment_libtiff_with_custom_tags();
    TIFF* tif = TIFFOpen(fileName, "w");
    if (tif == nullptr) {
        std::fputs("Could not create tiff file\n", stderr);
        return -1;
    }
    setImageFields(tif, isYCbCr, width, height);
    if (!lineRepeats.empty()) TIFFSetField(tif, kLineRepeatTag, lineRepeatsAsJson(lineRepeats).c_str());
    const bool written = writeImage(tif, buffer, width, height);
    TIFFClose(tif);
    if (written) return 0;
    OutputFile::removeIncomplete(fileName);
    return -1;
}

}  // namespace TiffWriter
