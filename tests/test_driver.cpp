// The command line and the render driver, in-process for option parsing and through the
// built program for messages, streams, exit statuses and the files it leaves.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "PatternRender.h"

namespace {

using PatternRender::Settings;

Settings parse(std::vector<std::string> words, bool expectOk = true) {
    words.insert(words.begin(), "pm5544");
    std::vector<char*> argv;
    for (std::string& w : words) argv.push_back(w.data());
    Settings s;
    EXPECT_EQ(PatternRender::parseCommandLine(int(argv.size()), argv.data(), s), expectOk);
    return s;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

bool fileExists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

struct ProgramRun {
    int status = -1;
    std::string out;
    std::string err;
};

// Runs the program in a scratch directory and collects both streams separately.
class ProgramTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/pm5544-driver-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
    }
    void TearDown() override { std::system(("rm -rf '" + dir + "'").c_str()); }

    ProgramRun run(const std::string& args) {
        const std::string out = dir + "/stdout.txt", err = dir + "/stderr.txt";
        const std::string command =
            "cd '" + dir + "' && '" PM5544_EXE "' " + args + " >'" + out + "' 2>'" + err + "' </dev/null";
        ProgramRun r;
        const int raw = std::system(command.c_str());
        r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        r.out = readFile(out);
        r.err = readFile(err);
        return r;
    }
    std::string path(const std::string& name) const { return dir + "/" + name; }

    std::string dir;
};

// Decodes a PNG with ffmpeg into 16-bit big-endian RGBA samples.
std::vector<uint16_t> decodePng(const std::string& file, int width, int height) {
    const std::string command = "ffmpeg -v error -i '" + file + "' -f rawvideo -pix_fmt rgba64be -";
    FILE* pipe = popen(command.c_str(), "r");
    std::vector<uint16_t> samples;
    if (!pipe) return samples;
    std::vector<unsigned char> bytes(size_t(width) * height * 8);
    const size_t got = fread(bytes.data(), 1, bytes.size(), pipe);
    pclose(pipe);
    if (got != bytes.size()) return samples;
    for (size_t i = 0; i < bytes.size(); i += 2) samples.push_back(uint16_t(bytes[i] << 8 | bytes[i + 1]));
    return samples;
}

TEST(CommandLine, DefaultsAndValues) {
    Settings s = parse({"card.png"});
    EXPECT_EQ(s.width, 1920);
    EXPECT_EQ(s.height, 1080);
    EXPECT_EQ(s.bits, 12);
    EXPECT_EQ(s.aspectNum, 16);
    EXPECT_EQ(s.aspectDen, 9);
    EXPECT_EQ(s.axes, PatternGen::Colour_RGB);
    EXPECT_EQ(s.sampling, PatternGen::Sampling_444);
    EXPECT_EQ(s.quadrant, PatternGen::Quadrant_None);
    EXPECT_FALSE(s.edgeTaperOff);
    EXPECT_EQ(s.fileName, "card.png");

    s = parse({"-d", "3840x2160", "-a", "4x3", "-b", "10", "-c", "709", "-s", "422", "-q", "BR", "-o", "7", "f"});
    EXPECT_EQ(s.width, 3840);
    EXPECT_EQ(s.height, 2160);
    EXPECT_EQ(s.aspectNum, 4);
    EXPECT_EQ(s.aspectDen, 3);
    EXPECT_EQ(s.bits, 10);
    EXPECT_EQ(s.axes, PatternGen::Colour_YCbCr_709);
    EXPECT_EQ(s.sampling, PatternGen::Sampling_422);
    EXPECT_EQ(s.quadrant, PatternGen::Quadrant_BR);
    EXPECT_EQ(s.optionValue, 7);
}

TEST(CommandLine, PartialAndUnparsedValuesKeepSettings) {
    Settings s = parse({"-d", "1280", "x.png"});
    EXPECT_EQ(s.width, 1280);
    EXPECT_EQ(s.height, 1080);
    s = parse({"-s", "420", "-s", "4", "x"});
    EXPECT_EQ(s.sampling, PatternGen::Sampling_444);
    s = parse({"-s", "422", "-s", "four", "x"});
    EXPECT_EQ(s.sampling, PatternGen::Sampling_422);
    s = parse({"-q", "TL", "-q", "tl", "x"});
    EXPECT_EQ(s.quadrant, PatternGen::Quadrant_TL);
    s = parse({"-c", "2020", "-c", "1080", "x"});
    EXPECT_EQ(s.axes, PatternGen::Colour_YCbCr_2020);
    s = parse({"-b", "ten", "-d", "wide", "x"});
    EXPECT_EQ(s.bits, 12);
    EXPECT_EQ(s.width, 1920);
}

