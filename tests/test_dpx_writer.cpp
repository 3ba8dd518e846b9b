// The DPX writer's files parsed byte by byte here, and decoded by ffmpeg where it is installed.
#include "writeDPX.h"

#include <gtest/gtest.h>

#include <cctype>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

const size_t kDataOffset = 8192;

std::vector<uint8_t> readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

uint32_t le32(const std::vector<uint8_t>& bytes, size_t at) {
    return uint32_t(bytes[at]) | uint32_t(bytes[at + 1]) << 8 | uint32_t(bytes[at + 2]) << 16 |
           uint32_t(bytes[at + 3]) << 24;
}

uint16_t le16(const std::vector<uint8_t>& bytes, size_t at) { return uint16_t(bytes[at] | bytes[at + 1] << 8); }

std::string textField(const std::vector<uint8_t>& bytes, size_t at, size_t size) {
    std::string text(reinterpret_cast<const char*>(&bytes[at]), size);
    return text.substr(0, text.find('\0'));
}

// Four samples per pixel; every sample differs, and odd pixels carry chroma of their own so a
// 4:2:2 file shows where its chroma came from.
std::vector<unsigned short> testFrame(int width, int height) {
    std::vector<unsigned short> frame(size_t(width) * height * 4);
    for (size_t i = 0; i < frame.size(); ++i)
        frame[i] = static_cast<unsigned short>(i * 40503u + 0x1234);
    return frame;
}

unsigned short sampleAt(const std::vector<unsigned short>& frame, int width, int x, int y, int s) {
    return frame[(size_t(y) * width + x) * 4 + s];
}

// The 10-bit data of one line, read from the low bits of each word upward.
std::vector<uint16_t> unpackLine(const std::vector<uint8_t>& file, size_t lineStart, size_t words) {
    std::vector<uint16_t> data;
    for (size_t w = 0; w < words; ++w) {
        const uint32_t word = le32(file, lineStart + 4 * w);
        EXPECT_EQ(0u, word & 3u) << "padding bits of word " << w;
        data.push_back(uint16_t(word >> 2 & 0x3FF));
        data.push_back(uint16_t(word >> 12 & 0x3FF));
        data.push_back(uint16_t(word >> 22 & 0x3FF));
    }
    return data;
}

// Expected 4:2:2 data of one line: Cb Y Cr Y per pixel pair from the even pixel's chroma, 2 x width
// samples, zero after them up to the end of the last word.
std::vector<uint16_t> expected422Line(const std::vector<unsigned short>& frame, int width, int y, size_t words) {
    std::vector<uint16_t> data;
    for (int x = 0; x < width; x += 2) {
        data.push_back(sampleAt(frame, width, x, y, 2) >> 6);
        data.push_back(sampleAt(frame, width, x, y, 1) >> 6);
        data.push_back(sampleAt(frame, width, x, y, 0) >> 6);
        data.push_back(x + 1 < width ? sampleAt(frame, width, x + 1, y, 1) >> 6 : 0);
    }
    data.resize(2 * size_t(width));
    data.resize(words * 3, 0);
    return data;
}

// The zone part of a "YYYY:MM:DD:hh:mm:ss:ZONE" stamp, or "?" when the stamp does not have that form.
std::string timeStampZone(const std::string& stamp) {
    const std::string shape = "####:##:##:##:##:##:";
    if (stamp.size() <= shape.size())
        return "?";
    for (size_t i = 0; i < shape.size(); ++i)
        if (shape[i] == '#' ? !std::isdigit(static_cast<unsigned char>(stamp[i])) : stamp[i] != shape[i])
            return "?";
    return stamp.substr(shape.size());
}

bool toolAvailable(const char* tool) {
    return std::system((std::string("command -v ") + tool + " >/dev/null 2>&1").c_str()) == 0;
}

std::vector<uint8_t> commandOutput(const std::string& command) {
    std::vector<uint8_t> output;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        return output;
    uint8_t chunk[4096];
    size_t count;
    while ((count = fread(chunk, 1, sizeof chunk, pipe)) > 0)
        output.insert(output.end(), chunk, chunk + count);
    pclose(pipe);
    return output;
}

class DpxWriterTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/pm5544_dpx_XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(pattern));
        dir = pattern;
    }
    void TearDown() override { fs::remove_all(dir); }

    std::vector<uint8_t> write(std::vector<unsigned short>& frame, DPX::eFormat format, int width, int height,
                               const std::string& name = "frame.dpx") {
        const fs::path file = dir / name;
        EXPECT_EQ(0, DPXWriter::writeDPX(frame.data(), format, width, height, 10, file.c_str(), metadata));
        return readFile(file);
    }
    fs::path dir;
    DPX::Metadata metadata;
};

TEST_F(DpxWriterTest, HeadersHoldTheTabledValuesAndNothingElse) {
    std::vector<unsigned short> frame = testFrame(12, 4);
    fs::create_directories(dir / "out" / "dir");
    metadata.creator = "pm5544 tests";
    metadata.project = "card";
    metadata.copyright = "none";
    const std::vector<uint8_t> file = write(frame, DPX::kRGB, 12, 4, "out/dir/test.dpx");
    ASSERT_EQ(kDataOffset + 12 * 4 * 4, file.size());

    EXPECT_EQ((std::vector<uint8_t>{0x58, 0x50, 0x44, 0x53}), std::vector<uint8_t>(file.begin(), file.begin() + 4));
    EXPECT_EQ(8192u, le32(file, 4));
    EXPECT_EQ(std::string("V2.0\0\0\0\0", 8), std::string(file.begin() + 8, file.begin() + 16));
    EXPECT_EQ(file.size(), le32(file, 16));
    EXPECT_EQ(768u, le32(file, 24));
    EXPECT_EQ("test.dpx", textField(file, 36, 100));
    EXPECT_NE("?", timeStampZone(textField(file, 136, 24))) << textField(file, 136, 24);
    EXPECT_EQ("pm5544 tests", textField(file, 160, 100));
    EXPECT_EQ("card", textField(file, 260, 200));
    EXPECT_EQ("none", textField(file, 460, 200));
    EXPECT_EQ(0xFFFFFFFFu, le32(file, 660));

    EXPECT_EQ(0, le16(file, 768));
    EXPECT_EQ(1, le16(file, 770));
    EXPECT_EQ(12u, le32(file, 772));
    EXPECT_EQ(4u, le32(file, 776));
    EXPECT_EQ(64u, le32(file, 784));
    EXPECT_EQ(0u, le32(file, 788));
    EXPECT_EQ(940u, le32(file, 792));
    EXPECT_EQ(0x3F800000u, le32(file, 796));
    EXPECT_EQ(50, file[800]);
    EXPECT_EQ(6, file[801]);
    EXPECT_EQ(6, file[802]);
    EXPECT_EQ(10, file[803]);
    EXPECT_EQ(1, le16(file, 804));
    EXPECT_EQ(0, le16(file, 806));
    EXPECT_EQ(8192u, le32(file, 808));

    // Every byte outside the fields above is zero.
    const std::pair<size_t, size_t> filled[] = {{0, 12},    {16, 20},   {24, 28},   {36, 660},
                                                {660, 664}, {770, 780}, {784, 788}, {792, 806},
                                                {808, 812}};
    std::vector<bool> mayBeSet(kDataOffset, false);
    for (const auto& range : filled)
        for (size_t i = range.first; i < range.second; ++i)
            mayBeSet[i] = true;
    for (size_t i = 0; i < kDataOffset; ++i) {
        if (!mayBeSet[i]) {
            ASSERT_EQ(0, file[i]) << "byte " << i;
        }
    }
}

