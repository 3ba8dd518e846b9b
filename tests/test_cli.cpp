// The command line through the built program: messages, streams, statuses, files left, manual, install.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "OutputFormats.h"
#include "TestFiles.h"

namespace {

using TestFiles::commandOutput;
using TestFiles::Outcome;
namespace fs = std::filesystem;

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

class Program : public TestFiles::ProgramTest {
protected:
    // The files a run left in the scratch directory (its streams aside), removed for the next run.
    std::set<std::string> takeFiles() {
        std::set<std::string> names;
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(dir.path("")))
            if (entry.is_regular_file()) names.insert(entry.path().lexically_relative(dir.path("")).string());
        names.erase("stdout"), names.erase("stderr");
        for (const std::string& name : names) fs::remove(dir.path(name));
        return names;
    }
};

// Every line of the help that starts with an option: its name.
std::vector<std::string> optionsInHelp(const std::string& help) {
    std::vector<std::string> names;
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);)
        if (line.rfind("  -", 0) == 0) names.push_back(line.substr(2, line.find(' ', 2) - 2));
    return names;
}

// One command line per row: status, part of stdout, start of stderr ("": empty), the one file left.
// Informational options win wherever they stand; numbers that do not fit are quoted as typed.
TEST_F(Program, CommandLinesGiveTheirMessagesStatusAndFile) {
    const struct {
        const char* args;
        int status;
        const char *out, *err, *written;
    } rows[] = {
        // clang-format off
        {"-c Rgb card.png --help", 0, "Usage: pm5544 [OPTION]... FILE\n", "", ""},
        {"--version", 0, "pm5544 ", "", ""},
        {"", 1, "", "Error: Filename not given\nTry 'pm5544 --help'.\n", ""},
        {"--hlep", 1, "", "Error: Unknown option --hlep; did you mean --help?\nTry 'pm5544 --help'.\n", ""},
        {"--clock=yes card.png", 1, "", "Error: Option --clock takes no value\n", ""},
        {"card.png --format", 1, "", "Error: Option --format needs a value\n", ""},
        {"-c --help", 1, "", "Error: Unrecognised Colour Space --help\n", ""},
        {"-d 160x90 -h", 0, "Writing PNG file by default\n", "Warning: -h has no extension: writing PNG", "-h"},
        {"-d 160x90 -- --help", 0, "Writing PNG file by default\n", "Warning: --help has no extension", "--help"},
        {"-d 160x90 -i anything -e -v first.png second.png", 0, "writing to: second.png\n", "", "second.png"},
        // Options that act only with another one say so.
        {"-d 160x90 --timecode 10:00:00:00 card.png", 0, "Writing png file\n", "Warning: --timecode shows only with --clock", "card.png"},
        {"-d 160x90 --clock --caption hi card.png", 0, "Writing png file\n", "Warning: --clock takes the lower box", "card.png"},
        {"-d 160x90 --frames 5 card.png", 0, "Writing png file\n", "Warning: --frames and --rate apply to Y4M video only", "card.png"},
        // Progress lines, the format by extension, and standard output as the file.
        {"-d 160x90 card.png", 0, "size 160x90\nWidth x Height: 160x90\nAspect: 16:9\nPixel aspect: 1:1.000\n"
                                  "writing to: card.png\nWriting png file\n", "", "card.png"},
        {"-d 160x90 v1.0/card", 0, "writing to: v1.0/card\nWriting 0/card file\n",
         "Warning: v1.0/card has no extension: writing PNG", "v1.0/card"},
        {"-d 160x90 card.TIF", 0, "writing to: card.TIF\n",
         "Warning: The extension .TIF names no format: writing PNG to card.TIF; did you mean .tif?\n", "card.TIF"},
        {"-d 160x90 --format tif card", 0, "Writing tif file\n", "", "card"},
        {"-d 160x90 -", 0, "\x89PNG\r\n\x1a\n", "size 160x90\nWidth x Height: 160x90\nAspect: 16:9\n"
                                                "Pixel aspect: 1:1.000\nWriting PNG file by default\n", ""},
        {"-d 160x90 -b 10 -c 709 --format dpx -", 0, "XPDS", "size 160x90\n", ""},
        // What a format does with the settings.
        {"-d 160x90 card.dpx", 0, "Writing dpx file\n", "Warning: DPX files are always 10-bit: -b 12 rounds the "
         "frame to 12 bits, of which the file keeps the top 10", "card.dpx"},
        {"-d 160x90 -b 8 --format dpx card", 0, "Writing dpx file\n", "Warning: DPX files are always 10-bit: -b 8 "
         "rounds the frame to 8 bits, which the file stores in 10", "card"},
        {"-d 160x90 -b 10 -c 601 card.dpx", 0, "Writing dpx file\n", "Warning: DPX writes -c 601 -s 444 as 4:2:2 (descriptor 100)",
         "card.dpx"},
        {"-d 160x90 -b 10 -c RGB-PQ card.dpx", 0, "Writing dpx file\n", "Warning: DPX writes the R'G'B' samples of -c RGB-PQ under "
         "the CbYCrY 4:2:2 descriptor (100)", "card.dpx"},
        {"-d 160x90 -b 10 card.dpx", 0, "Writing dpx file\n", "", "card.dpx"},
        {"-d 160x90 -c RGB-headroom card.rgb", 0, "Warning 160 is not a valid Tova or Kelm pattern width\n", "",
         "card.rgb"},
        {"-d 1280x720 -c RGB-headroom -s 420 card.rgb", 0, "Writing rgb file\n", "", "card.rgb"},
        {"-b 10 -c 709 -s 422 card.pat", 1,
         "Error: Tova/Kelm patterns need to be rendered in 12 bit (-b 12)", "", ""},
        {"-c 709 card.pat", 1, "Error: Tova/Kelm YCbCr 422 patterns must be rendered in YCbCr 422 "
         "(-c 709 -s 422).\n2020 will work but is not yet supported by Tova or Kelm.", "", ""},
        {"-c 709 card.rgb", 1, "Error: Tova/Kelm RGB patterns must be rendered using RGB (-c RGB-headroom) 444", "",
         ""},
        {"-c RGB card.y4m", 1, "", "Error: Y4M holds Y'CbCr only: render with -c 601, 709, 2020, PQ, HLG or S-Log3 "
         "(or their -Mapped and -Live forms)\n", ""},
        {"-c 709 -b 9 card.y4m", 1, "", "Error: Y4M takes 8, 10, 12 or 16 bits, not 9 (-b)\n", ""},
        {"-d 160x90 -q TL card.png", 1, "", "Error: Quadrant mode is depracated\n", ""},
        // Values out of range.
        {"-d 10x10 card.png", 1, "", "Error: Size 10x10 is outside 64x64 to 16384x16384 (-d)\n", ""},
        {"-d 99999999999999999999x64 card.png", 1, "",
         "Error: Size 99999999999999999999x64 is outside 64x64 to 16384x16384 (-d)\n", ""},
        {"-d 2147483648 card.png", 1, "", "Error: Size 2147483648 is outside 64x64 to 16384x16384 (-d)\n", ""},
        {"-b 99999999999 card.png", 1, "", "Error: Bit depth 99999999999 is outside 8 to 16 (-b)\n", ""},
        {"-a 16x99999999999 card.png", 1, "", "Error: Aspect ratio 16x99999999999 is outside ", ""},
        {"-o -99999999999 card.png", 1, "",
         "Error: Option value -99999999999 is outside -2147483648 to 2147483647 (-o)\n", ""},
        {"-s 44444444444 card.png", 1, "", "Error: Sampling 44444444444 is not 444, 422 or 420 (-s)\n", ""},
        {"-c 70999999999 card.png", 1, "", "Error: Unrecognised Colour Space 70999999999\n", ""},
        {"--frames 0 card.png", 1, "", "Error: Frames 0 is not a whole number from 1 to 1000000 (--frames)\n", ""},
        {"--rate 29.97 card.png", 1, "", "Error: Rate 29.97 is not NUM or NUM/DEN", ""},
        {"--rate 30000/0 card.png", 1, "", "Error: Rate 30000/0 is not NUM or NUM/DEN", ""},
        {"--timecode 24:00:00:00 card.png", 1, "",
         "Error: Timecode 24:00:00:00 is not HH:MM:SS:FF (or HH:MM:SS;FF, drop-frame) within 23:59:59 (--timecode)\n",
         ""},
        {"--timecode '00:00;00:00' card.png", 1, "", "Error: Timecode 00:00;00:00 is not HH:MM:SS:FF", ""},
        {"--timecode 00:00:00:30 --rate 30000/1001 card.png", 1, "",
         "Error: Timecode frame 30 is past the last frame of a second at the rate 30000/1001", ""},
        // One timecode base, the rate rounded to the nearest whole number: 26/5 counts frames 00 to 04.
        {"--clock --timecode 10:00:00:05 --rate 26/5 card.y4m", 1, "",
         "Error: Timecode frame 05 is past the last frame of a second at the rate 26/5, which a timecode counts as "
         "5 frames a second (--timecode)\n", ""},
        {"--clock --timecode '10:00:00;05' card.y4m", 1, "",
         "Error: Timecode 10:00:00;05 is drop-frame, which keeps step with the rates 30000/1001 and 60000/1001 only, "
         "not 25; HH:MM:SS:FF counts every frame (--timecode)\n", ""},
        {"--clock --timecode '00:01:00;01' --rate 30000/1001 card.y4m", 1, "",
         "Error: Timecode 00:01:00;01 does not exist in drop-frame counting: the first 2 frame numbers", ""},
        {"-d 160x90 -c 709 --clock --timecode 00:00:00:29 --rate 30000/1001 card.y4m", 0, "Writing y4m file\n", "",
         "card.y4m"},
        {"-d 160x90 -c 709 --clock --timecode '00:10:00;00' --rate 60000/1001 card.y4m", 0, "Writing y4m file\n", "",
         "card.y4m"},
        {"--ident '\xff\xfe' card.png", 1, "", "Error: --ident \xff\xfe is not UTF-8 text\n", ""},
        // A family not installed falls back with a warning.
        {"-d 160x90 --ident X --font Sans:bold card.png", 0, "FreetypeFont: '", "", "card.png"},
        {"-d 160x90 --ident X --font 'Nonexistent Family 7f3e' card.png", 0, "Font: (none)\n",
         "Warning: Font \"Nonexistent Family 7f3e\" could not be loaded", "card.png"},
        {"--format tiff card.png", 1, "", "Error: Unknown format tiff (--format); did you mean tif?\n", ""},
        // Warnings: the value as read is used.
        {"-d 160x90 -a 4:3 card.png", 0, "Aspect: 4:9\n", "Warning: -a 4:3 is read as 4x9; did you mean 4x3?\n",
         "card.png"},
        {"-d 160x90 -d foo card.png", 0, "Width x Height: 160x90\n",
         "Warning: -d foo is not WIDTHxHEIGHT: the size stays 160x90\n", "card.png"},
        {"-d 160x90 -d 192X108 card.png", 0, "Width x Height: 192x90\n",
         "Warning: -d 192X108 is read as 192x90; did you mean 192x108?\n", "card.png"},
        {"-d 160x90i50 card.png", 0, "Width x Height: 160x90\n", "Warning: -d 160x90i50 is read as 160x90\n",
         "card.png"},
        {"-d 160x90 -s abc card.png", 0, "Writing png file\n",
         "Warning: -s abc is not a number: the sampling stays 444\n", "card.png"},
        {"-d 160x90 -s 4 card.png", 0, "Writing png file\n", "Warning: -s 4 is read as 444\n", "card.png"},
        {"-d 160x90 -c 42 card.png", 0, "Writing png file\n", "Warning: -c 42 names no colour encoding (the numbers "
         "are 601, 709 and 2020): it stays RGB\n", "card.png"},
        {"-d 160x90 -c 709p card.png", 0, "Writing png file\n", "Warning: -c 709p is read as 709\n", "card.png"},
        {"-d 160x90 -q tl card.png", 0, "Writing png file\n",
         "Warning: -q tl is not TL, TR, BL or BR: the quadrant stays none; did you mean TL?\n", "card.png"},
        {"-d 160x90 -b 12.5 card.png", 0, "Writing png file\n", "Warning: -b 12.5 is read as 12\n", "card.png"},
        {"-d 160x90 -b ten card.png", 0, "Writing png file\n",
         "Warning: -b ten is not a number: the bit depth stays 12\n", "card.png"},
        // clang-format on
    };
    fs::create_directories(dir.path("v1.0"));
    for (const auto& row : rows) {
        const Outcome r = run(row.args);
        EXPECT_EQ(r.status, row.status) << row.args << "\n" << r.err;
        EXPECT_TRUE(*row.out ? contains(r.out, row.out) : r.out.empty()) << row.args << "\n" << r.out;
        EXPECT_TRUE(*row.err ? r.err.rfind(row.err, 0) == 0 : r.err.empty()) << row.args << "\n" << r.err;
        EXPECT_EQ(takeFiles(), *row.written ? std::set<std::string>{row.written} : std::set<std::string>{}) << row.args;
    }
}

