// The command line as a user meets it: long options, help and version, warnings, numbers that do not
// fit, standard output as the file, and the installed manual page and completion.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "OutputFormats.h"
#include "TestFiles.h"

namespace {

using PatternRender::Settings;
using TestFiles::commandOutput;
using TestFiles::exists;

struct Parsed {
    bool ok;
    Settings settings;
    std::string err;
};

Parsed parse(std::vector<std::string> words) {
    words.insert(words.begin(), "pm5544");
    std::vector<char*> argv;
    for (std::string& w : words) argv.push_back(w.data());
    Parsed p{};
    p.err =
        TestFiles::stderrOf([&] { p.ok = PatternRender::parseCommandLine(int(argv.size()), argv.data(), p.settings); });
    return p;
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

using TestFiles::Outcome;
class Program : public TestFiles::ProgramTest {};

const std::string pngSignature = "\x89PNG\r\n\x1a\n";

// Every line of the help that starts with an option: its name.
std::vector<std::string> optionsInHelp(const std::string& help) {
    std::vector<std::string> names;
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);)
        if (line.rfind("  -", 0) == 0) names.push_back(line.substr(2, line.find(' ', 2) - 2));
    return names;
}

// Informational options win wherever they stand (not as another option's value); the short options
// and the rule that any other word is the file name stay, so -h and help are files.
TEST_F(Program, InformationalOptionsAndFileNamesThatLookLikeThem) {
    const struct {
        const char *args, *out, *err;  // a null err is not checked: a name without an extension warns
        int status;
    } cases[] = {
        {"--help", "Usage: pm5544 [OPTION]... FILE\n", "", 0},
        {"-c Rgb card.png --help", "\nColour encodings (-c):\n  RGB ", "", 0},
        {"--version", "pm5544 ", "", 0},
        {"", "", "Error: Filename not given\nTry 'pm5544 --help'.\n", 1},
        {"--hlep", "", "Error: Unknown option --hlep; did you mean --help?\nTry 'pm5544 --help'.\n", 1},
        {"--versoin=1 card.png", "", "Error: Unknown option --versoin; did you mean --version?\n", 1},
        {"--clock=yes card.png", "", "Error: Option --clock takes no value\n", 1},
        {"card.png --format", "", "Error: Option --format needs a value\n", 1},
        {"-c --help", "", "Error: Unrecognised Colour Space --help\n", 1},
        {"-d 160x90 -h", "Width x Height: 160x90\n", nullptr, 0},
        {"-d 160x90 help", "Width x Height: 160x90\n", nullptr, 0},
        {"-d 160x90 -- --help", "Width x Height: 160x90\n", nullptr, 0},
    };
    for (const auto& c : cases) {
        const Outcome r = run(c.args);
        EXPECT_EQ(r.status, c.status) << c.args;
        EXPECT_TRUE(contains(r.out, c.out)) << c.args << ": " << r.out;
        if (c.err == nullptr) continue;
        EXPECT_EQ(r.err.substr(0, std::string(c.err).size()), c.err) << c.args;
        if (*c.err == '\0') {
            EXPECT_EQ(r.err, "") << c.args;
        }
    }
    for (const char* name : {"-h", "help", "--help"}) EXPECT_EQ(file(name).substr(0, 8), pngSignature) << name;
    EXPECT_FALSE(exists(dir.path("card.png")));
}

// The versions are those of the libraries as pkg-config, an independent source, reports them.
TEST_F(Program, VersionNamesTheProgramAndItsLibraries) {
    const Outcome r = run("--version");
    EXPECT_EQ(r.out.rfind("pm5544 " + std::string(PatternRender::programVersion()) + "\n", 0), 0u) << r.out;
    EXPECT_TRUE(std::isdigit(static_cast<unsigned char>(PatternRender::programVersion()[0])));
    const std::pair<const char*, const char*> libraries[] = {
        {"libpng", "libpng"}, {"libtiff", "libtiff-4"}, {"Cairo", "cairo"}, {"Pango", "pango"}};
    for (const auto& [name, package] : libraries) {
        std::string version = commandOutput(std::string("pkg-config --modversion ") + package);
        version.erase(version.find_last_not_of('\n') + 1);
        EXPECT_TRUE(contains(r.out, std::string(name) + " " + version + "\n")) << name << " " << version;
    }
}

