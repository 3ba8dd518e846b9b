// The compressed-line rendering loop: files it builds are read back with the independent reader and
// compared with the pattern's pixels; the run-length rule, line merging, line repeats, the width warning
// and the splitting of sections too long for the format.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "TestFiles.h"
#include "TestPattern.h"
#include "TovaKelmReader.h"
#include "writeTovaKelm.h"

namespace {

using namespace PatternGen;
using Repeats = std::vector<std::pair<int, int>>;
constexpr colorAxes_e ycc = Colour_YCbCr_709, rgb = Colour_RGB;

// A pixel given as (Y or G, Cb or B, Cr or R) in the axes under test, 12 bits.
Pixel code(colorAxes_e axes, int yg, int cbb, int crr) { return Pixel(yg, cbb, crr, axes, 12); }

// Runs the loop over a test pattern into `file`, keeping what it prints.
struct Render {
    Render(TestPattern::BodyFn body, int width, int height, colorAxes_e axes, sampling_e sampling, Repeats repeats = {})
        : pattern(std::move(body)), width(width), axes(axes) {
        pattern.initQuietly(width, height, 16, 9, axes, sampling, 12);
        pattern.useBaseLineRepeats = repeats.empty();
        pattern.lineRepeats = repeats;
        pattern.recordCalls = true;
        printed = TestFiles::stdoutOf([&] { EXPECT_TRUE(pattern.run_body(0, width, height, lineRepeats, file)); });
    }

    // The samples source line y gives: (Cr, Y, Cb, 0) per pixel, or per pair (Cr, Y, Cb, Y of the odd
    // pixel), where an odd width's last pair repeats the last column's luma. Asked of the body function
    // directly so that the recorded calls stay those of the loop.
    std::vector<DeviceFileReader::Components> expected(int y, bool pairs) const {
        std::vector<DeviceFileReader::Components> samples;
        for (int x = 0; x < width; x += pairs ? 2 : 1) {
            const Pixel p = pattern.bodyFn(x, y).convertTo(axes);
            const Pixel odd = pattern.bodyFn(std::min(x + 1, width - 1), y).convertTo(axes);
            samples.push_back({p.sample[Pixel::CR_R], p.sample[Pixel::Y_G], p.sample[Pixel::CB_B],
                               uint16_t(pairs ? odd.sample[Pixel::Y_G] : 0)});
        }
        return samples;
    }

    std::vector<uint16_t> percentages() const {
        std::vector<uint16_t> values;
        for (const CompressedLine* line : file.line_blocks) values.push_back(line->GetPercentage());
        return values;
    }

    DeviceFileReader::File saveAndParse() {
        TestFiles::ScratchDir dir;
        EXPECT_TRUE(file.Save(dir.path("loop.pat")));
        return DeviceFileReader::parseFile(dir.path("loop.pat"));
    }

