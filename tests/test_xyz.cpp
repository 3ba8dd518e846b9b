// X'Y'Z' conversion of device pattern files: worked code values, properties of the curve, and
// what a converted file looks like on disk.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "TovaKelmReader.h"
#include "writeTovaKelm.h"

namespace {

struct Code3 {
    unsigned short a, b, c;
};

Sample rgb(unsigned short r, unsigned short g, unsigned short b) {
    Sample s;
    s.component[0] = r;
    s.component[1] = g;
    s.component[2] = b;
    return s;
}

Code3 toXYZ(unsigned short r, unsigned short g, unsigned short b) {
    const Sample in = rgb(r, g, b);
    Sample out;
    XYZColourSpaceConvert(&in, &out, 1, false);
    return {out.component[0], out.component[1], out.component[2]};
}

void expectCodes(const Code3& actual, unsigned short x, unsigned short y, unsigned short z) {
    EXPECT_EQ(actual.a, x);
    EXPECT_EQ(actual.b, y);
    EXPECT_EQ(actual.c, z);
}

TEST(XYZConversion, WorkedCodeValues) {
    expectCodes(toXYZ(3760, 3760, 3760), 3793, 3960, 3889);
    expectCodes(toXYZ(3760, 256, 256), 2900, 2170, 16);
    expectCodes(toXYZ(256, 3760, 256), 2417, 3492, 1222);
    expectCodes(toXYZ(256, 256, 3760), 2013, 1415, 3814);
    expectCodes(toXYZ(256, 256, 256), 16, 16, 16);
    expectCodes(toXYZ(0, 100, 255), 16, 16, 16);
    expectCodes(toXYZ(4095, 4000, 3761), 3793, 3960, 3889);  // super-white converts as white
}

TEST(XYZConversion, GreyScaleIsMonotonicAndInRange) {
    Code3 previous = toXYZ(0, 0, 0);
    for (unsigned short v = 1; v <= 4095; ++v) {
        const Code3 now = toXYZ(v, v, v);
        ASSERT_GE(now.a, previous.a) << v;
        ASSERT_GE(now.b, previous.b) << v;
        ASSERT_GE(now.c, previous.c) << v;
        ASSERT_GE(now.b, 16);
        ASSERT_LE(now.b, 4079);
        previous = now;
    }
}

class XYZFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        path = (std::filesystem::path(::testing::TempDir()) / ("xyz_" + std::to_string(getpid()) + ".xyz")).string();
    }
    void TearDown() override {
        std::filesystem::remove(path);
        Sample::b3Words = false;
    }
    std::string path;
};

TEST_F(XYZFileTest, ConvertedFileHasFormat3AndSixByteSamples) {
    TovaKelmPatternFile file;
    file.blockLayout = 1;
    file.lineWidth = 1920;
    file.singleBlock = false;
    file.format = TovaKelmPatternFile::Format_RGB;
    auto* line = new CompressedLine;
    const Sample bars[2] = {rgb(3760, 3760, 3760), rgb(3760, 256, 256)};
    line->AddArray(2, bars);
    line->AddRun(1918, rgb(256, 256, 3760));
    line->SetPercentage(1080);
    file.AddBlock(line);

    file.ConvertToXYZ();
    EXPECT_EQ(file.format, 3u);
    EXPECT_TRUE(Sample::b3Words);
    ASSERT_TRUE(file.Save(path));

    const std::vector<uint8_t> bytes = DeviceFileReader::readBytes(path);
    ASSERT_EQ(bytes.size(), 16u + 2 + 4 + (4 + 2 * 6) + (2 + 6));
    EXPECT_EQ(bytes[13], 3);
    const DeviceFileReader::File parsed = DeviceFileReader::parse(bytes, 3);
    ASSERT_EQ(parsed.blocks.size(), 1u);
    const DeviceFileReader::Block& block = parsed.blocks[0];
    EXPECT_EQ(block.percentage, 1080);
    ASSERT_EQ(block.sections.size(), 2u);
    EXPECT_EQ(block.sections[0].samples[0], (DeviceFileReader::Components{3793, 3960, 3889, 0}));
    EXPECT_EQ(block.sections[0].samples[1], (DeviceFileReader::Components{2900, 2170, 16, 0}));
    EXPECT_TRUE(block.sections[1].run);
    EXPECT_EQ(block.sections[1].length, 1918u);
    EXPECT_EQ(block.sections[1].samples[0], (DeviceFileReader::Components{2013, 1415, 3814, 0}));
}

TEST_F(XYZFileTest, EmptyFileStillBecomesXYZ) {
    TovaKelmPatternFile empty;
    empty.ConvertToXYZ();
    ASSERT_TRUE(empty.Save(path));
    const std::vector<uint8_t> bytes = DeviceFileReader::readBytes(path);
    ASSERT_EQ(bytes.size(), 16u);
    EXPECT_EQ(bytes[13], 3);
}

}  // namespace
