// Runs seen from outside: name clashes, the preview, failed or stopped runs changing no file, failure
// lines, stills given --frames, clocks moving frame to frame, and impossible colour states ending the run.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <thread>

#include "ChildRuns.h"
#include "PatternRender.h"
#include "TestFiles.h"
#include "TestPattern.h"

namespace {

using namespace TestFiles;
using namespace ChildRuns;
namespace fs = std::filesystem;

const Bytes kEarlier(4096, 0x5a);

// The width and height in a PNG's header.
std::pair<uint32_t, uint32_t> pngSize(const Bytes& png) {
    const auto bigEndian = [&](size_t at) { return __builtin_bswap32(littleEndian(png, at)); };
    return {bigEndian(16), bigEndian(20)};
}

bool pngcheckAccepts(const std::string& path) {
    return std::system(("pngcheck -q '" + path + "' >/dev/null 2>&1").c_str()) == 0;
}

class Outputs : public ProgramTest {
protected:
    std::string path(const std::string& name) const { return dir.path(name); }
};

// Spelt apart, the names lead to one file: refused before anything is written.
TEST_F(Outputs, PreviewNamingTheOutputIsRefused) {
    writeFile(path("same.png"), kEarlier);
    writeFile(path("x.dpx"), kEarlier);
    fs::create_symlink("same.png", path("link.png"));
    fs::create_hard_link(path("same.png"), path("hard.png"));
    fs::create_directories(path("sub"));
    const std::string cases[] = {
        "--preview ./same.png same.png",    "--preview '" + path("x.dpx") + "' x.dpx",
        "--preview link.png same.png",      "--preview hard.png same.png",
        "--preview sub/../new.png new.png", "--preview new.png ./sub/../new.png",
        "--preview /dev/stdout -",          "--preview - -",
    };
    for (const std::string& arguments : cases) {
        const Tree before = snapshot(path(""));
        const Outcome o = run("-d 64x64 " + arguments);
        EXPECT_EQ(o.status, 1) << arguments;
        EXPECT_NE(o.err.find(" is the output file as well\n"), std::string::npos) << arguments << "\n" << o.err;
        EXPECT_EQ(differences(before, snapshot(path(""))), "") << arguments;
    }
}

// The PNG preview alone on standard output, every progress line on standard error.
TEST_F(Outputs, PreviewToStandardOutput) {
    const Outcome o = run("-d 128x96 -a 4x3 --preview - card.png");
    ASSERT_EQ(o.status, 0) << o.err;
    EXPECT_TRUE(pngcheckAccepts(path("stdout")));
    EXPECT_EQ(pngSize(readFile(path("stdout"))), std::make_pair(128u, 96u));
    EXPECT_NE(o.err.find("size 128x96"), std::string::npos) << o.err;
    EXPECT_TRUE(pngcheckAccepts(path("card.png")));
}

// An unwritable preview leaves the main output's earlier file, reported as a PNG failure; likewise the reverse.
TEST_F(Outputs, FailedRunChangesNoFile) {
    writeFile(path("big.dpx"), kEarlier);
    writeFile(path("p.png"), kEarlier);
    const Tree before = snapshot(path(""));
    const std::pair<std::string, const char*> runs[] = {
        {"--preview missing/p.png big.dpx", "PNG file missing/p.png\nNo such file or directory\n"},
        {"-c 709 --preview p.png missing/v.y4m", "Y4M file missing/v.y4m\nNo such file or directory\n"},
        {"-c 709 --format y4m /dev/full", "Y4M file /dev/full\nNo space left on device\n"},
        {"--preview /dev/full big.dpx", "PNG file /dev/full\nNo space left on device\n"}};
    for (const auto& [arguments, failure] : runs) {
        if (arguments.find("/dev/full") != std::string::npos && !fs::is_character_file("/dev/full")) continue;
        const Outcome o = run("-d 256x144 " + arguments);
        EXPECT_EQ(o.status, 1) << arguments;
        EXPECT_NE(o.err.find(std::string("Failed to write ") + failure), std::string::npos) << o.err;
        EXPECT_EQ(differences(before, snapshot(path(""))), "") << arguments;
    }
}

// A TIFF that cannot be created says so first, then fails as every format does.
TEST_F(Outputs, UncreatableFilesFailWithTheFormatsLines) {
    const std::pair<const char*, const char*> runs[] = {
        {"missing/out.tif",
         "Could not create tiff file\nFailed to write TIFF file missing/out.tif\nNo such file or "
         "directory\n"},
        {"missing/out.png", "Failed to write PNG file missing/out.png\nNo such file or directory\n"},
        {"''", "Error: Filename not given\nTry 'pm5544 --help'.\n"}};
    for (const auto& [name, err] : runs) {
        const Outcome o = run(std::string("-d 64x64 ") + name);
        EXPECT_EQ(std::make_pair(1, std::string(err)), std::make_pair(o.status, o.err)) << name;
    }
}

// --frames on a still format writes the one still: the first frame, as a run without --frames does.
TEST_F(Outputs, StillFormatsWriteOneFrameOfAClock) {
    const struct {
        const char* name;
        const char* options;
    } stills[] = {{"card.png", ""},
                  {"card.tif", ""},
                  {"card.dpx", ""},
                  {"card.pat", "-c 709 -s 422 "},
                  {"card.yc4", "-c 709 -s 444 "},
                  {"card.rgb", "-c RGB-headroom "},
                  {"card.xyz", "-c RGB-headroom "},
                  {"-", ""}};
    const std::string clock = "-d 192x108 --clock --timecode 10:00:00:00 ";
    for (const auto& still : stills) {
        const std::string written = still.name == std::string("-") ? "stdout" : still.name;
        Outcome o = run(clock + still.options + still.name);
        ASSERT_EQ(o.status, 0) << still.name << "\n" << o.err;
        Bytes one = readFile(path(written));
        o = run(clock + "--frames 2 --rate 50 " + still.options + still.name);
        EXPECT_EQ(o.status, 0) << still.name << "\n" << o.err;
        Bytes first = readFile(path(written));
        if (std::string(still.name) == "card.dpx") {  // the creation time differs
            std::fill(one.begin() + 136, one.begin() + 160, 0);
            std::fill(first.begin() + 136, first.begin() + 160, 0);
        }
        EXPECT_FALSE(first.empty()) << still.name;
        EXPECT_EQ(first, one) << still.name;
    }
}

// A preview beyond the largest side viewers open is scaled down to fit, keeping its square pixels.
TEST_F(Outputs, PreviewFitsTheLargestSide) {
    // 4200x1050 at 16:1 has pixels a quarter wide: square, 16800x1050.
    const Outcome o = run("-d 4200x1050 -a 16x1 -b 10 --preview p.png --format dpx /dev/null");
    ASSERT_EQ(o.status, 0) << o.err;
    EXPECT_TRUE(pngcheckAccepts(path("p.png")));
    EXPECT_EQ(pngSize(readFile(path("p.png"))), std::make_pair(16384u, 1024u));
}

TEST_F(Outputs, PreviewIsAnSrgbPngWithSquarePixelsAndLeavesTheMainOutputAlone) {
    ASSERT_EQ(run("-d 720x576 -a 4x3 -c 601 -b 10 -s 422 plain.png").status, 0);
    ASSERT_EQ(run("-d 720x576 -a 4x3 -c 601 -b 10 -s 422 --preview view.png main.png").status, 0);
    EXPECT_EQ(readFile(path("plain.png")), readFile(path("main.png")));
    const std::string check = commandOutput("pngcheck -v '" + path("view.png") + "' 2>&1");
    for (const char* part : {"768 x 576 image, 24-bit RGB", "sRGB", "No errors"})
        EXPECT_NE(check.find(part), std::string::npos) << check;
    // A device file gets the same preview as the PNG of the same settings.
    ASSERT_EQ(run("-d 1920x1080 -c 709 -s 422 -b 12 --preview a.png card.pat").status, 0);
    ASSERT_EQ(run("-d 1920x1080 -c 709 -s 422 -b 12 --preview b.png card.png").status, 0);
    EXPECT_EQ(readFile(path("a.png")), readFile(path("b.png")));
}

// Later clock frames render only the clock's rows yet equal frames made alone (4:2:0 row pairs kept whole).
TEST_F(Outputs, ClockMovesOnPerFrameAndAStillFrameRepeats) {
    const auto frameHashes = [&](const std::string& name) {
        std::vector<std::string> hashes;
        const std::string md5 = commandOutput("ffmpeg -nostdin -v error -i '" + path(name) + "' -f framemd5 -");
        for (size_t at = 0; (at = md5.find("\n0,", at)) != std::string::npos; ++at)
            hashes.push_back(md5.substr(md5.find_last_of(' ', md5.find('\n', at + 1)) + 1, 32));
        return hashes;
    };
    for (const char* sampling : {"422", "420"}) {
        const std::string video = std::string("-d 720x576 -a 4x3 -c 601 -b 10 -s ") + sampling + " --rate 25 ";
        ASSERT_EQ(run(video + "--frames 3 --clock --timecode 10:00:00:00 clock.y4m").status, 0);
        ASSERT_EQ(run(video + "--frames 1 --clock --timecode 10:00:00:02 third.y4m").status, 0);
        ASSERT_EQ(run(video + "--frames 3 --caption STILL still.y4m").status, 0);
        const std::vector<std::string> clock = frameHashes("clock.y4m"), still = frameHashes("still.y4m");
        ASSERT_EQ(clock.size(), 3u);
        EXPECT_EQ(std::set<std::string>(clock.begin(), clock.end()).size(), 3u) << sampling;
        EXPECT_EQ(clock[2], frameHashes("third.y4m").at(0)) << sampling;
        ASSERT_EQ(still.size(), 3u);
        EXPECT_EQ(std::set<std::string>(still.begin(), still.end()).size(), 1u) << sampling;
    }
}

// An impossible colour state the library throws ends the run like a failed assertion, with the library's report.
TEST(ProgramFailures, ImpossibleColourStateEndsTheRunWithTheAssertionsReport) {
    TestPattern pattern([](int, int) { return Pixel().convertTo(PatternGen::Colour_YCbCr_601); });
    ScratchDir dir;
    std::string words[] = {"pm5544", "-d", "128x72", dir.path("card.png")};
    char* argv[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data()};
    EXPECT_EXIT(
        PatternRender::renderPattern(4, argv, pattern), testing::KilledBySignal(SIGABRT),
        "test_outputs_and_signals: tools/Pixel\\.cpp:[0-9]+: Pixel Pixel::convertTo\\(PatternGen::colorAxes_e\\) "
        "const: Assertion `0' failed\\.\n");
    EXPECT_FALSE(exists(dir.path("card.png")));
}

constexpr auto kPatience = std::chrono::seconds(60);

// Waits until `done` holds, for kPatience at most.
template <typename Condition>
bool waitFor(Condition done) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

bool hasTemporary(const std::string& directory, const std::string& name) {
    for (const fs::directory_entry& entry : fs::directory_iterator(directory))
        if (entry.path().filename().string().rfind("." + name + ".", 0) == 0) return true;
    return false;
}

// The child's status once it ended, or -1 after kPatience (the child then killed).
int statusOf(pid_t pid) {
    int status = 0;
    if (waitFor([&] { return waitpid(pid, &status, WNOHANG) == pid; })) return status;
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    return -1;
}

// Stopped at a known point: the main output complete in its temporary, waiting on a preview FIFO none reads.
class StoppedRun : public ::testing::Test {
protected:
    void SetUp() override {
        writeFile(dir.path("card.dpx"), kEarlier);
        ASSERT_EQ(mkfifo(dir.path("view.png").c_str(), 0644), 0) << std::strerror(errno);
    }
    pid_t startAndWaitForTheTemporary(int ignored = 0) {
        ChildSetup setup;
        setup.directory = dir.path("");
        setup.ignoredSignal = ignored;
        const pid_t pid = startProgram(setup, "-d 640x360 --preview view.png card.dpx");
        if (!waitFor([&] { return hasTemporary(dir.path(""), "card.dpx"); })) {
            ADD_FAILURE() << "no temporary appeared";
            kill(pid, SIGKILL);
        }
        return pid;
    }
    ScratchDir dir;
};

// Every signal whose default action ends the process removes the temporary, and still ends it.
TEST_F(StoppedRun, EveryStopSignalRemovesTheTemporary) {
    const int stops[] = {SIGINT,  SIGTERM, SIGHUP,  SIGQUIT,   SIGPIPE, SIGUSR1,
                         SIGUSR2, SIGALRM, SIGXCPU, SIGVTALRM, SIGPROF};
    for (int stop : stops) {
        const Tree before = snapshot(dir.path(""));
        const pid_t pid = startAndWaitForTheTemporary();
        kill(pid, stop);
        const int status = statusOf(pid);
        ASSERT_NE(status, -1) << strsignal(stop) << ": the run did not end";
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == stop) << strsignal(stop) << ": status " << status;
        EXPECT_EQ(differences(before, snapshot(dir.path(""))), "") << strsignal(stop);
    }
}