// Clip frames 0 and 1 equal captions of those timecodes (drop-frame skips ;00 and ;01; 26/5 counts 5 fps).
TEST_F(Program, ClockDrawsTheAcceptedTimecode) {
    const struct {
        const char *rate, *first, *second;
    } clips[] = {{"30000/1001", "00:00:59;29", "00:01:00;02"}, {"26/5", "10:00:00:04", "10:00:01:00"}};
    for (const auto& clip : clips) {
        const std::string options = std::string("-d 320x180 -c 709 -s 422 -b 10 --rate ") + clip.rate + " ";
        ASSERT_EQ(run(options + "--clock --timecode '" + clip.first + "' --frames 2 clock.y4m").status, 0);
        ASSERT_EQ(run(options + "--caption '" + clip.first + "' first.y4m").status, 0);
        ASSERT_EQ(run(options + "--caption '" + clip.second + "' second.y4m").status, 0);
        const std::string clock = file("clock.y4m"), first = file("first.y4m"), second = file("second.y4m");
        const size_t header = second.find('\n') + 1;
        ASSERT_EQ(clock.size(), first.size() + second.size() - header) << clip.rate;
        EXPECT_EQ(0, clock.compare(0, first.size(), first)) << clip.first;
        EXPECT_EQ(0, clock.compare(first.size(), std::string::npos, second, header)) << clip.second;
    }
}