TEST(CommandLine, ColourWordsMapToTheirAxes) {
    const std::pair<const char*, PatternGen::colorAxes_e> words[] = {
        {"RGB", PatternGen::Colour_RGB},
        {"RGB-headroom", PatternGen::Colour_RGB_219},
        {"601", PatternGen::Colour_YCbCr_601},
        {"709", PatternGen::Colour_YCbCr_709},
        {"PQ", PatternGen::Colour_YCbCr_PQ},
        {"PQ-Mapped", PatternGen::Colour_YCbCr_PQ_Mapped},
        {"HLG", PatternGen::Colour_YCbCr_HLG},
        {"HLG-Mapped", PatternGen::Colour_YCbCr_HLG_Mapped},
        {"2020", PatternGen::Colour_YCbCr_2020},
        {"S-Log3", PatternGen::Colour_YCbCr_SLog3},
        {"S-Log3-Mapped", PatternGen::Colour_YCbCr_SLog3_Mapped},
        {"S-Log3-Live", PatternGen::Colour_YCbCr_SLog3_Live},
        {"S-Log3-Live-Mapped", PatternGen::Colour_YCbCr_SLog3_Live_Mapped},
        {"RGB-PQ", PatternGen::Colour_RGB_PQ},
        {"RGB-HLG", PatternGen::Colour_RGB_HLG},
        {"RGB-S-Log3", PatternGen::Colour_RGB_SLog3},
        {"RGB-S-Log3-Live", PatternGen::Colour_RGB_SLog3_Live},
        {"RGB-PQ-Mapped", PatternGen::Colour_RGB_PQ_Mapped},
        {"RGB-HLG-Mapped", PatternGen::Colour_RGB_HLG_Mapped},
        {"RGB-S-Log3-Mapped", PatternGen::Colour_RGB_SLog3_Mapped},
        {"RGB-S-Log3-Live-Mapped", PatternGen::Colour_RGB_SLog3_Live_Mapped},
    };
    for (const auto& [word, axes] : words) EXPECT_EQ(parse({"-c", word, "x"}).axes, axes) << word;
}

TEST(CommandLine, WordsAndFileNames) {
    Settings s = parse({"-i", "anything", "-e", "-v", "first.png", "second.dpx"});
    EXPECT_TRUE(s.edgeTaperOff);
    EXPECT_EQ(s.fileName, "second.dpx");
    s = parse({"-u"});
    EXPECT_TRUE(s.selfTest);
    EXPECT_FALSE(s.haveFileName);

    bool hasDot = false;
    EXPECT_EQ(PatternRender::fileExtension("out/card.tif", hasDot), "tif");
    EXPECT_TRUE(hasDot);
    EXPECT_EQ(PatternRender::fileExtension("a.b/card", hasDot), "b/card");
    EXPECT_TRUE(hasDot);
    EXPECT_EQ(PatternRender::fileExtension("card", hasDot), "");
    EXPECT_FALSE(hasDot);
}

TEST_F(ProgramTest, CommandLineErrorsGoToStandardError) {
    ProgramRun r = run("");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Error: Filename not given\n");
    EXPECT_EQ(r.out, "");

    r = run("-b 10 -c 709");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Error: Filename not given\n");

    r = run("-c Rgb card.png");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Error: Unrecognised Colour Space Rgb\n");
    EXPECT_FALSE(fileExists(path("card.png")));

    r = run("card.png -d");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Error: Option -d needs a value\n");
    EXPECT_FALSE(fileExists(path("card.png")));

    for (const char* bad : {"-d 10x10 card.png", "-a 0x9 card.png", "-a 16x1 card.png", "-b 4 card.png"}) {
        r = run(bad);
        EXPECT_EQ(r.status, 1) << bad;
        EXPECT_EQ(r.err.rfind("Error: ", 0), 0u) << bad;
        EXPECT_EQ(r.out, "") << bad;
        EXPECT_FALSE(fileExists(path("card.png"))) << bad;
    }
}

TEST_F(ProgramTest, DeviceChecksPrintTheirMessageAndWriteNothing) {
    const std::pair<const char*, const char*> cases[] = {
        {"-b 10 -c 709 -s 422 card.pat", "Error: Tova/Kelm patterns need to be rendered in 12 bit (-b 12)"},
        {"-c 709 -s 444 card.pat",
         "Error: Tova/Kelm YCbCr 422 patterns must be rendered in YCbCr 422 (-c 709 -s 422).\n"
         "2020 will work but is not yet supported by Tova or Kelm."},
        {"-c 709 card.rgb", "Error: Tova/Kelm RGB patterns must be rendered using RGB (-c RGB-headroom) 444"},
        {"card.xyz", "Error: Tova/Kelm XYZ patterns must be rendered using RGB 444 (-c RGB-headroom)"},
        {"-c RGB-headroom card.yc4", "Error: Tova/Kelm yc4 files must be rendered in YCbCr 444 (-s 444)"},
    };
    for (const auto& [args, message] : cases) {
        ProgramRun r = run(args);
        EXPECT_EQ(r.status, 1) << args;
        EXPECT_EQ(r.out, message) << args;
        EXPECT_EQ(r.err, "") << args;
    }
    EXPECT_FALSE(fileExists(path("card.pat")));
    EXPECT_FALSE(fileExists(path("card.rgb")));
    EXPECT_FALSE(fileExists(path("card.xyz")));
    EXPECT_FALSE(fileExists(path("card.yc4")));
}

