// The printed colour self-test: geometry lines, heading layout and the known difference lines.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "UnitTests.h"

namespace {

struct SelfTestRun {
    int result;
    std::string output;
};

SelfTestRun runSelfTest(int width = 1920, int height = 1080, int aspectW = 16, int aspectH = 9) {
    testing::internal::CaptureStdout();
    const int result = UnitTests::runUnitTests(width, height, aspectW, aspectH, PatternGen::Colour_YCbCr_709);
    return {result, testing::internal::GetCapturedStdout()};
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
}

// The text between a heading line and the next blank line.
std::string group(const std::string& output, const std::string& heading) {
    const std::string start = "\n" + heading + "\n";
    const size_t at = output.find(start);
    if (at == std::string::npos) return "<missing heading>";
    const size_t body = at + start.size();
    return output.substr(body, output.find("\n\n", body - 1) - body + 1);
}

}  // namespace

TEST(SelfTest, GeometryLinesAndResult) {
    const SelfTestRun run = runSelfTest();
    EXPECT_EQ(run.result, 1);
    EXPECT_EQ(run.output.rfind("Width x Height: 1920x1080\nAspect: 16:9\nPixel aspect: 1:1.000\n\nCheck", 0), 0u);
    EXPECT_EQ(
        runSelfTest(720, 576, 4, 3).output.rfind("Width x Height: 720x576\nAspect: 4:3\nPixel aspect: 1:0.938\n", 0),
        0u);
}

TEST(SelfTest, HeadingsInOrderEachAfterABlankLine) {
    const std::vector<std::string> expected = {
        "Check 75% scaling",
        "Check 8 bit truncation",
        "Check 8 bit rounding",
        "Check 10 bit rounding",
        "Check 75% 10 bit rounding",
        "Check 2020 75% 10 bit rounding",
        "Check RGB - YCbCr Maths",
        "Check RGB - YCbCr - RGB Maths",
        "Check YCbCr - RGB headroom Maths",
        "Check red and blue YCbCr - RGB-219 - and back",
        "Check I and Q vectors YCbCr - RGB-219 - and back",
        "Check I and Q vectors YCbCr - RGB - and back",
        "Check 95% white rgb 219 - full RGB",
        "Check 709 YCbCr - HLG 2020",
        "Check 709 YCbCr - PQ 2020",
        "Check Ref PQ 12bits - 10 bits rounded",
        "Check SLog3",
    };
    const std::vector<std::string> all = lines(runSelfTest().output);
    std::vector<std::string> headings;
    for (size_t i = 0; i < all.size(); ++i) {
        if (all[i].rfind("Check", 0) != 0) continue;
        headings.push_back(all[i]);
        EXPECT_TRUE(i > 0 && all[i - 1].empty()) << all[i];
        // No blank line between a heading and its first difference line.
        const bool blankAfter = i + 1 < all.size() && all[i + 1].empty();
        EXPECT_FALSE(blankAfter && i + 2 < all.size() && all[i + 2].rfind("  ", 0) == 0) << all[i];
    }
    EXPECT_EQ(headings, expected);
}

TEST(SelfTest, KnownDifferenceLines) {
    const std::string out = runSelfTest().output;
    // Exact scaling prints nothing, not even the label; yellow's Cb is one above the reference.
    EXPECT_EQ(out.find("White75"), std::string::npos);
    EXPECT_EQ(group(out, "Check 75% scaling").rfind("  Yellow75  Cb  705   +1\t\n", 0), 0u);
    EXPECT_EQ(group(out, "Check 10 bit rounding").rfind("  Yellow_709_10  Cb   64   +1\t\n", 0), 0u);
    // Labels go through "%s": a doubled percent sign stays doubled.
    EXPECT_NE(group(out, "Check 75% 10 bit rounding").find("  Grey 40%% 709_10    Y  415   +1\t\n"), std::string::npos);
    EXPECT_EQ(group(out, "Check 709 YCbCr - HLG 2020"), "  White HLG   Y  616 +114\t\n");
    EXPECT_EQ(
        group(out, "Check 709 YCbCr - PQ 2020").rfind("  White PQ   Y  509 -1527\tCb  512 -1536\tCr  512 -1536\t\n", 0),
        0u);
    EXPECT_EQ(group(out, "Check Ref PQ 12bits - 10 bits rounded").find("White"), std::string::npos);
    EXPECT_EQ(group(out, "Check I and Q vectors YCbCr - RGB-219 - and back"), "");
    // The 709 and 601 halves of the RGB - YCbCr group are separated by one blank line.
    EXPECT_NE(out.find("  Green 709   Y 2762   -1\t\n\n  White 601   "), std::string::npos);
    // The final puts("\n") leaves two newlines after the last line.
    ASSERT_GE(out.size(), 4u);
    EXPECT_EQ(out.substr(out.size() - 4), "\t\n\n\n");
}
