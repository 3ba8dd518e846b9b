// The device pattern file model and writer: exact bytes, errors, limits, the removal of files that fail
// part-way, equality and Clear.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "TestFiles.h"
#include "TovaKelmReader.h"
#include "writeTovaKelm.h"

namespace {

using namespace TestFiles;

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

std::string thrownMessage(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "<nothing thrown>";
}

// Sample::b3Words is process-wide: each test starts and ends with the four-word form. Tests set it after
// constructing a file, whose constructor resets it.
class DeviceFileTest : public ::testing::Test {
protected:
    void SetUp() override { Sample::b3Words = false; }
    void TearDown() override { Sample::b3Words = false; }

    Bytes saved(TovaKelmPatternFile& file, size_t from = 0) {
        EXPECT_TRUE(file.Save(dir.path("f.pat")));
        const Bytes bytes = readFile(dir.path("f.pat"));
        return Bytes(bytes.begin() + std::min(from, bytes.size()), bytes.end());
    }
    // The message a refused or failing Save throws; no file is left behind.
    std::string refusal(TovaKelmPatternFile& file) {
        const std::string message = thrownMessage([&] { file.Save(dir.path("refused.pat")); });
        EXPECT_FALSE(exists(dir.path("refused.pat"))) << message;
        return message;
    }
    ScratchDir dir;
};

TEST_F(DeviceFileTest, FileBytes) {
    TovaKelmPatternFile multi;  // 1920-pixel 4:2:2 with several blocks
    multi.blockLayout = 1, multi.lineWidth = 1920, multi.singleBlock = false;
    multi.AddBlock(runLine(959, Sample{{2048, 256, 2048, 256}}));
    multi.AddBlock(runLine(959, Sample{{2048, 3760, 2048, 3760}}));
    EXPECT_EQ(hex("50 41 54 54 45 52 4E 00 01 07 80 01 0C 00 00 00 | 0002 | 0001 0001 077E 0800 0100 0800 0100 |"
                  "0001 0001 077E 0800 0EB0 0800 0EB0"),
              saved(multi));

    TovaKelmPatternFile rgb;  // a single line-repeat entry leaves singleBlock true
    rgb.blockLayout = 1, rgb.lineWidth = 2048, rgb.format = TovaKelmPatternFile::Format_RGB;
    Sample::b3Words = true;
    rgb.AddBlock(runLine(100, Sample{{1, 2, 3}}));
    EXPECT_EQ(hex("50 41 54 54 45 52 4E 00 01 08 00 00 0C 01 00 00 | 0001 | 0001 0001 00C8 0001 0002 0003"),
              saved(rgb));
    TovaKelmPatternFile literal;  // three-word samples read c0 c1 c2
    Sample::b3Words = true;
    literal.AddBlock(literalLine({Sample{{0x0FFF, 0x0100, 0x0ABC, 0x7777}}, Sample{{1, 2, 3}}, Sample{{4, 5, 6}}}));
    EXPECT_EQ(hex("0001 0001 | 0000 0006 0FFF 0100 0ABC 0001 0002 0003 0004 0005 0006"), saved(literal, 16));

    TovaKelmPatternFile run;  // four-word samples read c2 c1 c0 c3: Cb, Y, Cr, second Y
    run.AddBlock(runLine(1000, Sample{{0x0111, 0x0222, 0x0333, 0x0444}}, 7));
    EXPECT_EQ(hex("0007 0001 | 07D0 0333 0222 0111 0444"), saved(run, 16));
    TovaKelmPatternFile emptyLiteral;
    emptyLiteral.AddBlock(literalLine({}));
    EXPECT_EQ(hex("0001 0001 | 0000 0000"), saved(emptyLiteral, 16));

    // Layout 1 counts and writes the lines that hold sections; layout 0 writes the first line without a
    // count; any other layout writes no body.
    TovaKelmPatternFile gap;
    gap.AddBlock(runLine(5, Sample{{1, 1, 1, 1}}, 5));
    gap.AddBlock(new CompressedLine);
    gap.AddBlock(runLine(7, Sample{{2, 2, 2, 2}}, 7));
    const std::tuple<uint32_t, size_t, const char*> layouts[] = {
        {1, 3, "0002 | 0005 0001 000A 0001 0001 0001 0001 | 0007 0001 000E 0002 0002 0002 0002"},
        {0, 3, "0005 0001 000A 0001 0001 0001 0001"},
        {2, 3, ""},
        {1, 0, "0000"},
        {0, 0, ""}};
    for (const auto& [layout, lines, body] : layouts) {
        gap.blockLayout = layout;
        if (lines == 0) gap.Clear();
        EXPECT_EQ(hex(body), saved(gap, 16)) << "layout " << layout << ", " << lines << " lines";
    }
}

// Errors of the model, and the limits of the 16-bit fields: the largest counts are written, one more is
// refused before the file exists.
TEST_F(DeviceFileTest, RefusalsAndLimits) {
    const Sample s = Sample{{1, 2, 3, 4}};
    TovaKelmPatternFile noSections;
    noSections.AddBlock(new CompressedLine);
    EXPECT_EQ("Zero length section is invalid!", refusal(noSections));
    TovaKelmPatternFile twoInRun;
    twoInRun.AddBlock(runLine(4, s));
    twoInRun.line_blocks[0]->sections[0]->AddSamplePair(s);
    EXPECT_EQ("Repeated TPSection block must have exactly 1 sample pair.", refusal(twoInRun));
    const std::string missing = dir.path("no/such/dir/card.pat");
    EXPECT_EQ("Can't save file: " + missing, thrownMessage([&] { TovaKelmPatternFile().Save(missing); }));
    Section filled;
    filled.AddSamplePair(s);
    EXPECT_EQ("Cannot add repeated samples - samplePairs not empty!",
              thrownMessage([&] { filled.AddRepeatedSamplePair(3, s); }));

    TovaKelmPatternFile blocks;
    blocks.blockLayout = 1;
    for (int i = 0; i < 65535; ++i) blocks.AddBlock(runLine(1, s));
    blocks.AddBlock(new CompressedLine);  // not counted
    saved(blocks);
    EXPECT_EQ(65535u, DeviceFileReader::parseFile(dir.path("f.pat")).blocks.size());
    blocks.AddBlock(runLine(1, s));
    EXPECT_EQ("Too many blocks for a Tova/Kelm pattern file: 65536 (at most 65535)", refusal(blocks));

    TovaKelmPatternFile wide;
    wide.AddBlock(new CompressedLine);
    for (int i = 0; i < 65536; ++i) wide.line_blocks[0]->AddRun(1, s);
    EXPECT_EQ("Too many sections in a line for a Tova/Kelm pattern file: 65536 (at most 65535)", refusal(wide));

    TovaKelmPatternFile literal, run;
    literal.AddBlock(literalLine(std::vector<Sample>(32767, s)));
    run.AddBlock(runLine(32767, s));
    EXPECT_EQ(16u + 4 + 4 + 32767 * 8, saved(literal).size());
    EXPECT_EQ(16u + 4 + 2 + 8, saved(run).size());
    literal.line_blocks[0]->sections[0]->samplePairs.push_back(s);
    run.line_blocks[0]->sections[0]->repeatCount = 32768;
    EXPECT_EQ("Literal section too long for a Tova/Kelm pattern file: 32768 (at most 32767)", refusal(literal));
    EXPECT_EQ("Run too long for a Tova/Kelm pattern file: 32768 (at most 32767)", refusal(run));

    // A write failing part-way (past a file-size limit) throws and removes the file.
    literal.line_blocks[0]->sections[0]->samplePairs.pop_back();
    std::string message;
    {
        FileSizeLimit limit(1000);
        message = thrownMessage([&] { literal.Save(dir.path("big.pat")); });
    }
    EXPECT_NE("<nothing thrown>", message);
    EXPECT_FALSE(exists(dir.path("big.pat")));
}

// Lines are equal when their sections are: the percentage does not count, component 3 does, and a
// literal of one sample is not a run of one.
TEST_F(DeviceFileTest, EqualityComparesSectionsOnly) {
    const std::vector<Sample> ab = {Sample{{10, 20, 30, 40}}, Sample{{11, 21, 31, 41}}};
    const auto build = [&](unsigned short run, uint16_t fourth, unsigned short percentage) {
        std::unique_ptr<CompressedLine> line(literalLine(ab));
        line->AddRun(run, Sample{{11, 21, 31, fourth}});
        line->SetPercentage(percentage);
        return line;
    };
    EXPECT_TRUE(*build(9, 41, 3) == *build(9, 41, 300));
    EXPECT_FALSE(*build(9, 41, 3) != *build(9, 41, 300));
    EXPECT_TRUE(*build(9, 41, 3) != *build(10, 41, 3));
    EXPECT_TRUE(*build(9, 41, 3) != *build(9, 0, 3));
    const std::unique_ptr<CompressedLine> fewer(literalLine(ab));
    EXPECT_TRUE(*fewer != *build(9, 41, 3) && *build(9, 41, 3) != *fewer);
    Section literal, run;
    literal.AddSamplePair(ab[0]);
    run.AddRepeatedSamplePair(1, ab[0]);
    EXPECT_TRUE(literal != run);
}

// Clear frees the lines (checked by the leak sanitizer) and resets all but the geometry.
TEST_F(DeviceFileTest, ClearEmptiesTheFileButKeepsGeometry) {
    TovaKelmPatternFile file;
    file.blockLayout = 1, file.lineWidth = 1280, file.format = 2, file.singleBlock = false;
    file.AddBlock(runLine(3, Sample{{1, 2, 3}}));
    saved(file);
    EXPECT_EQ(12u, file.bitDepth);
    Sample::b3Words = true;
    file.Clear();
    EXPECT_EQ(std::make_tuple(size_t(0), 10u, 0u, true, false, 1u, uint16_t(1280)),
              std::make_tuple(file.line_blocks.size(), file.bitDepth, file.format, file.singleBlock, Sample::b3Words,
                              file.blockLayout, file.lineWidth));
}

}  // namespace