// The help covers every option with its value and default, every -c word and format, the limits.
TEST_F(Program, HelpListsEveryOptionEncodingAndFormat) {
    const std::string help = run("--help").out;
    const std::vector<std::string> listed = optionsInHelp(help);
    std::string flat, word;  // the help with its wrapped lines joined again
    for (std::istringstream words(help); words >> word;) flat += word + " ";
    std::set<std::string> expected;
    for (const auto& options : {PatternRender::shortOptions(), PatternRender::longOptions()})
        for (const PatternRender::Option& option : options) {
            expected.insert(option.name);
            const std::string value = option.value ? std::string(" ") + option.value : "";
            EXPECT_TRUE(contains(help, "  " + std::string(option.name) + value + " ")) << option.name;
            if (option.defaultValue) {
                EXPECT_TRUE(contains(flat, std::string("(default ") + option.defaultValue + ")")) << option.name;
            }
        }
    EXPECT_EQ(std::set<std::string>(listed.begin(), listed.end()), expected);
    for (const PatternRender::ColourWord& row : PatternRender::colourWords())
        EXPECT_TRUE(contains(help, "\n  " + std::string(row.word) + " ")) << row.word;
    for (const PatternRender::OutputFormat& row : PatternRender::formats())
        EXPECT_TRUE(contains(help, "\n  " + std::string(row.name) + " ")) << row.name;
    EXPECT_TRUE(contains(help, "64x64 to 16384x16384"));
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 79u) << line;
}

// Numbers that do not fit are quoted as typed, with status 1 and no file.
TEST_F(Program, NumbersThatDoNotFitAreReportedAsTyped) {
    const std::pair<const char*, const char*> cases[] = {
        {"-d 99999999999999999999x64", "Error: Size 99999999999999999999x64 is outside 64x64 to 16384x16384 (-d)\n"},
        {"-d 64x-99999999999999999999", "Error: Size 64x-99999999999999999999 is outside 64x64 to 16384x16384 (-d)\n"},
        {"-d 2147483648", "Error: Size 2147483648 is outside 64x64 to 16384x16384 (-d)\n"},
        {"-b 99999999999", "Error: Bit depth 99999999999 is outside 8 to 16 (-b)\n"},
        {"-a 16x99999999999", "Error: Aspect ratio 16x99999999999 is outside "},
        {"-o -99999999999", "Error: Option value -99999999999 is outside -2147483648 to 2147483647 (-o)\n"},
        {"-s 44444444444", "Error: Sampling 44444444444 is not 444, 422 or 420 (-s)\n"},
        {"-c 70999999999", "Error: Unrecognised Colour Space 70999999999\n"},
        {"--frames 0", "Error: Frames 0 is not a whole number from 1 to 1000000 (--frames)\n"},
        {"--frames 12x", "Error: Frames 12x is not a whole number"},
        {"--rate 29.97", "Error: Rate 29.97 is not NUM or NUM/DEN"},
        {"--rate 30000/0", "Error: Rate 30000/0 is not NUM or NUM/DEN"},
        {"--timecode 24:00:00:00", "Error: Timecode 24:00:00:00 is not HH:MM:SS:FF within 23:59:59 (--timecode)\n"},
        {"--timecode 10:00:00:25", "Error: Timecode frame 25 is past the last frame of a second at the rate 25/1"},
        {"--format tiff", "Error: Unknown format tiff (--format); did you mean tif?\n"},
        {"--preview card.png", "Error: --preview card.png is the output file as well\n"},
    };
    for (const auto& [args, message] : cases) {
        const Outcome r = run(std::string(args) + " card.png");
        EXPECT_EQ(r.status, 1) << args;
        EXPECT_EQ(r.err.substr(0, std::string(message).size()), message) << args;
        EXPECT_EQ(r.out, "") << args;
    }
    EXPECT_FALSE(exists(dir.path("card.png")));
}

