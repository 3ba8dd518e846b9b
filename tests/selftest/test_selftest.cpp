// The colour self-test's text, through the sink it is given.
#include <gtest/gtest.h>

#include <string>

#include "TestFiles.h"
#include "selftest/UnitTests.h"

namespace {

// Every line is a progress line of the sink, whole, and the text holds the checks that differ from
// their references (values and differences from the reference tables); nothing reaches the process's
// streams. A sink that takes no lines gives the same result.
TEST(SelfTest, TextReachesTheSinkAlone) {
    std::string text;
    bool wholeProgressLines = true;
    const MessageSink sink = [&](MessageKind kind, const std::string& lines) {
        wholeProgressLines =
            wholeProgressLines && kind == MessageKind::Progress && !lines.empty() && lines.back() == '\n';
        text += lines;
    };
    int status = 0;
    const std::string printed = TestFiles::stdoutOf([&] {
        status = UnitTests::runUnitTests(1280, 720, 4, 3, PatternGen::Colour_RGB, sink);
        EXPECT_EQ(1, UnitTests::runUnitTests(1280, 720, 4, 3, PatternGen::Colour_RGB, MessageSink()));
    });
    EXPECT_EQ(1, status);
    EXPECT_EQ("", printed);
    EXPECT_TRUE(wholeProgressLines);
    EXPECT_EQ(0u, text.rfind("Width x Height: 1280x720\nAspect: 4:3\nPixel aspect: 1:1.333\n"
                             "\nCheck 75% scaling\n  Yellow75  Cb  705   +1\t\n",
                             0))
        << text;
    for (const char* expected :
         {"\nCheck 8 bit truncation\n", "\nCheck RGB - YCbCr Maths\n", "\nCheck 95% white rgb 219 - full RGB\n",
          "\nCheck 709 YCbCr - PQ 2020\n  White PQ   Y  509 -1527\tCb  512 -1536\tCr  512 -1536\t\n"})
        EXPECT_NE(std::string::npos, text.find(expected)) << expected;
    EXPECT_EQ("\n\n", text.substr(text.size() - 2));
    // Headings are formats, so "%%" prints one percent sign; labels are printed as they are.
    EXPECT_NE(std::string::npos, text.find("\nCheck 75% 10 bit rounding\n  Green_709_10   Cr  206   -1\t\n"
                                           "  Blue_709_10    Y  112   +1\t\n  Grey 40%% 709_10    Y  415   +1\t\n\n"))
        << text;
}

}  // namespace
