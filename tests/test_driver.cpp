// The command line and the render driver: option parsing in-process; messages, streams, exit
// statuses and the files left behind through the built program.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <tuple>
#include <vector>

#include "PatternRender.h"
#include "TestFiles.h"

namespace {

using PatternRender::Settings;
using TestFiles::exists;

Settings parse(std::vector<std::string> words, bool expectOk = true) {
    words.insert(words.begin(), "pm5544");
    std::vector<char*> argv;
    for (std::string& w : words) argv.push_back(w.data());
    Settings s;
    EXPECT_EQ(PatternRender::parseCommandLine(int(argv.size()), argv.data(), s), expectOk);
    return s;
}

using TestFiles::Outcome;
class Program : public TestFiles::ProgramTest {};

TEST(CommandLine, DefaultsValuesAndQuirks) {
    Settings s = parse({"card.png"});
    EXPECT_EQ(std::vector<int>({s.width, s.height, s.bits, s.aspectNum, s.aspectDen, s.axes, s.sampling, s.quadrant,
                                s.edgeTaperOff}),
              std::vector<int>({1920, 1080, 12, 16, 9, 0, 444, 0, 0}));
    s = parse({"-d", "3840x2160", "-a", "4x3", "-b", "10", "-c", "709", "-s", "422", "-q", "BR", "-o", "7", "f"});
    EXPECT_EQ(std::vector<int>(
                  {s.width, s.height, s.aspectNum, s.aspectDen, s.bits, s.axes, s.sampling, s.quadrant, s.optionValue}),
              std::vector<int>({3840, 2160, 4, 3, 10, 3, 422, 2, 7}));
    // A value that parses partly, or not at all, changes only what it parsed.
    s = parse({"-d", "1280", "-b", "ten", "-a", "wide", "x"});
    EXPECT_EQ(std::vector<int>({s.width, s.height, s.bits, s.aspectNum}), std::vector<int>({1280, 1080, 12, 16}));
    EXPECT_EQ(parse({"-s", "420", "-s", "4", "x"}).sampling, PatternGen::Sampling_444);
    EXPECT_EQ(parse({"-q", "TL", "-q", "tl", "x"}).quadrant, PatternGen::Quadrant_TL);
    EXPECT_EQ(parse({"-c", "2020", "-c", "1080", "x"}).axes, PatternGen::Colour_YCbCr_2020);
    EXPECT_EQ(parse({"-i", "anything", "-e", "-v", "first.png", "second.dpx"}).fileName, "second.dpx");
}

// Colour words name the axes (case matters: see the refusals below).
TEST(CommandLine, ColourWords) {
    const std::pair<const char*, PatternGen::colorAxes_e> words[] = {
        {"RGB-headroom", PatternGen::Colour_RGB_219},
        {"601", PatternGen::Colour_YCbCr_601},
        {"HLG", PatternGen::Colour_YCbCr_HLG},
        {"RGB-S-Log3-Live-Mapped", PatternGen::Colour_RGB_SLog3_Live_Mapped}};
    for (const auto& [word, axes] : words) EXPECT_EQ(parse({"-c", word, "x"}).axes, axes) << word;
}

// Refusals exit with 1 and write no file: command-line errors on standard error, device checks on
// standard output (R'G'B' device files do not check the sampling). The self-test returns its result.
TEST_F(Program, RefusalsPrintTheirMessageAndWriteNothing) {
    const struct {
        const char *args, *out, *err;  // a null err only has to start with "Error: "
    } cases[] = {
        {"", "", "Error: Filename not given\nTry 'pm5544 --help'.\n"},
        {"-c Rgb card.png", "", "Error: Unrecognised Colour Space Rgb\n"},
        {"card.png -d", "", "Error: Option -d needs a value\n"},
        {"-d 10x10 card.png", "", nullptr},
        {"-b 4 card.png", "", nullptr},
        {"-b 10 -c 709 -s 422 card.pat", "Error: Tova/Kelm patterns need to be rendered in 12 bit (-b 12)", ""},
        {"-c 709 card.pat",
         "Error: Tova/Kelm YCbCr 422 patterns must be rendered in YCbCr 422 (-c 709 -s 422).\n"
         "2020 will work but is not yet supported by Tova or Kelm.",
         ""},
        {"-c 709 card.rgb", "Error: Tova/Kelm RGB patterns must be rendered using RGB (-c RGB-headroom) 444", ""},
        {"card.xyz", "Error: Tova/Kelm XYZ patterns must be rendered using RGB 444 (-c RGB-headroom)", ""},
        {"-c RGB-headroom card.yc4", "Error: Tova/Kelm yc4 files must be rendered in YCbCr 444 (-s 444)", ""},
        {"-c RGB card.y4m", "",
         "Error: Y4M holds Y'CbCr only: render with -c 601, 709, 2020, PQ, HLG or S-Log3 (or their -Mapped and -Live "
         "forms)\n"},
        {"-c 709 -b 9 card.y4m", "", "Error: Y4M takes 8, 10, 12 or 16 bits, not 9 (-b)\n"}};
    for (const auto& c : cases) {
        const Outcome r = run(c.args);
        EXPECT_EQ(r.status, 1) << c.args;
        EXPECT_EQ(r.out, c.out) << c.args;
        EXPECT_TRUE(c.err ? r.err == c.err : r.err.rfind("Error: ", 0) == 0) << c.args << ": " << r.err;
    }
    for (const char* name : {"card.png", "card.pat", "card.rgb", "card.xyz", "card.yc4", "card.y4m"})
        EXPECT_FALSE(exists(dir.path(name)));
    const Outcome rgb = run("-d 1280x720 -c RGB-headroom -s 420 card.rgb");
    EXPECT_EQ(rgb.status, 0) << rgb.err;
    EXPECT_EQ(file("card.rgb").substr(0, 8), std::string("PATTERN\0", 8));
    const Outcome selfTest = run("-u card.png");
    EXPECT_EQ(selfTest.status, 1);
    EXPECT_EQ(selfTest.out.rfind("Width x Height: 1920x1080\nAspect: 16:9\nPixel aspect: 1:1.000\n", 0), 0u);
    // Lines the self-test is known to print: white scales exactly (no line), 10-bit rounding truncates
    // a Cb below the chroma zero, the HLG and PQ whites, a label printed with its "%%", and the end.
    for (const char* expected :
         {"\nCheck 75% scaling\n  Yellow75  Cb  705   +1\t\n", "\nCheck 8 bit truncation\n",
          "\nCheck 10 bit rounding\n  Yellow_709_10  Cb   64   +1\t\n", "  Grey 40%% 709_10    ",
          "\nCheck 709 YCbCr - HLG 2020\n  White HLG   Y  616 +114\t\n",
          "\nCheck 709 YCbCr - PQ 2020\n  White PQ   Y  509 -1527\tCb  512 -1536\tCr  512 -1536\t\n"})
        EXPECT_NE(selfTest.out.find(expected), std::string::npos) << expected;
    EXPECT_EQ(selfTest.out.find("White75"), std::string::npos);
    EXPECT_EQ(selfTest.out.substr(selfTest.out.size() - 4), "\t\n\n\n");  // puts("\\n") at the end
    EXPECT_FALSE(exists(dir.path("card.png")));
}

// No dot, an upper-case extension and a dot only in a directory name all give PNG; ffmpeg, an independent
// decoder, reads it back with every sample keeping only the output depth's bits.
TEST_F(Program, ProgressLinesPngByExtensionAndRounding) {
    Outcome r = run("-d 160x90 card.png");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out,
              "size 160x90\nWidth x Height: 160x90\nAspect: 16:9\nPixel aspect: 1:1.000\n"
              "writing to: card.png\nWriting png file\n");
    ASSERT_EQ(mkdir(dir.path("v1.0").c_str(), 0755), 0);
    const std::tuple<const char*, const char*, const char*, unsigned> cases[] = {
        {"-b 10 -c 709", "card", "Writing PNG file by default\n", 0x3F},
        {"-b 8", "CARD.PNG", "writing to: CARD.PNG\nWriting PNG file\n", 0xFF},
        {"-b 12", "v1.0/card", "writing to: v1.0/card\nWriting 0/card file\n", 0x0F}};
    for (const auto& [options, name, tail, lowBits] : cases) {
        r = run(std::string("-d 160x90 ") + options + " " + name);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.out.substr(r.out.size() - std::string(tail).size()), tail) << name;
        EXPECT_EQ(file(name).substr(0, 8), "\x89PNG\r\n\x1a\n") << name;
        const std::string raw = TestFiles::commandOutput("ffmpeg -v error -i '" + dir.path(name) +
                                                         "' -f rawvideo -pix_fmt rgba64be - 2>/dev/null");
        ASSERT_EQ(raw.size(), 160u * 90 * 8) << "ffmpeg could not decode " << name;
        unsigned dropped = 0, any = 0;
        for (size_t i = 0; i < raw.size(); i += 2) {
            const unsigned v = unsigned(uint8_t(raw[i])) << 8 | uint8_t(raw[i + 1]);
            dropped |= v & lowBits, any |= v;
        }
        EXPECT_TRUE(dropped == 0 && any != 0) << name;
    }
}