// Values read differently than they look are rendered exactly as before, with a warning.
TEST_F(Program, WarningsChangeNothing) {
    const struct {
        const char *args, *warning, *outLine;
    } cases[] = {
        {"-a 4:3", "Warning: -a 4:3 is read as 4x9; did you mean 4x3?\n", "Aspect: 4:9\n"},
        {"-d foo", "Warning: -d foo is not WIDTHxHEIGHT: the size stays 160x90\n", "Width x Height: 160x90\n"},
        {"-d 192X108", "Warning: -d 192X108 is read as 192x90; did you mean 192x108?\n", "Width x Height: 192x90\n"},
        {"-d 160x90i50", "Warning: -d 160x90i50 is read as 160x90\n", "Width x Height: 160x90\n"},
        {"-s abc", "Warning: -s abc is not a number: the sampling stays 444\n", "writing to: card.png\n"},
        {"-s 4", "Warning: -s 4 is read as 444\n", "writing to: card.png\n"},
        {"-c 42", "Warning: -c 42 names no colour encoding (the numbers are 601, 709 and 2020): it stays RGB\n",
         "writing to: card.png\n"},
        {"-c 709p", "Warning: -c 709p is read as 709\n", "writing to: card.png\n"},
        {"-q tl", "Warning: -q tl is not TL, TR, BL or BR: the quadrant stays none; did you mean TL?\n",
         "writing to: card.png\n"},
        {"-b 12.5", "Warning: -b 12.5 is read as 12\n", "writing to: card.png\n"},
        {"-b ten", "Warning: -b ten is not a number: the bit depth stays 12\n", "writing to: card.png\n"},
    };
    for (const auto& c : cases) {
        const Outcome r = run(std::string("-d 160x90 ") + c.args + " card.png");
        EXPECT_EQ(r.status, 0) << c.args << r.err;
        EXPECT_EQ(r.err, c.warning) << c.args;
        EXPECT_TRUE(contains(r.out, c.outLine)) << c.args << r.out;
        EXPECT_EQ(file("card.png").substr(0, 8), pngSignature) << c.args;
    }
}

// The long options land in their settings; validation that needs every option sees them in any order.
TEST(CommandLine, LongOptionsFillTheirSettings) {
    Parsed p =
        parse({"--format", "dpx", "--preview=p.png", "--frames", "50", "--rate", "30000/1001", "--ident",
               "Studio 1 — Ост", "--caption=", "--clock", "--font", "DejaVu Sans", "--timecode", "09:59:58:29", "-"});
    ASSERT_TRUE(p.ok) << p.err;
    const Settings& s = p.settings;
    EXPECT_EQ(std::vector<std::string>({s.format, s.preview, s.ident, s.caption, s.font, s.fileName}),
              std::vector<std::string>({"dpx", "p.png", "Studio 1 — Ост", "", "DejaVu Sans", "-"}));
    EXPECT_EQ(std::vector<int>({s.frames, s.rateNum, s.rateDen, s.clock}), std::vector<int>({50, 30000, 1001, 1}));
    ASSERT_TRUE(s.timecode.has_value());
    EXPECT_EQ(std::vector<int>({s.timecode->hours, s.timecode->minutes, s.timecode->seconds, s.timecode->frames}),
              std::vector<int>({9, 59, 58, 29}));
    EXPECT_EQ(p.err, "");
    EXPECT_TRUE(parse({"--timecode", "00:00:00:29", "--rate", "30000/1001", "x"}).ok);
    EXPECT_FALSE(parse({"--timecode", "00:00:00:30", "--rate", "30000/1001", "x"}).ok);
    EXPECT_FALSE(parse({"--ident", "\xff\xfe", "x"}).ok);
    for (const PatternRender::OutputFormat& row : PatternRender::formats())
        EXPECT_EQ(parse({"--format", row.name, "x"}).settings.format, row.name);
}

// Every -c word of the table reads back as its axes: the usage and the parser share one table.
TEST(CommandLine, EveryColourWordReadsAsItsAxes) {
    std::set<int> axes;
    for (const PatternRender::ColourWord& row : PatternRender::colourWords()) {
        EXPECT_EQ(parse({"-c", row.word, "x"}).settings.axes, row.axes) << row.word;
        axes.insert(row.axes);
    }
    EXPECT_EQ(axes.size(), size_t(PatternGen::colourAxesCount));
}

