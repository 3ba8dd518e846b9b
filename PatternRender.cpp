// The render driver: options, pattern initialisation, loop and writer chosen by the extension.
#include "PatternRender.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

#include "pattern/LargeBuffer.h"
#include "selftest/UnitTests.h"
#include "colour/rounding.h"
#include "output/writeDPX.h"
#include "output/writePng.h"
#include "output/writeTiff.h"
#include "output/writeTovaKelm.h"

using PatternGen::colorAxes_e;

namespace PatternRender {

namespace {

// Limits that keep the patterns' grids non-degenerate and a frame within reach of memory.
constexpr int minimumSize = 64;
constexpr int maximumSize = 8192;
constexpr double minimumPixelAspect = 0.25;
constexpr double maximumPixelAspect = 4.0;
constexpr int minimumBits = 8;
constexpr int maximumBits = 16;
constexpr int deviceBits = 12;
constexpr int dpxBits = 10;

constexpr int samplesPerFramePixel = 4;
constexpr int bytesPerLinePixel = 6;

bool isYCbCrAxes(colorAxes_e axes) {
    return axes >= PatternGen::Colour_YCbCr_601 && axes <= PatternGen::Colour_YCbCr_SLog3_Live_Mapped;
}

bool isRGBHDRAxes(colorAxes_e axes) {
    return axes >= PatternGen::Colour_RGB_PQ && axes <= PatternGen::Colour_RGB_SLog3_Live_Mapped;
}

// Rejects rasters the integer geometry cannot represent, before any memory is committed. The
// canvas is what the pattern draws on: twice the size in each direction in quadrant mode.
bool checkRaster(const Settings& s) {
    const int scale = s.quadrant == PatternGen::Quadrant_None ? 1 : 2;
    const int64_t canvasWidth = int64_t(s.width) * scale, canvasHeight = int64_t(s.height) * scale;
    if (s.width < minimumSize || s.height < minimumSize || canvasWidth > maximumSize || canvasHeight > maximumSize) {
        std::fprintf(stderr, "Error: Size %dx%d is outside %dx%d to %dx%d (-d)\n", s.width, s.height, minimumSize,
                     minimumSize, maximumSize / scale, maximumSize / scale);
        return false;
    }
    if (s.aspectNum <= 0 || s.aspectDen <= 0) {
        std::fprintf(stderr, "Error: Aspect ratio %d:%d must be two positive numbers (-a)\n", s.aspectNum, s.aspectDen);
        return false;
    }
    // Pixels more than four times wider or narrower than high leave the grids degenerate.
    const double pixelAspect = (double(s.aspectDen) * s.width) / (double(s.aspectNum) * s.height);
    if (pixelAspect < minimumPixelAspect || pixelAspect > maximumPixelAspect) {
        std::fprintf(
            stderr, "Error: Aspect ratio %d:%d gives %dx%d pixels an aspect of 1:%.3f, outside 1:%.2f to 1:%.2f (-a)\n",
            s.aspectNum, s.aspectDen, s.width, s.height, pixelAspect, minimumPixelAspect, maximumPixelAspect);
        return false;
    }
    if (s.bits < minimumBits || s.bits > maximumBits) {
        std::fprintf(stderr, "Error: Bit depth %d is outside %d to %d (-b)\n", s.bits, minimumBits, maximumBits);
        return false;
    }
    return true;
}

enum class Output { Png, Dpx };

bool isDeviceExtension(const std::string& ext) { return ext == "pat" || ext == "rgb" || ext == "yc4" || ext == "xyz"; }

// The settings a device pattern file needs; prints the first failing check (standard output,
// no trailing newline) and returns false.
bool checkDeviceSettings(const std::string& ext, const Settings& s) {
    if (s.bits != deviceBits) {
        std::printf("Error: Tova/Kelm patterns need to be rendered in 12 bit (-b 12)");
        return false;
    }
    const bool studioRGB = s.axes == PatternGen::Colour_RGB_219 || isRGBHDRAxes(s.axes);
    if (ext == "pat" && !(isYCbCrAxes(s.axes) && s.sampling == PatternGen::Sampling_422)) {
        std::printf(
            "Error: Tova/Kelm YCbCr 422 patterns must be rendered in YCbCr 422 (-c 709 -s 422).\n"
            "2020 will work but is not yet supported by Tova or Kelm.");
        return false;
    }
    if (ext == "rgb" && !studioRGB) {
        std::printf("Error: Tova/Kelm RGB patterns must be rendered using RGB (-c RGB-headroom) 444");
        return false;
    }
    if (ext == "xyz" && !studioRGB) {
        std::printf("Error: Tova/Kelm XYZ patterns must be rendered using RGB 444 (-c RGB-headroom)");
        return false;
    }
    if (ext == "yc4" && !(isYCbCrAxes(s.axes) && s.sampling == PatternGen::Sampling_444)) {
        std::printf("Error: Tova/Kelm yc4 files must be rendered in YCbCr 444 (-s 444)");
        return false;
    }
    return true;
}

uint32_t deviceFormat(const std::string& ext) {
    if (ext == "pat") return 0;
    if (ext == "yc4") return 2;
    return 1;  // "rgb" and "xyz"
}

int dpxFormatCode(const Settings& s) {
    if (s.axes == PatternGen::Colour_RGB || s.axes == PatternGen::Colour_RGB_219) return 50;
    if (s.axes == PatternGen::Colour_YCbCr_709 && s.sampling == PatternGen::Sampling_444) return 102;
    return 100;
}

[[noreturn]] void writerFailed(const char* format, const std::string& fileName) {
    std::fflush(stdout);
    std::fprintf(stderr, format, fileName.c_str());
    std::exit(1);
}

// Renders the full frame, rounds it to the output depth and writes it as PNG or DPX.
void writeFullFrame(PatternSpec& spec, const Settings& s, Output output, bool announce) {
    const size_t pixels = size_t(s.width) * size_t(s.height);
    LargeBuffer::Ptr<uint16_t> frame = LargeBuffer::allocate<uint16_t>(pixels * samplesPerFramePixel);
    spec.run_body(s.optionValue, s.width, s.height, frame.get());
    if (announce) std::printf("writing to: %s\n", s.fileName.c_str());
    roundFrame(frame.get(), pixels, s.axes, s.bits);
    if (announce) {
        bool hasDot = false;
        std::printf("Writing %s file\n", fileExtension(s.fileName, hasDot).c_str());
    }
    if (output == Output::Dpx) {
        DPX::Metadata metadata;
        if (DPXWriter::writeDPX(frame.get(), static_cast<DPX::eFormat>(dpxFormatCode(s)), s.width, s.height, dpxBits,
                                s.fileName.c_str(), metadata) != 0)
            writerFailed("Failed to write DPX file %s\n", s.fileName);
    } else {
        if (PngWriter::writePng(frame.get(), isYCbCrAxes(s.axes), s.width, s.height, s.bits, s.fileName.c_str()) != 0)
            writerFailed("Failed to write PNG file %s\n", s.fileName);
    }
}

void writeTiffFile(PatternSpec& spec, const Settings& s) {
    const size_t bytes = size_t(s.width) * size_t(s.height) * bytesPerLinePixel;
    LargeBuffer::Ptr<unsigned char> lines = LargeBuffer::allocate<unsigned char>(bytes);
    std::vector<std::pair<int, int>> lineRepeats;
    int storedLines = s.height;
    spec.run_body(s.optionValue, s.width, storedLines, lineRepeats, lines.get());
    std::printf("writing to: %s\n", s.fileName.c_str());
    std::printf("Writing %s file\n", "tif");
    if (TiffWriter::writeTiff(lines.get(), isYCbCrAxes(s.axes), s.width, storedLines, s.bits, lineRepeats,
                              s.fileName.c_str()) != 0)
        writerFailed("Failed to write TIFF file %s\n", s.fileName);
}

void writeDeviceFile(PatternSpec& spec, const Settings& s, const std::string& ext) {
    TovaKelmPatternFile file;
    std::vector<std::pair<int, int>> lineRepeats;
    file.format = deviceFormat(ext);
    spec.run_body(s.optionValue, s.width, s.height, lineRepeats, file);
    std::printf("Writing %s file\n", ext.c_str());
    if (ext == "xyz") file.ConvertToXYZ();
    file.Save(s.fileName);
}

int render(PatternSpec& spec, const Settings& s) {
    bool hasDot = false;
    const std::string ext = fileExtension(s.fileName, hasDot);
    if (hasDot && isDeviceExtension(ext) && !checkDeviceSettings(ext, s)) return 1;

    std::printf("size %dx%d\n", s.width, s.height);
    spec.init(s.width, s.height, s.aspectNum, s.aspectDen, s.axes, s.sampling, s.bits, s.quadrant, s.optionValue,
              s.edgeTaperOff);
    const int canvasScale = s.quadrant == PatternGen::Quadrant_None ? 1 : 2;
    spec.render_text(s.width * canvasScale, s.height * canvasScale);

    if (!hasDot) {
        std::puts("Writing PNG file by default");
        writeFullFrame(spec, s, Output::Png, false);
    } else if (ext == "tif") {
        writeTiffFile(spec, s);
    } else if (isDeviceExtension(ext)) {
        writeDeviceFile(spec, s, ext);
    } else {
        writeFullFrame(spec, s, ext == "dpx" ? Output::Dpx : Output::Png, true);
    }
    return 0;
}

}  // namespace

void roundFrame(uint16_t* frame, size_t pixels, colorAxes_e axes, int bits) {
    const int s = 16 - bits;
    const int inBits = 16;
    uint16_t* const end = frame + pixels * samplesPerFramePixel;
    if (axes == PatternGen::Colour_RGB) {
        for (uint16_t* p = frame; p != end; ++p) *p = Rounding::roundTo(s, *p);
    } else if (axes == PatternGen::Colour_RGB_219) {
        for (uint16_t* p = frame; p != end; ++p) *p = Rounding::roundLumaTo(inBits, s, *p);
    } else {
        // Samples 0 and 2 carry chroma (or R and B, which take the chroma rule too).
        for (uint16_t* p = frame; p != end; p += samplesPerFramePixel) {
            p[0] = Rounding::roundChromaTo(inBits, s, p[0]);
            p[1] = Rounding::roundLumaTo(inBits, s, p[1]);
            p[2] = Rounding::roundChromaTo(inBits, s, p[2]);
            p[3] = Rounding::roundLumaTo(inBits, s, p[3]);
        }
    }
}

int renderPattern(int argc, char** argv, PatternSpec& spec) {
    Settings settings;
    if (argc < 2) {
        std::fprintf(stderr, "Error: Filename not given\n");
        return 1;
    }
    if (!parseCommandLine(argc, argv, settings)) return 1;
    if (settings.selfTest)
        return UnitTests::runUnitTests(settings.width, settings.height, settings.aspectNum, settings.aspectDen,
                                       settings.axes);
    if (!settings.haveFileName) {
        std::fprintf(stderr, "Error: Filename not given\n");
        return 1;
    }
    if (!checkRaster(settings)) return 1;
    try {
        return render(spec, settings);
    } catch (const std::bad_alloc&) {
        std::fflush(stdout);
        std::fprintf(stderr, "Error: Not enough memory to render %dx%d\n", settings.width, settings.height);
    } catch (const std::runtime_error& error) {
        std::string message = error.what();
        while (!message.empty() && message.back() == '\n') message.pop_back();
        std::fflush(stdout);
        std::fprintf(stderr, "Error: %s\n", message.c_str());
    }
    return 1;
}

}  // namespace PatternRender
