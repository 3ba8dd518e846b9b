// The compressed-line rendering loop: files it builds are read back with an independent reader and
// compared pixel by pixel with the pattern; the run-length rule, line merging, line repeats and the
// splitting of sections too long for the format.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "TestPattern.h"
#include "TovaKelmReader.h"
#include "writeTovaKelm.h"

namespace {

using PatternGen::colorAxes_e;
using PatternGen::sampling_e;
using Components = DeviceFileReader::Components;

// A pixel given as (Y or G, Cb or B, Cr or R) in the axes under test, 12 bits.
Pixel code(colorAxes_e axes, int yg, int cbb, int crr) { return Pixel(yg, cbb, crr, axes, 12); }

struct Render {
    Render(TestPattern::BodyFn body, int width, int height, colorAxes_e axes, sampling_e sampling,
           std::vector<std::pair<int, int>> repeats = {})
        : pattern(std::move(body)), width(width), height(height), axes(axes) {
        pattern.initQuietly(width, height, 16, 9, axes, sampling, 12);
        if (!repeats.empty()) {
            pattern.useBaseLineRepeats = false;
            pattern.lineRepeats = repeats;
        }
        pattern.recordCalls = true;
        pattern.calls.clear();
        pattern.bodyCalls = 0;
        EXPECT_TRUE(pattern.run_body(0, width, height, lineRepeats, file));
    }

    // What the pattern shows at (x, y), in the output axes; asked of the body function directly so
    // the recorded calls stay those of the loop.
    Pixel expected(int x, int y) const { return pattern.bodyFn(x, y).convertTo(axes); }

