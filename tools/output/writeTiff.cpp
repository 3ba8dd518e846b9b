// TIFF output through libtiff, written through the OutputFile: one LZW strip of 16-bit samples, plus the private
// "LineRepeat" tag that carries the pattern's line-repeat list as JSON.
#include "output/writeTiff.h"

#include <sys/stat.h>
#include <tiffio.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

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

// Called by libtiff for every TIFF it opens: adds the private tag, then lets an earlier extender run.
void registerCustomTIFFTags(TIFF* tif) {
    TIFFMergeFieldInfo(tif, xtiffFieldInfo, 1);
    if (parent_extender != nullptr) parent_extender(tif);
}

// Installs the extender once per program run, whichever thread writes the first TIFF; it stays for
// every later TIFF.
void augment_libtiff_with_custom_tags() {
    static const bool installed = [] {
        parent_extender = TIFFSetTagExtender(registerCustomTIFFTags);
        return true;
    }();
    static_cast<void>(installed);
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

// The first error libtiff reports while one TIFF is written (and the errno of a failed system call),
// kept for the writer instead of printed, so that a failure is reported once, with the system's reason,
// by whoever owns the output.
struct LibtiffError {
    int error = 0;
    std::string message;
};

// libtiff's handler for one TIFF's errors; handled here, so libtiff's process-wide handler stays silent.
int recordError(TIFF*, void* userData, const char* module, const char* format, va_list arguments) {
    const int error = errno;
    LibtiffError& first = *static_cast<LibtiffError*>(userData);
    if (!first.message.empty()) return 1;
    char text[512];
    std::vsnprintf(text, sizeof text, format, arguments);
    first = {error, module != nullptr ? std::string(module) + ": " + text : text};
    return 1;
}

// libtiff's I/O on the OutputFile's stream: writes go through OutputFile::write, which notes failures.
OutputFile& outputOf(thandle_t handle) { return *static_cast<OutputFile*>(handle); }
tmsize_t readNothing(thandle_t, void*, tmsize_t) { return -1; }
tmsize_t writeTo(thandle_t handle, void* data, tmsize_t size) {
    return outputOf(handle).write(data, static_cast<size_t>(size)) ? size : -1;
}
toff_t seekIn(thandle_t handle, toff_t offset, int whence) {
    FILE* stream = outputOf(handle).stream();
    if (fseeko(stream, static_cast<off_t>(offset), whence) != 0) return static_cast<toff_t>(-1);
    return static_cast<toff_t>(ftello(stream));
}
int leaveOpen(thandle_t) { return 0; }  // the OutputFile closes
toff_t sizeOf(thandle_t handle) {
    FILE* stream = outputOf(handle).stream();
    struct stat status {};
    if (std::fflush(stream) != 0 || fstat(fileno(stream), &status) != 0) return 0;
    return static_cast<toff_t>(status.st_size);
}
int mapNothing(thandle_t, void**, toff_t*) { return 0; }
void unmapNothing(thandle_t, void*, toff_t) {}

// Rows are encoded into the one LZW strip as they arrive, so no line is kept: the encoder's output
// is the same as for the whole strip at once.
class Writer final : public LineRepeatWriter {
public:
    ~Writer() override { close(); }

    bool begin(OutputFile& out, const ImageHeader& header) override {
        out_ = &out;
        header_ = header;
        lineRepeats_ = header.lineRepeats != nullptr ? *header.lineRepeats : LineRepeats();
        row_.assign(static_cast<size_t>(header.width) * kSamplesPerPixel, 0);
        rowIndex_ = 0;
        augment_libtiff_with_custom_tags();
        error_ = {};
        return openFile() || fail();
    }

    bool writeRow(RowOf<RowKind::LineRepeat> row) override {
        // libtiff may alter the row it encodes, so it gets a copy.
        std::copy(row.samples, row.samples + row_.size(), row_.begin());
        if (TIFFWriteScanline(tif_, row_.data(), rowIndex_++, 0) >= 0 && !out_->failed()) return true;
        report(messages_, MessageKind::Warning, "Could not write image\n");
        return fail();
    }

    bool finish() override {
        const bool flushed = TIFFFlush(tif_) != 0;
        if (!flushed) report(messages_, MessageKind::Warning, "Could not write image\n");
        close();
        return (flushed && !out_->failed()) || fail();
    }

private:
    bool openFile() {
        TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
        if (options == nullptr) return false;
        TIFFOpenOptionsSetErrorHandlerExtR(options, recordError, &error_);
        tif_ = TIFFClientOpenExt(out_->name().c_str(), "w", out_, readNothing, writeTo, seekIn, leaveOpen, sizeOf,
                                 mapNothing, unmapNothing, options);
        TIFFOpenOptionsFree(options);
        if (tif_ == nullptr) {
            report(messages_, MessageKind::Warning, "Could not create tiff file\n");
            return false;
        }
        setImageFields(tif_, header_.isYCbCr(), header_.width, header_.height);
        // RowsPerStrip stays unset: libtiff then puts every scanline into one strip, and writes no tag.
        if (!lineRepeats_.empty()) TIFFSetField(tif_, kLineRepeatTag, lineRepeatsAsJson(lineRepeats_).c_str());
        return true;
    }

    void close() {
        if (tif_ != nullptr) TIFFClose(tif_);
        tif_ = nullptr;
    }

    // Reports libtiff's first error once, with the system's reason where there is one.
    bool fail() {
        close();
        if (!out_->failed()) {
            if (error_.error == 0 && !error_.message.empty())
                report(messages_, MessageKind::Warning, "%s\n", error_.message.c_str());
            out_->fail(error_.error);
        }
        return false;
    }

    OutputFile* out_ = nullptr;
    ImageHeader header_;
    LineRepeats lineRepeats_;
    std::vector<uint16_t> row_;
    uint32_t rowIndex_ = 0;
    TIFF* tif_ = nullptr;
    LibtiffError error_;
};

}  // namespace

namespace TiffWriter {

std::unique_ptr<LineRepeatWriter> make() { return std::make_unique<Writer>(); }

}  // namespace TiffWriter
