// YUV4MPEG2 writer. The stream is planar (all of Y', then Cb, then Cr) and the frame repeats, so the
// frame is kept in its file form as the rows arrive and written whole, as often as asked.
#include "output/writeY4m.h"

#include <cstdio>
#include <numeric>
#include <string>
#include <vector>

namespace {

constexpr int kSamplesPerPixel = 4;  // Cr, Y, Cb, A
constexpr int kCr = 0, kY = 1, kCb = 2;
const char kFrameMarker[] = "FRAME\n";

class Writer final : public ImageWriter {
public:
    Writer(int frames, int rateNum, int rateDen, int aspectNum, int aspectDen)
        : frames_(frames), rateNum_(rateNum), rateDen_(rateDen), aspectNum_(aspectNum), aspectDen_(aspectDen) {}

    bool begin(OutputFile& out, const ImageHeader& header) override {
        out_ = &out;
        width_ = header.width;
        shift_ = 16 - header.bits;
        bytesPerSample_ = header.bits > 8 ? 2 : 1;
        chromaColumnsStep_ = header.sampling == 444 ? 1 : 2;
        chromaRowsStep_ = header.sampling == 420 ? 2 : 1;
        chromaWidth_ = (header.width + chromaColumnsStep_ - 1) / chromaColumnsStep_;
        const size_t lumaSamples = static_cast<size_t>(header.width) * header.height;
        const size_t chromaSamples =
            static_cast<size_t>(chromaWidth_) * ((header.height + chromaRowsStep_ - 1) / chromaRowsStep_);
        frame_.assign((lumaSamples + 2 * chromaSamples) * bytesPerSample_, 0);
        cb_ = lumaSamples * bytesPerSample_;
        cr_ = cb_ + chromaSamples * bytesPerSample_;
        const std::string line = streamHeader(header);
        return out.write(line.data(), line.size());
    }

    bool writeRow(const uint16_t* row) override {
        const size_t lumaAt = static_cast<size_t>(width_) * row_;
        for (int x = 0; x < width_; ++x) put(lumaAt + x, row[kSamplesPerPixel * x + kY]);
        if (row_ % chromaRowsStep_ == 0) {
            const size_t chromaAt = static_cast<size_t>(chromaWidth_) * (row_ / chromaRowsStep_);
            for (int c = 0; c < chromaWidth_; ++c) {
                const uint16_t* pixel = row + kSamplesPerPixel * static_cast<size_t>(c * chromaColumnsStep_);
                put(cb_ / bytesPerSample_ + chromaAt + c, pixel[kCb]);
                put(cr_ / bytesPerSample_ + chromaAt + c, pixel[kCr]);
            }
        }
        ++row_;
        return true;
    }

    bool startNextFrame(int firstRow) override {
        row_ = firstRow;
        return --frames_ >= 1 && writeFrame();
    }

    // The frame as it stands, once for every frame still to come.
    bool finish() override {
        for (; frames_ > 0; --frames_)
            if (!writeFrame()) return false;
        return true;
    }

private:
    bool writeFrame() {
        return out_->write(kFrameMarker, sizeof kFrameMarker - 1) && out_->write(frame_.data(), frame_.size());
    }

    // "YUV4MPEG2 W1920 H1080 F25:1 Ip A1:1 C422p10 XCOLORRANGE=LIMITED"
    std::string streamHeader(const ImageHeader& header) const {
        // Pixel aspect = display aspect / picture aspect, in lowest terms.
        const long long parNum = static_cast<long long>(aspectNum_) * header.height;
        const long long parDen = static_cast<long long>(aspectDen_) * header.width;
        const long long divisor = std::gcd(parNum, parDen);
        const std::string depth = header.bits == 8 ? "" : "p" + std::to_string(header.bits);
        char line[160];
        std::snprintf(line, sizeof line, "YUV4MPEG2 W%d H%d F%d:%d Ip A%lld:%lld C%d%s XCOLORRANGE=LIMITED\n",
                      header.width, header.height, rateNum_, rateDen_, parNum / divisor, parDen / divisor,
                      header.sampling, depth.c_str());
        return line;
    }

    // Samples at the output depth, little-endian when two bytes.
    void put(size_t index, uint16_t sample) {
        const unsigned value = sample >> shift_;
        uint8_t* at = &frame_[index * bytesPerSample_];
        at[0] = static_cast<uint8_t>(value);
        if (bytesPerSample_ == 2) at[1] = static_cast<uint8_t>(value >> 8);
    }

    int frames_;  // still to write
    int rateNum_, rateDen_, aspectNum_, aspectDen_;
    OutputFile* out_ = nullptr;
    int width_ = 0, shift_ = 0, bytesPerSample_ = 1;
    int chromaColumnsStep_ = 1, chromaRowsStep_ = 1, chromaWidth_ = 0;
    std::vector<uint8_t> frame_;
    size_t cb_ = 0, cr_ = 0;  // byte offsets of the chroma planes
    int row_ = 0;
};

}  // namespace

namespace Y4mWriter {

bool takesBits(int bits) { return bits == 8 || bits == 10 || bits == 12 || bits == 16; }

std::unique_ptr<ImageWriter> make(int frames, int rateNum, int rateDen, int aspectNum, int aspectDen) {
    return std::make_unique<Writer>(frames, rateNum, rateDen, aspectNum, aspectDen);
}

}  // namespace Y4mWriter
