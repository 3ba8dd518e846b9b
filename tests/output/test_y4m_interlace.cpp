// Interlaced Y4M from the program, read back by ffmpeg: the field order, each field's 4:2:0 chroma, a
// clock's later frames, and what is refused.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "TestFiles.h"

using namespace TestFiles;

namespace {

std::string fieldOrder(const std::string& path) {
    return commandOutput("ffprobe -v error -show_entries stream=field_order -of csv=p=0 '" + path + "'");
}

// One field of a 10-bit 4:2:0 file as ffmpeg's field filter separates it, as 16-bit samples.
std::vector<uint16_t> fieldSamples(const std::string& path, const char* field) {
    const std::string raw = commandOutput("ffmpeg -nostdin -v error -i '" + path + "' -vf field=" + field +
                                          " -f rawvideo -pix_fmt yuv420p10le - 2>/dev/null");
    std::vector<uint16_t> samples;
    for (size_t i = 0; i + 1 < raw.size(); i += 2)
        samples.push_back(uint16_t(uint8_t(raw[i]) | uint8_t(raw[i + 1]) << 8));
    return samples;
}

}  // namespace

// It and Ib in the header, which ffprobe reads as top or bottom field first.
TEST(Y4mInterlace, FfprobeReadsTheFieldOrder) {
    ScratchDir dir;
    for (const auto& [order, read] : {std::pair{"tff", "tt\n"}, {"bff", "bb\n"}}) {
        ASSERT_EQ(0, runProgram(dir.path(""), std::string("-d 320x180 -c 709 -s 422 -b 10 --interlaced ") + order +
                                                  " --frames 2 card.y4m"));
        EXPECT_EQ(read, fieldOrder(dir.path("card.y4m")));
    }
}

// ffmpeg's field filter takes every other row of each plane, so each field it returns is a 4:2:0
// picture of its own: its chroma is the 4:2:2 chroma of the field's rows 0, 2, 4, ... (frame rows f,
// f + 4, ...) and its luma the field's rows.
TEST(Y4mInterlace, EachFieldIsAFourTwoZeroPictureOfItsOwnRows) {
    const size_t width = 320, height = 180, chromaWidth = width / 2;
    ScratchDir dir;
    ASSERT_EQ(0, runProgram(dir.path(""), "-d 320x180 -c 709 -b 10 -s 420 --interlaced tff fields.y4m"));
    ASSERT_EQ(0, runProgram(dir.path(""), "-d 320x180 -c 709 -b 10 -s 422 full.y4m"));
    const std::vector<uint16_t> full = ffmpegSamples(dir.path("full.y4m"), "yuv422p10le", false);
    for (size_t field = 0; field < 2; ++field) {
        const std::vector<uint16_t> got = fieldSamples(dir.path("fields.y4m"), field == 0 ? "top" : "bottom");
        std::vector<uint16_t> expected;
        for (size_t y = field; y < height; y += 2)
            expected.insert(expected.end(), &full[y * width], &full[(y + 1) * width]);
        for (size_t plane = 0; plane < 2; ++plane)
            for (size_t y = field; y < height; y += 4) {
                const uint16_t* row = &full[width * height + (plane * height + y) * chromaWidth];
                expected.insert(expected.end(), row, row + chromaWidth);
            }
        EXPECT_TRUE(expected == got) << "field " << field << ": " << got.size() << " samples";
    }
}

// A clock's third frame, its changed rows written again, equals a still of its time.
TEST(Y4mInterlace, ClockFramesEqualStillsOfTheirTime) {
    ScratchDir dir;
    const std::string settings = "-d 320x180 -c 709 -s 420 -b 8 --interlaced bff --clock --rate 30000/1001 ";
    ASSERT_EQ(0, runProgram(dir.path(""), settings + "--timecode '00:00:59;28' --frames 3 clip.y4m"));
    ASSERT_EQ(0, runProgram(dir.path(""), settings + "--timecode '00:01:00;02' still.y4m"));
    const std::string clip = text(readFile(dir.path("clip.y4m"))), still = text(readFile(dir.path("still.y4m")));
    const size_t frameBytes = still.size() - still.find("FRAME\n");
    EXPECT_EQ(still.substr(still.size() - frameBytes), clip.substr(clip.size() - frameBytes));
}

// Still formats have no field order; interlaced 4:2:0 needs whole pairs of each field's rows.
TEST(Y4mInterlace, RefusesWhatCannotBeInterlaced) {
    ScratchDir dir;
    const struct {
        const char* arguments;
        const char* message;
    } cases[] = {
        {"-c 709 --interlaced tff card.dpx", "Error: --interlaced is for Y4M video: a dpx file is a progressive still"},
        {"-c 709 --interlaced top card.y4m", "Error: --interlaced top is not tff (top field first) or bff"},
        {"-d 720x486 -c 709 -s 420 --interlaced tff card.y4m", "multiple of 4, not 486"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(1, runProgram(dir.path(""), c.arguments)) << c.arguments;
        EXPECT_NE(std::string::npos, text(readFile(dir.path("stderr"))).find(c.message)) << c.arguments;
    }
    EXPECT_FALSE(exists(dir.path("card.dpx")) || exists(dir.path("card.y4m")));
}
