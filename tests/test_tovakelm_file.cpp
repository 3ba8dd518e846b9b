// The device pattern file model and writer: exact bytes, the independent reader's view, errors,
// limits and the removal of files that fail part-way.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "TovaKelmReader.h"
#include "writeTovaKelm.h"

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

namespace {

Sample makeSample(uint16_t c0, uint16_t c1, uint16_t c2, uint16_t c3 = 0) {
    Sample s;
    s.component[0] = c0;
    s.component[1] = c1;
    s.component[2] = c2;
    s.component[3] = c3;
    return s;
}

CompressedLine* runLine(unsigned short count, const Sample& s, unsigned short percentage = 1) {
    auto* line = new CompressedLine;
    line->AddRun(count, s);
    line->SetPercentage(percentage);
    return line;
}

template <typename Fn>
std::string thrownMessage(Fn fn) {
    try {
        fn();
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "<nothing thrown>";
}

class DeviceFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir = fs::path(::testing::TempDir()) / ("tovakelm_" + std::to_string(getpid()));
        fs::create_directories(dir);
        Sample::b3Words = false;
    }
    void TearDown() override {
        fs::remove_all(dir);
        Sample::b3Words = false;
    }
    std::string path(const std::string& name) const { return (dir / name).string(); }

    // Saves and returns the bytes after the 16-byte header.
    Bytes bodyOf(TovaKelmPatternFile& file) {
        const std::string p = path("body.pat");
        EXPECT_TRUE(file.Save(p));
        Bytes bytes = DeviceFileReader::readBytes(p);
        EXPECT_GE(bytes.size(), 16u);
        return Bytes(bytes.begin() + 16, bytes.end());
    }

    fs::path dir;
};

TEST_F(DeviceFileTest, HeaderBytes) {
    TovaKelmPatternFile multi;
    multi.blockLayout = 1;
    multi.lineWidth = 1920;
    multi.singleBlock = false;
    multi.format = TovaKelmPatternFile::Format_YCbCr422;
    multi.AddBlock(runLine(959, makeSample(2048, 256, 2048, 256)));
    multi.AddBlock(runLine(959, makeSample(2048, 3760, 2048, 3760)));
    ASSERT_TRUE(multi.Save(path("multi.pat")));
    const Bytes bytes = DeviceFileReader::readBytes(path("multi.pat"));
    const Bytes expected = {0x50, 0x41, 0x54, 0x54, 0x45, 0x52, 0x4E, 0x00,
                            0x01, 0x07, 0x80, 0x01, 0x0C, 0x00, 0x00, 0x00};
    ASSERT_GE(bytes.size(), 16u);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 16), expected);

    TovaKelmPatternFile single;
    single.blockLayout = 1;
    single.lineWidth = 2048;
    single.format = TovaKelmPatternFile::Format_RGB;
    Sample::b3Words = true;
    single.AddBlock(runLine(100, makeSample(1, 2, 3)));
    ASSERT_TRUE(single.Save(path("single.rgb")));
    const Bytes rgb = DeviceFileReader::readBytes(path("single.rgb"));
    EXPECT_EQ(rgb[9], 0x08);
    EXPECT_EQ(rgb[10], 0x00);
    EXPECT_EQ(rgb[11], 0x00);
    EXPECT_EQ(rgb[13], 0x01);
}

