// X'Y'Z' conversion of device pattern files: worked code values, the shape of the grey scale, and what
// a converted file looks like on disk.
#include <gtest/gtest.h>

#include <array>

#include "TestFiles.h"
#include "writeTovaKelm.h"

namespace {

using Code3 = std::array<unsigned short, 3>;

Sample rgb(const Code3& c) {
    Sample s;
    s.component[0] = c[0], s.component[1] = c[1], s.component[2] = c[2];
    return s;
}

Code3 toXYZ(const Code3& in) {
    const Sample from = rgb(in);
    Sample out;
    XYZColourSpaceConvert(&from, &out, 1, false);
    return {out.component[0], out.component[1], out.component[2]};
}

TEST(XYZConversion, WorkedCodeValues) {
    const Code3 cases[][2] = {{{3760, 3760, 3760}, {3793, 3960, 3889}},  // studio white
                              {{4095, 4000, 3761}, {3793, 3960, 3889}},  // super-white converts as white
                              {{3760, 256, 256}, {2900, 2170, 16}},      // red
                              {{256, 3760, 256}, {2417, 3492, 1222}},    // green
                              {{256, 256, 3760}, {2013, 1415, 3814}},    // blue
                              {{256, 256, 256}, {16, 16, 16}},           // black
                              {{0, 100, 255}, {16, 16, 16}}};            // below black
    for (const auto& c : cases) EXPECT_EQ(c[1], toXYZ(c[0])) << c[0][0] << " " << c[0][1] << " " << c[0][2];
}

TEST(XYZConversion, GreyScaleIsMonotonicAndInRange) {
    Code3 previous = toXYZ({0, 0, 0});
    for (unsigned short v = 1; v <= 4095; ++v) {
        const Code3 now = toXYZ({v, v, v});
        for (int i = 0; i < 3; ++i) {
            ASSERT_GE(now[i], previous[i]) << v;
            ASSERT_TRUE(now[i] >= 16 && now[i] <= 4079) << v;
        }
        previous = now;
    }
}

// Samples are converted in place (a run keeps its length and its one sample) and written in three words
// under format 3; a file without lines still becomes XYZ.
TEST(XYZConversion, ConvertedFilesOnDisk) {
    TestFiles::ScratchDir dir;
    TovaKelmPatternFile file, empty;
    file.blockLayout = 1, file.lineWidth = 1920, file.singleBlock = false, file.format = 1;
    auto* line = new CompressedLine;
    const Sample whiteRed[2] = {rgb({3760, 3760, 3760}), rgb({3760, 256, 256})};
    line->AddArray(2, whiteRed);
    line->AddRun(1918, rgb({256, 256, 3760}));
    line->SetPercentage(1080);
    file.AddBlock(line);
    file.ConvertToXYZ();
    empty.ConvertToXYZ();
    EXPECT_EQ(3u, file.format);
    EXPECT_TRUE(Sample::b3Words);
    ASSERT_TRUE(file.Save(dir.path("bars.xyz")));
    ASSERT_TRUE(empty.Save(dir.path("empty.xyz")));
    // 1080 lines, 2 sections: white (3793, 3960, 3889) and red (2900, 2170, 16), then 1918 x blue (2013, 1415, 3814).
    EXPECT_EQ(TestFiles::hex("50415454 45524E00 01 0780 01 0C 03 0000 | 0001 | 0438 0002 | 0000 0004 0ED1 0F78 0F31"
                             "0B54 087A 0010 | 0EFC 07DD 0587 0EE6"),
              TestFiles::readFile(dir.path("bars.xyz")));
    EXPECT_EQ(TestFiles::hex("50415454 45524E00 00 0000 00 0C 03 0000"), TestFiles::readFile(dir.path("empty.xyz")));
    Sample::b3Words = false;
}

}  // namespace
