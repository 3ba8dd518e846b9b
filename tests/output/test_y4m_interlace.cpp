// Interlaced Y4M from the program, read back by ffmpeg: the field order it reports, each field's 4:2:0
// chroma as ffmpeg separates the fields, a clock's later frames, and the settings that are refused.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "TestFiles.h"

using namespace TestFiles;

namespace {

std::string headerLine(const std::string& path) {
    const std::string file = text(readFile(path));
    return file.substr(0, file.find('\n'));
}

std::string fieldOrder(const std::string& path) {
    return commandOutput("ffprobe -v error -show_entries stream=field_order -of csv=p=0 '" + path + "'");
}

// Frame n of a Y4M stream whose frames are all `frameBytes` long, without its marker.
Bytes y4mFrame(const Bytes& file, size_t frameBytes, int n) {
    const std::string marker = "FRAME\n";
    size_t at = text(file).find('\n') + 1 + marker.size();
    at += size_t(n) * (marker.size() + frameBytes);
    return Bytes(file.begin() + long(at), file.begin() + long(at + frameBytes));
}

}  // namespace

// It and Ib in the header, which ffprobe reports as top and bottom field first; Ip without the option.
TEST(Y4mInterlace, FfprobeReadsTheFieldOrder) {
    ScratchDir dir;
    const struct {
        const char* option;
        char tag;
        const char* order;
    } cases[] = {{"--interlaced tff", 't', "tt\n"}, {"--interlaced bff", 'b', "bb\n"}, {"", 'p', "progressive\n"}};
    for (const auto& c : cases)
        for (const char* format : {"-s 422 -b 10", "-s 420 -b 8"}) {
            SCOPED_TRACE(std::string(c.option) + " " + format);
            ASSERT_EQ(0, runProgram(dir.path(""), std::string("-d 320x180 -c 709 ") + format + " " + c.option +
                                                      " --frames 2 card.y4m"));
            const std::string header = headerLine(dir.path("card.y4m"));
            EXPECT_NE(std::string::npos, header.find(std::string(" I") + c.tag + " ")) << header;
            EXPECT_EQ(c.order, fieldOrder(dir.path("card.y4m")));
        }
}

// ffmpeg's field filter takes every other row of each plane, so each field it returns is a 4:2:0 picture
// of its own: its chroma must be the 4:2:2 chroma of the field's rows 0, 2, 4, ... (frame rows f, f + 4,
// ...), its luma the field's rows of the progressive frame.
TEST(Y4mInterlace, EachFieldIsAFourTwoZeroPictureOfItsOwnRows) {
    const int width = 320, height = 180, chromaWidth = width / 2;
    ScratchDir dir;
    const std::string settings = "-d 320x180 -c 709 -b 10 ";
    ASSERT_EQ(0, runProgram(dir.path(""), settings + "-s 420 --interlaced tff interlaced.y4m"));
    ASSERT_EQ(0, runProgram(dir.path(""), settings + "-s 422 full.y4m"));
    const std::vector<uint16_t> full = ffmpegSamples(dir.path("full.y4m"), "yuv422p10le", false);
    ASSERT_EQ(size_t(width) * height * 2, full.size());
    const auto fullSample = [&](int plane, int row, int column) {
        const size_t chromaPlane = size_t(chromaWidth) * height;
        if (plane == 0) return full[size_t(row) * width + size_t(column)];
        return full[size_t(width) * height + chromaPlane * size_t(plane - 1) + size_t(row) * chromaWidth +
                    size_t(column)];
    };
    for (int field = 0; field < 2; ++field) {
        SCOPED_TRACE(field == 0 ? "top field" : "bottom field");
        const std::string raw = commandOutput("ffmpeg -nostdin -v error -i '" + dir.path("interlaced.y4m") +
                                              "' -vf field=" + (field == 0 ? "top" : "bottom") +
                                              " -f rawvideo -pix_fmt yuv420p10le - 2>/dev/null");
        const int fieldRows = height / 2, chromaRows = fieldRows / 2;
        ASSERT_EQ(size_t(width * fieldRows + 2 * chromaWidth * chromaRows) * 2, raw.size());
        const auto got = [&](size_t index) {
            return uint16_t(uint8_t(raw[2 * index]) | uint8_t(raw[2 * index + 1]) << 8);
        };
        size_t index = 0;
        for (int r = 0; r < fieldRows; ++r)
            for (int x = 0; x < width; ++x, ++index)
                ASSERT_EQ(fullSample(0, 2 * r + field, x), got(index)) << "luma row " << r << " column " << x;
        for (int plane = 1; plane <= 2; ++plane)
            for (int r = 0; r < chromaRows; ++r)
                for (int c = 0; c < chromaWidth; ++c, ++index)
                    ASSERT_EQ(fullSample(plane, 4 * r + field, c), got(index))
                        << "plane " << plane << " chroma row " << r << " column " << c;
    }
}

// A clock's third frame, its clock rows rendered again, equals the first frame of a clip starting at
// its timecode.
TEST(Y4mInterlace, ClockFramesEqualStillsOfTheirTime) {
    ScratchDir dir;
    const std::string settings = "-d 320x180 -c 709 -s 420 -b 8 --interlaced bff --clock --rate 30000/1001 ";
    ASSERT_EQ(0, runProgram(dir.path(""), settings + "--timecode '00:00:59;28' --frames 3 clip.y4m"));
    ASSERT_EQ(0, runProgram(dir.path(""), settings + "--timecode '00:01:00;02' still.y4m"));
    const size_t frameBytes = 320 * 180 * 3 / 2;
    const Bytes clip = readFile(dir.path("clip.y4m")), still = readFile(dir.path("still.y4m"));
    EXPECT_TRUE(y4mFrame(clip, frameBytes, 2) == y4mFrame(still, frameBytes, 0));
    EXPECT_FALSE(y4mFrame(clip, frameBytes, 1) == y4mFrame(still, frameBytes, 0));
}

// Still formats have no field order: refused, with no file. Interlaced 4:2:0 needs whole pairs of each
// field's rows; an order that is not tff or bff is refused.
TEST(Y4mInterlace, RefusesWhatCannotBeInterlaced) {
    ScratchDir dir;
    const struct {
        const char* arguments;
        const char* file;
        const char* message;
    } cases[] = {
        {"--interlaced tff card.png", "card.png",
         "Error: --interlaced is for Y4M video: a png file is a progressive still with no field order"},
        {"-c 709 --interlaced bff card.dpx", "card.dpx", "a dpx file is a progressive still"},
        {"-c 709 -s 422 --interlaced bff --format tif card", "card", "a tif file is a progressive still"},
        {"-c 709 --interlaced top card.y4m", "card.y4m",
         "Error: --interlaced top is not tff (top field first) or bff (bottom field first)"},
        {"-d 720x486 -c 709 -s 420 --interlaced tff card.y4m", "card.y4m",
         "Error: Interlaced 4:2:0 needs a height that is a multiple of 4, not 486"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        EXPECT_EQ(1, runProgram(dir.path(""), c.arguments));
        EXPECT_NE(std::string::npos, text(readFile(dir.path("stderr"))).find(c.message))
            << text(readFile(dir.path("stderr")));
        EXPECT_FALSE(exists(dir.path(c.file)));
    }
    EXPECT_EQ(0, runProgram(dir.path(""), "-d 720x486 -c 709 -s 422 --interlaced tff ntsc.y4m"));
    EXPECT_EQ("tt\n", fieldOrder(dir.path("ntsc.y4m")));
}
