// The PNG writer's files read back by a small reader of its own (chunks, zlib, row filters) and by
// pngcheck.
#include "writePng.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::vector<uint8_t> readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

uint32_t bigEndian32(const uint8_t* p) {
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | p[3];
}

struct DecodedPng {
    std::vector<std::string> chunkTypes;
    uint32_t width = 0, height = 0;
    int bitDepth = 0, colourType = 0, compression = -1, filter = -1, interlace = -1;
    std::vector<uint8_t> pixelBytes;  // unfiltered rows, as stored (big-endian samples)
    std::vector<uint16_t> samples;    // the same, as 16-bit values
};

uint8_t paeth(int a, int b, int c) {
    const int p = a + b - c, pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
    return static_cast<uint8_t>(pa <= pb && pa <= pc ? a : pb <= pc ? b : c);
}

// Undoes the five PNG row filters in place; bpp is the number of bytes per pixel.
void unfilterRows(const std::vector<uint8_t>& filtered, size_t rowBytes, size_t rows, size_t bpp,
                  std::vector<uint8_t>& out) {
    out.assign(rowBytes * rows, 0);
    for (size_t y = 0; y < rows; ++y) {
        const uint8_t type = filtered[y * (rowBytes + 1)];
        const uint8_t* in = &filtered[y * (rowBytes + 1) + 1];
        uint8_t* row = &out[y * rowBytes];
        const uint8_t* above = y > 0 ? &out[(y - 1) * rowBytes] : nullptr;
        for (size_t i = 0; i < rowBytes; ++i) {
            const int a = i >= bpp ? row[i - bpp] : 0;
            const int b = above ? above[i] : 0;
            const int c = above && i >= bpp ? above[i - bpp] : 0;
            int predictor = 0;
            switch (type) {
                case 0: predictor = 0; break;
                case 1: predictor = a; break;
                case 2: predictor = b; break;
                case 3: predictor = (a + b) / 2; break;
                case 4: predictor = paeth(a, b, c); break;
                default: ADD_FAILURE() << "filter type " << int(type); return;
            }
            row[i] = static_cast<uint8_t>(in[i] + predictor);
        }
    }
}

// Parses a 16-bit RGBA PNG: checks the signature and every chunk CRC, inflates the IDAT data with
// zlib and undoes the filters.
DecodedPng decodePng(const std::vector<uint8_t>& file) {
    static const uint8_t kSignature[8] = {137, 80, 78, 71, 13, 10, 26, 10};
    DecodedPng png;
    EXPECT_GE(file.size(), 8u);
    EXPECT_TRUE(std::equal(kSignature, kSignature + 8, file.begin()));
    std::vector<uint8_t> idat;
    size_t at = 8;
    while (at + 12 <= file.size()) {
        const uint32_t length = bigEndian32(&file[at]);
        const std::string type(reinterpret_cast<const char*>(&file[at + 4]), 4);
        const uint8_t* data = &file[at + 8];
        const uLong crc = crc32(crc32(0, &file[at + 4], 4), data, length);
        EXPECT_EQ(crc, bigEndian32(data + length)) << type;
        png.chunkTypes.push_back(type);
        if (type == "IHDR") {
            png.width = bigEndian32(data);
            png.height = bigEndian32(data + 4);
            png.bitDepth = data[8];
            png.colourType = data[9];
            png.compression = data[10];
            png.filter = data[11];
            png.interlace = data[12];
        } else if (type == "IDAT") {
            idat.insert(idat.end(), data, data + length);
        }
        at += 12 + length;
    }
    EXPECT_EQ(at, file.size()) << "trailing bytes after the last chunk";

    const size_t rowBytes = size_t(png.width) * 8;
    std::vector<uint8_t> filtered((rowBytes + 1) * png.height);
    uLongf inflatedSize = filtered.size();
    EXPECT_EQ(Z_OK, uncompress(filtered.data(), &inflatedSize, idat.data(), idat.size()));
    EXPECT_EQ(filtered.size(), inflatedSize);
    unfilterRows(filtered, rowBytes, png.height, 8, png.pixelBytes);
    for (size_t i = 0; i + 1 < png.pixelBytes.size(); i += 2)
        png.samples.push_back(static_cast<uint16_t>(png.pixelBytes[i] << 8 | png.pixelBytes[i + 1]));
    return png;
}

bool toolAvailable(const char* tool) {
    return std::system((std::string("command -v ") + tool + " >/dev/null 2>&1").c_str()) == 0;
}

// A frame whose samples all differ and cover the whole 16-bit range.
std::vector<unsigned short> testFrame(int width, int height) {
    std::vector<unsigned short> frame(size_t(width) * height * 4);
    for (size_t i = 0; i < frame.size(); ++i)
        frame[i] = static_cast<unsigned short>(i * 40503u + 0x0102);
    return frame;
}

class PngWriterTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/pm5544_png_XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(pattern));
        dir = pattern;
    }
    void TearDown() override { fs::remove_all(dir); }
    fs::path dir;
};

TEST_F(PngWriterTest, SamplesComeBackUnchangedInBigEndianRgba) {
    const int width = 7, height = 3;
    std::vector<unsigned short> frame = testFrame(width, height);
    frame[0] = 0x0102;
    frame[3] = 0xFFFF;
    frame[4] = 0;
    const fs::path file = dir / "frame.png";
    ASSERT_EQ(0, PngWriter::writePng(frame.data(), false, width, height, 12, file.c_str()));

    const DecodedPng png = decodePng(readFile(file));
    EXPECT_EQ((std::vector<std::string>{"IHDR", "IDAT", "IEND"}), png.chunkTypes);
    EXPECT_EQ(uint32_t(width), png.width);
    EXPECT_EQ(uint32_t(height), png.height);
    EXPECT_EQ(16, png.bitDepth);
    EXPECT_EQ(6, png.colourType);
    EXPECT_EQ(0, png.compression);
    EXPECT_EQ(0, png.filter);
    EXPECT_EQ(0, png.interlace);
    EXPECT_EQ(0x01, png.pixelBytes[0]);
    EXPECT_EQ(0x02, png.pixelBytes[1]);
    EXPECT_EQ(std::vector<uint16_t>(frame.begin(), frame.end()), png.samples);
}

// A larger smooth frame makes libpng choose the predicting filters and split nothing but IDAT.
TEST_F(PngWriterTest, GradientFrameRoundTripsAndPassesPngcheck) {
    const int width = 64, height = 40;
    std::vector<unsigned short> frame(size_t(width) * height * 4);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < 4; ++c)
                frame[(size_t(y) * width + x) * 4 + c] = static_cast<unsigned short>(x * 1000 + y * 300 + c * 77);
    const fs::path file = dir / "gradient.png";
    ASSERT_EQ(0, PngWriter::writePng(frame.data(), true, width, height, 10, file.c_str()));

    const DecodedPng png = decodePng(readFile(file));
    ASSERT_GE(png.chunkTypes.size(), 3u);
    EXPECT_EQ("IHDR", png.chunkTypes.front());
    EXPECT_EQ("IEND", png.chunkTypes.back());
    for (size_t i = 1; i + 1 < png.chunkTypes.size(); ++i)
        EXPECT_EQ("IDAT", png.chunkTypes[i]);
    EXPECT_EQ(std::vector<uint16_t>(frame.begin(), frame.end()), png.samples);

    if (!toolAvailable("pngcheck"))
        GTEST_SKIP() << "pngcheck not installed";
    const int status = std::system(("pngcheck -q '" + file.string() + "' >/dev/null").c_str());
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));
}

TEST_F(PngWriterTest, ColourFlagAndBitDepthDoNotChangeTheFile) {
    std::vector<unsigned short> frame = testFrame(12, 4);
    const fs::path rgb = dir / "rgb.png", ycbcr = dir / "ycbcr.png";
    ASSERT_EQ(0, PngWriter::writePng(frame.data(), false, 12, 4, 12, rgb.c_str()));
    ASSERT_EQ(0, PngWriter::writePng(frame.data(), true, 12, 4, 8, ycbcr.c_str()));
    EXPECT_EQ(readFile(rgb), readFile(ycbcr));
    EXPECT_EQ(16, decodePng(readFile(ycbcr)).bitDepth);
}

TEST_F(PngWriterTest, FailuresLeaveNoFile) {
    std::vector<unsigned short> frame = testFrame(4, 4);
    const fs::path missing = dir / "no" / "such" / "dir.png";
    EXPECT_EQ(-1, PngWriter::writePng(frame.data(), false, 4, 4, 16, missing.c_str()));
    EXPECT_FALSE(fs::exists(missing));

    // libpng rejects a zero height after the file was opened: the empty file is removed.
    const fs::path empty = dir / "empty.png";
    EXPECT_EQ(-1, PngWriter::writePng(frame.data(), false, 4, 0, 16, empty.c_str()));
    EXPECT_FALSE(fs::exists(empty));
}

// Noise does not compress, so libpng's own writes hit the full device and its error path runs
// (the sanitizer build also checks that the row copies are freed there).
TEST_F(PngWriterTest, FullDiskIsReported) {
    if (!fs::is_character_file("/dev/full"))
        GTEST_SKIP() << "no /dev/full";
    const int width = 64, height = 64;
    std::vector<unsigned short> frame(size_t(width) * height * 4);
    uint32_t state = 12345;
    for (unsigned short& sample : frame) {
        state = state * 1664525u + 1013904223u;
        sample = static_cast<unsigned short>(state >> 16);
    }
    EXPECT_EQ(-1, PngWriter::writePng(frame.data(), false, width, height, 16, "/dev/full"));
    EXPECT_TRUE(fs::is_character_file("/dev/full"));
}

}  // namespace
