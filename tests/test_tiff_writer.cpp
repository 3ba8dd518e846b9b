// The TIFF writer's files read back with libtiff and with tiffdump, which shows the raw tags whether or
// not the private tag is registered.
#include <gtest/gtest.h>
#include <tiffio.h>

#include <string>
#include <tuple>
#include <vector>

#include "TestFiles.h"
#include "writeTiff.h"

namespace {

using namespace TestFiles;
using LineRepeats = std::vector<std::pair<int, int>>;

unsigned char* bytesOf(std::vector<uint16_t>& buffer) { return reinterpret_cast<unsigned char*>(buffer.data()); }

// The fields libtiff reads back, as "width x length, then compression, photometric, planar configuration,
// bits and samples, strips, directories", and the pixels of the single strip.
std::string readTiff(const std::string& path, std::vector<uint16_t>& pixels) {
    TIFF* tif = TIFFOpen(path.c_str(), "r");
    if (tif == nullptr) return "cannot open";
    uint32_t width = 0, length = 0;
    TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &length);
    std::string fields = std::to_string(width) + "x" + std::to_string(length);
    for (ttag_t tag : {TIFFTAG_COMPRESSION, TIFFTAG_PHOTOMETRIC, TIFFTAG_PLANARCONFIG, TIFFTAG_BITSPERSAMPLE,
                       TIFFTAG_SAMPLESPERPIXEL}) {
        uint16_t value = 0;
        TIFFGetField(tif, tag, &value);
        fields += " " + std::to_string(value);
    }
    fields += " " + std::to_string(TIFFNumberOfStrips(tif)) + " " + std::to_string(TIFFNumberOfDirectories(tif));
    pixels.resize(size_t(width) * length * 3);
    const tmsize_t bytes = static_cast<tmsize_t>(pixels.size() * 2);
    if (TIFFReadEncodedStrip(tif, 0, pixels.data(), bytes) != bytes) pixels.clear();
    TIFFClose(tif);
    return fields;
}

// The line tiffdump prints for a tag, e.g. "65456 (0xffb0) ASCII (2) 16<[[0,10],[11,1]]\0>"; "" if absent.
std::string dumpedTag(const std::string& path, const std::string& tagStart) {
    const std::string dump = "\n" + commandOutput("tiffdump '" + path + "' 2>&1");
    const size_t at = dump.find("\n" + tagStart);
    return at == std::string::npos ? "" : dump.substr(at + 1, dump.find('\n', at + 1) - at - 1);
}

// ImageLength is the number of stored lines passed in; the bit depth argument changes nothing in the file;
// several files in one run all carry the private tag, which holds the list as compact JSON.
TEST(TiffWriter, FieldsPixelsAndLineRepeatTag) {
    // YCbCr flag, width, height, line repeats, libtiff's fields (LZW, photometric 2 or 6, contiguous,
    // 16 bits, 3 samples, 1 strip, 1 directory), the private tag as tiffdump shows it, and subsampling.
    const std::tuple<bool, int, int, LineRepeats, const char*, const char*, const char*> cases[] = {
        {false, 12, 4, {{0, 10}, {11, 1}}, "12x4 5 2 1 16 3 1 1", "16<[[0,10],[11,1]]\\0>", ""},
        {true, 7, 3, {{0, 2}, {3, 1}}, "7x3 5 6 1 16 3 1 1", "14<[[0,2],[3,1]]\\0>", "2<1 1>"},
        {false, 5, 2, {{-1, 1080}}, "5x2 5 2 1 16 3 1 1", "12<[[-1,1080]]\\0>", ""},
        {false, 5, 2, {}, "5x2 5 2 1 16 3 1 1", "", ""}};
    const bool dumpable = toolAvailable("tiffdump");
    ScratchDir dir;
    const std::string at8 = dir.path("at8.tif"), at12 = dir.path("at12.tif");
    for (const auto& [ycbcr, width, height, repeats, fields, repeatTag, subsampling] : cases) {
        std::vector<uint16_t> buffer = distinctSamples(size_t(width) * height * 3, 7);
        ASSERT_EQ(0, TiffWriter::writeTiff(bytesOf(buffer), ycbcr, width, height, 8, repeats, at8.c_str()));
        ASSERT_EQ(0, TiffWriter::writeTiff(bytesOf(buffer), ycbcr, width, height, 12, repeats, at12.c_str()));
        EXPECT_EQ(readFile(at8), readFile(at12));
        std::vector<uint16_t> pixels;
        EXPECT_EQ(fields, readTiff(at8, pixels));
        EXPECT_EQ(buffer, pixels) << fields;
        if (!dumpable) continue;
        EXPECT_EQ(*repeatTag ? "65456 (0xffb0) ASCII (2) " + std::string(repeatTag) : "", dumpedTag(at8, "65456 "));
        EXPECT_EQ(*subsampling ? "YCbCrSubsampling (530) SHORT (3) " + std::string(subsampling) : "",
                  dumpedTag(at8, "YCbCrSubsampling"));
        EXPECT_EQ("PlanarConfig (284) SHORT (3) 1<1>", dumpedTag(at8, "PlanarConfig"));
    }
}

// A path in a missing directory and a strip that does not fit under a file-size limit (the header does)
// are reported on stderr, return -1 and leave no file.
TEST(TiffWriter, FailuresAreReportedAndLeaveNoFile) {
    ScratchDir dir;
    std::vector<uint16_t> noise = noiseSamples(64 * 32 * 3);
    const std::string missing = dir.path("missing/x.tif"), truncated = dir.path("truncated.tif");
    const auto write = [&](const std::string& path) {
        return TiffWriter::writeTiff(bytesOf(noise), false, 64, 32, 10, {}, path.c_str());
    };
    int result = 0;
    EXPECT_NE(std::string::npos, stderrOf([&] { result = write(missing); }).find("Could not create tiff file\n"));
    EXPECT_EQ(-1, result);
    const std::string message = stderrOf([&] {
        FileSizeLimit limit(1024);
        result = write(truncated);
    });
    EXPECT_NE(std::string::npos, message.find("Could not write image\n")) << message;
    EXPECT_EQ(-1, result);
    EXPECT_FALSE(exists(missing) || exists(truncated));
}

}  // namespace
