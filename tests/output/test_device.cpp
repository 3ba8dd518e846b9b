// Device files: exact bytes, refusals and limits, X'Y'Z', the compressed-line loop, the program's files read back.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "DeviceFileReader.h"
#include "TestFiles.h"
#include "TestPattern.h"
#include "output/writeTovaKelm.h"

using namespace PatternGen;

using TestFiles::Bytes;
using TestFiles::hex;

namespace {

using Repeats = std::vector<std::pair<int, int>>;
using Percentages = std::vector<uint16_t>;
using Code3 = std::array<unsigned short, 3>;

CompressedLine* runLine(unsigned short count, const Sample& s, unsigned short percentage = 1) {
    auto* line = new CompressedLine;
    line->AddRun(count, s);
    line->SetPercentage(percentage);
    return line;
}

CompressedLine* literalLine(const std::vector<Sample>& samples) {
    auto* line = new CompressedLine;
    line->AddArray(static_cast<unsigned short>(samples.size()), samples.data());
    return line;
}

class DeviceFile : public ::testing::Test {
protected:
    Bytes saved(TovaKelmPatternFile& file, size_t from = 0) {
        EXPECT_TRUE(file.Save(dir.path("f.pat")));
        const Bytes bytes = TestFiles::readFile(dir.path("f.pat"));
        return Bytes(bytes.begin() + std::min(from, bytes.size()), bytes.end());
    }
    // The message a refused or failing Save throws; no file is left behind.
    std::string refusal(TovaKelmPatternFile& file) {
        try {
            file.Save(dir.path("refused.pat"));
        } catch (const std::runtime_error& e) {
            EXPECT_FALSE(TestFiles::exists(dir.path("refused.pat"))) << e.what();
            return e.what();
        }
        return "<nothing thrown>";
    }
    TestFiles::ScratchDir dir;
};

// A full-range R'G'B' pixel, 12 bits, given as G, B, R.
Pixel rgb(int g, int b, int r) { return Pixel(g, b, r, Colour_RGB, 12); }

// Runs the loop over a test pattern of R'G'B' pixels into an "rgb" file and reads the file back.
struct Render {
    Render(TestPattern::BodyFn body, int width, int height, Repeats repeats = {}) : pattern(std::move(body)) {
        pattern.initQuietly(width, height, 16, 9, Colour_RGB, Sampling_444, 12);
        pattern.lineRepeats = repeats;
        Repeats listed;
        TovaKelmPatternFile file;
        TestFiles::stdoutOf([&] { EXPECT_TRUE(pattern.run_body(0, width, height, listed, file)); });
        file.format = TovaKelmPatternFile::Format_RGB;  // as the driver sets it for "rgb"
        TestFiles::ScratchDir dir;
        EXPECT_TRUE(file.Save(dir.path("loop.pat")));
        parsed = DeviceFileReader::parseFile(dir.path("loop.pat"));
    }
    // Each section keeps within the format and the block expands to source line y (the body function's).
    void expectLine(const DeviceFileReader::Block& block, int y) const {
        std::vector<DeviceFileReader::Components> expected;
        for (int x = 0; x < pattern.width; ++x) {
            const Pixel p = pattern.bodyFn(x, y);
            expected.push_back({p.sample[Pixel::CR_R], p.sample[Pixel::Y_G], p.sample[Pixel::CB_B], 0});
        }
        for (const DeviceFileReader::Section& section : block.sections)
            EXPECT_TRUE(section.length >= 1 && section.length <= 32767) << section.length;
        EXPECT_TRUE(expected == block.samples) << "line " << y;
    }
    TestPattern pattern;
    DeviceFileReader::File parsed;
};

}  // namespace

TEST_F(DeviceFile, FileBytes) {
    TovaKelmPatternFile multi;  // 1920-pixel 4:2:2 with several blocks
    multi.blockLayout = 1, multi.lineWidth = 1920, multi.singleBlock = false;
    multi.AddBlock(runLine(959, Sample{{2048, 256, 2048, 256}}));
    multi.AddBlock(runLine(959, Sample{{2048, 3760, 2048, 3760}}));
    EXPECT_EQ(hex("50 41 54 54 45 52 4E 00 01 07 80 01 0C 00 00 00 | 0002 | 0001 0001 077E 0800 0100 0800 0100 |"
                  "0001 0001 077E 0800 0EB0 0800 0EB0"),
              saved(multi));
    TovaKelmPatternFile run;  // four-word samples read c2 c1 c0 c3: Cb, Y, Cr, second Y
    run.AddBlock(runLine(1000, Sample{{0x0111, 0x0222, 0x0333, 0x0444}}, 7));
    EXPECT_EQ(hex("0007 0001 | 07D0 0333 0222 0111 0444"), saved(run, 16));
}