    TestPattern pattern;
    int width, height;
    colorAxes_e axes;
    std::vector<std::pair<int, int>> lineRepeats;
    TovaKelmPatternFile file;
};

// Saves the file and reads it back with the independent reader.
DeviceFileReader::File saveAndParse(TovaKelmPatternFile& file) {
    const std::string path =
        (std::filesystem::path(::testing::TempDir()) / ("loop_" + std::to_string(getpid()) + ".pat")).string();
    EXPECT_TRUE(file.Save(path));
    DeviceFileReader::File parsed = DeviceFileReader::parseFile(path);
    std::filesystem::remove(path);
    return parsed;
}

// Checks one expanded line against the pattern's converted pixels of source line y.
void expectLineMatches(const Render& r, const std::vector<Components>& samples, int y, bool pairs) {
    const size_t expectedSamples = pairs ? (r.width + 1) / 2 : r.width;
    ASSERT_EQ(samples.size(), expectedSamples) << "line " << y;
    for (int x = 0; x < r.width; ++x) {
        const Pixel p = r.expected(x, y);
        const Components& s = samples[pairs ? x / 2 : x];
        const bool oddOfPair = pairs && x % 2 == 1;
        ASSERT_EQ(s[oddOfPair ? 3 : 1], p.sample[Pixel::Y_G]) << "x " << x << " y " << y;
        if (!oddOfPair) {
            ASSERT_EQ(s[0], p.sample[Pixel::CR_R]) << "x " << x << " y " << y;
            ASSERT_EQ(s[2], p.sample[Pixel::CB_B]) << "x " << x << " y " << y;
        }
        if (!pairs) {
            ASSERT_EQ(s[3], 0) << "x " << x << " y " << y;
        }
    }
    // An odd width leaves the last pair without a second pixel: it repeats the last column's luma.
    if (pairs && r.width % 2 == 1) {
        EXPECT_EQ(samples.back()[3], r.expected(r.width - 1, y).sample[Pixel::Y_G]);
    }
}

void expectSectionsWithinLimits(const DeviceFileReader::Block& block) {
    for (const DeviceFileReader::Section& section : block.sections) {
        EXPECT_GE(section.length, 1u);
        EXPECT_LE(section.length, 32767u);
    }
}

// Bands of flat colour, a ramp and a stripe, changing every third line: runs, literals and
// repeated lines all occur.
TestPattern::BodyFn mixedContent(colorAxes_e axes, int width) {
    return [axes, width](int x, int y) {
        const int group = y / 3;
        if (x < width / 4) return code(axes, 1000 + 10 * group, 2048, 2048);
        if (x < width / 2) return code(axes, 256 + (x * 37) % 3000, 512 + x % 7, 3000 - group);
        if (x < 3 * width / 4) return code(axes, (x / 2) % 2 ? 3760 : 256, 2048, 2048);
        return code(axes, 2000, 1000 + group, 3000);
    };
}

struct LoopCase {
    int width;
    colorAxes_e axes;
    sampling_e sampling;
    uint8_t format;
    bool pairs;
};

TEST(DeviceLoop, FileExpandsToThePatternsPixels) {
    const LoopCase cases[] = {
        {1920, PatternGen::Colour_YCbCr_709, PatternGen::Sampling_422, 0, true},
        {1280, PatternGen::Colour_RGB_219, PatternGen::Sampling_444, 1, false},
        {2048, PatternGen::Colour_YCbCr_2020, PatternGen::Sampling_444, 2, false},
        {13, PatternGen::Colour_YCbCr_601, PatternGen::Sampling_422, 0, true},
        {12, PatternGen::Colour_YCbCr_709, PatternGen::Sampling_420, 0, true},
        {7, PatternGen::Colour_RGB, PatternGen::Sampling_422, 1, false},
    };
    const int height = 10;
    for (const LoopCase& c : cases) {
        SCOPED_TRACE("width " + std::to_string(c.width) + " axes " + std::to_string(c.axes));
        Render r(mixedContent(c.axes, c.width), c.width, height, c.axes, c.sampling);
        EXPECT_EQ(Sample::b3Words, !c.pairs);
        EXPECT_EQ(r.pattern.minX, 0);
        EXPECT_EQ(r.pattern.maxX, c.width - 1);
        EXPECT_EQ(r.pattern.minY, 0);
        EXPECT_EQ(r.pattern.maxY, height - 1);
        r.file.format = c.format;

        const DeviceFileReader::File parsed = saveAndParse(r.file);
        EXPECT_EQ(parsed.magic, std::string("PATTERN", 8));
        EXPECT_EQ(parsed.layout, 1);
        EXPECT_EQ(parsed.width, c.width);
        EXPECT_EQ(parsed.multiBlock, 1);
        EXPECT_EQ(parsed.bitDepth, 12);
        EXPECT_EQ(parsed.format, c.format);
        // Lines change every third line: 3 + 3 + 3 + 1.
        ASSERT_EQ(parsed.blocks.size(), 4u);
        int y = 0;
        for (size_t b = 0; b < parsed.blocks.size(); ++b) {
            const DeviceFileReader::Block& block = parsed.blocks[b];
            expectSectionsWithinLimits(block);
            const std::vector<Components> samples = block.expand();
            for (int line = 0; line < block.percentage; ++line, ++y) expectLineMatches(r, samples, y, c.pairs);
            if (b > 0) {
                EXPECT_NE(samples, parsed.blocks[b - 1].expand());
            }
        }
        EXPECT_EQ(y, height);
    }
}

TEST(DeviceLoop, RunLengthRule) {
    const auto sectionShape = [](const CompressedLine& line) {
        std::vector<std::pair<uint32_t, size_t>> shape;  // (repeatCount, samples held)
        for (const Section* s : line.sections) shape.emplace_back(s->repeatCount, s->samplePairs.size());
        return shape;
    };
    using Shape = std::vector<std::pair<uint32_t, size_t>>;
    const colorAxes_e ycc = PatternGen::Colour_YCbCr_709;

    Render uniform([&](int, int) { return code(ycc, 940, 2048, 2048); }, 1920, 1, ycc, PatternGen::Sampling_422);
    ASSERT_EQ(uniform.file.line_blocks.size(), 1u);
    EXPECT_EQ(sectionShape(*uniform.file.line_blocks[0]), (Shape{{0, 1}, {959, 1}}));

    // A A B gives [A], run 1 of A, [B].
    Render aab([&](int x, int) { return code(ycc, x < 2 ? 500 : 600, 2048, 2048); }, 3, 1, ycc,
               PatternGen::Sampling_444);
    const CompressedLine& aabLine = *aab.file.line_blocks[0];
    EXPECT_EQ(sectionShape(aabLine), (Shape{{0, 1}, {1, 1}, {0, 1}}));
    EXPECT_EQ(aabLine.sections[1]->samplePairs[0].component[1], 500);
    EXPECT_EQ(aabLine.sections[2]->samplePairs[0].component[1], 600);

    // A B B B C gives [A B], run 2 of B, [C].
    const int abbbc[] = {100, 200, 200, 200, 300};
    Render runs([&](int x, int) { return code(ycc, abbbc[x], 2048, 2048); }, 5, 1, ycc, PatternGen::Sampling_444);
    EXPECT_EQ(sectionShape(*runs.file.line_blocks[0]), (Shape{{0, 2}, {2, 1}, {0, 1}}));
    EXPECT_EQ(runs.file.line_blocks[0]->sections[1]->samplePairs[0].component[1], 200);
}

TEST(DeviceLoop, OddWidthPairsStayInsideThePicture) {
    const colorAxes_e ycc = PatternGen::Colour_YCbCr_709;
    Render r([&](int x, int) { return code(ycc, 300 + 100 * x, 2048 + x, 2048 - x); }, 5, 1, ycc,
             PatternGen::Sampling_422);
    EXPECT_EQ(r.pattern.maxX, 4);
    const Section& literal = *r.file.line_blocks[0]->sections[0];
    ASSERT_EQ(literal.samplePairs.size(), 3u);
    const Sample last = literal.samplePairs[2];
    EXPECT_EQ(last.component[0], 2048 - 4);
    EXPECT_EQ(last.component[1], 700);
    EXPECT_EQ(last.component[2], 2048 + 4);
    EXPECT_EQ(last.component[3], 700);
}

TEST(DeviceLoop, IdenticalConsecutiveLinesMerge) {
    const colorAxes_e rgb = PatternGen::Colour_RGB_219;
    Render flat([&](int x, int) { return code(rgb, 256 + x, 256, 256); }, 8, 1080, rgb, PatternGen::Sampling_444);
    ASSERT_EQ(flat.file.line_blocks.size(), 1u);
    EXPECT_EQ(flat.file.line_blocks[0]->GetPercentage(), 1080);
    EXPECT_FALSE(flat.file.singleBlock);
    EXPECT_EQ(flat.file.blockLayout, 1u);
    EXPECT_EQ(flat.file.lineWidth, 8);

    Render halves([&](int, int y) { return code(rgb, y < 540 ? 256 : 3760, 256, 256); }, 8, 1080, rgb,
                  PatternGen::Sampling_444);
    ASSERT_EQ(halves.file.line_blocks.size(), 2u);
    EXPECT_EQ(halves.file.line_blocks[0]->GetPercentage(), 540);
    EXPECT_EQ(halves.file.line_blocks[1]->GetPercentage(), 540);

    // Only neighbours merge: A A B A is three blocks.
    Render aaba([&](int, int y) { return code(rgb, y == 2 ? 500 : 600, 256, 256); }, 4, 4, rgb,
                PatternGen::Sampling_444);
    ASSERT_EQ(aaba.file.line_blocks.size(), 3u);
    EXPECT_EQ(aaba.file.line_blocks[0]->GetPercentage(), 2);
    EXPECT_EQ(aaba.file.line_blocks[1]->GetPercentage(), 1);
    EXPECT_EQ(aaba.file.line_blocks[2]->GetPercentage(), 1);

    // More identical lines than a 16-bit percentage holds continue in a further block.
    Render tall([&](int, int) { return code(rgb, 256, 256, 256); }, 2, 70000, rgb, PatternGen::Sampling_444);
    ASSERT_EQ(tall.file.line_blocks.size(), 2u);
    EXPECT_EQ(tall.file.line_blocks[0]->GetPercentage(), 65535);
    EXPECT_EQ(tall.file.line_blocks[1]->GetPercentage(), 70000 - 65535);
    EXPECT_TRUE(*tall.file.line_blocks[0] == *tall.file.line_blocks[1]);
}

TEST(DeviceLoop, LineRepeatsRenderListedLines) {
    const colorAxes_e rgb = PatternGen::Colour_RGB;
    const auto byLine = [&](int x, int y) { return code(rgb, y, x, 7); };

    Render three(byLine, 4, 1080, rgb, PatternGen::Sampling_444, {{0, 99}, {1, 199}, {2, 1079}});
    std::set<int> rows;
    for (const auto& call : three.pattern.calls) rows.insert(call.second);
    EXPECT_EQ(rows, (std::set<int>{99, 199, 1079}));
    EXPECT_FALSE(three.file.singleBlock);
    three.file.format = TovaKelmPatternFile::Format_RGB;  // as the driver sets it for "rgb"
    const DeviceFileReader::File parsed = saveAndParse(three.file);
    EXPECT_EQ(parsed.multiBlock, 1);
    ASSERT_EQ(parsed.blocks.size(), 3u);
    const int percentages[] = {100, 100, 880};
    const int sources[] = {99, 199, 1079};
    for (int b = 0; b < 3; ++b) {
        EXPECT_EQ(parsed.blocks[b].percentage, percentages[b]);
        expectLineMatches(three, parsed.blocks[b].expand(), sources[b], false);
    }

    Render single(byLine, 4, 1080, rgb, PatternGen::Sampling_444, {{0, 1079}});
    EXPECT_TRUE(single.file.singleBlock);
    single.file.format = TovaKelmPatternFile::Format_RGB;
    const DeviceFileReader::File one = saveAndParse(single.file);
    EXPECT_EQ(one.multiBlock, 0);
    ASSERT_EQ(one.blocks.size(), 1u);
    EXPECT_EQ(one.blocks[0].percentage, 100);
    expectLineMatches(single, one.blocks[0].expand(), 1079, false);
}

TEST(DeviceLoop, WarnsAboutWidthsTheDevicesRefuse) {
    const colorAxes_e ycc = PatternGen::Colour_YCbCr_709;
    const auto black = [&](int, int) { return code(ycc, 256, 2048, 2048); };
    for (int width : {1280, 1920, 2048}) {
        testing::internal::CaptureStdout();
        Render r(black, width, 1, ycc, PatternGen::Sampling_422);
        EXPECT_EQ(testing::internal::GetCapturedStdout().find("Warning"), std::string::npos) << width;
    }
    testing::internal::CaptureStdout();
    Render odd(black, 1366, 2, ycc, PatternGen::Sampling_422);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Warning 1366 is not a valid Tova or Kelm pattern width\n");
    ASSERT_EQ(odd.file.line_blocks.size(), 1u);
    EXPECT_EQ(odd.file.line_blocks[0]->GetPercentage(), 2);
}

TEST(DeviceLoop, VeryWideLineSplitsIntoValidSections) {
    // 35000 equal pixels then 35000 distinct ones: both exceed what one section can hold.
    const colorAxes_e rgb = PatternGen::Colour_RGB;
    const int width = 70000;
    testing::internal::CaptureStdout();
    Render r([&](int x, int) { return x < 35000 ? code(rgb, 100, 200, 300) : code(rgb, (x * 7) % 4096, 1, 2); }, width,
             1, rgb, PatternGen::Sampling_444);
    testing::internal::GetCapturedStdout();
    r.file.format = TovaKelmPatternFile::Format_RGB;

    const DeviceFileReader::File parsed = saveAndParse(r.file);
    ASSERT_EQ(parsed.blocks.size(), 1u);
    const DeviceFileReader::Block& block = parsed.blocks[0];
    expectSectionsWithinLimits(block);
    ASSERT_EQ(block.sections.size(), 5u);  // [A], run 32767, run 2232, literal 32767, literal 2233
    EXPECT_EQ(block.sections[1].length, 32767u);
    EXPECT_EQ(block.sections[2].length, 34999u - 32767u);
    EXPECT_EQ(block.sections[3].length, 32767u);
    EXPECT_EQ(block.sections[4].length, 35000u - 32767u);
    expectLineMatches(r, block.expand(), 0, false);
}

}  // namespace
