// Model and writer of the Tova/Kelm device file. Every number on file is big-endian and
// written byte by byte, so the output does not depend on the host's byte order.
#include "output/writeTovaKelm.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>

#include "output/OutputFile.h"

namespace {

namespace DeviceFileLayout {
constexpr char magic[8] = {'P', 'A', 'T', 'T', 'E', 'R', 'N', '\0'};
constexpr size_t headerSize = 16;
constexpr uint8_t bitDepth = DeviceFile::codeBits;
}  // namespace DeviceFileLayout

void putWord(uint8_t* out, uint16_t value) {
    out[0] = static_cast<uint8_t>(value >> 8);
    out[1] = static_cast<uint8_t>(value & 0xFF);
}

bool writeWord(OutputFile& out, uint16_t value) {
    uint8_t bytes[2];
    putWord(bytes, value);
    return out.write(bytes, sizeof bytes);
}

void refuse(const std::string& what, unsigned long value, unsigned long limit) {
    throw std::runtime_error(what + " for a Tova/Kelm device file: " + std::to_string(value) + " (at most " +
                             std::to_string(limit) + ")");
}

// Checks a line against the limits of the 16-bit fields before anything is written.
void checkLineFits(const CompressedLine& line) {
    if (line.sections.size() > DeviceFile::maxCount)
        refuse("Too many sections in a line", line.sections.size(), DeviceFile::maxCount);
    for (const Section* section : line.sections) {
        if (section->repeatCount > DeviceFile::maxSectionLength)
            refuse("Run too long", section->repeatCount, DeviceFile::maxSectionLength);
        if (section->repeatCount == 0 && section->samplePairs.size() > DeviceFile::maxSectionLength)
            refuse("Literal section too long", section->samplePairs.size(), DeviceFile::maxSectionLength);
    }
}

}  // namespace

// ---- Sample ----

bool Sample::Save(OutputFile& out, bool threeWords) const {
    uint8_t bytes[8];
    size_t size;
    if (threeWords) {
        putWord(bytes, component[0]);
        putWord(bytes + 2, component[1]);
        putWord(bytes + 4, component[2]);
        size = 6;
    } else {
        putWord(bytes, component[2]);
        putWord(bytes + 2, component[1]);
        putWord(bytes + 4, component[0]);
        putWord(bytes + 6, component[3]);
        size = 8;
    }
    if (!out.write(bytes, size)) throw std::runtime_error("Problem writing Sample.\n");
    return true;
}

// ---- Section ----

void Section::AddSamplePair(const Sample& sample) { samplePairs.push_back(sample); }

void Section::AddRepeatedSamplePair(unsigned int count, const Sample& sample) {
    if (!samplePairs.empty()) throw std::runtime_error("Cannot add repeated samples - samplePairs not empty!");
    repeatCount = count;
    samplePairs.push_back(sample);
}

bool Section::Save(OutputFile& out, bool threeWordSamples) const {
    uint16_t countWord;
    if (repeatCount != 0) {
        if (samplePairs.size() != 1)
            throw std::runtime_error("Repeated TPSection block must have exactly 1 sample pair.");
        countWord = static_cast<uint16_t>(2u * repeatCount);
    } else {
        if (!writeWord(out, 0)) throw std::runtime_error("Problem saving Section SamplePairs.\n");
        countWord = static_cast<uint16_t>(2u * samplePairs.size()) & 0xFFFE;
    }
    if (!writeWord(out, countWord)) throw std::runtime_error("Problem saving Section SamplePair count.\n");
    for (const Sample& sample : samplePairs) sample.Save(out, threeWordSamples);
    return true;
}

bool Section::operator==(const Section& other) const {
    return repeatCount == other.repeatCount && samplePairs == other.samplePairs;
}

// ---- CompressedLine ----

CompressedLine::~CompressedLine() {
    for (Section* section : sections) delete section;
}

bool CompressedLine::Save(OutputFile& out, bool threeWordSamples) const {
    if (!writeWord(out, percentage)) throw std::runtime_error("Problem writing Percentage.");
    if (sections.empty()) throw std::runtime_error("Zero length section is invalid!");
    if (!writeWord(out, GetSectionCount())) throw std::runtime_error("Problem writing sections");
    for (const Section* section : sections) section->Save(out, threeWordSamples);
    return true;
}

void CompressedLine::SetPercentage(unsigned short value) { percentage = value; }

unsigned short CompressedLine::GetPercentage() const { return percentage; }

unsigned short CompressedLine::GetSectionCount() const { return static_cast<unsigned short>(sections.size()); }

void CompressedLine::ConvertToXYZ(bool standardDefinition) {
    for (Section* section : sections) section->ConvertToXYZ(standardDefinition);
}

