// pm5544-analyse as a command: statuses, report streams, JSON keys, annotation, failures, stdin, help.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "TestFiles.h"

using namespace TestFiles;

namespace {

class Analyse : public ProgramTest {
protected:
    Outcome analyse(const std::string& args, const std::string& input = "") {
        return run(args, PM5544_ANALYSE_EXE, input);
    }
    void render(const std::string& args) { ASSERT_EQ(0, runProgram(dir.path(""), args)); }
};

const char* const card10 = "-d 192x108 -c 709 -s 422 -b 10";

TEST_F(Analyse, TheCardAsSentExitsZeroWithTheVerdictFirst) {
    render(std::string(card10) + " card.y4m");
    const Outcome run = analyse(std::string("card.y4m ") + card10);
    EXPECT_EQ(0, run.status) << run.err;
    EXPECT_EQ(0u, run.out.find("verdict: ")) << run.out;
    EXPECT_EQ("", run.err);
}

// The Y4M pipe of the README, from cat in place of ffmpeg.
TEST_F(Analyse, Y4mOnStandardInput) {
    render(std::string(card10) + " --frames 2 card.y4m");
    const Outcome run = analyse(std::string("- --frame 1 ") + card10, "cat card.y4m");
    EXPECT_EQ(0, run.status) << run.err;
    EXPECT_EQ(0u, run.out.find("verdict: "));
}

// --json - puts the JSON alone on standard output, the text on standard error; the documented keys in order.
TEST_F(Analyse, JsonKeysAndStreams) {
    render(std::string(card10) + " card.png");
    const Outcome run = analyse(std::string("card.png --json - ") + card10);
    ASSERT_EQ(0, run.status) << run.err;
    EXPECT_EQ(0u, run.err.find("verdict: "));
    const nlohmann::ordered_json report = nlohmann::ordered_json::parse(run.out);
    std::vector<std::string> keys;
    for (const auto& item : report.items()) keys.push_back(item.key());
    EXPECT_EQ((std::vector<std::string>{"verdict", "components", "geometry", "range", "matrix", "swap", "levels",
                                        "psnr", "noise", "bit_depth", "clipped", "findings"}),
              keys);
    for (const char* key : {"scale_x", "scale_y", "offset_x", "offset_y"})
        EXPECT_TRUE(report["geometry"].contains(key));
    EXPECT_EQ(3u, report["levels"]["gain"].size());
    EXPECT_EQ(3u, report["psnr"]["explained"].size());
    EXPECT_EQ((nlohmann::ordered_json{"Y", "Cb", "Cr"}), report["components"]);
    EXPECT_TRUE(report["findings"].is_array());

    render("-d 192x108 -c RGB -b 10 rgb.png");
    const Outcome toFile = analyse("rgb.png -c RGB -b 10 --json report.json");
    ASSERT_EQ(0, toFile.status) << toFile.err;
    EXPECT_EQ((nlohmann::ordered_json{"R", "G", "B"}),
              nlohmann::ordered_json::parse(readFile(dir.path("report.json")))["components"]);
    EXPECT_EQ(0u, toFile.out.find("verdict: "));
}

// The annotated capture: a PNG pngcheck accepts, the capture and the difference map side by side.
TEST_F(Analyse, AnnotationIsAPngTwiceTheCaptureWide) {
    render(std::string(card10) + " card.dpx");
    const Outcome run = analyse(std::string("card.dpx --annotate look.png ") + card10);
    ASSERT_EQ(0, run.status) << run.err;
    const std::string check = commandOutput("pngcheck '" + dir.path("look.png") + "'");
    EXPECT_NE(std::string::npos, check.find("OK: ")) << check;
    EXPECT_NE(std::string::npos, check.find("(384x108, 24-bit RGB, non-interlaced")) << check;
    // The card as sent leaves nothing unexplained: the difference map is black, the capture's half is not.
    const Bytes rgb = ffmpegRaw("-i '" + dir.path("look.png") + "'", "-pix_fmt rgb24");
    ASSERT_EQ(size_t(384) * 108 * 3, rgb.size());
    size_t lit[2] = {0, 0};
    for (size_t i = 0; i < rgb.size(); ++i) lit[(i / 3) % 384 >= 192] += rgb[i] != 0;
    EXPECT_EQ(0u, lit[1]);
    EXPECT_LT(size_t(192) * 108, lit[0]);
}

// Every error exits 1 with a message, writes no file and leaves one already there as it was.
TEST_F(Analyse, ErrorsExitOneAndWriteNothing) {
    render(std::string(card10) + " card.png");
    writeFile(dir.path("report.json"), {'o', 'l', 'd'});
    writeFile(dir.path("raw"), {0, 0, 0});
    ASSERT_EQ(0, ffmpegFromRaw(dir, "rgb24", "1x1", "dot.png"));
    const struct {
        std::string args, says;
    } cases[] = {
        {"missing.png", "missing.png: No such file or directory"},
        {"card.png -c 7O9", "Unrecognised Colour Space 7O9 (-c); did you mean 709?"},
        {"card.png --jsn x", "Unknown option --jsn; did you mean --json?"},
        {"card.png card.png", "Two captures named"},
        {"", "No capture named"},
        {"card.png --frame 1", "holds one picture: there is no frame 1"},
        {"card.png -b 20", "20"},
        {"card.png -d 20x20", "20x20"},
        {"dot.png", "no PM5544 card found"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        const Outcome run = analyse(c.args + " --json report.json --annotate look.png");
        EXPECT_EQ(1, run.status);
        EXPECT_NE(std::string::npos, run.err.find(c.says)) << run.err;
        EXPECT_EQ("old", text(readFile(dir.path("report.json"))));
        EXPECT_FALSE(exists(dir.path("look.png")));
    }
    // No temporary is left beside the files.
    size_t hidden = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir.path("")))
        hidden += entry.path().filename().string()[0] == '.';
    EXPECT_EQ(0u, hidden);
}

