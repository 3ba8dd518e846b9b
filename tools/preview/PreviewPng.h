// A streaming 8-bit RGB PNG, tagged sRGB, written row by row through libpng into an OutputFile.
#pragma once

#include <cstdint>

class OutputFile;

class PreviewPng {
public:
    PreviewPng() = default;
    ~PreviewPng();
    PreviewPng(const PreviewPng&) = delete;
    PreviewPng& operator=(const PreviewPng&) = delete;

    // Writes the header to an open file. Every call returns false once anything failed; the
    // failure is recorded in the file (OutputFile::reason()).
    bool begin(OutputFile& out, int width, int height);
    // width x 3 bytes, R, G, B; rows top to bottom.
    bool writeRow(const uint8_t* rgb);
    // After the last row: the image's end. The caller then commits the file.
    bool finish();
    // Between a successful begin() and finish(), with nothing failed.
    bool writing() const { return png_ != nullptr && !failed_; }

private:
    void release();

    struct png_struct_def* png_ = nullptr;
    struct png_info_def* info_ = nullptr;
    OutputFile* out_ = nullptr;
    bool failed_ = false;
};
