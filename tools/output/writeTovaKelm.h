// The run-length compressed device file played out by the Tova and Kelm generators:
// an in-memory model (file -> compressed lines -> sections -> samples), its builder from rows of
// samples and its writer.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "output/ImageWriter.h"

class OutputFile;

namespace DeviceFile {
constexpr int codeBits = 12;                       // every sample is a 12-bit code, the only depth players take
constexpr unsigned long maxCount = 65535;          // blocks per file, sections per line (16-bit counts)
constexpr unsigned long maxSectionLength = 32767;  // a section's length is stored doubled in 16 bits
constexpr uint32_t maxPercentage = 65535;          // a block's line count; more lines continue in a new block
constexpr int samplesComponents = 4;               // a row of samples holds four components each

// Y'CbCr with subsampled chroma packs two pixels into a sample (four words on file); everything else one.
inline bool usesSamplePairs(PatternGen::colorAxes_e axes, int sampling) {
    return PatternGen::isYCbCrAxes(axes) && sampling != 444;
}
inline int samplesPerLine(int width, bool pairs) { return pairs ? (width + 1) / 2 : width; }
}  // namespace DeviceFile

// Four 12-bit code values. Their meaning depends on the file's format:
// RGB: R, G, B, 0; Y'CbCr 4:4:4: Cr, Y, Cb, 0; Y'CbCr 4:2:2: Cr, Y, Cb of the first pixel and
// Y of the second; XYZ: X', Y', Z' (component 3 unused).
struct Sample {
    uint16_t component[4] = {0, 0, 0, 0};

    bool operator==(const Sample& other) const {
        return component[0] == other.component[0] && component[1] == other.component[1] &&
               component[2] == other.component[2] && component[3] == other.component[3];
    }
    bool operator!=(const Sample& other) const { return !(*this == other); }

    // Writes the sample big-endian: threeWords as c0 c1 c2, else as c2 c1 c0 c3. Throws
    // std::runtime_error on failure.
    bool Save(OutputFile& out, bool threeWords) const;
};

// A literal array of samples (repeatCount 0) or one sample repeated repeatCount times.
class Section {
public:
    std::vector<Sample> samplePairs;
    uint32_t repeatCount = 0;

    virtual ~Section() = default;

    void AddSamplePair(const Sample& sample);
    // Turns an empty section into a run; refuses a section that already holds samples.
    void AddRepeatedSamplePair(unsigned int count, const Sample& sample);

    bool Save(OutputFile& out, bool threeWordSamples) const;
    void ConvertToXYZ(bool standardDefinition);

    bool operator==(const Section& other) const;
    bool operator!=(const Section& other) const { return !(*this == other); }
};

// One block of the file: the sections of a line and how many frame lines it stands for.
// Owns its sections.
class CompressedLine {
public:
    uint16_t percentage = 1;
    std::vector<Section*> sections;

    CompressedLine() = default;
    CompressedLine(const CompressedLine&) = delete;
    CompressedLine& operator=(const CompressedLine&) = delete;

    virtual ~CompressedLine();
    virtual bool Save(OutputFile& out, bool threeWordSamples) const;
    virtual void SetPercentage(unsigned short value);
    virtual unsigned short GetPercentage() const;
    virtual unsigned short GetSectionCount() const;
    virtual void ConvertToXYZ(bool standardDefinition);
    // Compares the sections only; the percentage is not part of a line's identity.
    virtual bool operator==(const CompressedLine& other) const;
    virtual bool operator!=(const CompressedLine& other) const;

    // Appends a literal section holding copies of count samples (count 0: an empty literal).
    void AddArray(unsigned short count, const Sample* samples);
    // Appends a run section: sample repeated count times.
    void AddRun(unsigned short count, Sample sample);
};

// The whole file. Owns its lines.
class TovaKelmPatternFile {
public:
    // Format codes of the header's format byte.
    enum { Format_YCbCr422 = 0, Format_RGB = 1, Format_YCbCr444 = 2, Format_XYZ = 3 };

    uint32_t blockLayout = 0;  // 0: one block, no count; 1: block count then blocks
    uint16_t lineWidth = 0;
    std::vector<CompressedLine*> line_blocks;
    uint32_t format = Format_YCbCr422;
    uint32_t bitDepth = 10;
    bool singleBlock = true;
    bool threeWordSamples = false;  // samples as three words (R'G'B' 4:4:4, X'Y'Z') or four

    TovaKelmPatternFile();
    TovaKelmPatternFile(const TovaKelmPatternFile&) = delete;
    TovaKelmPatternFile& operator=(const TovaKelmPatternFile&) = delete;

    virtual ~TovaKelmPatternFile();
    // Takes ownership of line.
    virtual void AddBlock(CompressedLine* line);

    // Deletes every line and resets format, bit depth, singleBlock and the sample form.
    void Clear();
    // Returns false if the header could not be written; every other failure throws
    // std::runtime_error. A file that fails part-way is removed.
    bool Save(const std::string& fileName);
    // Writes the file through an open output; false if the header could not be written, other
    // failures throw std::runtime_error. Refusals come before the first byte.
    bool Save(OutputFile& out);
    // Rewrites every sample from studio-range R'G'B' to X'Y'Z' (format 3, three-word samples).
    void ConvertToXYZ();

private:
    void checkFits() const;
};

// Builds a file's blocks from rows of samples as the rows come (four components a sample): each row
// is run-length compressed into a line. Without line repeats, identical neighbouring rows merge into
// one block standing for them all; with them, row k is the block of the list's k-th pair. Sets the
// file's width, layout, single-block flag and the sample form.
class DeviceFileBlockBuilder {
public:
    DeviceFileBlockBuilder(TovaKelmPatternFile& file, int width, bool pairs, const LineRepeats& lineRepeats);
    void addRow(const uint16_t* samples);
    // Hands over the last pending block.
    void finish();

private:
    std::unique_ptr<CompressedLine> compress(const uint16_t* samples);
    void handOver(std::unique_ptr<CompressedLine> line, uint32_t percentage);

    TovaKelmPatternFile& file_;
    size_t samples_;
    LineRepeats lineRepeats_;
    size_t row_ = 0;
    std::vector<uint16_t> previous_;  // the pending block's samples (whole-frame mode)
    std::unique_ptr<CompressedLine> pending_;
    uint32_t pendingLines_ = 0;
    int repeatStart_ = 0;
    std::vector<Sample> literal_;  // reused across lines
};

// Rows of samples (four components each, see Sample) as the device-file loop renders them; the file
// gets the format code given (TovaKelmPatternFile::Format_...), converted to X'Y'Z' first when toXYZ.
// Failures to write throw std::runtime_error with the file's messages.
std::unique_ptr<DeviceFileWriter> makeDeviceFileWriter(uint32_t format, bool toXYZ);

// Studio-range R'G'B' (black 256, white 3760) to 12-bit X'Y'Z' code values (16..4079).
void XYZColourSpaceConvert(const Sample* in, Sample* out, unsigned short count, bool standardDefinition);
float Normalise(unsigned short code);
float GammaToLinear(float value);
void LinearRGBtoXYZLinearConversion(float r, float g, float b, float& X, float& Y, float& Z);
void XYZLinearToXYZLog(float X, float Y, float Z, unsigned short& x, unsigned short& y, unsigned short& z);
