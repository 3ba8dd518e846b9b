// An independent reader of device files: parses every byte of the layout (refusing truncated or
// over-long input) and expands blocks back into samples.
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
};

// A line: its sections, and its samples in order (a run's one sample repeated `length` times).
struct Block {
    uint16_t percentage = 0;
    std::vector<Section> sections;
    std::vector<Components> samples;
};

struct File {
    std::string magic;
    int layout = 0, width = 0, multiBlock = 0, bitDepth = 0, format = 0;
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
    file.layout = byte(), file.width = word(), file.multiBlock = byte(), file.bitDepth = byte(), file.format = byte();
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
            for (uint32_t i = 0; i < (section.run ? 1 : section.length); ++i) {
                Components sample{0, 0, 0, 0};
                for (int index : order) sample[index] = word();
                block.samples.insert(block.samples.end(), section.run ? section.length : 1, sample);
            }
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

// The picture a whole-frame file stands for: each block's samples repeated for its percentage of
// lines; a pair sample (format 0) gives two pixels sharing its chroma. Pixels as components 0 to 2.
inline std::vector<std::array<uint16_t, 3>> pixels(const File& file) {
    std::vector<std::array<uint16_t, 3>> picture;
    for (const Block& block : file.blocks)
        for (int line = 0; line < block.percentage; ++line)
            for (const Components& s : block.samples) {
                picture.push_back({s[0], s[1], s[2]});
                if (file.format == 0) picture.push_back({s[0], s[3], s[2]});
            }
    return picture;
}

}  // namespace DeviceFileReader