// What a format does with the settings: the fallback to PNG and DPX's fixed depth and descriptors.
TEST(CommandLine, FormatWarningsAndTheFormatChosen) {
    const struct {
        std::vector<std::string> args;
        const char* format;
        const char* warning;  // empty: none
    } cases[] = {
        {{"card.png"}, "png", ""},
        {{"card.PNG"}, "png", ""},
        {{"card"}, "png", "Warning: card has no extension: writing PNG (--format chooses another format)\n"},
        {{"v1.0/card"}, "png", "Warning: v1.0/card has no extension: writing PNG"},
        {{"card.TIF"},
         "png",
         "Warning: The extension .TIF names no format: writing PNG to card.TIF; did you mean .tif?"},
        {{"card.tiff"},
         "png",
         "Warning: The extension .tiff names no format: writing PNG to card.tiff; did you mean .tif?"},
        {{"card.jpg"},
         "png",
         "Warning: The extension .jpg names no format: writing PNG to card.jpg; the formats are png, "},
        {{"--format", "tif", "card"}, "tif", ""},
        {{"-"}, "png", ""},
        {{"card.y4m"}, "y4m", ""},
        {{"-b", "10", "card.dpx"}, "dpx", ""},
        {{"-b", "10", "-c", "709", "card.dpx"}, "dpx", ""},
        {{"-b", "10", "-c", "RGB-headroom", "-s", "420", "card.dpx"}, "dpx", ""},
        {{"card.dpx"},
         "dpx",
         "Warning: DPX files are always 10-bit: -b 12 rounds the frame to 12 bits, of which the file keeps the top 10"},
        {{"-b", "8", "--format", "dpx", "card"},
         "dpx",
         "Warning: DPX files are always 10-bit: -b 8 rounds the frame to 8 bits, which the file stores in 10"},
        {{"-b", "10", "-c", "601", "card.dpx"}, "dpx", "Warning: DPX writes -c 601 -s 444 as 4:2:2 (descriptor 100)"},
        {{"-b", "10", "-c", "PQ", "-s", "420", "card.dpx"}, "dpx", "Warning: DPX writes -c PQ -s 420 as 4:2:2"},
        {{"-b", "10", "-c", "RGB-PQ", "card.dpx"},
         "dpx",
         "Warning: DPX writes the R'G'B' samples of -c RGB-PQ under the CbYCrY 4:2:2 descriptor (100)"},
        {{"-b", "10", "-c", "601", "-s", "444", "card.pat"}, "pat", ""},
    };
    for (const auto& c : cases) {
        const Parsed p = parse(c.args);
        ASSERT_TRUE(p.ok) << c.args.back();
        EXPECT_STREQ(PatternRender::formatFor(p.settings).name, c.format) << c.args.back();
        const std::string warnings = TestFiles::stderrOf([&] { PatternRender::warnAboutSettings(p.settings); });
        EXPECT_EQ(warnings.substr(0, std::string(c.warning).size()), c.warning) << c.args.back();
        if (*c.warning == '\0') {
            EXPECT_EQ(warnings, "") << c.args.back();
        }
    }
}

// Runs `child` in a process whose standard output and error are pipes; returns what each received.
template <typename Child>
std::pair<std::string, std::string> streamsOf(Child child) {
    int out[2], err[2];
    if (pipe(out) != 0 || pipe(err) != 0) return {};
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], STDOUT_FILENO), dup2(err[1], STDERR_FILENO);
        close(out[0]), close(err[0]), close(out[1]), close(err[1]);
        _exit(child());
    }
    close(out[1]), close(err[1]);
    auto drain = [](int fd) {
        std::string received;
        char chunk[256];
        for (ssize_t n; (n = read(fd, chunk, sizeof chunk)) > 0;) received.append(chunk, size_t(n));
        close(fd);
        return received;
    };
    const std::string stdoutText = drain(out[0]), stderrText = drain(err[0]);
    waitpid(pid, nullptr, 0);
    return {stdoutText, stderrText};
}

// With "-" the file's bytes keep standard output to themselves, and any printf goes to standard error.
TEST(CommandLine, StandardOutputCarriesOnlyTheFile) {
    const auto [out, err] = streamsOf([] {
        std::printf("before\n");
        FILE* data = PatternRender::divertProgressFromStandardOutput();
        if (data == nullptr) return 1;
        std::printf("size 160x90\n");
        std::fflush(stdout);
        std::fwrite("\x89PNG", 1, 4, data);
        return std::fclose(data) == 0 ? 0 : 1;
    });
    EXPECT_EQ(out, "before\n\x89PNG");
    EXPECT_EQ(err, "size 160x90\n");
    // A terminal never receives the file's bytes.
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(grantpt(terminal) | unlockpt(terminal), 0);
    const std::string terminalName = ptsname(terminal);
    const std::string refusal = streamsOf([&] {
                                    const int tty = open(terminalName.c_str(), O_RDWR | O_NOCTTY);
                                    dup2(tty, STDOUT_FILENO);
                                    return PatternRender::divertProgressFromStandardOutput() == nullptr ? 0 : 1;
                                }).second;
    close(terminal);
    EXPECT_EQ(refusal, "Error: Standard output is a terminal: send the file (-) to a pipe or redirect it\n");
}

