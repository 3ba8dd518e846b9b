// The DPX writer's files parsed byte by byte here, and decoded by ffmpeg where it is installed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <ctime>
#include <string>
#include <tuple>
#include <vector>

#include "TestFiles.h"
#include "writeDPX.h"

namespace {

using namespace TestFiles;

const size_t kDataOffset = 8192;

std::string textField(const Bytes& file, size_t at, size_t size) {
    const std::string text(file.begin() + at, file.begin() + at + size);
    return text.substr(0, text.find('\0'));
}

// The zone of a "YYYY:MM:DD:hh:mm:ss:ZONE" stamp, or "?" when the stamp has another form.
std::string timeStampZone(const std::string& stamp) {
    const std::string shape = "dddd:dd:dd:dd:dd:dd:";
    for (size_t i = 0; i < shape.size(); ++i)
        if (i >= stamp.size() ||
            (shape[i] == 'd' ? !std::isdigit(static_cast<unsigned char>(stamp[i])) : stamp[i] != ':'))
            return "?";
    return stamp.size() > shape.size() ? stamp.substr(shape.size()) : "?";
}

int write(std::vector<uint16_t>& frame, DPX::eFormat format, int width, int height, const std::string& path,
          DPX::Metadata metadata = {}) {
    return DPXWriter::writeDPX(frame.data(), format, width, height, 10, path.c_str(), metadata);
}

// The 10-bit data of one stored line, read from the low bits of each word upward.
std::vector<uint16_t> unpackLine(const Bytes& file, size_t lineBytes, int y) {
    std::vector<uint16_t> data;
    for (size_t at = kDataOffset + lineBytes * y; at < kDataOffset + lineBytes * (y + 1); at += 4) {
        const uint32_t word = littleEndian(file, at);
        EXPECT_EQ(0u, word & 3u) << "padding bits at byte " << at;
        for (int shift : {2, 12, 22}) data.push_back(uint16_t(word >> shift & 0x3FF));
    }
    return data;
}

// What a stored line holds, low bits first: B G R (or Cb Y Cr) per pixel for descriptors 50 and 102;
// Cb Y Cr Y per pixel pair from the even pixel's chroma for 100 (2 x width samples); zero after the data
// and for the descriptors the writer does not pack.
std::vector<uint16_t> expectedLine(const std::vector<uint16_t>& frame, DPX::eFormat format, int width, int y,
                                   size_t lineBytes) {
    const auto s = [&](int x, int c) { return uint16_t(frame[(size_t(y) * width + x) * 4 + c] >> 6); };
    std::vector<uint16_t> data;
    for (int x = 0; x < width && format != DPX::kCbYCrY && format != DPX::kRGBA; ++x)
        data.insert(data.end(), {s(x, 2), s(x, 1), s(x, 0)});
    for (int x = 0; x < width && format == DPX::kCbYCrY; x += 2)
        data.insert(data.end(), {s(x, 2), s(x, 1), s(x, 0), x + 1 < width ? s(x + 1, 1) : uint16_t(0)});
    if (format == DPX::kCbYCrY) data.resize(2 * size_t(width));
    data.resize(lineBytes / 4 * 3, 0);
    return data;
}

TEST(DpxWriter, HeaderFieldsAndZerosElsewhere) {
    ScratchDir dir;
    std::filesystem::create_directories(dir.path("out/dir"));
    std::vector<uint16_t> frame = distinctSamples(12 * 4 * 4);
    ASSERT_EQ(0, write(frame, DPX::kRGB, 12, 4, dir.path("out/dir/test.dpx"), {"pm5544 tests", "card", "none"}));
    const Bytes file = readFile(dir.path("out/dir/test.dpx"));
    ASSERT_EQ(kDataOffset + 12 * 4 * 4, file.size());

    // Each field is checked, then cleared in a copy of the header, which must be all zero afterwards. At 0:
    // "XPDS", data at 8192, "V2.0", file size 8384, no ditto key, generic header 768; at 660: not encrypted;
    // at 768: orientation 0, one element, 12 x 4, unsigned, reference codes 64 and 940 for 0.0 and 1.0,
    // descriptor 50, BT.709 transfer and colorimetry, 10 bits, packing 1, no encoding, data at 8192.
    const auto text = [](const std::string& t) { return Bytes(t.begin(), t.end()); };
    const std::pair<size_t, Bytes> fields[] = {
        {0, hex("58504453 00200000 56322E30 00000000 C0200000 00000000 00030000")},
        {36, text("test.dpx")},
        {160, text("pm5544 tests")},
        {260, text("card")},
        {460, text("none")},
        {660, hex("FFFFFFFF")},
        {768, hex("0000 0100 0C000000 04000000 00000000 40000000 00000000 AC030000 0000803F 32 06 06 0A 0100 0000"
                  "00200000")}};
    Bytes rest(file.begin(), file.begin() + kDataOffset);
    for (const auto& [at, expected] : fields) {
        EXPECT_EQ(expected, Bytes(file.begin() + at, file.begin() + at + expected.size())) << "offset " << at;
        std::fill(rest.begin() + at, rest.begin() + at + expected.size(), 0);
    }
    EXPECT_NE("?", timeStampZone(textField(file, 136, 24))) << textField(file, 136, 24);
    std::fill(rest.begin() + 136, rest.begin() + 160, 0);
    const auto stray = std::find_if(rest.begin(), rest.end(), [](uint8_t b) { return b != 0; });
    EXPECT_EQ(rest.end(), stray) << "non-zero byte at " << (stray - rest.begin());
}

// Names longer than their field are cut without a terminator; a long zone abbreviation is cut so the
// time stamp keeps 23 characters and its terminator.
TEST(DpxWriter, TextFieldsAreCutToTheirSize) {
    ScratchDir dir;
    const std::string savedTz = std::getenv("TZ") ? std::getenv("TZ") : "", path = dir.path(std::string(120, 'n'));
    const bool hadTz = std::getenv("TZ") != nullptr;
    setenv("TZ", "<ABCDEFGHIJKL>-3", 1);
    tzset();
    std::vector<uint16_t> frame(8);
    ASSERT_EQ(0, write(frame, DPX::kRGB, 2, 1, path, {std::string(150, 'c'), "next field", ""}));
    hadTz ? setenv("TZ", savedTz.c_str(), 1) : unsetenv("TZ");
    tzset();

    const Bytes file = readFile(path);
    EXPECT_EQ(std::string(100, 'n'), std::string(file.begin() + 36, file.begin() + 136));
    EXPECT_EQ(std::string(100, 'c'), std::string(file.begin() + 160, file.begin() + 260));
    EXPECT_EQ("next field", textField(file, 260, 200));
    const std::string stamp = textField(file, 136, 24);
    EXPECT_EQ(23u, stamp.size());
    EXPECT_EQ("ABC", timeStampZone(stamp)) << stamp;
}

// The top ten bits of each sample, without rounding, in bits 31-22, 21-12 and 11-2: the words 0xFFC00000,
// 0x00000FFC and 0x00001004, stored little-endian.
TEST(DpxWriter, WordPackingKeepsTheTopTenBits) {
    ScratchDir dir;
    std::vector<uint16_t> frame = {0xFFFF, 0, 0, 0xFFFF, 0, 0, 0xFFFF, 0, 0x003F, 0x0040, 0x007F, 0};
    ASSERT_EQ(0, write(frame, DPX::kCbYCr, 3, 1, dir.path("w.dpx")));
    const Bytes file = readFile(dir.path("w.dpx"));
    EXPECT_EQ(hex("0000C0FF FC0F0000 04100000"), Bytes(file.begin() + kDataOffset, file.end()));
}

// Line sizes, file sizes and every line's data by descriptor: width 12 packs 4:2:2 in whole groups of six,
// width 7 leaves a tail of one pair and one pixel, padded to a whole word.
TEST(DpxWriter, LinesAreSizedAndPackedByDescriptor) {
    // Descriptor, width, height, line size, file size.
    const std::tuple<DPX::eFormat, int, int, size_t, size_t> cases[] = {
        {DPX::kRGB, 7, 3, 28, 8192 + 84},           {DPX::kCbYCr, 7, 3, 28, 8192 + 84},
        {DPX::kCbYCrY, 12, 4, 32, 8192 + 128},      {DPX::kCbYCrY, 7, 4, 20, 8192 + 80},
        {DPX::kRGBA, 12, 2, 64, 8192 + 128},        {DPX::kRGB, 1920, 1080, 7680, 8302592},
        {DPX::kCbYCrY, 1920, 2, 5120, 8192 + 10240}};
    ScratchDir dir;
    for (const auto& [format, width, height, lineBytes, fileSize] : cases) {
        SCOPED_TRACE("descriptor " + std::to_string(format) + " width " + std::to_string(width));
        std::vector<uint16_t> frame = distinctSamples(size_t(width) * height * 4, 0x1234);
        ASSERT_EQ(0, write(frame, format, width, height, dir.path("f.dpx")));
        const Bytes file = readFile(dir.path("f.dpx"));
        ASSERT_EQ(fileSize, file.size());
        EXPECT_EQ(fileSize, littleEndian(file, 16));
        EXPECT_EQ(format, file.at(800));
        for (int row : {0, 1, 2, 3, height - 1}) {
            const int y = std::min(row, height - 1);
            ASSERT_EQ(expectedLine(frame, format, width, y, lineBytes), unpackLine(file, lineBytes, y)) << y;
        }
    }
}

TEST(DpxWriter, FfmpegDecodesAnRgbFile) {
    if (!toolAvailable("ffmpeg")) GTEST_SKIP() << "ffmpeg not installed";
    ScratchDir dir;
    const int width = 12, height = 4;
    std::vector<uint16_t> frame = distinctSamples(width * height * 4, 0x1234);
    ASSERT_EQ(0, write(frame, DPX::kRGB, width, height, dir.path("f.dpx")));
    const std::string rgb48 = commandOutput("ffmpeg -nostdin -v error -i '" + dir.path("f.dpx") +
                                            "' -f rawvideo -pix_fmt rgb48le - 2>/dev/null");
    const Bytes decoded(rgb48.begin(), rgb48.end());
    ASSERT_EQ(size_t(width) * height * 6, decoded.size());
    for (size_t i = 0; i < decoded.size() / 2; ++i)
        EXPECT_EQ(frame[i / 3 * 4 + i % 3] >> 6, littleEndian(decoded, 2 * i, 2) >> 6) << "sample " << i;
}

// A missing directory, a file-size limit below the image and a full device: -1 and no file left.
TEST(DpxWriter, WriteFailuresReturnMinusOneAndLeaveNoFile) {
    ScratchDir dir;
    std::vector<uint16_t> frame = distinctSamples(64 * 64 * 4);
    EXPECT_EQ(-1, write(frame, DPX::kRGB, 64, 64, dir.path("missing/x.dpx")));
    int limited = 0;
    {
        FileSizeLimit limit(10000);
        limited = write(frame, DPX::kRGB, 64, 64, dir.path("limited.dpx"));
    }
    EXPECT_EQ(-1, limited);
    EXPECT_FALSE(exists(dir.path("missing/x.dpx")) || exists(dir.path("limited.dpx")));
    EXPECT_TRUE(!std::filesystem::is_character_file("/dev/full") || write(frame, DPX::kRGB, 64, 64, "/dev/full") == -1);
}

}  // namespace
