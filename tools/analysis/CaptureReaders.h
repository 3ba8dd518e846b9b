// The capture readers, one per format, behind readCapture (analysis/CaptureFiles.h).
#pragma once

#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "analysis/Picture.h"

namespace pm5544::analysis::capture {

// A refusal naming the file: "capture.png: truncated after row 12".
[[noreturn]] void refuse(const std::string& path, const std::string& reason);

// Sets the raster of a picture after checking it against CaptureLimits, before anything is allocated.
void setRaster(Picture& picture, const std::string& path, int64_t width, int64_t height);

// An open file, closed when it goes (standard input stays open).
class File {
public:
    explicit File(const std::string& path);
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    FILE* stream() const { return stream_; }
    const std::string& path() const { return path_; }
    // Reads exactly `bytes`; refuses the file as truncated, saying `what` was cut, when it ends first.
    void read(void* into, size_t bytes, const char* what);

private:
    std::string path_;
    FILE* stream_ = nullptr;
};

Picture readPng(File& file);
Picture readTiff(const std::string& path);
Picture readDpx(File& file);
Picture readY4m(File& file, int64_t frame);

}  // namespace pm5544::analysis::capture