// The options pm5544 has too show its defaults: read from its --help, not restated here.
TEST_F(Analyse, HelpShowsThePm5544Defaults) {
    const std::string ours = commandOutput("'" PM5544_ANALYSE_EXE "' --help");
    const std::string theirs = commandOutput("'" PM5544_EXE "' --help");
    // The option's entry, up to the next one, its lines joined.
    const auto defaultOf = [](const std::string& help, const std::string& option) {
        const size_t at = help.find("\n  " + option + " ");
        if (at == std::string::npos) return std::string("none");
        std::string entry;
        for (char c : help.substr(at + 1, help.find("\n  -", at + 1) - at - 1))
            if (!std::isspace(static_cast<unsigned char>(c)) || (!entry.empty() && entry.back() != ' '))
                entry += std::isspace(static_cast<unsigned char>(c)) ? ' ' : c;
        const size_t from = entry.find("(default ");
        return from == std::string::npos ? std::string("none") : entry.substr(from, entry.find(')', from) - from);
    };
    for (const char* option : {"-a", "-b", "-c", "-s", "--rate"}) {
        SCOPED_TRACE(option);
        EXPECT_NE("none", defaultOf(ours, option));
        EXPECT_EQ(defaultOf(theirs, option), defaultOf(ours, option));
    }
}

// The manual page renders without warnings and, like the completion, offers every option of --help.
TEST_F(Analyse, ManualPageAndCompletionFollowTheHelp) {
    const std::string page =
        commandOutput("MANWIDTH=80 man --warnings -E UTF-8 -P cat -l '" PM5544_DOCS_DIR "/pm5544-analyse.1.gz' 2>'" +
                      dir.path("warnings") + "'");
    EXPECT_EQ("", text(readFile(dir.path("warnings"))));
    EXPECT_NE(std::string::npos, page.find("EXIT STATUS")) << page;
    const std::string offered = commandOutput(
        "bash -c 'source /usr/share/bash-completion/bash_completion && source " PM5544_DOCS_DIR
        "/pm5544-analyse.bash && COMP_WORDS=(pm5544-analyse -) COMP_CWORD=1 COMP_LINE=\"pm5544-analyse -\" "
        "COMP_POINT=${#COMP_LINE} && _pm5544_analyse && printf \"%s\\n\" \"${COMPREPLY[@]}\"'");
    const std::string help = commandOutput("'" PM5544_ANALYSE_EXE "' --help");
    size_t options = 0;
    for (size_t at = help.find("\n  -"); at != std::string::npos; at = help.find("\n  -", at + 1), ++options) {
        const std::string option = help.substr(at + 3, help.find_first_of(" \n", at + 3) - at - 3);
        EXPECT_NE(std::string::npos, page.find("\n       " + option)) << option;
        EXPECT_NE(std::string::npos, ("\n" + offered).find("\n" + option + "\n")) << option;
    }
    EXPECT_EQ(17u, options);
}

}  // namespace
