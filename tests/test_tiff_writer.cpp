// The TIFF writer's files read back with libtiff's reader and with tiffdump, which shows the raw
// tags whether or not the private tag is registered.
#include "writeTiff.h"

#include <gtest/gtest.h>
#include <tiffio.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

using LineRepeats = std::vector<std::pair<int, int>>;

bool toolAvailable(const char* tool) {
    return std::system((std::string("command -v ") + tool + " >/dev/null 2>&1").c_str()) == 0;
}

std::string commandOutput(const std::string& command) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        return output;
    char chunk[4096];
    size_t count;
    while ((count = fread(chunk, 1, sizeof chunk, pipe)) > 0)
        output.append(chunk, count);
    pclose(pipe);
    return output;
}

std::vector<uint8_t> readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Three distinct 16-bit samples per pixel.
std::vector<uint16_t> lineBuffer(int width, int height) {
    std::vector<uint16_t> buffer(size_t(width) * height * 3);
    for (size_t i = 0; i < buffer.size(); ++i)
        buffer[i] = static_cast<uint16_t>(i * 40503u + 7);
    return buffer;
}

// Pseudo-random samples, which LZW cannot shrink much.
std::vector<uint16_t> noiseBuffer(int width, int height) {
    std::vector<uint16_t> buffer(size_t(width) * height * 3);
    uint32_t state = 12345;
    for (uint16_t& sample : buffer) {
        state = state * 1664525u + 1013904223u;
        sample = static_cast<uint16_t>(state >> 16);
    }
    return buffer;
}

unsigned char* bytesOf(std::vector<uint16_t>& buffer) { return reinterpret_cast<unsigned char*>(buffer.data()); }

struct TiffFields {
    uint32_t width = 0, length = 0;
    uint16_t compression = 0, photometric = 0, planar = 0, bits = 0, samples = 0;
    uint32_t strips = 0;
    int directories = 0;
    std::vector<uint16_t> pixels;
};

TiffFields readTiff(const fs::path& file) {
    TiffFields fields;
    TIFF* tif = TIFFOpen(file.c_str(), "r");
    EXPECT_NE(nullptr, tif);
    if (tif == nullptr)
        return fields;
    TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &fields.width);
    TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &fields.length);
    TIFFGetField(tif, TIFFTAG_COMPRESSION, &fields.compression);
    TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &fields.photometric);
    TIFFGetField(tif, TIFFTAG_PLANARCONFIG, &fields.planar);
    TIFFGetField(tif, TIFFTAG_BITSPERSAMPLE, &fields.bits);
    TIFFGetField(tif, TIFFTAG_SAMPLESPERPIXEL, &fields.samples);
    fields.strips = TIFFNumberOfStrips(tif);
    fields.directories = TIFFNumberOfDirectories(tif);
    fields.pixels.resize(size_t(fields.width) * fields.length * 3);
    const tmsize_t bytes = static_cast<tmsize_t>(fields.pixels.size() * 2);
    EXPECT_EQ(bytes, TIFFReadEncodedStrip(tif, 0, fields.pixels.data(), bytes));
    TIFFClose(tif);
    return fields;
}

// tiffdump prints a tag as e.g. "65456 (0xffb0) ASCII (2) 16<[[0,10],[11,1]]\0>".
std::string dumpedTag(const std::string& dump, const std::string& tagStart) {
    const size_t at = dump.find("\n" + tagStart);
    if (at == std::string::npos)
        return "";
    return dump.substr(at + 1, dump.find('\n', at + 1) - at - 1);
}

class TiffWriterTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/pm5544_tiff_XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(pattern));
        dir = pattern;
    }
    void TearDown() override { fs::remove_all(dir); }
    std::string tiffdump(const fs::path& file) { return commandOutput("tiffdump '" + file.string() + "' 2>&1"); }
    fs::path dir;
};

TEST_F(TiffWriterTest, RgbFrameRoundTripsWithItsFields) {
    const int width = 12, height = 4;
    std::vector<uint16_t> buffer = lineBuffer(width, height);
    const fs::path file = dir / "rgb.tif";
    ASSERT_EQ(0, TiffWriter::writeTiff(bytesOf(buffer), false, width, height, 10, LineRepeats{{0, 10}, {11, 1}},
                                       file.c_str()));
    const TiffFields fields = readTiff(file);
    EXPECT_EQ(uint32_t(width), fields.width);
    EXPECT_EQ(uint32_t(height), fields.length);
    EXPECT_EQ(COMPRESSION_LZW, fields.compression);
    EXPECT_EQ(PHOTOMETRIC_RGB, fields.photometric);
    EXPECT_EQ(PLANARCONFIG_CONTIG, fields.planar);
    EXPECT_EQ(16, fields.bits);
    EXPECT_EQ(3, fields.samples);
    EXPECT_EQ(1u, fields.strips);
    EXPECT_EQ(1, fields.directories);
    EXPECT_EQ(buffer, fields.pixels);

    if (!toolAvailable("tiffdump"))
        GTEST_SKIP() << "tiffdump not installed";
    const std::string dump = tiffdump(file);
    EXPECT_EQ("65456 (0xffb0) ASCII (2) 16<[[0,10],[11,1]]\\0>", dumpedTag(dump, "65456 "));
    EXPECT_EQ("", dumpedTag(dump, "YCbCrSubsampling")) << dump;
}

