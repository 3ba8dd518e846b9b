// An independent reader of Tova/Kelm device pattern files for tests: parses every byte of the
// layout (refusing truncated or over-long input) and expands blocks back into samples.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace DeviceFileReader {

// Components in model order: 0, 1, 2, 3 (for three-word samples component 3 reads as 0).
using Components = std::array<uint16_t, 4>;

struct Section {
    bool run = false;
    uint32_t length = 0;  // run: repeat count; literal: number of samples
    std::vector<Components> samples;
};

struct Block {
    uint16_t percentage = 0;
    std::vector<Section> sections;

    // The line's samples in order: a literal contributes its samples, a run its sample length times.
    std::vector<Components> expand() const {
        std::vector<Components> out;
        for (const Section& section : sections) {
            if (section.run)
                out.insert(out.end(), section.length, section.samples.at(0));
            else
                out.insert(out.end(), section.samples.begin(), section.samples.end());
        }
        return out;
    }
};

struct File {
    std::string magic;
    uint8_t layout = 0;
    uint16_t width = 0;
    uint8_t multiBlock = 0;
    uint8_t bitDepth = 0;
    uint8_t format = 0;
    uint16_t reserved = 0;
    bool hasCount = false;
    uint16_t blockCount = 0;
    std::vector<Block> blocks;
};

class Cursor {
public:
    explicit Cursor(const std::vector<uint8_t>& bytes) : bytes_(bytes) {}

    uint8_t byte() {
        if (pos_ >= bytes_.size()) throw std::runtime_error("truncated at byte " + std::to_string(pos_));
        return bytes_[pos_++];
    }
    uint16_t word() {
        const uint16_t high = byte();
        return static_cast<uint16_t>((high << 8) | byte());
    }
    bool atEnd() const { return pos_ == bytes_.size(); }
    size_t position() const { return pos_; }

private:
    const std::vector<uint8_t>& bytes_;
    size_t pos_ = 0;
};

inline Components readSample(Cursor& in, int words) {
    Components c{0, 0, 0, 0};
    if (words == 3) {
        c[0] = in.word();
        c[1] = in.word();
        c[2] = in.word();
    } else {
        c[2] = in.word();
        c[1] = in.word();
        c[0] = in.word();
        c[3] = in.word();
    }
    return c;
}

inline Block readBlock(Cursor& in, int words) {
    Block block;
    block.percentage = in.word();
    const uint16_t sectionCount = in.word();
    if (sectionCount == 0) throw std::runtime_error("block without sections");
    for (uint16_t i = 0; i < sectionCount; ++i) {
        Section section;
        const uint16_t first = in.word();
        if (first == 0) {
            const uint16_t doubled = in.word();
            if (doubled & 1) throw std::runtime_error("odd literal count word");
            section.length = doubled / 2u;
            for (uint32_t s = 0; s < section.length; ++s) section.samples.push_back(readSample(in, words));
        } else {
            if (first & 1) throw std::runtime_error("odd run length word");
            section.run = true;
            section.length = first / 2u;
            section.samples.push_back(readSample(in, words));
        }
        block.sections.push_back(section);
    }
    return block;
}

// wordsPerSample 0 takes it from the format byte: four words for 4:2:2 (format 0), three otherwise.
inline File parse(const std::vector<uint8_t>& bytes, int wordsPerSample = 0) {
    Cursor in(bytes);
    File file;
    for (int i = 0; i < 8; ++i) file.magic.push_back(static_cast<char>(in.byte()));
    file.layout = in.byte();
    file.width = in.word();
    file.multiBlock = in.byte();
    file.bitDepth = in.byte();
    file.format = in.byte();
    file.reserved = in.word();
    const int words = wordsPerSample != 0 ? wordsPerSample : (file.format == 0 ? 4 : 3);
    if (file.layout == 1) {
        file.hasCount = true;
        file.blockCount = in.word();
        for (uint16_t b = 0; b < file.blockCount; ++b) file.blocks.push_back(readBlock(in, words));
    } else if (file.layout == 0 && !in.atEnd()) {
        file.blocks.push_back(readBlock(in, words));
    }
    if (!in.atEnd()) throw std::runtime_error("trailing bytes after offset " + std::to_string(in.position()));
    return file;
}

inline std::vector<uint8_t> readBytes(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) throw std::runtime_error("cannot open " + path);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

inline File parseFile(const std::string& path, int wordsPerSample = 0) {
    return parse(readBytes(path), wordsPerSample);
}

}  // namespace DeviceFileReader