TEST_F(DeviceFileTest, SectionAndSampleBytes) {
    // A run of 1000 four-word samples: 2 x 1000 then Cb, Y, Cr, second Y.
    TovaKelmPatternFile run;
    run.blockLayout = 0;
    run.AddBlock(runLine(1000, makeSample(0x0111, 0x0222, 0x0333, 0x0444), 7));
    EXPECT_EQ(bodyOf(run), (Bytes{0x00, 0x07, 0x00, 0x01, 0x07, 0xD0, 0x03, 0x33, 0x02, 0x22, 0x01, 0x11, 0x04, 0x44}));

    // A literal of three three-word samples: 00 00, 2 x 3, then R G B each.
    TovaKelmPatternFile literal;
    Sample::b3Words = true;  // after construction: the constructor's Clear() resets it
    const Sample rgb[3] = {makeSample(0x0FFF, 0x0100, 0x0ABC, 0x7777), makeSample(1, 2, 3), makeSample(4, 5, 6)};
    auto* line = new CompressedLine;
    line->AddArray(3, rgb);
    literal.AddBlock(line);
    EXPECT_EQ(bodyOf(literal), (Bytes{0x00, 0x01, 0x00, 0x01, 0x00, 0x00, 0x00, 0x06, 0x0F, 0xFF, 0x01, 0x00, 0x0A,
                                      0xBC, 0x00, 0x01, 0x00, 0x02, 0x00, 0x03, 0x00, 0x04, 0x00, 0x05, 0x00, 0x06}));

    // An empty literal is 00 00 00 00.
    TovaKelmPatternFile empty;
    auto* emptyLine = new CompressedLine;
    emptyLine->AddArray(0, nullptr);
    empty.AddBlock(emptyLine);
    EXPECT_EQ(bodyOf(empty), (Bytes{0x00, 0x01, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00}));
}

TEST_F(DeviceFileTest, BodyByBlockLayout) {
    TovaKelmPatternFile noLines;
    noLines.blockLayout = 1;
    EXPECT_EQ(bodyOf(noLines), (Bytes{0x00, 0x00}));

    noLines.blockLayout = 0;
    EXPECT_EQ(bodyOf(noLines), Bytes{});

    // Layout 1 counts and writes only the lines that hold sections.
    TovaKelmPatternFile gap;
    gap.blockLayout = 1;
    gap.AddBlock(runLine(5, makeSample(1, 1, 1, 1), 5));
    gap.AddBlock(new CompressedLine);
    gap.AddBlock(runLine(7, makeSample(2, 2, 2, 2), 7));
    ASSERT_TRUE(gap.Save(path("gap.pat")));
    const DeviceFileReader::File parsed = DeviceFileReader::parseFile(path("gap.pat"));
    EXPECT_EQ(parsed.blockCount, 2);
    ASSERT_EQ(parsed.blocks.size(), 2u);
    EXPECT_EQ(parsed.blocks[0].percentage, 5);
    EXPECT_EQ(parsed.blocks[1].percentage, 7);

    // Layout 0 writes the first line only, without a count; any other layout writes no body.
    gap.blockLayout = 0;
    EXPECT_EQ(bodyOf(gap), (Bytes{0x00, 0x05, 0x00, 0x01, 0x00, 0x0A, 0x00, 0x01, 0x00, 0x01, 0x00, 0x01, 0x00, 0x01}));
    gap.blockLayout = 2;
    EXPECT_EQ(bodyOf(gap), Bytes{});
}

TEST_F(DeviceFileTest, ExceptionMessages) {
    FILE* scratch = tmpfile();
    ASSERT_NE(scratch, nullptr);
    EXPECT_EQ(thrownMessage([&] { CompressedLine().Save(scratch); }), "Zero length section is invalid!");
    fclose(scratch);

    TovaKelmPatternFile emptyFirst;
    emptyFirst.AddBlock(new CompressedLine);
    EXPECT_EQ(thrownMessage([&] { emptyFirst.Save(path("empty.pat")); }), "Zero length section is invalid!");
    EXPECT_FALSE(fs::exists(path("empty.pat"))) << "a failed file is removed";

    TovaKelmPatternFile twoInRun;
    CompressedLine* line = runLine(4, makeSample(1, 2, 3, 4));
    line->sections[0]->AddSamplePair(makeSample(5, 6, 7, 8));
    twoInRun.AddBlock(line);
    EXPECT_EQ(thrownMessage([&] { twoInRun.Save(path("run.pat")); }),
              "Repeated TPSection block must have exactly 1 sample pair.");

    Section filled;
    filled.AddSamplePair(makeSample(1, 1, 1));
    EXPECT_EQ(thrownMessage([&] { filled.AddRepeatedSamplePair(3, makeSample(2, 2, 2)); }),
              "Cannot add repeated samples - samplePairs not empty!");

    const std::string missing = path("no/such/dir/card.pat");
    TovaKelmPatternFile file;
    EXPECT_EQ(thrownMessage([&] { file.Save(missing); }), "Can't save file: " + missing);
}