// The face a font name matches is drawn: Monospace and serif idents differ from the default and each other.
TEST_F(Program, FontNamesChangeTheDrawnFace) {
    std::set<std::string> cards;
    for (const char* font : {"", "--font Monospace ", "--font serif "}) {
        ASSERT_EQ(run(std::string("-d 320x180 --ident PM5544 ") + font + "card.png").status, 0) << font;
        cards.insert(file("card.png"));
    }
    EXPECT_EQ(3u, cards.size());
}

// PNG keeps the output depth's bits as ffmpeg reads them; DPX is 10-bit with the descriptor called for.
TEST_F(Program, OutputDepthAndDpxDescriptor) {
    const std::pair<const char*, unsigned> depths[] = {{"-b 10 -c 709", 0x3F}, {"-b 8", 0xFF}, {"-b 12", 0x0F}};
    for (const auto& [options, lowBits] : depths) {
        ASSERT_EQ(run(std::string("-d 160x90 ") + options + " card.png").status, 0);
        const std::vector<uint16_t> samples = TestFiles::ffmpegSamples(dir.path("card.png"), "rgba64be", true);
        ASSERT_EQ(samples.size(), 160u * 90 * 4) << options;
        unsigned dropped = 0, any = 0;
        for (uint16_t sample : samples) dropped |= sample & lowBits, any |= sample;
        EXPECT_TRUE(dropped == 0 && any != 0) << options;
    }
    const std::pair<const char*, int> descriptors[] = {{"-c RGB-headroom", 50}, {"-c 709", 102}, {"-c 601", 100}};
    for (const auto& [options, descriptor] : descriptors) {
        ASSERT_EQ(run(std::string("-d 192x108 -b 12 ") + options + " card.dpx").status, 0);
        const std::string dpx = file("card.dpx");
        ASSERT_GT(dpx.size(), 8192u);
        EXPECT_EQ(uint8_t(dpx[800]), descriptor) << options;
        EXPECT_EQ(uint8_t(dpx[803]), 10) << options;
    }
}