// Model errors, and 16-bit field limits: the largest counts are written, one more is refused before the file.
TEST_F(DeviceFile, RefusalsAndLimits) {
    const Sample s = Sample{{1, 2, 3, 4}};
    TovaKelmPatternFile noSections;
    noSections.AddBlock(new CompressedLine);
    EXPECT_EQ("Zero length section is invalid!", refusal(noSections));
    TovaKelmPatternFile blocks;
    blocks.blockLayout = 1;
    for (int i = 0; i < 65535; ++i) blocks.AddBlock(runLine(1, s));
    blocks.AddBlock(new CompressedLine);  // not counted
    saved(blocks);
    EXPECT_EQ(65535u, DeviceFileReader::parseFile(dir.path("f.pat")).blocks.size());
    blocks.AddBlock(runLine(1, s));
    EXPECT_EQ("Too many blocks for a Tova/Kelm device file: 65536 (at most 65535)", refusal(blocks));
    TovaKelmPatternFile literal, run;
    literal.AddBlock(literalLine(std::vector<Sample>(32767, s)));
    run.AddBlock(runLine(32767, s));
    EXPECT_EQ(16u + 4 + 4 + 32767 * 8, saved(literal).size());
    EXPECT_EQ(16u + 4 + 2 + 8, saved(run).size());
    literal.line_blocks[0]->sections[0]->samplePairs.push_back(s);
    run.line_blocks[0]->sections[0]->repeatCount = 32768;
    EXPECT_EQ("Literal section too long for a Tova/Kelm device file: 32768 (at most 32767)", refusal(literal));
    EXPECT_EQ("Run too long for a Tova/Kelm device file: 32768 (at most 32767)", refusal(run));
}

// Super-white converts as white, below black as black; a converted file holds its samples converted in
// place (white 3793 3960 3889, red, blue), three words (read c0 c1 c2) under format 3.
TEST_F(DeviceFile, XYZConversion) {
    const Code3 cases[][2] = {{{4095, 4000, 3761}, {3793, 3960, 3889}}, {{0, 100, 255}, {16, 16, 16}}};
    for (const auto& c : cases) {
        Sample from{{c[0][0], c[0][1], c[0][2]}}, to;
        XYZColourSpaceConvert(&from, &to, 1, false);
        EXPECT_EQ(c[1], (Code3{to.component[0], to.component[1], to.component[2]})) << c[0][0] << " " << c[0][1];
    }
    TovaKelmPatternFile file, empty;
    file.blockLayout = 1, file.lineWidth = 1920, file.singleBlock = false, file.format = 1;
    file.AddBlock(literalLine({Sample{{3760, 3760, 3760}}, Sample{{3760, 256, 256}}}));
    file.line_blocks[0]->AddRun(1918, Sample{{256, 256, 3760}});
    file.line_blocks[0]->SetPercentage(1080);
    file.ConvertToXYZ();
    empty.ConvertToXYZ();
    EXPECT_TRUE(file.format == 3 && file.threeWordSamples);
    EXPECT_EQ(hex("50415454 45524E00 01 0780 01 0C 03 0000 | 0001 | 0438 0002 | 0000 0004 0ED1 0F78 0F31"
                  "0B54 087A 0010 | 0EFC 07DD 0587 0EE6"),
              saved(file));
    EXPECT_EQ(hex("50415454 45524E00 00 0000 00 0C 03 0000"), saved(empty));
}

// Every code as a grey and in two mixes of low and high codes (the linear segment lies below code 540)
// converts as it did when this checksum was taken, after the codes had been checked one by one against
// the conversion written out afresh from its definition.
TEST(DeviceXYZ, EveryCodeConvertsAsChecked) {
    uint64_t hash = 14695981039346656037ull;  // FNV-1a over the converted components
    for (uint16_t code = 0; code < 4096; ++code)
        for (const Sample& rgb :
             {Sample{{code, code, code}}, Sample{{code, 300, uint16_t(4095 - code)}}, Sample{{3760, code, 500}}}) {
            Sample xyz;
            XYZColourSpaceConvert(&rgb, &xyz, 1, false);
            for (int i = 0; i < 3; ++i) hash = (hash ^ xyz.component[i]) * 1099511628211ull;
        }
    EXPECT_EQ(0x4b563fd054548fb9ull, hash) << std::hex << hash;
}