// A preview pipe no one reads: the run ends by the broken pipe and the main output's temporary goes too.
TEST_F(StoppedRun, BrokenPipeRemovesTheTemporary) {
    const Tree before = snapshot(dir.path(""));
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    ChildSetup setup;
    setup.directory = dir.path("");
    setup.standardOutput = ends[1];
    const pid_t pid = startProgram(setup, "-d 640x360 --preview - card.dpx");
    close(ends[1]);
    const int status = statusOf(pid);
    ASSERT_NE(status, -1) << "the run did not end";
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE) << "status " << status;
    EXPECT_EQ(differences(before, snapshot(dir.path(""))), "");
}

// A signal the caller ignores stays ignored: once the preview is read, both outputs are in place.
TEST_F(StoppedRun, IgnoredSignalLetsTheRunFinish) {
    const pid_t pid = startAndWaitForTheTemporary(SIGUSR1);
    kill(pid, SIGUSR1);
    const int reader = ::open(dir.path("view.png").c_str(), O_RDONLY);
    ASSERT_GE(reader, 0) << std::strerror(errno);
    const Bytes preview = readAll(reader);
    close(reader);
    const int status = statusOf(pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(pngSize(preview), std::make_pair(640u, 360u));
    EXPECT_EQ(fs::file_size(dir.path("card.dpx")), 8192u + 640u * 360u * 4u);  // header, 10-bit RGB
    EXPECT_FALSE(hasTemporary(dir.path(""), "card.dpx"));
}

}  // namespace