// Through a pipe, TIFF (seeks back) and PNG give the bytes of the file of the same settings.
TEST_F(Program, StandardOutputThroughAPipe) {
    const std::string program = "cd '" + dir.path("") + "' && '" PM5544_EXE "' -d 160x90 ";
    for (const std::string format : {"png", "tif"}) {
        ASSERT_EQ(run("-d 160x90 card." + format).status, 0);
        const std::string piped = commandOutput(program + "--format " + format + " - 2>/dev/null | cat");
        EXPECT_TRUE(piped == file("card." + format)) << format << ": " << piped.size() << " bytes";
    }
}

// A terminal never receives the file's bytes (needs /dev/pts).
TEST_F(Program, StandardOutputNotToATerminal) {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    const char* name = terminal >= 0 && grantpt(terminal) == 0 && unlockpt(terminal) == 0 ? ptsname(terminal) : nullptr;
    if (name == nullptr || access(name, W_OK) != 0) {
        const std::string why = std::strerror(errno);
        if (terminal >= 0) close(terminal);
        GTEST_SKIP() << "no pseudo-terminal to write to (" << (name != nullptr ? name : "posix_openpt") << ": " << why
                     << ")";
    }
    EXPECT_EQ(commandOutput("cd '" + dir.path("") + "' && '" PM5544_EXE "' -d 160x90 - 2>&1 >" + name + "; echo $?"),
              "Error: Standard output is a terminal: send the file (-) to a pipe or redirect it\n1\n");
    close(terminal);
}