// "-" writes the picture to standard output; the progress lines go to standard error instead.
TEST_F(Program, DashWritesThePictureToStandardOutput) {
    const Outcome r = run("-d 160x90 -");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.substr(0, 8), "\x89PNG\r\n\x1a\n");
    EXPECT_EQ(
        r.err,
        "size 160x90\nWidth x Height: 160x90\nAspect: 16:9\nPixel aspect: 1:1.000\nWriting PNG file by default\n");
    EXPECT_EQ(0, std::system(("pngcheck -q '" + dir.path("stdout") + "' >/dev/null").c_str()));
}

TEST_F(Program, DpxDescriptorFollowsAxesAndSampling) {
    const std::pair<const char*, int> cases[] = {{"-c RGB-headroom", 50}, {"-c 709", 102}, {"-c 601", 100}};
    for (const auto& [args, descriptor] : cases) {
        const Outcome r = run(std::string("-d 192x108 -b 12 ") + args + " card.dpx");
        ASSERT_EQ(r.status, 0) << args << r.err;
        const std::string dpx = file("card.dpx");
        ASSERT_GT(dpx.size(), 8192u);
        EXPECT_EQ(uint8_t(dpx[800]), descriptor) << args;
        EXPECT_EQ(uint8_t(dpx[803]), 10) << args;  // always 10-bit, whatever -b says
    }
}