TEST_F(ProgramTest, StudioRGBPassesTheRgbChecksWhateverTheSampling) {
    ProgramRun r = run("-d 1280x720 -c RGB-headroom -s 420 card.rgb");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(readFile(path("card.rgb")).substr(0, 8), std::string("PATTERN\0", 8));
}

TEST_F(ProgramTest, SelfTestReturnsItsResultAndWritesNothing) {
    ProgramRun r = run("-u");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out.rfind("Width x Height: 1920x1080\nAspect: 16:9\nPixel aspect: 1:1.000\n", 0), 0u);
    r = run("-u card.png");
    EXPECT_EQ(r.status, 1);
    EXPECT_FALSE(fileExists(path("card.png")));
}

TEST_F(ProgramTest, ProgressLinesOfAPngRun) {
    ProgramRun r = run("-d 160x90 card.png");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("size 160x90\n"), std::string::npos);
    EXPECT_NE(r.out.find("Width x Height: 160x90\nAspect: 16:9\nPixel aspect: 1:1.000\n"), std::string::npos);
    EXPECT_NE(r.out.find("writing to: card.png\nWriting png file\n"), std::string::npos);
    EXPECT_EQ(readFile(path("card.png")).substr(1, 3), "PNG");
}

TEST_F(ProgramTest, NamesWithoutAKnownExtensionAreWrittenAsPng) {
    ProgramRun r = run("-d 160x90 card");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("Writing PNG file by default\n"), std::string::npos);
    EXPECT_EQ(r.out.find("writing to:"), std::string::npos);
    EXPECT_EQ(readFile(path("card")).substr(1, 3), "PNG");

    r = run("-d 160x90 CARD.PNG");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("Writing PNG file\n"), std::string::npos);
    EXPECT_EQ(readFile(path("CARD.PNG")).substr(1, 3), "PNG");

    ASSERT_EQ(mkdir(path("v1.0").c_str(), 0755), 0);
    r = run("-d 160x90 v1.0/card");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("Writing 0/card file\n"), std::string::npos);
    EXPECT_EQ(readFile(path("v1.0/card")).substr(1, 3), "PNG");
}

TEST_F(ProgramTest, PngSamplesAreRoundedToTheOutputDepth) {
    for (const char* args : {"-b 10 -c 709 -d 160x90 card.png", "-b 8 -d 160x90 card.png"}) {
        ProgramRun r = run(args);
        ASSERT_EQ(r.status, 0) << r.err;
        std::vector<uint16_t> samples = decodePng(path("card.png"), 160, 90);
        ASSERT_EQ(samples.size(), 160u * 90 * 4) << "ffmpeg could not decode the PNG";
        const uint16_t lowBits = std::string(args).find("-b 10") == 0 ? 0x3F : 0xFF;
        int nonZero = 0;
        for (uint16_t v : samples) {
            EXPECT_EQ(v & lowBits, 0) << args;
            nonZero += v != 0;
        }
        EXPECT_GT(nonZero, 0);
    }
}

TEST_F(ProgramTest, DpxDescriptorFollowsAxesAndSampling) {
    const std::pair<const char*, int> cases[] = {
        {"-c RGB", 50}, {"-c RGB-headroom", 50}, {"-c 709", 102}, {"-c 709 -s 422", 100},
        {"-c 601", 100}, {"-c RGB-PQ", 100},
    };
    for (const auto& [args, descriptor] : cases) {
        ProgramRun r = run(std::string("-d 192x108 -b 12 ") + args + " card.dpx");
        ASSERT_EQ(r.status, 0) << args << r.err;
        const std::string file = readFile(path("card.dpx"));
        ASSERT_GT(file.size(), 8192u);
        EXPECT_EQ(file.substr(0, 4), "XPDS");
        EXPECT_EQ((unsigned char)file[800], descriptor) << args;
        EXPECT_EQ((unsigned char)file[803], 10) << args;
    }
}

TEST_F(ProgramTest, FailuresEndWithAMessageAndNoFile) {
    ProgramRun r = run("-d 160x90 -q TL card.png");
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("Quadrant mode is depracated"), std::string::npos);
    EXPECT_FALSE(fileExists(path("card.png")));

    r = run("-d 160x90 missing/card.png");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Failed to write PNG file missing/card.png\n");
    EXPECT_FALSE(fileExists(path("missing")));

    r = run("-d 160x90 missing/card.dpx");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Failed to write DPX file missing/card.dpx\n");

    r = run("-d 160x90 missing/card.tif");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("Failed to write TIFF file missing/card.tif\n"), std::string::npos);

    r = run("-d 1280x720 -c 709 -s 422 missing/card.pat");
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("Can't save file: missing/card.pat"), std::string::npos);
}

}  // namespace