// The manual page renders without warnings and lists every option that --help lists, every -c word
// and every format; the completion offers the same options and words.
TEST_F(Program, ManualPageAndCompletionFollowTheHelp) {
    const std::string manual = PM5544_DOCS_DIR "/pm5544.1.gz", completion = PM5544_DOCS_DIR "/pm5544.bash";
    const std::string page = commandOutput("MANWIDTH=80 man --warnings -E UTF-8 -P cat -l '" + manual + "' 2>'" +
                                           dir.path("warnings") + "'");
    EXPECT_EQ(file("warnings"), "");
    ASSERT_TRUE(contains(page, "EXIT STATUS")) << page;
    const std::string help = run("--help").out;
    const std::string complete = "source /usr/share/bash-completion/bash_completion && source '" + completion +
                                 "' && COMP_WORDS=(pm5544 $0 \"$1\") COMP_CWORD=2 COMP_LINE=\"pm5544 $0 $1\" "
                                 "COMP_POINT=${#COMP_LINE} && _pm5544 && printf '%s\\n' \"${COMPREPLY[@]}\"";
    auto completions = [&](const std::string& previous, const std::string& current) {
        return "\n" + commandOutput("bash -c \"$PM5544_COMPLETE\" " + previous + " '" + current + "'");
    };
    setenv("PM5544_COMPLETE", complete.c_str(), 1);
    const std::string options = completions("-e", "-");
    for (const std::string& option : optionsInHelp(help)) {
        EXPECT_TRUE(contains(page, "\n       " + option)) << option;
        EXPECT_TRUE(contains(options, "\n" + option + "\n")) << option;
    }
    const std::string colourWords = completions("-c", "");
    for (const PatternRender::ColourWord& row : PatternRender::colourWords()) {
        EXPECT_TRUE(contains(page, "\n       " + std::string(row.word))) << row.word;
        EXPECT_TRUE(contains(colourWords, "\n" + std::string(row.word) + "\n")) << row.word;
    }
    EXPECT_EQ(completions("-c", "RGB-P"), "\nRGB-PQ\nRGB-PQ-Mapped\n");
    for (const PatternRender::OutputFormat& row : PatternRender::formats())
        EXPECT_TRUE(contains(page, "\n       " + std::string(row.name) + " ")) << row.name;
}

// What an installation puts where, and that the installed program runs.
TEST_F(Program, InstallationPutsTheProgramManualAndCompletionInPlace) {
    const std::string root = dir.path("root");
    const std::string log = commandOutput(
        "DESTDIR='" + root + "' cmake --install '" PM5544_BINARY_DIR "' --prefix /usr 2>&1 && echo installed");
    ASSERT_TRUE(contains(log, "installed\n")) << log;
    const std::string files = commandOutput("cd '" + root + "' && find . -type f | sort");
    EXPECT_EQ(files,
              "./usr/bin/pm5544\n./usr/share/bash-completion/completions/pm5544\n"
              "./usr/share/man/man1/pm5544.1.gz\n");
    EXPECT_EQ(commandOutput("'" + root + "/usr/bin/pm5544' --version").rfind("pm5544 ", 0), 0u);
}

// Need the driver to send "-" through divertProgressFromStandardOutput and to call warnAboutSettings.
TEST_F(Program, StandardOutputAsTheFile) {
    const std::pair<const char*, const char*> cases[] = {
        {"-d 160x90 -", "png"}, {"-d 160x90 --format png -", "png"}, {"-d 160x90 -b 10 -c 709 --format dpx -", "dpx"}};
    for (const auto& [args, format] : cases) {
        const Outcome r = run(args);
        ASSERT_EQ(r.status, 0) << args << r.err;
        EXPECT_TRUE(contains(r.err, "size 160x90\n")) << args;
        EXPECT_EQ(r.out.substr(0, 4), std::string(format) == "png" ? "\x89PNG" : "XPDS") << args;
    }
    std::string decoded = commandOutput("cd '" + dir.path("") +
                                        "' && '" PM5544_EXE
                                        "' -d 160x90 - 2>/dev/null | ffmpeg -v error -i - -f rawvideo -pix_fmt "
                                        "rgba64be - 2>/dev/null");
    EXPECT_EQ(decoded.size(), 160u * 90 * 8);
    EXPECT_EQ(run("-d 160x90 card.jpg").err,
              "Warning: The extension .jpg names no format: writing PNG to card.jpg; the formats are png, tif, dpx, "
              "pat, yc4, rgb, xyz, y4m\n");
}

}  // namespace