// The versions are those of the libraries as pkg-config, an independent source, reports them.
TEST_F(Program, VersionNamesTheProgramAndItsLibraries) {
    const Outcome r = run("--version");
    EXPECT_EQ(r.out.rfind("pm5544 " + std::string(PatternRender::programVersion()) + "\n", 0), 0u) << r.out;
    const std::pair<const char*, const char*> libraries[] = {
        {"libpng", "libpng"}, {"libtiff", "libtiff-4"}, {"Cairo", "cairo"}, {"Pango", "pango"}};
    for (const auto& [name, package] : libraries) {
        std::string version = commandOutput(std::string("pkg-config --modversion ") + package);
        version.erase(version.find_last_not_of('\n') + 1);
        EXPECT_TRUE(contains(r.out, std::string(name) + " " + version + "\n")) << name << " " << version;
    }
}

// The help's lines fit a terminal.
TEST_F(Program, HelpLinesFitATerminal) {
    std::istringstream lines(run("--help").out);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 79u) << line;
}

// The card lists no repeated lines, so its TIFF stores every line and has no line-repeat tag.
TEST_F(Program, TheCardsTiffHasNoLineRepeatTag) {
    ASSERT_EQ(run("-d 160x90 card.tif").status, 0);
    const std::string dump = commandOutput("tiffdump '" + dir.path("card.tif") + "' 2>&1");
    EXPECT_TRUE(contains(dump, "ImageLength (257) SHORT (3) 1<90>")) << dump;
    EXPECT_FALSE(contains(dump, "65456")) << dump;
}

// The self-test prints its checks at the default settings instead of rendering, and returns its result.
TEST_F(Program, SelfTestPrintsItsChecks) {
    const Outcome r = run("-u card.png");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out.rfind("Width x Height: 1920x1080\nAspect: 16:9\nPixel aspect: 1:1.000\n", 0), 0u);  // defaults
    EXPECT_TRUE(contains(r.out, "\nCheck 75% scaling\n  Yellow75  Cb  705   +1\t\n")) << r.out;
    EXPECT_FALSE(TestFiles::exists(dir.path("card.png")));
}