TEST_F(DeviceFileTest, EqualityIgnoresPercentageOnly) {
    const Sample a = makeSample(10, 20, 30, 40);
    const Sample ab[2] = {a, makeSample(11, 21, 31, 41)};
    const auto build = [&](unsigned short run, uint16_t fourth, unsigned short percentage) {
        auto line = std::make_unique<CompressedLine>();
        line->AddArray(2, ab);
        Sample last = ab[1];
        last.component[3] = fourth;
        line->AddRun(run, last);
        line->SetPercentage(percentage);
        return line;
    };
    EXPECT_TRUE(*build(9, 41, 3) == *build(9, 41, 300));
    EXPECT_FALSE(*build(9, 41, 3) != *build(9, 41, 300));
    EXPECT_TRUE(*build(9, 41, 3) != *build(10, 41, 3));
    EXPECT_TRUE(*build(9, 41, 3) != *build(9, 0, 3));  // component 3 counts even if never written

    CompressedLine fewer;
    fewer.AddArray(2, ab);
    EXPECT_FALSE(fewer == *build(9, 41, 3));

    // A literal of one sample is not a run of one.
    Section literal, run;
    literal.AddSamplePair(a);
    run.AddRepeatedSamplePair(1, a);
    EXPECT_TRUE(literal != run);
}

TEST_F(DeviceFileTest, ClearEmptiesTheFileButKeepsGeometry) {
    TovaKelmPatternFile file;
    file.blockLayout = 1;
    file.lineWidth = 1280;
    file.format = 2;
    file.singleBlock = false;
    file.AddBlock(runLine(3, makeSample(1, 2, 3)));
    ASSERT_TRUE(file.Save(path("clear.yc4")));
    EXPECT_EQ(file.bitDepth, 12u);
    Sample::b3Words = true;
    file.Clear();  // the line is freed (checked by the leak sanitizer)
    EXPECT_TRUE(file.line_blocks.empty());
    EXPECT_EQ(file.bitDepth, 10u);
    EXPECT_EQ(file.format, 0u);
    EXPECT_TRUE(file.singleBlock);
    EXPECT_FALSE(Sample::b3Words);
    EXPECT_EQ(file.blockLayout, 1u);
    EXPECT_EQ(file.lineWidth, 1280u);
}

TEST_F(DeviceFileTest, RandomFilesRoundTripThroughReader) {
    std::mt19937 random(5544);
    for (int trial = 0; trial < 20; ++trial) {
        const bool threeWords = trial % 2 == 0;
        TovaKelmPatternFile file;
        file.blockLayout = 1;
        file.lineWidth = static_cast<uint16_t>(random());
        file.format = threeWords ? 1 : 0;
        Sample::b3Words = threeWords;  // after construction: its Clear() resets the flag
        std::vector<std::vector<DeviceFileReader::Components>> expected;
        std::vector<uint16_t> percentages;
        const int lines = 1 + static_cast<int>(random() % 6);
        for (int l = 0; l < lines; ++l) {
            auto* line = new CompressedLine;
            std::vector<DeviceFileReader::Components> samples;
            const int sections = 1 + static_cast<int>(random() % 8);
            for (int s = 0; s < sections; ++s) {
                const bool run = random() % 2 == 0;
                const unsigned count = !run ? random() % 40 : random() % 4 == 0 ? 32767 : 1 + random() % 2000;
                std::vector<Sample> data;
                for (unsigned i = 0; i < (run ? 1 : count); ++i)
                    data.push_back(makeSample(random() % 4096, random() % 4096, random() % 4096,
                                              threeWords ? 0 : random() % 4096));
                if (run)
                    line->AddRun(static_cast<unsigned short>(count), data[0]);
                else
                    line->AddArray(static_cast<unsigned short>(count), data.data());
                for (unsigned i = 0; i < count; ++i) {
                    const Sample& sample = data[run ? 0 : i];
                    samples.push_back(
                        {sample.component[0], sample.component[1], sample.component[2], sample.component[3]});
                }
            }
            const uint16_t percentage = static_cast<uint16_t>(random());
            line->SetPercentage(percentage);
            percentages.push_back(percentage);
            expected.push_back(samples);
            file.AddBlock(line);
        }
        ASSERT_TRUE(file.Save(path("random.pat")));
        const DeviceFileReader::File parsed = DeviceFileReader::parseFile(path("random.pat"), threeWords ? 3 : 4);
        EXPECT_EQ(parsed.magic, std::string("PATTERN", 8));
        EXPECT_EQ(parsed.width, file.lineWidth);
        ASSERT_EQ(parsed.blocks.size(), expected.size());
        for (size_t l = 0; l < expected.size(); ++l) {
            EXPECT_EQ(parsed.blocks[l].percentage, percentages[l]);
            EXPECT_EQ(parsed.blocks[l].expand(), expected[l]) << "trial " << trial << " line " << l;
        }
    }
}

