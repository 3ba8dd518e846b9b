// The output formats: for each, the settings it needs, its writer, how its failure reads and the rules
// around its writer.
#include "OutputFormats.h"

#include <cstdio>
#include <iterator>

#include "output/writeDPX.h"
#include "output/writePng.h"
#include "output/writeTiff.h"
#include "output/writeTovaKelm.h"
#include "output/writeY4m.h"

using PatternGen::isRGBHDRAxes;
using PatternGen::isYCbCrAxes;

namespace PatternRender {

namespace {

constexpr int deviceFileBits = DeviceFile::codeBits;

// ---- Device-file checks: the settings a device file needs. Each prints the first failing check
// (standard output, no trailing newline) and returns false.

bool refuse(const char* message) {
    std::printf("%s", message);
    return false;
}

bool isStudioRGB(const Settings& s) { return s.axes == PatternGen::Colour_RGB_219 || isRGBHDRAxes(s.axes); }

bool fitsDeviceFile(const Settings& s) {
    return s.bits == deviceFileBits || refuse("Error: Tova/Kelm patterns need to be rendered in 12 bit (-b 12)");
}
bool fitsPat(const Settings& s) {
    return fitsDeviceFile(s) && ((isYCbCrAxes(s.axes) && s.sampling == PatternGen::Sampling_422) ||
                                 refuse("Error: Tova/Kelm YCbCr 422 patterns must be rendered in YCbCr 422 (-c 709 -s "
                                        "422).\n2020 will work but is not yet supported by Tova or Kelm."));
}
bool fitsRgb(const Settings& s) {
    return fitsDeviceFile(s) &&
           (isStudioRGB(s) || refuse("Error: Tova/Kelm RGB patterns must be rendered using RGB (-c RGB-headroom) 444"));
}
bool fitsXyz(const Settings& s) {
    return fitsDeviceFile(s) &&
           (isStudioRGB(s) || refuse("Error: Tova/Kelm XYZ patterns must be rendered using RGB 444 (-c RGB-headroom)"));
}
bool fitsYc4(const Settings& s) {
    return fitsDeviceFile(s) && ((isYCbCrAxes(s.axes) && s.sampling == PatternGen::Sampling_444) ||
                                 refuse("Error: Tova/Kelm yc4 files must be rendered in YCbCr 444 (-s 444)"));
}

// Checks of the formats beyond the device files; their messages go to standard error.
bool fitsY4m(const Settings& s) {
    if (!isYCbCrAxes(s.axes)) {
        std::fprintf(stderr,
                     "Error: Y4M holds Y'CbCr only: render with -c 601, 709, 2020, PQ, HLG or S-Log3 "
                     "(or their -Mapped and -Live forms)\n");
        return false;
    }
    if (!Y4mWriter::takesBits(s.bits)) {
        std::fprintf(stderr, "Error: Y4M takes 8, 10, 12 or 16 bits, not %d (-b)\n", s.bits);
        return false;
    }
    return true;
}

// ---- Writers, as the table makes them.

AnyImageWriter makePng(const Settings&) { return PngWriter::make(); }
AnyImageWriter makeDpx(const Settings& s) {
    return DPXWriter::make(DPXWriter::descriptorFor(s.axes, s.sampling), DPX::Metadata());
}
AnyImageWriter makeTiff(const Settings&) { return TiffWriter::make(); }
AnyImageWriter makeY4m(const Settings& s) {
    return Y4mWriter::make(s.frames, s.rateNum, s.rateDen, s.aspectNum, s.aspectDen);
}
template <uint32_t format, bool toXYZ>
AnyImageWriter deviceFileWriterFor(const Settings&) {
    return makeDeviceFileWriter(format, toXYZ);
}

// Every output format, by extension. The first is the default for names without a known extension.
// The flags on each entry's last line: needSeek, takesFrames, roundsToOutputDepth, announcesFileName.
// clang-format off
const OutputFormat formatTable[] = {
    {"png",
     "16-bit RGBA PNG; Y'CbCr frames carry Cr, Y', Cb in R, G, B. Also written for a name without an "
     "extension, or with one that names no format",
     nullptr, makePng, "Failed to write PNG file %s\n", nullptr,
     false, false, true, true},
    {"tif",
     "16-bit three-sample TIFF, LZW, every line stored: the card lists no repeated lines, so the file has "
     "no line-repeat tag (65456)",
     nullptr, makeTiff, "Failed to write TIFF file %s\n", "Could not create tiff file\n",
     true, false, false, true},
    {"dpx",
     "10-bit DPX (SMPTE 268M) whatever -b says: descriptor 50 (RGB) for RGB and RGB-headroom, 102 "
     "(CbYCr 4:4:4) for 709 with -s 444, 100 (CbYCrY 4:2:2) for every other encoding",
     nullptr, makeDpx, "Failed to write DPX file %s\n", nullptr,
     false, false, true, true},
    {"pat", "signal-generator device file, Y'CbCr 4:2:2; needs -b 12, a Y'CbCr encoding and -s 422",
     fitsPat, deviceFileWriterFor<TovaKelmPatternFile::Format_YCbCr422, false>,
     "Error: Can't save file: %s\n", nullptr,
     false, false, false, false},
    {"yc4", "signal-generator device file, Y'CbCr 4:4:4; needs -b 12, a Y'CbCr encoding and -s 444",
     fitsYc4, deviceFileWriterFor<TovaKelmPatternFile::Format_YCbCr444, false>,
     "Error: Can't save file: %s\n", nullptr,
     false, false, false, false},
    {"rgb", "signal-generator device file, R'G'B'; needs -b 12 and RGB-headroom or an HDR R'G'B' encoding",
     fitsRgb, deviceFileWriterFor<TovaKelmPatternFile::Format_RGB, false>,
     "Error: Can't save file: %s\n", nullptr,
     false, false, false, false},
    {"xyz", "as rgb, converted to DCI X'Y'Z'",
     fitsXyz, deviceFileWriterFor<TovaKelmPatternFile::Format_RGB, true>,
     "Error: Can't save file: %s\n", nullptr,
     false, false, false, false},
    {"y4m", "YUV4MPEG2 stream of --frames frames at --rate",
     fitsY4m, makeY4m, "Failed to write Y4M file %s\n", nullptr,
     false, true, true, true},
};
// clang-format on

}  // namespace

Rows<OutputFormat> formats() { return {std::begin(formatTable), std::end(formatTable)}; }

const OutputFormat& previewFormat() { return formatTable[0]; }

bool fitsScan(const OutputFormat& format, const Settings& s) {
    if (!PatternGen::isInterlaced(s.scan) || format.takesFrames) return true;
    std::fprintf(stderr,
                 "Error: --interlaced is for Y4M video: a %s file is a progressive still with no field order "
                 "(leave --interlaced out)\n",
                 format.name);
    return false;
}

const OutputFormat* formatNamed(const std::string& name) {
    for (const OutputFormat& format : formats())
        if (name == format.name) return &format;
    return nullptr;
}

const OutputFormat& formatFor(const Settings& s) {
    if (!s.format.empty() && formatNamed(s.format) != nullptr) return *formatNamed(s.format);
    bool hasDot = false;
    const std::string ext = fileExtension(s.fileName, hasDot);
    const OutputFormat* byExtension = s.fileName != "-" && hasDot ? formatNamed(ext) : nullptr;
    return byExtension != nullptr ? *byExtension : formatTable[0];
}

}  // namespace PatternRender