    TestPattern pattern;
    int width;
    colorAxes_e axes;
    Repeats lineRepeats;
    TovaKelmPatternFile file;
    std::string printed;
};

// Every section of a block keeps within the format, and the block expands to source line y.
void expectLine(const Render& r, const DeviceFileReader::Block& block, int y, bool pairs) {
    for (const DeviceFileReader::Section& section : block.sections)
        EXPECT_TRUE(section.length >= 1 && section.length <= 32767) << section.length;
    EXPECT_TRUE(r.expected(y, pairs) == block.expand()) << "line " << y;
}

// Flat bands, a ramp and a stripe, changing every third line: runs, literals and repeated lines all occur.
TestPattern::BodyFn mixedContent(colorAxes_e axes, int width) {
    return [axes, width](int x, int y) {
        const int group = y / 3;
        if (x < width / 4) return code(axes, 1000 + 10 * group, 2048, 2048);
        if (x < width / 2) return code(axes, 256 + (x * 37) % 3000, 512 + x % 7, 3000 - group);
        if (x < 3 * width / 4) return code(axes, (x / 2) % 2 ? 3760 : 256, 2048, 2048);
        return code(axes, 2000, 1000 + group, 3000);
    };
}

// Pairs for Y'CbCr with subsampled chroma, a sample per pixel otherwise; odd widths never ask for x = width.
TEST(DeviceLoop, FileExpandsToThePatternsPixels) {
    const std::tuple<int, colorAxes_e, sampling_e, uint8_t, bool> cases[] = {
        {1920, ycc, Sampling_422, 0, true},
        {1280, Colour_RGB_219, Sampling_444, 1, false},
        {2048, Colour_YCbCr_2020, Sampling_444, 2, false},
        {13, Colour_YCbCr_601, Sampling_422, 0, true},
        {12, ycc, Sampling_420, 0, true},
        {7, rgb, Sampling_422, 1, false}};
    const int height = 10;
    for (const auto& [width, axes, sampling, format, pairs] : cases) {
        SCOPED_TRACE("width " + std::to_string(width) + " axes " + std::to_string(axes));
        Render r(mixedContent(axes, width), width, height, axes, sampling);
        EXPECT_EQ(!pairs, Sample::b3Words);
        EXPECT_EQ(std::make_tuple(0, width - 1, 0, height - 1),
                  std::make_tuple(r.pattern.minX, r.pattern.maxX, r.pattern.minY, r.pattern.maxY));
        r.file.format = format;
        const DeviceFileReader::File parsed = r.saveAndParse();
        EXPECT_EQ(std::make_tuple(std::string("PATTERN", 8), 1, width, 1, 12, int(format)),
                  std::make_tuple(parsed.magic, int(parsed.layout), int(parsed.width), int(parsed.multiBlock),
                                  int(parsed.bitDepth), int(parsed.format)));
        ASSERT_EQ(4u, parsed.blocks.size());  // lines change every third line: 3 + 3 + 3 + 1
        int y = 0;
        for (size_t b = 0; b < parsed.blocks.size(); ++b) {
            for (int line = 0; line < parsed.blocks[b].percentage; ++line) expectLine(r, parsed.blocks[b], y++, pairs);
            EXPECT_TRUE(b == 0 || parsed.blocks[b - 1].expand() != parsed.blocks[b].expand()) << "block " << b;
        }
        EXPECT_EQ(height, y);
    }
}

// A run repeats the sample that ended the literal before it: A B B B C gives [A B], run 2 of B, [C].
TEST(DeviceLoop, RunLengthRule) {
    using Shape = std::vector<std::tuple<uint32_t, size_t, int>>;  // repeat count, samples held, first luma
    const std::vector<int> abbbc = {100, 200, 200, 200, 300}, aab = {500, 500, 600};
    const std::tuple<int, sampling_e, std::function<int(int)>, Shape> cases[] = {
        {1920, Sampling_422, [](int) { return 940; }, {{0, 1, 940}, {959, 1, 940}}},
        {3, Sampling_444, [&](int x) { return aab[x]; }, {{0, 1, 500}, {1, 1, 500}, {0, 1, 600}}},
        {5, Sampling_444, [&](int x) { return abbbc[x]; }, {{0, 2, 100}, {2, 1, 200}, {0, 1, 300}}}};
    for (const auto& [width, sampling, lumaAt, expected] : cases) {
        const auto& luma = lumaAt;
        Render r([&](int x, int) { return code(ycc, luma(x), 2048, 2048); }, width, 1, ycc, sampling);
        ASSERT_EQ(1u, r.file.line_blocks.size());
        Shape shape;
        for (const Section* s : r.file.line_blocks[0]->sections)
            shape.emplace_back(s->repeatCount, s->samplePairs.size(), s->samplePairs.at(0).component[1]);
        EXPECT_EQ(expected, shape) << "width " << width;
    }
}

// Only neighbours merge; more identical lines than a 16-bit percentage holds continue in a further block.
TEST(DeviceLoop, IdenticalConsecutiveLinesMerge) {
    const std::tuple<int, std::function<int(int)>, std::vector<uint16_t>> cases[] = {
        {1080, [](int) { return 256; }, {1080}},
        {1080, [](int y) { return y < 540 ? 256 : 3760; }, {540, 540}},
        {4, [](int y) { return y == 2 ? 500 : 600; }, {2, 1, 1}},
        {70000, [](int) { return 256; }, {65535, 70000 - 65535}}};
    for (const auto& [height, lumaOfLineAt, percentages] : cases) {
        const auto& lumaOfLine = lumaOfLineAt;
        Render r([&](int x, int y) { return code(rgb, lumaOfLine(y) + x, 256, 256); }, 2, height, rgb, Sampling_444);
        EXPECT_EQ(percentages, r.percentages()) << "height " << height;
        EXPECT_EQ(std::make_tuple(false, 1u, 2),
                  std::make_tuple(r.file.singleBlock, r.file.blockLayout, int(r.file.lineWidth)));
    }
}

// Blocks are rendered from the listed lines only and stand for the lines up to them; a single entry is
// marked as one block standing for the whole picture.
TEST(DeviceLoop, LineRepeatsRenderListedLines) {
    const std::tuple<Repeats, std::vector<uint16_t>, bool> cases[] = {
        {{{0, 99}, {1, 199}, {2, 1079}}, {100, 100, 880}, false}, {{{0, 1079}}, {100}, true}};
    for (const auto& [repeats, percentages, single] : cases) {
        Render r([](int x, int y) { return code(rgb, y, x, 7); }, 4, 1080, rgb, Sampling_444, repeats);
        std::set<int> rows, listed;
        for (const auto& call : r.pattern.calls) rows.insert(call.second);
        for (const auto& entry : repeats) listed.insert(entry.second);
        EXPECT_EQ(listed, rows);
        EXPECT_EQ(std::make_tuple(single, percentages), std::make_tuple(r.file.singleBlock, r.percentages()));
        r.file.format = TovaKelmPatternFile::Format_RGB;  // as the driver sets it for "rgb"
        const DeviceFileReader::File parsed = r.saveAndParse();
        EXPECT_EQ(!single, parsed.multiBlock);
        ASSERT_EQ(repeats.size(), parsed.blocks.size());
        for (size_t b = 0; b < parsed.blocks.size(); ++b) {
            EXPECT_EQ(percentages[b], parsed.blocks[b].percentage);
            expectLine(r, parsed.blocks[b], repeats[b].second, false);
        }
    }
}

TEST(DeviceLoop, WarnsAboutWidthsTheDevicesRefuseAndRendersThemAllTheSame) {
    for (int width : {1280, 1920, 2048, 1366}) {
        Render r([](int, int) { return code(ycc, 256, 2048, 2048); }, width, 2, ycc, Sampling_422);
        EXPECT_EQ(width == 1366 ? "Warning 1366 is not a valid Tova or Kelm pattern width\n" : "", r.printed);
        EXPECT_EQ(std::vector<uint16_t>{2}, r.percentages()) << width;
    }
}

// 35000 equal pixels then 35000 distinct ones: both exceed what one section can hold.
TEST(DeviceLoop, VeryWideLineSplitsIntoValidSections) {
    Render r([](int x, int) { return x < 35000 ? code(rgb, 100, 200, 300) : code(rgb, (x * 7) % 4096, 1, 2); }, 70000,
             1, rgb, Sampling_444);
    r.file.format = TovaKelmPatternFile::Format_RGB;
    const DeviceFileReader::File parsed = r.saveAndParse();
    ASSERT_EQ(1u, parsed.blocks.size());
    std::vector<uint32_t> lengths;
    for (const DeviceFileReader::Section& section : parsed.blocks[0].sections) lengths.push_back(section.length);
    // [A], run 32767, run 2232, literal 32767, literal 2233.
    EXPECT_EQ((std::vector<uint32_t>{1, 32767, 34999 - 32767, 32767, 35000 - 32767}), lengths);
    expectLine(r, parsed.blocks[0], 0, false);
}

}  // namespace
