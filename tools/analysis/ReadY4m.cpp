// YUV4MPEG2 captures: the stream header's raster and colour space, then frame N's planes, the frames
// before it read past (a pipe cannot seek). Samples wider than 8 bits are 16-bit little-endian.
#include <algorithm>
#include <cstring>
#include <sstream>
#include <vector>

#include "analysis/CaptureReaders.h"

namespace pm5544::analysis::capture {

namespace {

// Longer header or frame lines than these are not Y4M.
constexpr size_t maximumHeaderLine = 4096;
constexpr const char* frameMarker = "FRAME";

struct ColourSpace {
    const char* tag;  // after "C", without the depth suffix
    int shiftX, shiftY;
    bool mono;
};
// 4:2:0 sitings all hold the same planes.
const ColourSpace colourSpaces[] = {
    {"420jpeg", 1, 1, false}, {"420mpeg2", 1, 1, false}, {"420paldv", 1, 1, false}, {"420", 1, 1, false},
    {"422", 1, 0, false},     {"444", 0, 0, false},      {"mono", 0, 0, true},
};
constexpr const char* defaultColourSpace = "420jpeg";

struct StreamHeader {
    int64_t width = 0, height = 0;
    int bits = 8;
    const ColourSpace* space = nullptr;
    bool interlaced = false;  // It or Ib: 4:2:0 chroma subsampled field by field
};

// One line up to '\n'; false at the end of the stream before any byte.
bool readLine(File& file, std::string& line) {
    line.clear();
    for (int c; (c = std::fgetc(file.stream())) != EOF;) {
        if (c == '\n') return true;
        if (line.size() == maximumHeaderLine)
            refuse(file.path(), "a header line longer than " + std::to_string(maximumHeaderLine) + " bytes");
        line += char(c);
    }
    if (!line.empty()) refuse(file.path(), "the file ends in a header line (truncated)");
    return false;
}

int64_t number(const std::string& token, const std::string& path) {
    const std::string digits = token.substr(1);
    if (digits.empty() || digits.size() > 9 || !std::all_of(digits.begin(), digits.end(), ::isdigit))
        refuse(path, "the header's " + token + " is no raster size");
    return std::stoll(digits);
}

// "420p10", "444p16", "mono", "mono16" ...
void readColourSpace(const std::string& tag, StreamHeader& header, const std::string& path) {
    for (const ColourSpace& space : colourSpaces) {
        const size_t length = std::strlen(space.tag);
        if (tag.compare(0, length, space.tag) != 0) continue;
        std::string depth = tag.substr(length);
        if (!depth.empty() && depth[0] == 'p') depth.erase(0, 1);
        if (depth.empty()) {
            header.bits = 8;
        } else if (depth == "9" || depth == "10" || depth == "12" || depth == "14" || depth == "16") {
            header.bits = std::stoi(depth);
        } else {
            continue;  // "420" must not take "420jpeg"'s place, nor a depth no Y4M names
        }
        header.space = &space;
        return;
    }
    refuse(path, "colour space C" + tag + " is not read (4:2:0, 4:2:2, 4:4:4 or mono, 8 to 16 bits)");
}

StreamHeader readStreamHeader(File& file) {
    std::string line;
    if (!readLine(file, line) || line.compare(0, 10, "YUV4MPEG2 ") != 0) refuse(file.path(), "not a Y4M stream");
    StreamHeader header;
    std::istringstream tokens(line.substr(10));
    bool colourGiven = false;
    for (std::string token; tokens >> token;) {
        if (token[0] == 'W') header.width = number(token, file.path());
        if (token[0] == 'H') header.height = number(token, file.path());
        if (token[0] == 'C') readColourSpace(token.substr(1), header, file.path()), colourGiven = true;
        if (token == "It" || token == "Ib") header.interlaced = true;
    }
    if (!colourGiven) readColourSpace(defaultColourSpace, header, file.path());
    return header;
}

// The frame's planes in bytes, computed in 64 bits: the raster is checked already.
struct FrameSize {
    uint64_t lumaBytes, chromaBytes;  // chroma: each of the two planes
};

FrameSize frameSize(const Picture& picture, bool mono) {
    const uint64_t sampleBytes = picture.bits > 8 ? 2 : 1;
    const uint64_t luma = uint64_t(picture.width) * uint64_t(picture.height) * sampleBytes;
    const uint64_t chroma = mono ? 0 : uint64_t(picture.planeWidth(1)) * uint64_t(picture.planeHeight(1)) * sampleBytes;
    return {luma, chroma};
}

// Reads to the end of a frame's "FRAME" line; false at the end of the stream.
bool readFrameLine(File& file) {
    std::string line;
    if (!readLine(file, line)) return false;
    if (line.compare(0, std::strlen(frameMarker), frameMarker) != 0)
        refuse(file.path(), "a frame without its FRAME line");
    return true;
}

void skipBytes(File& file, uint64_t bytes) {
    if (file.stream() != stdin && fseeko(file.stream(), off_t(bytes), SEEK_CUR) == 0) return;
    char chunk[65536];
    for (uint64_t left = bytes; left > 0;) {
        const size_t piece = size_t(std::min<uint64_t>(left, sizeof chunk));
        file.read(chunk, piece, "a frame");
        left -= piece;
    }
}

// One plane of samples into codes, each held within the depth.
void readPlane(File& file, std::vector<uint16_t>& plane, int bits, std::vector<uint8_t>& row, size_t rowSamples) {
    const size_t sampleBytes = bits > 8 ? 2 : 1;
    const uint16_t largest = uint16_t((1u << bits) - 1);
    row.resize(rowSamples * sampleBytes);
    for (size_t at = 0; at < plane.size(); at += rowSamples) {
        file.read(row.data(), row.size(), "a frame");
        for (size_t x = 0; x < rowSamples; ++x) {
            const unsigned value = sampleBytes == 1 ? row[x] : unsigned(row[2 * x]) | unsigned(row[2 * x + 1]) << 8;
            plane[at + x] = uint16_t(std::min(value, unsigned(largest)));
        }
    }
}

// Interlaced 4:2:0 holds chroma row r for field r % 2, from the field's rows 2 (r / 2) and 2 (r / 2) + 1:
// no progressive plane of half the rows says that, so each frame row gets its field's chroma row.
void giveEachRowItsFieldsChroma(Picture& picture) {
    const size_t width = size_t(picture.planeWidth(1));
    picture.chromaShiftY = 0;
    for (int c = 1; c < 3; ++c) {
        std::vector<uint16_t> fields = std::move(picture.planes[c]);
        const size_t lastRow = fields.size() / width - 1;
        picture.planes[c].resize(width * size_t(picture.height));
        for (int y = 0; y < picture.height; ++y) {
            const size_t fieldRow = std::min(size_t(y >> 2) * 2 + size_t(y & 1), lastRow);
            std::copy_n(&fields[fieldRow * width], width, &picture.planes[c][size_t(y) * width]);
        }
    }
}

}  // namespace

Picture readY4m(File& file, int64_t frame) {
    const StreamHeader header = readStreamHeader(file);
    Picture picture;
    setRaster(picture, file.path(), header.width, header.height);
    picture.bits = header.bits;
    picture.components = Components::YCbCr;
    picture.chromaShiftX = header.space->shiftX;
    picture.chromaShiftY = header.space->shiftY;
    const FrameSize size = frameSize(picture, header.space->mono);
    for (int64_t skipped = 0; skipped < frame; ++skipped) {
        if (!readFrameLine(file))
            refuse(file.path(),
                   "has " + std::to_string(skipped) + " frames: there is no frame " + std::to_string(frame));
        skipBytes(file, size.lumaBytes + 2 * size.chromaBytes);
    }
    if (!readFrameLine(file))
        refuse(file.path(),
               frame == 0 ? std::string("holds no frame")
                          : "has " + std::to_string(frame) + " frames: there is no frame " + std::to_string(frame));
    picture.allocate();
    std::vector<uint8_t> row;
    readPlane(file, picture.planes[0], picture.bits, row, size_t(picture.width));
    if (header.space->mono) {
        for (int c = 1; c < 3; ++c)
            std::fill(picture.planes[c].begin(), picture.planes[c].end(), 1u << (picture.bits - 1));
        return picture;
    }
    for (int c = 1; c < 3; ++c) readPlane(file, picture.planes[c], picture.bits, row, size_t(picture.planeWidth(1)));
    if (header.interlaced && picture.chromaShiftY == 1) giveEachRowItsFieldsChroma(picture);
    return picture;
}

}  // namespace pm5544::analysis::capture