// The manual page renders cleanly and lists every option, -c word and format; completion offers the same.
TEST_F(Program, ManualPageAndCompletionFollowTheHelp) {
    const std::string manual = PM5544_DOCS_DIR "/pm5544.1.gz", completion = PM5544_DOCS_DIR "/pm5544.bash";
    const std::string page = commandOutput("MANWIDTH=80 man --warnings -E UTF-8 -P cat -l '" + manual + "' 2>'" +
                                           dir.path("warnings") + "'");
    EXPECT_EQ(file("warnings"), "");
    ASSERT_TRUE(contains(page, "EXIT STATUS")) << page;
    const std::string complete = "source /usr/share/bash-completion/bash_completion && source '" + completion +
                                 "' && COMP_WORDS=(pm5544 $0 \"$1\") COMP_CWORD=2 COMP_LINE=\"pm5544 $0 $1\" "
                                 "COMP_POINT=${#COMP_LINE} && _pm5544 && printf '%s\\n' \"${COMPREPLY[@]}\"";
    auto completions = [&](const std::string& previous, const std::string& current) {
        return "\n" + commandOutput("bash -c \"$PM5544_COMPLETE\" " + previous + " '" + current + "'");
    };
    setenv("PM5544_COMPLETE", complete.c_str(), 1);
    const std::string options = completions("-e", "-");
    for (const std::string& option : optionsInHelp(run("--help").out)) {
        EXPECT_TRUE(contains(page, "\n       " + option)) << option;
        EXPECT_TRUE(contains(options, "\n" + option + "\n")) << option;
    }
    const std::string encodingWords = completions("-c", "");
    for (const PatternRender::EncodingName& row : PatternRender::encodingNames()) {
        EXPECT_TRUE(contains(page, "\n       " + std::string(row.word))) << row.word;
        EXPECT_TRUE(contains(encodingWords, "\n" + std::string(row.word) + "\n")) << row.word;
    }
    EXPECT_EQ(completions("-c", "RGB-P"), "\nRGB-PQ\nRGB-PQ-Mapped\n");
    for (const PatternRender::OutputFormat& row : PatternRender::formats())
        EXPECT_TRUE(contains(page, "\n       " + std::string(row.name) + " ")) << row.name;
}

