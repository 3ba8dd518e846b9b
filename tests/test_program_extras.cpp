// What the newer long options add to a run, seen from outside the program: the preview beside the
// main output and a clock that moves on from frame to frame; an impossible colour state.
#include <gtest/gtest.h>

#include <csignal>
#include <set>
#include <string>
#include <vector>

#include "PatternRender.h"
#include "TestFiles.h"
#include "TestPattern.h"

namespace {

using TestFiles::commandOutput;

class ProgramExtras : public ::testing::Test {
protected:
    int run(const std::string& args) { return TestFiles::runProgram(dir.path(""), args); }
    std::string path(const std::string& name) const { return dir.path(name); }
    TestFiles::ScratchDir dir;
};

TEST_F(ProgramExtras, PreviewIsAnSrgbPngWithSquarePixelsAndLeavesTheMainOutputAlone) {
    ASSERT_EQ(run("-d 720x576 -a 4x3 -c 601 -b 10 -s 422 plain.png"), 0);
    ASSERT_EQ(run("-d 720x576 -a 4x3 -c 601 -b 10 -s 422 --preview view.png main.png"), 0);
    EXPECT_EQ(TestFiles::readFile(path("plain.png")), TestFiles::readFile(path("main.png")));
    const std::string check = commandOutput("pngcheck -v '" + path("view.png") + "' 2>&1");
    EXPECT_NE(check.find("768 x 576 image, 24-bit RGB"), std::string::npos) << check;
    EXPECT_NE(check.find("sRGB"), std::string::npos) << check;
    EXPECT_NE(check.find("No errors"), std::string::npos) << check;
    // A device file gets the same preview as the PNG of the same settings.
    ASSERT_EQ(run("-d 1920x1080 -c 709 -s 422 -b 12 --preview a.png card.pat"), 0);
    ASSERT_EQ(run("-d 1920x1080 -c 709 -s 422 -b 12 --preview b.png card.png"), 0);
    EXPECT_EQ(TestFiles::readFile(path("a.png")), TestFiles::readFile(path("b.png")));
}

// Later frames of a clock are rendered only where the clock is: each must still equal a frame made
// on its own at that time (4:2:0 included, whose row pairs the partial render must keep whole).
TEST_F(ProgramExtras, ClockMovesOnPerFrameAndAStillFrameRepeats) {
    const auto frameHashes = [&](const std::string& name) {
        std::vector<std::string> hashes;
        const std::string md5 = commandOutput("ffmpeg -nostdin -v error -i '" + path(name) + "' -f framemd5 -");
        for (size_t at = 0; (at = md5.find("\n0,", at)) != std::string::npos; ++at)
            hashes.push_back(md5.substr(md5.find_last_of(' ', md5.find('\n', at + 1)) + 1, 32));
        return hashes;
    };
    for (const char* sampling : {"422", "420"}) {
        const std::string video = std::string("-d 720x576 -a 4x3 -c 601 -b 10 -s ") + sampling + " --rate 25 ";
        ASSERT_EQ(run(video + "--frames 3 --clock --timecode 10:00:00:00 clock.y4m"), 0);
        ASSERT_EQ(run(video + "--frames 1 --clock --timecode 10:00:00:02 third.y4m"), 0);
        ASSERT_EQ(run(video + "--frames 3 --caption STILL still.y4m"), 0);
        const std::vector<std::string> clock = frameHashes("clock.y4m"), still = frameHashes("still.y4m");
        ASSERT_EQ(clock.size(), 3u);
        EXPECT_EQ(std::set<std::string>(clock.begin(), clock.end()).size(), 3u) << sampling;
        EXPECT_EQ(clock[2], frameHashes("third.y4m").at(0)) << sampling;
        ASSERT_EQ(still.size(), 3u);
        EXPECT_EQ(std::set<std::string>(still.begin(), still.end()).size(), 1u) << sampling;
    }
}

// An impossible colour state, which the library throws, ends the program as a failed assertion does:
// the library's report after the program's name on standard error, and an abnormal end.
TEST(ProgramFailures, ImpossibleColourStateEndsTheRunWithTheAssertionsReport) {
    TestPattern pattern([](int, int) { return Pixel().convertTo(PatternGen::Colour_YCbCr_601); });
    TestFiles::ScratchDir dir;
    std::string words[] = {"pm5544", "-d", "128x72", dir.path("card.png")};
    char* argv[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data()};
    EXPECT_EXIT(PatternRender::renderPattern(4, argv, pattern), testing::KilledBySignal(SIGABRT),
                "test_program_extras: tools/Pixel\\.cpp:[0-9]+: Pixel Pixel::convertTo\\(PatternGen::colorAxes_e\\) "
                "const: Assertion `0' failed\\.\n");
    EXPECT_FALSE(TestFiles::exists(dir.path("card.png")));
}

}  // namespace
