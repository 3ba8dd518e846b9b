// YUV4MPEG2 writer. The stream is planar (all of Y', then Cb, then Cr) and the frame repeats.
#include "output/writeY4m.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <numeric>
#include <string>
#include <vector>

#include "library/FrameLayouts.h"
#include "output/HeldFrame.h"

namespace {

const char kFrameMarker[] = "FRAME\n";

char interlaceTag(PatternGen::Scan scan) {
    switch (scan) {
        case PatternGen::Scan::InterlacedTopFirst:
            return 't';
        case PatternGen::Scan::InterlacedBottomFirst:
            return 'b';
        default:
            return 'p';
    }
}
constexpr size_t kCopyChunk = size_t(1) << 20;  // bytes per step when the kernel cannot copy a range

// A frame can be written by offset and copied within the file: a regular file, open to read and
// write, not appending (standard output redirected to a file is usually write-only).
bool writableInPlace(FILE* stream) {
    struct stat status {};
    const int fd = fileno(stream);
    const int flags = fcntl(fd, F_GETFL);
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && flags != -1 && (flags & O_ACCMODE) == O_RDWR &&
           (flags & O_APPEND) == 0;
}

// Offsets past what off_t holds (a 32-bit build without large-file support) fail, never wrap.
bool fitsOffset(int64_t end) {
    if (end <= std::numeric_limits<off_t>::max()) return true;
    errno = EFBIG;
    return false;
}

bool writeAt(int fd, const uint8_t* data, size_t size, int64_t at) {
    if (!fitsOffset(at + static_cast<int64_t>(size))) return false;
    while (size > 0) {
        const ssize_t written = pwrite(fd, data, size, static_cast<off_t>(at));
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        data += written, size -= static_cast<size_t>(written), at += written;
    }
    return true;
}

// Copies size bytes at `from` to `to` within one file: by the kernel where it can, else (a file system
// that refuses the call) through a bounded buffer.
bool copyWithinFile(int fd, int64_t from, int64_t to, size_t size) {
    if (!fitsOffset(to + static_cast<int64_t>(size))) return false;
    off64_t in = from, out = to;
    while (size > 0) {
        const ssize_t copied = copy_file_range(fd, &in, fd, &out, size, 0);
        if (copied < 0 && errno == EINTR) continue;
        if (copied <= 0) break;
        size -= static_cast<size_t>(copied);
    }
    std::vector<uint8_t> chunk(std::min(size, kCopyChunk));
    while (size > 0) {
        const ssize_t got = pread(fd, chunk.data(), std::min(size, chunk.size()), static_cast<off_t>(in));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0 || !writeAt(fd, chunk.data(), static_cast<size_t>(got), out)) return false;
        in += got, out += got, size -= static_cast<size_t>(got);
    }
    return true;
}

// To a regular file, each frame is written in place (rows land in their planes by offset) and a
// repeated frame is copied from the one before it in the file, so no frame is held in memory.
// Elsewhere (a pipe, a device) the frame is kept in its file form and written whole, as often as asked,
// while it fits the budget; a larger frame is taken three times over, one plane a pass, so that memory
// stays bounded at any size.
class Writer final : public FullFrameWriter {
public:
    Writer(int frames, int rateNum, int rateDen, int aspectNum, int aspectDen, size_t heldFrameBudget)
        : frames_(frames),
          rateNum_(rateNum),
          rateDen_(rateDen),
          aspectNum_(aspectNum),
          aspectDen_(aspectDen),
          heldFrameBudget_(heldFrameBudget) {}