// ImageLength is the number of stored lines passed in, whatever raster they stand for.
TEST_F(TiffWriterTest, YCbCrFrameIsMarkedWithoutSubsampling) {
    const int width = 7, height = 3;
    std::vector<uint16_t> buffer = lineBuffer(width, height);
    const fs::path file = dir / "ycbcr.tif";
    ASSERT_EQ(0, TiffWriter::writeTiff(bytesOf(buffer), true, width, height, 12, LineRepeats{{0, 2}, {3, 1}},
                                       file.c_str()));
    const TiffFields fields = readTiff(file);
    EXPECT_EQ(PHOTOMETRIC_YCBCR, fields.photometric);
    EXPECT_EQ(uint32_t(height), fields.length);
    EXPECT_EQ(16, fields.bits);
    EXPECT_EQ(buffer, fields.pixels);

    if (!toolAvailable("tiffdump"))
        GTEST_SKIP() << "tiffdump not installed";
    const std::string dump = tiffdump(file);
    EXPECT_EQ("YCbCrSubsampling (530) SHORT (3) 2<1 1>", dumpedTag(dump, "YCbCrSubsampling"));
    EXPECT_EQ("PlanarConfig (284) SHORT (3) 1<1>", dumpedTag(dump, "PlanarConfig"));
    EXPECT_EQ("65456 (0xffb0) ASCII (2) 14<[[0,2],[3,1]]\\0>", dumpedTag(dump, "65456 "));
}

TEST_F(TiffWriterTest, LineRepeatTagOnlyWhenTheListHasEntries) {
    if (!toolAvailable("tiffdump"))
        GTEST_SKIP() << "tiffdump not installed";
    std::vector<uint16_t> buffer = lineBuffer(5, 2);
    const fs::path first = dir / "first.tif", empty = dir / "empty.tif", second = dir / "second.tif";
    ASSERT_EQ(0, TiffWriter::writeTiff(bytesOf(buffer), false, 5, 2, 8, LineRepeats{{4, 9}}, first.c_str()));
    ASSERT_EQ(0, TiffWriter::writeTiff(bytesOf(buffer), false, 5, 2, 8, LineRepeats{}, empty.c_str()));
    ASSERT_EQ(0, TiffWriter::writeTiff(bytesOf(buffer), false, 5, 2, 8, LineRepeats{{-1, 1080}}, second.c_str()));
    EXPECT_EQ("65456 (0xffb0) ASCII (2) 8<[[4,9]]\\0>", dumpedTag(tiffdump(first), "65456 "));
    EXPECT_EQ("", dumpedTag(tiffdump(empty), "65456 "));
    EXPECT_EQ("65456 (0xffb0) ASCII (2) 12<[[-1,1080]]\\0>", dumpedTag(tiffdump(second), "65456 "));
}

TEST_F(TiffWriterTest, BitDepthArgumentDoesNotChangeTheFile) {
    std::vector<uint16_t> buffer = lineBuffer(6, 3);
    const fs::path at8 = dir / "at8.tif", at12 = dir / "at12.tif";
    ASSERT_EQ(0, TiffWriter::writeTiff(bytesOf(buffer), true, 6, 3, 8, LineRepeats{{0, 1}}, at8.c_str()));
    ASSERT_EQ(0, TiffWriter::writeTiff(bytesOf(buffer), true, 6, 3, 12, LineRepeats{{0, 1}}, at12.c_str()));
    EXPECT_EQ(readFile(at8), readFile(at12));
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

TEST_F(TiffWriterTest, FailuresAreReportedAndLeaveNoFile) {
    std::vector<uint16_t> buffer = noiseBuffer(64, 32);
    const fs::path missing = dir / "missing" / "x.tif";
    testing::internal::CaptureStderr();
    EXPECT_EQ(-1, TiffWriter::writeTiff(bytesOf(buffer), false, 64, 32, 10, LineRepeats{}, missing.c_str()));
    EXPECT_NE(std::string::npos, testing::internal::GetCapturedStderr().find("Could not create tiff file\n"));
    EXPECT_FALSE(fs::exists(missing));

    // The header fits under the limit, the strip of noise does not.
    const fs::path truncated = dir / "truncated.tif";
    testing::internal::CaptureStderr();
    int result = 0;
    {
        FileSizeLimit limit(1024);
        result = TiffWriter::writeTiff(bytesOf(buffer), false, 64, 32, 10, LineRepeats{}, truncated.c_str());
    }
    EXPECT_EQ(-1, result);
    EXPECT_NE(std::string::npos, testing::internal::GetCapturedStderr().find("Could not write image\n"));
    EXPECT_FALSE(fs::exists(truncated));
}

}  // namespace