// Failures exit with 1, say on standard error what failed and the system's reason once, and leave no
// file. Quadrant mode is refused for the full-canvas card before anything is set up, whatever the format.
TEST_F(Program, FailuresEndWithAMessageAndNoFile) {
    const std::pair<const char*, const char*> cases[] = {
        {"-d 160x90 -q TL card.png", "Error: Quadrant mode is depracated\n"},
        {"-d 160x90 -q BR card.tif", "Error: Quadrant mode is depracated\n"},
        {"-d 1280x720 -c 709 -s 422 -q TR card.pat", "Error: Quadrant mode is depracated\n"},
        {"-d 160x90 missing/card.png", "Failed to write PNG file missing/card.png\nNo such file or directory\n"},
        {"-d 160x90 missing/card.dpx", "Failed to write DPX file missing/card.dpx\nNo such file or directory\n"},
        {"-d 160x90 missing/card.tif", "Failed to write TIFF file missing/card.tif\nNo such file or directory\n"},
        {"-d 1280x720 -c 709 -s 422 missing/card.pat",
         "Error: Can't save file: missing/card.pat\nNo such file or directory\n"},
        {"-d 160x90 full.png", "Failed to write PNG file full.png\nNo space left on device\n"},
        {"-d 160x90 full.dpx", "Failed to write DPX file full.dpx\nNo space left on device\n"},
        {"-d 1280x720 -c 709 -s 422 full.pat", "No space left on device\n"},
        {"-d 1280x720 full.tif", "Failed to write TIFF file full.tif\nNo space left on device\n"},
    };
    // Names that lead to a full device.
    for (const char* name : {"full.png", "full.dpx", "full.pat", "full.tif"})
        ASSERT_EQ(0, symlink("/dev/full", dir.path(name).c_str()));
    for (const auto& [args, message] : cases) {
        const Outcome r = run(args);
        EXPECT_EQ(r.status, 1) << args;
        const std::string expected(message);
        // The message ends standard error, and the reason is not repeated.
        EXPECT_TRUE(r.err.size() >= expected.size() && r.err.substr(r.err.size() - expected.size()) == expected)
            << args << ": " << r.err;
        const size_t reason = r.err.find("No space left");
        EXPECT_TRUE(reason == std::string::npos || r.err.find("No space left", reason + 1) == std::string::npos)
            << r.err;
        if (expected.find("Quadrant") != std::string::npos) {
            EXPECT_EQ("", r.out) << args;
        }
    }
    EXPECT_FALSE(exists(dir.path("missing")) || exists(dir.path("card.png")) || exists(dir.path("card.tif")) ||
                 exists(dir.path("card.pat")));
}

}  // namespace