    bool begin(OutputFile& out, const ImageHeader& header) override {
        out_ = &out;
        width_ = header.width;
        height_ = header.height;
        bits_ = header.bits;
        bytesPerSample_ = header.bits > 8 ? 2 : 1;
        chromaColumnsStep_ = header.sampling == 444 ? 1 : 2;
        chromaRowsStep_ = header.sampling == 420 ? 2 : 1;
        sampling_ = header.sampling;
        scan_ = header.scan;
        chromaWidth_ = (header.width + chromaColumnsStep_ - 1) / chromaColumnsStep_;
        const size_t lumaSamples = static_cast<size_t>(header.width) * header.height;
        const size_t chromaSamples =
            static_cast<size_t>(chromaWidth_) * ((header.height + chromaRowsStep_ - 1) / chromaRowsStep_);
        frameBytes_ = (lumaSamples + 2 * chromaSamples) * bytesPerSample_;
        cb_ = lumaSamples * bytesPerSample_;
        cr_ = cb_ + chromaSamples * bytesPerSample_;
        luma_.assign(static_cast<size_t>(width_) * bytesPerSample_, 0);
        chromaB_.assign(static_cast<size_t>(chromaWidth_) * bytesPerSample_, 0);
        chromaR_.assign(chromaB_.size(), 0);
        std::string line;
        if (!streamHeader(header, line)) return false;
        inFile_ = writableInPlace(out.stream());
        if (!inFile_) {
            if (frameBytes_ <= heldFrameBudget_)
                held_ = std::make_unique<HeldFrame>(frameBytes_);
            else
                passes_ = kPlanes;
        }
        return out.write(line.data(), line.size()) && (!inFile_ || startFrameInFile());
    }

    int rowPasses() const override { return passes_; }

    bool writeRow(RowOf<RowKind::FullFrame> frameRow) override {
        const uint16_t* row = frameRow.samples;
        if (passes_ > 1) return writePlaneRow(row);
        pm5544::packLuma(row, width_, bits_, luma_.data());
        bool placed = place(luma_, static_cast<size_t>(width_) * row_ * bytesPerSample_);
        if (const int chromaRow = PatternGen::chromaPlaneRow(sampling_, scan_, row_); chromaRow >= 0) {
            fillChroma(row);
            const size_t chromaAt = static_cast<size_t>(chromaWidth_) * chromaRow * bytesPerSample_;
            placed = placed && place(chromaB_, cb_ + chromaAt) && place(chromaR_, cr_ + chromaAt);
        }
        ++row_;
        return placed;
    }

    bool startNextFrame(int firstRow) override {
        row_ = firstRow;
        return --frames_ >= 1 && (inFile_ ? repeatInFile() : writeHeld());
    }

    // The frame as it stands, once for every frame still to come (taken plane by plane, each frame
    // has been written already).
    bool finish() override {
        if (passes_ > 1) return true;
        if (!inFile_) {
            for (; frames_ > 0; --frames_)
                if (!writeHeld()) return false;
            return true;
        }
        for (; frames_ > 1; --frames_)
            if (!repeatInFile()) return false;
        return endFrameInFile();
    }

private:
    static constexpr int kPlanes = 3;

    void fillChroma(const uint16_t* row) {
        pm5544::packChroma(row, chromaWidth_, chromaColumnsStep_, bits_, chromaB_.data(), chromaR_.data());
    }

    // Pass 0 writes the frame's Y' row by row, pass 1 its Cb and pass 2 its Cr, straight to the output.
    bool writePlaneRow(const uint16_t* row) {
        bool written = true;
        if (plane_ == 0) {
            if (row_ == 0) written = out_->write(kFrameMarker, sizeof kFrameMarker - 1);
            pm5544::packLuma(row, width_, bits_, luma_.data());
            written = written && out_->write(luma_.data(), luma_.size());
        } else if (PatternGen::chromaPlaneRow(sampling_, scan_, row_) >= 0) {
            fillChroma(row);
            const std::vector<uint8_t>& chroma = plane_ == 1 ? chromaB_ : chromaR_;
            written = out_->write(chroma.data(), chroma.size());
        }
        if (++row_ == height_) {
            row_ = 0;
            plane_ = (plane_ + 1) % kPlanes;
        }
        return written;
    }

    // The marker goes through the stream, the frame straight to the descriptor.
    bool writeHeld() {
        if (!out_->write(kFrameMarker, sizeof kFrameMarker - 1)) return false;
        if (std::fflush(out_->stream()) != 0) return failed();
        return held_->writeTo(fileno(out_->stream())) || failed();
    }

    // Starts the next frame in the file as a copy of the current one.
    bool repeatInFile() {
        const int64_t previous = frameAt_;
        return endFrameInFile() && startFrameInFile() && copyInFile(previous);
    }

    // The marker goes through the stream; the frame's bytes then go to the file by offset.
    bool startFrameInFile() {
        if (!out_->write(kFrameMarker, sizeof kFrameMarker - 1)) return false;
        if (std::fflush(out_->stream()) != 0) return failed();
        frameAt_ = ftello(out_->stream());
        return frameAt_ >= 0 || failed();
    }

