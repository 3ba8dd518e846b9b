// Picks the reader by the file's first bytes, not its name: captures come back under any name.
#include "analysis/CaptureFiles.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "analysis/CaptureReaders.h"

namespace pm5544::analysis {

namespace capture {

void refuse(const std::string& path, const std::string& reason) {
    throw std::runtime_error((path == standardInputName ? std::string("standard input") : path) + ": " + reason);
}

void setRaster(Picture& picture, const std::string& path, int64_t width, int64_t height) {
    if (width <= 0 || height <= 0)
        refuse(path, "the header gives a raster of " + std::to_string(width) + "x" + std::to_string(height));
    if (width > CaptureLimits::maximumSide || height > CaptureLimits::maximumSide ||
        width * height > CaptureLimits::maximumPixels)
        refuse(path, std::to_string(width) + "x" + std::to_string(height) + " is too large to analyse (at most " +
                         std::to_string(CaptureLimits::maximumSide) + " pixels a side and " +
                         std::to_string(CaptureLimits::maximumPixels) + " in all)");
    picture.width = int(width);
    picture.height = int(height);
}

File::File(const std::string& path) : path_(path) {
    stream_ = path == standardInputName ? stdin : std::fopen(path.c_str(), "rb");
    if (stream_ == nullptr) refuse(path, std::strerror(errno));
}

File::~File() {
    if (stream_ != nullptr && stream_ != stdin) std::fclose(stream_);
}

void File::read(void* into, size_t bytes, const char* what) {
    if (std::fread(into, 1, bytes, stream_) == bytes) return;
    refuse(path_, std::ferror(stream_) ? std::string("cannot read ") + what + ": " + std::strerror(errno)
                                       : std::string("the file ends in ") + what + " (truncated)");
}

}  // namespace capture

namespace {

enum class Format { Png, Tiff, Dpx, Y4m, Unknown };

constexpr size_t magicBytes = 10;

bool startsWith(const unsigned char* bytes, size_t count, const char* magic, size_t magicLength) {
    return count >= magicLength && std::memcmp(bytes, magic, magicLength) == 0;
}

Format formatOf(const unsigned char* bytes, size_t count) {
    if (startsWith(bytes, count, "\x89PNG\r\n\x1a\n", 8)) return Format::Png;
    if (startsWith(bytes, count, "II*\0", 4) || startsWith(bytes, count, "MM\0*", 4)) return Format::Tiff;
    if (startsWith(bytes, count, "SDPX", 4) || startsWith(bytes, count, "XPDS", 4)) return Format::Dpx;
    if (startsWith(bytes, count, "YUV4MPEG2 ", magicBytes)) return Format::Y4m;
    return Format::Unknown;
}

}  // namespace

Picture readCapture(const std::string& path, int64_t frame) {
    if (frame < 0) capture::refuse(path, "frame " + std::to_string(frame) + " is before the first");
    if (path == standardInputName) {
        if (isatty(STDIN_FILENO)) capture::refuse(path, "a terminal, not a Y4M stream (pipe one in)");
        capture::File in(path);
        return capture::readY4m(in, frame);
    }
    capture::File file(path);
    unsigned char bytes[magicBytes] = {};
    const size_t count = std::fread(bytes, 1, sizeof bytes, file.stream());
    std::rewind(file.stream());
    const Format format = formatOf(bytes, count);
    if (format != Format::Y4m && frame != 0)
        capture::refuse(path, "holds one picture: there is no frame " + std::to_string(frame));
    switch (format) {
        case Format::Png:
            return capture::readPng(file);
        case Format::Tiff:
            return capture::readTiff(path);
        case Format::Dpx:
            return capture::readDpx(file);
        case Format::Y4m:
            return capture::readY4m(file, frame);
        case Format::Unknown:
            break;
    }
    capture::refuse(path, "not a PNG, TIFF, DPX or Y4M file");
}

}  // namespace pm5544::analysis