// An installation's files and links, pm5544.pc naming the install-time prefix, the installed program runs.
TEST_F(Program, InstallationPutsTheProgramLibraryAndTheirFilesInPlace) {
    const std::string root = dir.path("root");
    const std::string log = commandOutput(
        "DESTDIR='" + root + "' cmake --install '" PM5544_BINARY_DIR "' --prefix /usr 2>&1 && echo installed");
    ASSERT_TRUE(contains(log, "installed\n")) << log;
    const std::string libdir = "./usr/" PM5544_INSTALL_LIBDIR "/";
    std::vector<std::string> files = {"./usr/bin/pm5544",
                                      "./usr/bin/pm5544-analyse",
                                      "./usr/include/pm5544/pm5544.h",
                                      "./usr/include/pm5544/pm5544.hpp",
                                      libdir + "libpm5544.so",
                                      libdir + "libpm5544.so.1",
                                      libdir + PM5544_LIBRARY_FILE,
                                      libdir + "pkgconfig/pm5544.pc",
                                      libdir + "cmake/pm5544/pm5544Config.cmake",
                                      libdir + "cmake/pm5544/pm5544ConfigVersion.cmake",
                                      libdir + "cmake/pm5544/pm5544Targets.cmake",
                                      libdir + "cmake/pm5544/pm5544Targets-" PM5544_INSTALL_CONFIG ".cmake",
                                      "./usr/share/bash-completion/completions/pm5544",
                                      "./usr/share/bash-completion/completions/pm5544-analyse",
                                      "./usr/share/doc/libpm5544-1/copyright",
                                      "./usr/share/doc/libpm5544-dev/copyright",
                                      "./usr/share/doc/pm5544/copyright",
                                      "./usr/lib/python3/dist-packages/pm5544/__init__.py",
                                      "./usr/share/doc/python3-pm5544/copyright",
                                      "./usr/share/man/man1/pm5544.1.gz",
                                      "./usr/share/man/man1/pm5544-analyse.1.gz"};
#ifdef PM5544_GST_INSTALL_DIR
    files.push_back("./usr/" PM5544_GST_INSTALL_DIR "/libgstpm5544.so");  // under the prefix, as the library
    files.push_back("./usr/share/doc/gstreamer1.0-pm5544/copyright");
#endif
    std::sort(files.begin(), files.end());
    std::string listed;
    for (const std::string& file : files) listed += file + "\n";
    EXPECT_EQ(commandOutput("cd '" + root + "' && find . ! -type d | LC_ALL=C sort"), listed);
    EXPECT_EQ(commandOutput("cd '" + root + "/" + libdir + "' && readlink libpm5544.so libpm5544.so.1"),
              "libpm5544.so.1\n" PM5544_LIBRARY_FILE "\n");
    EXPECT_EQ(commandOutput("head -n 3 '" + root + "/" + libdir + "pkgconfig/pm5544.pc'"),
              "prefix=/usr\nlibdir=${prefix}/" PM5544_INSTALL_LIBDIR "\nincludedir=${prefix}/include\n");
    EXPECT_EQ(commandOutput("grep -h '^Copyright' '" + root + "'/usr/share/doc/*/copyright | uniq"),
              "Copyright (c) 2026 pm5544 developers\n");
    EXPECT_EQ(commandOutput(PM5544_RUN_PREFIX " '" + root + "/usr/bin/pm5544' --version").rfind("pm5544 ", 0), 0u);
    EXPECT_EQ(
        commandOutput(PM5544_RUN_PREFIX " '" + root + "/usr/bin/pm5544-analyse' --version").rfind("pm5544-analyse ", 0),
        0u);
}

#ifdef PM5544_GST_INSTALL_DIR
// A user-prefix install places the plugin, names its GST_PLUGIN_PATH, and the plugin loads the installed library.
TEST_F(Program, PluginInstalledUnderAnyPrefixIsFoundThroughTheGstPluginPathTheInstallNames) {
    const std::string prefix = dir.path("home/.local");
    const std::string pluginDir = prefix + "/" PM5544_GST_INSTALL_DIR;
    const auto install = [&](const std::string& environment) {
        std::string command;
        for (const char* component : {"library", "gstreamer"})
            command += "env -u GST_PLUGIN_PATH " + environment + " cmake --install '" PM5544_BINARY_DIR "' --prefix '" +
                       prefix + "' --component " + component + " 2>&1 && ";
        return commandOutput(command + "echo installed");
    };
    const std::string log = install("");
    ASSERT_TRUE(contains(log, "\ninstalled\n")) << log;
    EXPECT_TRUE(contains(log, "\n    export GST_PLUGIN_PATH=" + pluginDir + "\n")) << log;
    EXPECT_FALSE(contains(install("GST_PLUGIN_PATH='/elsewhere:" + pluginDir + "'"), "export GST_PLUGIN_PATH"));

    const std::string inspect = TestFiles::gstreamerTool("gst-inspect-1.0");
    if (inspect.empty()) GTEST_SKIP() << "gst-inspect-1.0 or the sanitizer's runtime for it is missing";
    const std::string listing = commandOutput("env -u LD_LIBRARY_PATH GST_PLUGIN_PATH='" + pluginDir +
                                              "' GST_PLUGIN_SYSTEM_PATH= GST_REGISTRY='" + dir.path("registry.bin") +
                                              "' " + inspect + " pm5544src 2>&1");
    EXPECT_TRUE(contains(listing, pluginDir + "/libgstpm5544.so\n")) << listing;
    EXPECT_TRUE(contains(listing, "Factory Details:")) << listing;
    EXPECT_TRUE(contains(listing, "MIT/X11")) << "the plugin's licence";
}
#endif

}  // namespace
