// Whole-frame golden checksums: the card rendered through the full-frame loop and rounded as the driver
// does, for every colour axis at 10 and 12 bits, 4:4:4 and 4:2:2. Any change to the palette, layout, edge
// shaping, conversions or rounding changes a line of tests/data/card_frames.txt. After a deliberate change,
// regenerate the file with PM5544_UPDATE_GOLDEN=1 and review the diff.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "pattern/FrameRow.h"
#include "PatternRender.h"
#include "TestFiles.h"
#include "philips-PM5544-new.h"

namespace {

constexpr int kWidth = 192, kHeight = 108;
const char* const kGoldenFile = PM5544_SOURCE_DIR "/tests/data/card_frames.txt";

// FNV-1a over the rounded frame's samples as little-endian bytes, in hex.
std::string frameChecksum(PatternGen::colorAxes_e axes, int bits, PatternGen::sampling_e sampling) {
    PhilipsPm5544Spec card;
    std::vector<uint16_t> frame(size_t(kWidth) * kHeight * 4);
    TestFiles::stdoutOf([&] {
        card.init(kWidth, kHeight, 16, 9, axes, sampling, bits, PatternGen::Quadrant_None, 0, false);
        card.run_body(0, kWidth, kHeight, frame.data());
    });
    FrameRow::round(frame.data(), size_t(kWidth) * kHeight, axes, bits);
    uint64_t hash = 14695981039346656037ull;
    for (uint16_t v : frame)
        for (uint8_t byte : {uint8_t(v & 0xFF), uint8_t(v >> 8)}) hash = (hash ^ byte) * 1099511628211ull;
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
    return text;
}

}  // namespace

TEST(CardGolden, EveryAxisDepthAndSamplingMatchesItsChecksum) {
    std::ostringstream frames;
    frames << "# axes bits sampling checksum of the rounded " << kWidth << "x" << kHeight << " 16:9 frame\n";
    for (int axis = 0; axis < PatternGen::colourAxesCount; ++axis)
        for (int bits : {10, 12})
            for (PatternGen::sampling_e sampling : {PatternGen::Sampling_444, PatternGen::Sampling_422}) {
                const auto axes = PatternGen::colorAxes_e(axis);
                frames << axisToString(axes) << " " << bits << " " << sampling << " "
                       << frameChecksum(axes, bits, sampling) << "\n";
            }
    if (std::getenv("PM5544_UPDATE_GOLDEN")) std::ofstream(kGoldenFile) << frames.str();
    const TestFiles::Bytes golden = TestFiles::readFile(kGoldenFile);
    EXPECT_EQ(std::string(golden.begin(), golden.end()), frames.str());  // the diff names each changed line
}
