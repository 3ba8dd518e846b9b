// An independent reader of Tova/Kelm device pattern files for tests: parses every byte of the layout
// (refusing truncated or over-long input) and expands blocks back into samples.
#pragma once

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "TestFiles.h"

namespace DeviceFileReader {

// Components in model order 0 to 3; a three-word sample reads component 3 as 0.
using Components = std::array<uint16_t, 4>;

struct Section {
    bool run = false;
    uint32_t length = 0;  // run: repeat count; literal: number of samples
    std::vector<Components> samples;
};

struct Block {
    uint16_t percentage = 0;
    std::vector<Section> sections;

    // The line's samples in order: a literal gives its samples, a run its one sample `length` times.
    std::vector<Components> expand() const {
        std::vector<Components> out;
        for (const Section& s : sections)
            for (size_t i = 0; i < (s.run ? s.length : s.samples.size()); ++i) out.push_back(s.samples[s.run ? 0 : i]);
        return out;
    }
};

struct File {
    std::string magic;
    uint8_t layout = 0, multiBlock = 0, bitDepth = 0, format = 0;
    uint16_t width = 0;
    std::vector<Block> blocks;
};

class Reader {
public:
    Reader(const std::vector<uint8_t>& bytes, int wordsPerSample) : bytes_(bytes), words_(wordsPerSample) {}

    uint8_t byte() {
        if (pos_ >= bytes_.size()) throw std::runtime_error("truncated at byte " + std::to_string(pos_));
        return bytes_[pos_++];
    }
    uint16_t word() {
        const uint16_t high = byte();
        return static_cast<uint16_t>(high << 8 | byte());
    }
    bool atEnd() const { return pos_ == bytes_.size(); }

    // Three words on file are components 0, 1, 2; four words are 2, 1, 0, 3.
    Components sample() {
        Components c{0, 0, 0, 0};
        for (int index : words_ == 3 ? std::vector<int>{0, 1, 2} : std::vector<int>{2, 1, 0, 3}) c[index] = word();
        return c;
    }

    // A zero first word opens a literal, whose doubled count follows; otherwise it is a run's doubled length.
    Block block() {
        Block block;
        block.percentage = word();
        block.sections.resize(word());
        if (block.sections.empty()) throw std::runtime_error("block without sections");
        for (Section& section : block.sections) {
            const uint16_t first = word();
            section.run = first != 0;
            const uint16_t doubled = section.run ? first : word();
            if (doubled & 1) throw std::runtime_error("odd length word");
            section.length = doubled / 2u;
            for (uint32_t s = 0; s < (section.run ? 1 : section.length); ++s) section.samples.push_back(sample());
        }
        return block;
    }

private:
    const std::vector<uint8_t>& bytes_;
    int words_;
    size_t pos_ = 0;
};

// wordsPerSample 0 takes it from the format byte: four words for 4:2:2 (format 0), three otherwise.
inline File parse(const std::vector<uint8_t>& bytes, int wordsPerSample = 0) {
    const uint8_t format = bytes.size() > 13 ? bytes[13] : 0;
    Reader in(bytes, wordsPerSample != 0 ? wordsPerSample : format == 0 ? 4 : 3);
    File file;
    for (int i = 0; i < 8; ++i) file.magic.push_back(static_cast<char>(in.byte()));
    file.layout = in.byte();
    file.width = in.word();
    file.multiBlock = in.byte();
    file.bitDepth = in.byte();
    file.format = in.byte();
    if (in.word() != 0) throw std::runtime_error("reserved header bytes are not zero");
    if (file.layout == 1)
        for (uint16_t count = in.word(); file.blocks.size() < count;) file.blocks.push_back(in.block());
    else if (file.layout == 0 && !in.atEnd())
        file.blocks.push_back(in.block());
    if (!in.atEnd()) throw std::runtime_error("trailing bytes after the last block");
    return file;
}

inline File parseFile(const std::string& path, int wordsPerSample = 0) {
    return parse(TestFiles::readFile(path), wordsPerSample);
}

}  // namespace DeviceFileReader