TEST_F(DpxWriterTest, TextFieldsAreCutToTheirSize) {
    std::vector<unsigned short> frame = testFrame(2, 1);
    metadata.creator = std::string(150, 'c');
    metadata.project = "next field";
    const std::string longName = std::string(120, 'n') + ".dpx";
    const std::vector<uint8_t> file = write(frame, DPX::kRGB, 2, 1, longName);
    EXPECT_EQ(std::string(100, 'n'), std::string(file.begin() + 36, file.begin() + 136));
    EXPECT_EQ(std::string(100, 'c'), std::string(file.begin() + 160, file.begin() + 260));
    EXPECT_EQ("next field", textField(file, 260, 200));
    EXPECT_TRUE(std::isdigit(file[136]));
}

// A long zone abbreviation would overrun the 24-byte time field: it is cut to 23 characters.
TEST_F(DpxWriterTest, LongTimeZoneStaysInsideTheTimeField) {
    const char* savedTz = std::getenv("TZ");
    const std::string saved = savedTz ? savedTz : "";
    setenv("TZ", "<ABCDEFGHIJKL>-3", 1);
    tzset();
    std::vector<unsigned short> frame = testFrame(2, 1);
    const std::vector<uint8_t> file = write(frame, DPX::kRGB, 2, 1);
    savedTz ? setenv("TZ", saved.c_str(), 1) : unsetenv("TZ");
    tzset();

    const std::string stamp = textField(file, 136, 24);
    EXPECT_EQ(23u, stamp.size());
    EXPECT_EQ("ABC", timeStampZone(stamp)) << stamp;
}

TEST_F(DpxWriterTest, WordPackingKeepsTheTopTenBits) {
    std::vector<unsigned short> frame = {0xFFFF, 0, 0, 0xFFFF,  0, 0, 0xFFFF, 0,
                                         0x003F, 0x0040, 0x007F, 0};
    const std::vector<uint8_t> file = write(frame, DPX::kCbYCr, 3, 1);
    EXPECT_EQ(102, file[800]);
    EXPECT_EQ(0xFFC00000u, le32(file, kDataOffset));
    EXPECT_EQ(0x00000FFCu, le32(file, kDataOffset + 4));
    EXPECT_EQ(0x00001004u, le32(file, kDataOffset + 8));
}

TEST_F(DpxWriterTest, OneWordPerPixelForRgbAnd444) {
    const int width = 7, height = 3;
    std::vector<unsigned short> frame = testFrame(width, height);
    for (DPX::eFormat format : {DPX::kRGB, DPX::kCbYCr}) {
        const std::vector<uint8_t> file = write(frame, format, width, height);
        ASSERT_EQ(kDataOffset + size_t(width) * 4 * height, file.size());
        for (int y = 0; y < height; ++y) {
            const std::vector<uint16_t> data = unpackLine(file, kDataOffset + size_t(y) * width * 4, width);
            for (int x = 0; x < width; ++x) {
                EXPECT_EQ(sampleAt(frame, width, x, y, 0) >> 6, data[3 * x + 2]);
                EXPECT_EQ(sampleAt(frame, width, x, y, 1) >> 6, data[3 * x + 1]);
                EXPECT_EQ(sampleAt(frame, width, x, y, 2) >> 6, data[3 * x]);
            }
        }
    }
}

// Widths 12 (whole groups of six) and 7 (a group plus a tail of one pair and one pixel).
TEST_F(DpxWriterTest, Packs422WithChromaOfEvenPixels) {
    for (int width : {12, 7}) {
        const int height = 4;
        const size_t wordsPerLine = (2 * size_t(width) + 2) / 3;
        std::vector<unsigned short> frame = testFrame(width, height);
        const std::vector<uint8_t> file = write(frame, DPX::kCbYCrY, width, height);
        EXPECT_EQ(100, file[800]);
        ASSERT_EQ(kDataOffset + wordsPerLine * 4 * height, file.size()) << width;
        EXPECT_EQ(file.size(), le32(file, 16));
        for (int y = 0; y < height; ++y)
            EXPECT_EQ(expected422Line(frame, width, y, wordsPerLine),
                      unpackLine(file, kDataOffset + size_t(y) * wordsPerLine * 4, wordsPerLine))
                << "width " << width << " line " << y;
    }
}