bool CompressedLine::operator==(const CompressedLine& other) const {
    if (sections.size() != other.sections.size()) return false;
    for (size_t i = 0; i < sections.size(); ++i)
        if (*sections[i] != *other.sections[i]) return false;
    return true;
}

bool CompressedLine::operator!=(const CompressedLine& other) const { return !(*this == other); }

void CompressedLine::AddArray(unsigned short count, const Sample* samples) {
    auto section = std::make_unique<Section>();
    section->samplePairs.assign(samples, samples + count);
    sections.push_back(section.get());
    section.release();
}

void CompressedLine::AddRun(unsigned short count, Sample sample) {
    auto section = std::make_unique<Section>();
    section->AddRepeatedSamplePair(count, sample);
    sections.push_back(section.get());
    section.release();
}

// ---- TovaKelmPatternFile ----

TovaKelmPatternFile::TovaKelmPatternFile() { Clear(); }

TovaKelmPatternFile::~TovaKelmPatternFile() { Clear(); }

void TovaKelmPatternFile::AddBlock(CompressedLine* line) {
    try {
        line_blocks.push_back(line);
    } catch (...) {
        delete line;
        throw;
    }
}

void TovaKelmPatternFile::Clear() {
    for (CompressedLine* line : line_blocks) delete line;
    line_blocks.clear();
    threeWordSamples = false;
    format = Format_YCbCr422;
    bitDepth = 10;
    singleBlock = true;
}

bool TovaKelmPatternFile::Save(const std::string& fileName) {
    checkFits();
    OutputFile out(fileName);
    if (!out.open()) throw std::runtime_error("Can't save file: " + fileName);
    if (!Save(out)) return false;
    if (!out.commit()) {
        if (blockLayout == 1) throw std::runtime_error("Problem saving line_blocks");
        return false;
    }
    return true;
}

// Refuses what the 16-bit fields cannot hold, before anything is written.
void TovaKelmPatternFile::checkFits() const {
    if (blockLayout == 1) {
        unsigned long blocks = 0;
        for (const CompressedLine* line : line_blocks) {
            if (line->sections.empty()) continue;
            checkLineFits(*line);
            ++blocks;
        }
        if (blocks > DeviceFile::maxCount) refuse("Too many blocks", blocks, DeviceFile::maxCount);
    } else if (blockLayout == 0 && !line_blocks.empty()) {
        checkLineFits(*line_blocks.front());
    }
}

bool TovaKelmPatternFile::Save(OutputFile& out) {
    checkFits();
    bitDepth = DeviceFileLayout::bitDepth;
    uint8_t header[DeviceFileLayout::headerSize] = {};
    for (size_t i = 0; i < sizeof DeviceFileLayout::magic; ++i)
        header[i] = static_cast<uint8_t>(DeviceFileLayout::magic[i]);
    header[8] = static_cast<uint8_t>(blockLayout & 0xFF);
    putWord(header + 9, lineWidth);
    header[11] = singleBlock ? 0 : 1;
    header[12] = static_cast<uint8_t>(bitDepth);
    header[13] = static_cast<uint8_t>(format & 0xFF);
    if (!out.write(header, sizeof header)) return false;

    if (blockLayout == 0) {
        if (!line_blocks.empty()) return line_blocks.front()->Save(out, threeWordSamples);
    } else if (blockLayout == 1) {
        uint16_t blocks = 0;
        for (const CompressedLine* line : line_blocks)
            if (line->GetSectionCount() != 0) ++blocks;
        if (!writeWord(out, blocks)) throw std::runtime_error("Problem saving line_blocks");
        for (const CompressedLine* line : line_blocks)
            if (line->GetSectionCount() != 0 && !line->Save(out, threeWordSamples))
                throw std::runtime_error("Problem saving line_blocks");
    }
    return true;
}

// ---- DeviceFileBlockBuilder ----

namespace {

// Every block of a single-entry line-repeat list is marked as standing for the whole picture.
constexpr uint16_t singleEntryPercentage = 100;

Sample sampleAt(const uint16_t* samples, size_t i) {
    Sample sample;
    std::copy(samples + DeviceFile::samplesComponents * i, samples + DeviceFile::samplesComponents * (i + 1),
              sample.component);
    return sample;
}

// Run-length encoder for one line: A B B B C becomes [A B], run 2 of B, [C]. Literals and runs longer
// than a section holds are split.
class LineCompressor {
public:
    LineCompressor(CompressedLine& line, std::vector<Sample>& literal) : line_(line), literal_(literal) {
        literal_.clear();
    }

    void add(const Sample& sample) {
        if (hasPrevious_ && sample == previous_) {
            ++runCount_;
            flushLiteral();
        } else {
            flushRun();
            literal_.push_back(sample);
        }
        previous_ = sample;
        hasPrevious_ = true;
    }

