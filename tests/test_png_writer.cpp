// The PNG writer's files read back by a small reader of its own (chunks, CRCs, zlib, row filters) and by
// pngcheck.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "TestFiles.h"
#include "writePng.h"

namespace {

using namespace TestFiles;

struct DecodedPng {
    std::vector<std::string> chunks;
    Bytes header;                   // IHDR data: width, height, depth, colour type, compression, filter, interlace
    std::vector<uint16_t> samples;  // unfiltered big-endian 16-bit samples
};

int paeth(int a, int b, int c) {
    const int p = a + b - c, pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
    return pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
}

// Reads a 16-bit RGBA PNG: signature, every chunk's CRC, the inflated IDAT stream and the five row filters.
DecodedPng decodePng(const Bytes& file) {
    DecodedPng png;
    EXPECT_EQ(Bytes(file.begin(), file.begin() + 8), (Bytes{137, 80, 78, 71, 13, 10, 26, 10}));
    Bytes idat;
    size_t at = 8;
    for (; at + 12 <= file.size(); at += 12 + bigEndian(file, at)) {
        const uint32_t length = bigEndian(file, at);
        const std::string type(file.begin() + at + 4, file.begin() + at + 8);
        EXPECT_EQ(crc32(0, &file[at + 4], length + 4), bigEndian(file, at + 8 + length)) << type;
        png.chunks.push_back(type);
        Bytes& target = type == "IHDR" ? png.header : idat;
        if (type == "IHDR" || type == "IDAT") target.insert(target.end(), &file[at + 8], &file[at + 8 + length]);
    }
    EXPECT_EQ(at, file.size()) << "bytes after the last chunk";
    if (png.header.size() != 13) return png;

    const size_t rowBytes = bigEndian(png.header, 0) * 8, rows = bigEndian(png.header, 4);
    Bytes filtered((rowBytes + 1) * rows), out(rowBytes * rows);
    uLongf size = filtered.size();
    EXPECT_EQ(Z_OK, uncompress(filtered.data(), &size, idat.data(), idat.size()));
    EXPECT_EQ(filtered.size(), size);
    for (size_t y = 0; y < rows; ++y) {
        const uint8_t type = filtered[y * (rowBytes + 1)];
        for (size_t i = 0; i < rowBytes; ++i) {
            const int a = i >= 8 ? out[y * rowBytes + i - 8] : 0, b = y > 0 ? out[(y - 1) * rowBytes + i] : 0;
            const int c = y > 0 && i >= 8 ? out[(y - 1) * rowBytes + i - 8] : 0;
            const int predictor[] = {0, a, b, (a + b) / 2, paeth(a, b, c)};
            EXPECT_LT(type, 5) << "row " << y;
            out[y * rowBytes + i] = static_cast<uint8_t>(filtered[y * (rowBytes + 1) + 1 + i] + predictor[type % 5]);
        }
    }
    for (size_t i = 0; i + 1 < out.size(); i += 2) png.samples.push_back(static_cast<uint16_t>(bigEndian(out, i, 2)));
    return png;
}

// A smooth frame (for which libpng picks the predicting filters) with the extremes and 0x0102, which must be
// stored as the bytes 01 02, comes back unchanged; the YCbCr flag and the bit depth leave the file alone.
TEST(PngWriter, FrameRoundTripsAsSixteenBitRgba) {
    const int width = 64, height = 40;
    std::vector<uint16_t> frame;
    for (int i = 0; i < width * height * 4; ++i) frame.push_back(static_cast<uint16_t>(i % 256 * 250 + i / 256 * 77));
    frame[0] = 0x0102, frame[1] = 0xFFFF, frame[2] = 0;
    ScratchDir dir;
    const std::string rgb = dir.path("rgb.png"), ycbcr = dir.path("ycbcr.png");
    ASSERT_EQ(0, PngWriter::writePng(frame.data(), false, width, height, 12, rgb.c_str()));
    ASSERT_EQ(0, PngWriter::writePng(frame.data(), true, width, height, 8, ycbcr.c_str()));
    const Bytes file = readFile(rgb);
    EXPECT_EQ(file, readFile(ycbcr));

    const DecodedPng png = decodePng(file);
    ASSERT_GE(png.chunks.size(), 3u);
    EXPECT_EQ("IHDR", png.chunks.front());
    EXPECT_EQ("IEND", png.chunks.back());
    for (size_t i = 1; i + 1 < png.chunks.size(); ++i) EXPECT_EQ("IDAT", png.chunks[i]);
    EXPECT_EQ(hex("00000040 00000028 10 06 00 00 00"), png.header);  // 64 x 40, 16-bit RGBA, not interlaced
    EXPECT_EQ(frame, png.samples);
    EXPECT_TRUE(!toolAvailable("pngcheck") || std::system(("pngcheck -q '" + rgb + "' >/dev/null").c_str()) == 0);
}

// A missing directory, a height libpng refuses after the file was opened, and a full disk met by libpng's
// own writes (noise does not compress) all return -1 and leave no file; the sanitizer build checks that
// the row copies are freed on the error path.
TEST(PngWriter, FailuresReturnMinusOneAndLeaveNoFile) {
    ScratchDir dir;
    std::vector<uint16_t> noise = noiseSamples(64 * 64 * 4);
    const auto write = [&](int height, const std::string& path) {
        return PngWriter::writePng(noise.data(), false, 64, height, 16, path.c_str());
    };
    EXPECT_EQ(-1, write(4, dir.path("no/such/dir.png")));
    EXPECT_EQ(-1, write(0, dir.path("empty.png")));
    EXPECT_FALSE(exists(dir.path("no/such/dir.png")) || exists(dir.path("empty.png")));
    EXPECT_TRUE(!std::filesystem::is_character_file("/dev/full") || write(64, "/dev/full") == -1);
}

}  // namespace
