// Model and writer of the Tova/Kelm device pattern file. Every number on file is big-endian and
// written byte by byte, so the output does not depend on the host's byte order.
#include "output/writeTovaKelm.h"

#include <memory>
#include <stdexcept>
#include <string>

#include "output/OutputFile.h"

bool Sample::b3Words = false;

namespace {

namespace DeviceFile {
constexpr char magic[8] = {'P', 'A', 'T', 'T', 'E', 'R', 'N', '\0'};
constexpr size_t headerSize = 16;
constexpr uint8_t bitDepth = 12;
constexpr unsigned long maxCount = 65535;          // blocks per file, sections per line
constexpr unsigned long maxSectionLength = 32767;  // twice the value must fit in 16 bits
}  // namespace DeviceFile

void putWord(uint8_t* out, uint16_t value) {
    out[0] = static_cast<uint8_t>(value >> 8);
    out[1] = static_cast<uint8_t>(value & 0xFF);
}

bool writeWord(FILE* file, uint16_t value) {
    uint8_t bytes[2];
    putWord(bytes, value);
    return fwrite(bytes, 1, sizeof bytes, file) == sizeof bytes;
}

void refuse(const std::string& what, unsigned long value, unsigned long limit) {
    throw std::runtime_error(what + " for a Tova/Kelm pattern file: " + std::to_string(value) + " (at most " +
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

// Closes a failed file and removes it, so no half-written pattern is left behind.
// Only a regular file is removed: a device such as /dev/full must survive a failed write.
void discardFile(FILE* file, const std::string& fileName) {
    fclose(file);
    OutputFile::removeIncomplete(fileName);
}

}  // namespace

// ---- Sample ----

bool Sample::Save(FILE* file) const {
    uint8_t bytes[8];
    size_t size;
    if (b3Words) {
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
    if (fwrite(bytes, 1, size, file) != size) throw std::runtime_error("Problem writing Sample.\n");
    return true;
}

// ---- Section ----

void Section::AddSamplePair(const Sample& sample) { samplePairs.push_back(sample); }

void Section::AddRepeatedSamplePair(unsigned int count, const Sample& sample) {
    if (!samplePairs.empty()) throw std::runtime_error("Cannot add repeated samples - samplePairs not empty!");
    repeatCount = count;
    samplePairs.push_back(sample);
}

bool Section::Save(FILE* file) const {
    uint16_t countWord;
    if (repeatCount != 0) {
        if (samplePairs.size() != 1)
            throw std::runtime_error("Repeated TPSection block must have exactly 1 sample pair.");
        countWord = static_cast<uint16_t>(2u * repeatCount);
    } else {
        if (!writeWord(file, 0)) throw std::runtime_error("Problem saving Section SamplePairs.\n");
        countWord = static_cast<uint16_t>(2u * samplePairs.size()) & 0xFFFE;
    }
    if (!writeWord(file, countWord)) throw std::runtime_error("Problem saving Section SamplePair count.\n");
    for (const Sample& sample : samplePairs) sample.Save(file);
    return true;
}

bool Section::operator==(const Section& other) const {
    return repeatCount == other.repeatCount && samplePairs == other.samplePairs;
}

// ---- CompressedLine ----

CompressedLine::~CompressedLine() {
    for (Section* section : sections) delete section;
}

bool CompressedLine::Save(FILE* file) const {
    if (!writeWord(file, percentage)) throw std::runtime_error("Problem writing Percentage.");
    if (sections.empty()) throw std::runtime_error("Zero length section is invalid!");
    if (!writeWord(file, GetSectionCount())) throw std::runtime_error("Problem writing sections");
    for (const Section* section : sections) section->Save(file);
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
    Sample::b3Words = false;
    format = Format_YCbCr422;
    bitDepth = 10;
    singleBlock = true;
}

bool TovaKelmPatternFile::Save(const std::string& fileName) {
    // Refuse what the 16-bit fields cannot hold before the file exists.
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

    FILE* file = fopen(fileName.c_str(), "wb");
    if (file == nullptr) throw std::runtime_error("Can't save file: " + fileName);

    bitDepth = DeviceFile::bitDepth;
    uint8_t header[DeviceFile::headerSize] = {};
    for (size_t i = 0; i < sizeof DeviceFile::magic; ++i) header[i] = static_cast<uint8_t>(DeviceFile::magic[i]);
    header[8] = static_cast<uint8_t>(blockLayout & 0xFF);
    putWord(header + 9, lineWidth);
    header[11] = singleBlock ? 0 : 1;
    header[12] = static_cast<uint8_t>(bitDepth);
    header[13] = static_cast<uint8_t>(format & 0xFF);
    if (fwrite(header, 1, sizeof header, file) != sizeof header) {
        discardFile(file, fileName);
        return false;
    }

    bool result = true;
    try {
        if (blockLayout == 0) {
            if (!line_blocks.empty()) result = line_blocks.front()->Save(file);
        } else if (blockLayout == 1) {
            uint16_t blocks = 0;
            for (const CompressedLine* line : line_blocks)
                if (line->GetSectionCount() != 0) ++blocks;
            if (!writeWord(file, blocks)) throw std::runtime_error("Problem saving line_blocks");
            for (const CompressedLine* line : line_blocks)
                if (line->GetSectionCount() != 0 && !line->Save(file))
                    throw std::runtime_error("Problem saving line_blocks");
        }
    } catch (...) {
        discardFile(file, fileName);
        throw;
    }

    // Buffered data reaches the disk only now; a failure here loses the body, so treat it as one.
    if (fclose(file) != 0) {
        OutputFile::removeIncomplete(fileName);
        if (blockLayout == 1) throw std::runtime_error("Problem saving line_blocks");
        return false;
    }
    return result;
}
