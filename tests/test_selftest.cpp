// The printed colour self-test: geometry lines, heading layout and the known difference lines.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "UnitTests.h"

namespace {

std::string selfTestOutput(int width, int height, int aspectW, int aspectH, int* result = nullptr) {
    testing::internal::CaptureStdout();
    const int r = UnitTests::runUnitTests(width, height, aspectW, aspectH, PatternGen::Colour_YCbCr_709);
    if (result != nullptr) *result = r;
    return testing::internal::GetCapturedStdout();
}

// The text between a heading line and the next blank line.
std::string group(const std::string& output, const std::string& heading) {
    const size_t at = output.find("\n" + heading + "\n");
    if (at == std::string::npos) return "<missing heading>";
    const size_t body = at + heading.size() + 2;
    return output.substr(body, output.find("\n\n", body - 1) - body + 1);
}

}  // namespace

TEST(SelfTest, GeometryLinesAndResult) {
    int result = 0;
    const std::string out = selfTestOutput(720, 576, 4, 3, &result);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(out.rfind("Width x Height: 720x576\nAspect: 4:3\nPixel aspect: 1:0.938\n\nCheck", 0), 0u);
}

// Each heading follows a blank line, in this order, and its first difference line follows it directly.
TEST(SelfTest, HeadingsInOrder) {
    std::istringstream headings(
        "Check 75% scaling\nCheck 8 bit truncation\nCheck 8 bit rounding\nCheck 10 bit rounding\n"
        "Check 75% 10 bit rounding\nCheck 2020 75% 10 bit rounding\nCheck RGB - YCbCr Maths\n"
        "Check RGB - YCbCr - RGB Maths\nCheck YCbCr - RGB headroom Maths\n"
        "Check red and blue YCbCr - RGB-219 - and back\nCheck I and Q vectors YCbCr - RGB-219 - and back\n"
        "Check I and Q vectors YCbCr - RGB - and back\nCheck 95% white rgb 219 - full RGB\n"
        "Check 709 YCbCr - HLG 2020\nCheck 709 YCbCr - PQ 2020\nCheck Ref PQ 12bits - 10 bits rounded\nCheck SLog3");
    const std::string out = selfTestOutput(1920, 1080, 16, 9);
    size_t at = 0, expected = 0, count = 0;
    for (std::string heading; std::getline(headings, heading); ++expected) {
        at = out.find("\n\n" + heading + "\n", at);
        ASSERT_NE(at, std::string::npos) << heading;
        EXPECT_EQ(out.find("\n" + heading + "\n\n  "), std::string::npos) << heading;
    }
    for (size_t p = out.find("\nCheck"); p != std::string::npos; p = out.find("\nCheck", p + 1)) ++count;
    EXPECT_EQ(count, expected);
}

TEST(SelfTest, KnownDifferenceLines) {
    const std::string out = selfTestOutput(1920, 1080, 16, 9);
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
    EXPECT_EQ(out.substr(out.size() - 4), "\t\n\n\n");
}