TEST_F(DeviceFileTest, OutOfRangeCountsAreRefusedBeforeTheFileExists) {
    const Sample s = makeSample(1, 2, 3, 4);

    TovaKelmPatternFile blocks;
    blocks.blockLayout = 1;
    for (int i = 0; i < 65535; ++i) blocks.AddBlock(runLine(1, s));
    ASSERT_TRUE(blocks.Save(path("max.pat")));
    const Bytes max = DeviceFileReader::readBytes(path("max.pat"));
    EXPECT_EQ(max[16], 0xFF);
    EXPECT_EQ(max[17], 0xFF);
    blocks.AddBlock(new CompressedLine);  // empty lines are not counted
    ASSERT_TRUE(blocks.Save(path("max.pat")));
    blocks.AddBlock(runLine(1, s));
    EXPECT_EQ(thrownMessage([&] { blocks.Save(path("blocks.pat")); }),
              "Too many blocks for a Tova/Kelm pattern file: 65536 (at most 65535)");
    EXPECT_FALSE(fs::exists(path("blocks.pat")));

    TovaKelmPatternFile sections;
    sections.blockLayout = 1;
    auto* wide = new CompressedLine;
    for (int i = 0; i < 65536; ++i) wide->AddRun(1, s);
    sections.AddBlock(wide);
    EXPECT_EQ(thrownMessage([&] { sections.Save(path("sections.pat")); }),
              "Too many sections in a line for a Tova/Kelm pattern file: 65536 (at most 65535)");
    EXPECT_FALSE(fs::exists(path("sections.pat")));

    TovaKelmPatternFile literal;
    const std::vector<Sample> many(32768, s);
    auto* longLine = new CompressedLine;
    longLine->AddArray(32768, many.data());
    literal.AddBlock(longLine);
    EXPECT_EQ(thrownMessage([&] { literal.Save(path("literal.pat")); }),
              "Literal section too long for a Tova/Kelm pattern file: 32768 (at most 32767)");
    longLine->sections[0]->samplePairs.pop_back();
    EXPECT_TRUE(literal.Save(path("literal.pat")));

    TovaKelmPatternFile run;
    run.AddBlock(runLine(32768, s));
    EXPECT_EQ(thrownMessage([&] { run.Save(path("run.pat")); }),
              "Run too long for a Tova/Kelm pattern file: 32768 (at most 32767)");
    EXPECT_FALSE(fs::exists(path("run.pat")));
}

TEST_F(DeviceFileTest, FileFailingPartWayIsRemoved) {
    // Cap the size of files this process may write; writes beyond it fail with EFBIG.
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    const auto previousHandler = signal(SIGXFSZ, SIG_IGN);
    rlimit capped = saved;
    capped.rlim_cur = 1000;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &capped), 0);

    TovaKelmPatternFile file;
    file.blockLayout = 1;
    std::vector<Sample> samples;
    for (int i = 0; i < 20000; ++i) samples.push_back(makeSample(i % 4096, 1, 2, 3));
    auto* line = new CompressedLine;
    line->AddArray(20000, samples.data());
    file.AddBlock(line);
    bool threw = false;
    try {
        file.Save(path("big.pat"));
    } catch (const std::runtime_error&) {
        threw = true;
    }

    setrlimit(RLIMIT_FSIZE, &saved);
    signal(SIGXFSZ, previousHandler);
    EXPECT_TRUE(threw);
    EXPECT_FALSE(fs::exists(path("big.pat")));
}

}  // namespace
