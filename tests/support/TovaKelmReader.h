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

inline File parseFile(const std::string& path) {
    const std::vector<uint8_t> bytes = TestFiles::readFile(path);
    size_t at = 0;
    const auto byte = [&]() -> uint8_t {
        if (at >= bytes.size()) throw std::runtime_error("truncated at byte " + std::to_string(at));
        return bytes[at++];
    };
    const auto word = [&]() {
        const uint16_t high = byte();
        return static_cast<uint16_t>(high << 8 | byte());
    };
    File file;
    for (int i = 0; i < 8; ++i) file.magic.push_back(static_cast<char>(byte()));
    file.layout = byte();
    file.width = word();
    file.multiBlock = byte();
    file.bitDepth = byte();
    file.format = byte();
    if (word() != 0) throw std::runtime_error("reserved header bytes are not zero");

    // Four words (format 0, 4:2:2) are components 2, 1, 0, 3; three words are components 0, 1, 2.
    const std::vector<int> order = file.format == 0 ? std::vector<int>{2, 1, 0, 3} : std::vector<int>{0, 1, 2};
    // A zero first word opens a literal, whose doubled count follows; otherwise it is a run's doubled length.
    const auto block = [&]() {
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
            section.samples.resize(section.run ? 1 : section.length, Components{0, 0, 0, 0});
            for (Components& sample : section.samples)
                for (int index : order) sample[index] = word();
        }
        return block;
    };
    if (file.layout == 1)
        for (uint16_t count = word(); file.blocks.size() < count;) file.blocks.push_back(block());
    else if (file.layout == 0 && at < bytes.size())
        file.blocks.push_back(block());
    if (at != bytes.size()) throw std::runtime_error("trailing bytes after the last block");
    return file;
}

}  // namespace DeviceFileReader