    // Leaves the stream at the end of the frame for the next marker.
    bool endFrameInFile() {
        const int64_t end = frameAt_ + static_cast<int64_t>(frameBytes_);
        return (fitsOffset(end) && fseeko(out_->stream(), static_cast<off_t>(end), SEEK_SET) == 0) || failed();
    }

    bool copyInFile(int64_t previous) {
        return copyWithinFile(fileno(out_->stream()), previous, frameAt_, frameBytes_) || failed();
    }

    bool place(const std::vector<uint8_t>& bytes, size_t at) {
        if (!inFile_) {
            held_->place(bytes.data(), bytes.size(), at);
            return true;
        }
        return writeAt(fileno(out_->stream()), bytes.data(), bytes.size(), frameAt_ + static_cast<int64_t>(at)) ||
               failed();
    }

    bool failed() {
        out_->fail(errno);
        return false;
    }

    // "YUV4MPEG2 W1920 H1080 F25:1 Ip A1:1 C422p10 XCOLORRANGE=LIMITED", It or Ib for interlaced frames
    // with the top or bottom field first; 8-bit 4:2:0 names its chroma siting (top-left, as rendered,
    // within each field when interlaced). False, with a message, when the pixel aspect does not fit the field.
    bool streamHeader(const ImageHeader& header, std::string& line) const {
        // Pixel aspect = display aspect / picture aspect, in lowest terms.
        const long long parNum = static_cast<long long>(aspectNum_) * header.height;
        const long long parDen = static_cast<long long>(aspectDen_) * header.width;
        const long long divisor = std::gcd(parNum, parDen);
        const long long num = parNum / divisor, den = parDen / divisor;
        if (num > std::numeric_limits<int32_t>::max() || den > std::numeric_limits<int32_t>::max()) {
            report(messages_, MessageKind::Warning,
                   "Error: The pixel aspect %lld:%lld of -a %d:%d at %dx%d does not fit a Y4M header\n", num, den,
                   aspectNum_, aspectDen_, header.width, header.height);
            return false;
        }
        std::string chroma = std::to_string(header.sampling);
        if (header.bits != 8)
            chroma += "p" + std::to_string(header.bits);
        else if (header.sampling == 420)
            chroma += "paldv";
        char text[160];
        std::snprintf(text, sizeof text, "YUV4MPEG2 W%d H%d F%d:%d I%c A%lld:%lld C%s XCOLORRANGE=LIMITED\n",
                      header.width, header.height, rateNum_, rateDen_, interlaceTag(header.scan), num, den,
                      chroma.c_str());
        line = text;
        return true;
    }

    int frames_;  // still to write, the current one included
    int rateNum_, rateDen_, aspectNum_, aspectDen_;
    OutputFile* out_ = nullptr;
    int width_ = 0, bits_ = 8, bytesPerSample_ = 1;
    int chromaColumnsStep_ = 1, chromaRowsStep_ = 1, chromaWidth_ = 0;
    int sampling_ = 444;
    PatternGen::Scan scan_ = PatternGen::Scan::Progressive;
    size_t frameBytes_ = 0;
    size_t cb_ = 0, cr_ = 0;                         // byte offsets of the chroma planes in a frame
    std::vector<uint8_t> luma_, chromaB_, chromaR_;  // one row in file form
    bool inFile_ = false;
    int64_t frameAt_ = 0;  // the current frame's offset in the file
    size_t heldFrameBudget_;
    std::unique_ptr<HeldFrame> held_;  // the frame in file form, when held in memory
    int passes_ = 1;                   // kPlanes: each frame's rows come once per plane
    int plane_ = 0;                    // the plane this pass writes
    int height_ = 0;
    int row_ = 0;
};

}  // namespace

namespace Y4mWriter {

bool takesBits(int bits) { return bits == 8 || bits == 10 || bits == 12 || bits == 16; }

std::unique_ptr<FullFrameWriter> make(int frames, int rateNum, int rateDen, int aspectNum, int aspectDen,
                                      size_t heldFrameBudget) {
    return std::make_unique<Writer>(frames, rateNum, rateDen, aspectNum, aspectDen, heldFrameBudget);
}

}  // namespace Y4mWriter