TEST_F(DpxWriterTest, HdLineAndFileSizes) {
    std::vector<unsigned short> frame(size_t(1920) * 1080 * 4, 0x8000);
    const std::vector<uint8_t> rgb = write(frame, DPX::kRGB, 1920, 1080, "rgb.dpx");
    EXPECT_EQ(8302592u, rgb.size());
    EXPECT_EQ(8302592u, le32(rgb, 16));
    const std::vector<uint8_t> yuv = write(frame, DPX::kCbYCrY, 1920, 1080, "yuv.dpx");
    EXPECT_EQ(8192u + 5120u * 1080u, yuv.size());
    EXPECT_EQ(yuv.size(), le32(yuv, 16));
}

// Descriptors with a header size but no packing get zero lines of that size.
TEST_F(DpxWriterTest, UnpackedDescriptorsWriteZeroLines) {
    std::vector<unsigned short> frame = testFrame(12, 2);
    const std::vector<uint8_t> file = write(frame, DPX::kRGBA, 12, 2);
    EXPECT_EQ(51, file[800]);
    ASSERT_EQ(kDataOffset + 64 * 2, file.size());
    for (size_t i = kDataOffset; i < file.size(); ++i)
        ASSERT_EQ(0, file[i]);
}

TEST_F(DpxWriterTest, FfmpegDecodesRgbFile) {
    if (!toolAvailable("ffmpeg"))
        GTEST_SKIP() << "ffmpeg not installed";
    const int width = 12, height = 4;
    std::vector<unsigned short> frame = testFrame(width, height);
    const fs::path file = dir / "ffmpeg.dpx";
    ASSERT_EQ(0, DPXWriter::writeDPX(frame.data(), DPX::kRGB, width, height, 10, file.c_str(), metadata));
    const std::vector<uint8_t> rgb48 =
        commandOutput("ffmpeg -nostdin -v error -i '" + file.string() + "' -f rawvideo -pix_fmt rgb48le - 2>/dev/null");
    ASSERT_EQ(size_t(width) * height * 6, rgb48.size());
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < 3; ++c) {
                const size_t at = ((size_t(y) * width + x) * 3 + c) * 2;
                EXPECT_EQ(sampleAt(frame, width, x, y, c) >> 6, le16(rgb48, at) >> 6) << x << "," << y << "," << c;
            }
}

// Makes writes past `bytes` fail with EFBIG (instead of a signal) for the guard's lifetime.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &saved_);
        previousHandler_ = std::signal(SIGXFSZ, SIG_IGN);
        rlimit limited = saved_;
        limited.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limited);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &saved_);
        std::signal(SIGXFSZ, previousHandler_);
    }

private:
    rlimit saved_{};
    void (*previousHandler_)(int) = nullptr;
};

TEST_F(DpxWriterTest, WriteFailuresAreReportedAndLeaveNoFile) {
    std::vector<unsigned short> frame = testFrame(64, 64);
    const fs::path missing = dir / "missing" / "x.dpx";
    EXPECT_EQ(-1, DPXWriter::writeDPX(frame.data(), DPX::kRGB, 64, 64, 10, missing.c_str(), metadata));
    EXPECT_FALSE(fs::exists(missing));

    const fs::path truncated = dir / "truncated.dpx";
    int result = 0;
    {
        FileSizeLimit limit(10000);
        result = DPXWriter::writeDPX(frame.data(), DPX::kRGB, 64, 64, 10, truncated.c_str(), metadata);
    }
    EXPECT_EQ(-1, result);
    EXPECT_FALSE(fs::exists(truncated));

    if (!fs::is_character_file("/dev/full"))
        GTEST_SKIP() << "no /dev/full";
    EXPECT_EQ(-1, DPXWriter::writeDPX(frame.data(), DPX::kRGB, 64, 64, 10, "/dev/full", metadata));
    EXPECT_TRUE(fs::is_character_file("/dev/full"));
}

}  // namespace