    void finish() {
        if (runCount_ != 0)
            flushRun();
        else
            flushLiteral();
    }

private:
    void flushLiteral() {
        for (size_t done = 0; done < literal_.size();) {
            const size_t count = std::min<size_t>(literal_.size() - done, DeviceFile::maxSectionLength);
            line_.AddArray(static_cast<unsigned short>(count), literal_.data() + done);
            done += count;
        }
        literal_.clear();
    }

    void flushRun() {
        while (runCount_ != 0) {
            const uint32_t count = std::min<uint32_t>(runCount_, DeviceFile::maxSectionLength);
            line_.AddRun(static_cast<unsigned short>(count), previous_);
            runCount_ -= count;
        }
    }

    CompressedLine& line_;
    std::vector<Sample>& literal_;
    uint32_t runCount_ = 0;  // wider than the format's field so wide lines cannot wrap
    Sample previous_;
    bool hasPrevious_ = false;
};

}  // namespace

DeviceFileBlockBuilder::DeviceFileBlockBuilder(TovaKelmPatternFile& file, int width, bool pairs,
                                               const LineRepeats& lineRepeats)
    : file_(file), samples_(static_cast<size_t>(DeviceFile::samplesPerLine(width, pairs))), lineRepeats_(lineRepeats) {
    file_.lineWidth = static_cast<uint16_t>(width);
    file_.blockLayout = 1;
    file_.singleBlock = lineRepeats_.size() == 1;
    file_.threeWordSamples = !pairs;
}

std::unique_ptr<CompressedLine> DeviceFileBlockBuilder::compress(const uint16_t* samples) {
    auto line = std::make_unique<CompressedLine>();
    LineCompressor compressor(*line, literal_);
    for (size_t i = 0; i < samples_; ++i) compressor.add(sampleAt(samples, i));
    compressor.finish();
    return line;
}

void DeviceFileBlockBuilder::handOver(std::unique_ptr<CompressedLine> line, uint32_t percentage) {
    line->SetPercentage(static_cast<unsigned short>(percentage));
    file_.AddBlock(line.release());
}

void DeviceFileBlockBuilder::addRow(const uint16_t* samples) {
    const size_t components = samples_ * DeviceFile::samplesComponents;
    if (!lineRepeats_.empty()) {
        // The block covers the picture lines from the previous listed line to this one.
        const int y = lineRepeats_.at(row_++).second;
        const int covered = lineRepeats_.size() == 1 ? singleEntryPercentage : y - repeatStart_ + 1;
        repeatStart_ = y + 1;
        handOver(compress(samples), static_cast<uint32_t>(covered));
        return;
    }
    // Identical rows compress identically: compare the samples, and compress only a new line.
    if (pending_ && std::equal(samples, samples + components, previous_.begin()) &&
        pendingLines_ < DeviceFile::maxPercentage) {
        ++pendingLines_;
        return;
    }
    if (pending_) handOver(std::move(pending_), pendingLines_);
    previous_.assign(samples, samples + components);
    pending_ = compress(samples);
    pendingLines_ = 1;
}

void DeviceFileBlockBuilder::finish() {
    if (pending_) handOver(std::move(pending_), pendingLines_);
}

// ---- the device file's writer ----

namespace {

class DeviceFileModelWriter final : public DeviceFileWriter {
public:
    DeviceFileModelWriter(uint32_t format, bool toXYZ) : toXYZ_(toXYZ) { file_.format = format; }

    bool begin(OutputFile& out, const ImageHeader& header) override {
        out_ = &out;
        if (header.lineRepeats != nullptr) lineRepeats_ = *header.lineRepeats;
        builder_ = std::make_unique<DeviceFileBlockBuilder>(
            file_, header.width, DeviceFile::usesSamplePairs(header.axes, header.sampling), lineRepeats_);
        return true;
    }

    bool writeRow(RowOf<RowKind::DeviceFile> row) override {
        builder_->addRow(row.samples);
        return true;
    }

    bool finish() override {
        builder_->finish();
        if (toXYZ_) file_.ConvertToXYZ();
        return file_.Save(*out_) && !out_->failed();
    }

private:
    bool toXYZ_;
    TovaKelmPatternFile file_;
    LineRepeats lineRepeats_;
    std::unique_ptr<DeviceFileBlockBuilder> builder_;
    OutputFile* out_ = nullptr;
};

}  // namespace

std::unique_ptr<DeviceFileWriter> makeDeviceFileWriter(uint32_t format, bool toXYZ) {
    return std::make_unique<DeviceFileModelWriter>(format, toXYZ);
}