// Only neighbouring identical lines merge, overflowing a 16-bit percentage into a further block; line repeats
// render listed lines only, and a single entry is one block for the whole picture.
TEST(DeviceLoop, IdenticalLinesMergeAndLineRepeatsRenderListedLines) {
    const std::tuple<int, int, Repeats, Percentages, bool> cases[] = {
        // width, height, repeats, blocks, single
        {2, 4, {}, {2, 1, 1}, false},
        {2, 70000, {}, {65535, 70000 - 65535}, false},
        {4, 1080, {{0, 99}, {1, 199}, {2, 1079}}, {100, 100, 880}, false},
        {4, 1080, {{0, 1079}}, {100}, true}};
    for (const auto& [width, height, repeats, percentages, single] : cases) {
        const int h = height;  // below, only line 2 of 4 differs
        const Render r([h](int x, int y) { return rgb((h == 4 && y != 2) || h == 70000 ? 600 + x : y + x, 256, 7); },
                       width, height, repeats);
        std::set<int> rows, listed;
        for (const auto& call : r.pattern.calls) rows.insert(call.second);
        for (const auto& entry : repeats) listed.insert(entry.second);
        EXPECT_TRUE(repeats.empty() || listed == rows);
        EXPECT_EQ(!single, r.parsed.multiBlock == 1);
        Percentages read;
        for (const auto& block : r.parsed.blocks) read.push_back(block.percentage);
        ASSERT_EQ(percentages, read) << h;
        for (size_t b = 0; b < repeats.size(); ++b) r.expectLine(r.parsed.blocks[b], repeats[b].second);
        if (repeats.empty()) r.expectLine(r.parsed.blocks.back(), height - 1);
    }
}

// Sections as read back, runs negative: a run repeats the sample that ended the literal before it, so
// A B B B C gives [A B], run 2, [C]; 35000 equal then 35000 distinct pixels split at the 32767 limits.
TEST(DeviceLoop, SectionsFollowTheRunLengthRuleAndLimits) {
    const std::vector<int> abbbc = {100, 200, 200, 200, 300}, aab = {500, 500, 600};
    const std::tuple<int, std::function<int(int)>, std::vector<int>> cases[] = {
        {5, [&](int x) { return abbbc[x]; }, {2, -2, 1}},
        {3, [&](int x) { return aab[x]; }, {1, -1, 1}},
        {70000, [](int x) { return x < 35000 ? 100 : (x * 7) % 4096; }, {1, -32767, -2232, 32767, 2233}}};
    for (const auto& [width, lumaAt, expected] : cases) {
        const auto& luma = lumaAt;
        const Render r([&](int x, int) { return rgb(luma(x), 200, 300); }, width, 1);
        ASSERT_EQ(1u, r.parsed.blocks.size());
        std::vector<int> lengths;
        for (const auto& section : r.parsed.blocks[0].sections)
            lengths.push_back(section.run ? -int(section.length) : int(section.length));
        EXPECT_EQ(expected, lengths) << width;
        r.expectLine(r.parsed.blocks[0], 0);
    }
}

// Each device format through the program, read back, against the 12-bit PNG render (times 16), with the
// header's format byte; xyz holds the PNG's codes converted to X'Y'Z'.
TEST(DeviceFormats, FilesMatchThePngRender) {
    const struct {
        const char *ext, *options;
        int format;
    } cases[] = {{"pat", "-c 709 -s 422", 0},
                 {"rgb", "-c RGB-headroom", 1},
                 {"yc4", "-c 709 -s 444", 2},
                 {"xyz", "-c RGB-headroom", 3}};
    const std::string size = "-d 1280x720 -b 12 ";
    TestFiles::ScratchDir dir;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.ext);
        ASSERT_EQ(0, TestFiles::runProgram(dir.path(""), size + c.options + " card.png"));
        ASSERT_EQ(0, TestFiles::runProgram(dir.path(""), size + c.options + " card." + c.ext));
        const DeviceFileReader::File file = DeviceFileReader::parseFile(dir.path(std::string("card.") + c.ext));
        EXPECT_EQ(std::make_tuple(1, 1280, 1, 12, c.format),
                  std::make_tuple(file.layout, file.width, file.multiBlock, file.bitDepth, file.format));
        const auto pixels = DeviceFileReader::pixels(file);
        const std::vector<uint16_t> png = TestFiles::ffmpegSamples(dir.path("card.png"), "rgba64be", true);
        ASSERT_EQ(pixels.size() * 4, png.size());
        size_t differ = 0;
        for (size_t p = 0; p < pixels.size(); ++p) {
            Sample expected{{uint16_t(png[p * 4] / 16), uint16_t(png[p * 4 + 1] / 16), uint16_t(png[p * 4 + 2] / 16)}};
            if (c.format == 3) XYZColourSpaceConvert(&expected, &expected, 1, false);
            for (int i = 0; i < 3; ++i) differ += pixels[p][i] != expected.component[i];
        }
        EXPECT_EQ(0u, differ);
    }
}
