// Whole-frame golden checksums: the card rendered through the full-frame loop and rounded as the
// driver does, for every colour axis at 10 and 12 bits, 4:4:4 and 4:2:2. Any change to the
// palette, the layout, the edge shaping, the conversions or the rounding shows as a changed line
// of tests/data/card_frames.txt. An axis without a line there fails.
//
// After a deliberate change, regenerate the file with PM5544_UPDATE_GOLDEN=1 and review the diff.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "PatternRender.h"
#include "philips-PM5544-new.h"

namespace {

constexpr int kWidth = 192;
constexpr int kHeight = 108;
const char* const kGoldenFile = PM5544_SOURCE_DIR "/tests/data/card_frames.txt";

// FNV-1a over the samples as little-endian bytes.
uint64_t checksum(const std::vector<uint16_t>& samples) {
    uint64_t hash = 14695981039346656037ull;
    for (uint16_t v : samples)
        for (uint8_t byte : {uint8_t(v & 0xFF), uint8_t(v >> 8)}) hash = (hash ^ byte) * 1099511628211ull;
    return hash;
}

std::string frameChecksum(PatternGen::colorAxes_e axes, int bits, PatternGen::sampling_e sampling) {
    PhilipsPm5544Spec card;
    testing::internal::CaptureStdout();
    card.init(kWidth, kHeight, 16, 9, axes, sampling, bits, PatternGen::Quadrant_None, 0, false);
    std::vector<uint16_t> frame(size_t(kWidth) * kHeight * 4);
    card.run_body(0, kWidth, kHeight, frame.data());
    testing::internal::GetCapturedStdout();
    PatternRender::roundFrame(frame.data(), size_t(kWidth) * kHeight, axes, bits);
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(checksum(frame)));
    return text;
}

std::string key(int axes, int bits, int sampling) {
    return std::string(axisToString(PatternGen::colorAxes_e(axes))) + " " + std::to_string(bits) + " " +
           std::to_string(sampling);
}

std::map<std::string, std::string> readGolden() {
    std::map<std::string, std::string> golden;
    std::ifstream in(kGoldenFile);
    for (std::string line; std::getline(in, line);) {
        const size_t split = line.rfind(' ');
        if (!line.empty() && line[0] != '#' && split != std::string::npos)
            golden[line.substr(0, split)] = line.substr(split + 1);
    }
    return golden;
}

}  // namespace

TEST(CardGolden, EveryAxisDepthAndSamplingMatchesItsChecksum) {
    const std::map<std::string, std::string> golden = readGolden();
    std::ostringstream regenerated;
    regenerated << "# axes bits sampling checksum of the rounded " << kWidth << "x" << kHeight << " 16:9 frame\n";
    for (int axes = 0; axes < PatternGen::colourAxesCount; ++axes)
        for (int bits : {10, 12})
            for (PatternGen::sampling_e sampling : {PatternGen::Sampling_444, PatternGen::Sampling_422}) {
                const std::string name = key(axes, bits, sampling);
                const std::string actual = frameChecksum(PatternGen::colorAxes_e(axes), bits, sampling);
                regenerated << name << " " << actual << "\n";
                const auto expected = golden.find(name);
                if (expected == golden.end())
                    ADD_FAILURE() << "no golden checksum for " << name;
                else
                    EXPECT_EQ(actual, expected->second) << name;
            }
    if (std::getenv("PM5544_UPDATE_GOLDEN")) std::ofstream(kGoldenFile) << regenerated.str();
}
