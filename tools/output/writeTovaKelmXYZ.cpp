// Conversion of a device file from studio-range BT.709 R'G'B' to 12-bit DCI X'Y'Z'.
// Intermediates are single precision and powers double precision, so the codes come out the same
// on every platform that has IEEE floats.
#include <cmath>
#include <vector>

#include "colour/TransferConstants.h"
#include "output/writeTovaKelm.h"

namespace {

// 12-bit studio range of the R'G'B' input: 16 and 235 at 8 bits, times 16.
namespace StudioRGB12 {
constexpr unsigned short black = 256;
constexpr unsigned short white = 3760;
constexpr float excursion = static_cast<float>(white - black);
}  // namespace StudioRGB12

// Inverse of the BT.709 opto-electronic transfer function, in single precision.
namespace BT709 {
constexpr float linearLimit = static_cast<float>(TransferConstants::BT709::linearSignalLimit);
constexpr float linearSlope = static_cast<float>(TransferConstants::BT709::linearSlope);
constexpr float offset = static_cast<float>(TransferConstants::BT709::offset);
constexpr float scale = static_cast<float>(TransferConstants::BT709::gain);
constexpr float inverseExponent = static_cast<float>(1.0 / TransferConstants::BT709::exponent);
}  // namespace BT709

// Linear DCI-P3 RGB (DCI white, RP 431-2) to linear CIE XYZ.
namespace RP431_2 {
constexpr double toXYZ[3][3] = {
    {0.4451698156, 0.2771344092, 0.1722826698},
    {0.2094916779, 0.7215952542, 0.0689130679},
    {0.0, 0.0470605601, 0.9073553944},
};
}  // namespace RP431_2

// X'Y'Z' encoding: 48 cd/m2 peak over the 52.37 cd/m2 normalising constant, gamma 2.6, 12 bits.
namespace ST428_1 {
constexpr float luminanceScale = static_cast<float>(48.0 / 52.37);
constexpr float inverseGamma = static_cast<float>(1.0 / 2.6);
constexpr double codeScale = 4095.0;
constexpr int lowestCode = 16;
constexpr int highestCode = 4079;
}  // namespace ST428_1

float matrixRow(int row, float r, float g, float b) {
    const double* m = RP431_2::toXYZ[row];
    const float value = static_cast<float>(m[0] * r + m[1] * g + m[2] * b);
    return value < 0.0f ? 0.0f : value;
}

unsigned short encodeXYZ(float value) {
    if (value < 0.0f) value = 0.0f;
    const float scaled = value * ST428_1::luminanceScale;
    const float code = static_cast<float>(
        std::pow(static_cast<double>(scaled), static_cast<double>(ST428_1::inverseGamma)) * ST428_1::codeScale);
    int result = static_cast<int>(code);
    if (result > ST428_1::highestCode) result = ST428_1::highestCode;
    if (result < ST428_1::lowestCode) result = ST428_1::lowestCode;
    return static_cast<unsigned short>(result);
}

}  // namespace

float Normalise(unsigned short code) {
    if (code < StudioRGB12::black) return 0.0f;
    if (code > StudioRGB12::white) return 1.0f;
    return static_cast<float>(code - StudioRGB12::black) / StudioRGB12::excursion;
}

float GammaToLinear(float value) {
    if (value < BT709::linearLimit) return value / BT709::linearSlope;
    const float base = (value + BT709::offset) / BT709::scale;
    return static_cast<float>(std::pow(static_cast<double>(base), static_cast<double>(BT709::inverseExponent)));
}

void LinearRGBtoXYZLinearConversion(float r, float g, float b, float& X, float& Y, float& Z) {
    X = matrixRow(0, r, g, b);
    Y = matrixRow(1, r, g, b);
    Z = matrixRow(2, r, g, b);
}

void XYZLinearToXYZLog(float X, float Y, float Z, unsigned short& x, unsigned short& y, unsigned short& z) {
    x = encodeXYZ(X);
    y = encodeXYZ(Y);
    z = encodeXYZ(Z);
}

// The flag marks standard-definition lines; the same conversion serves both.
void XYZColourSpaceConvert(const Sample* in, Sample* out, unsigned short count, bool) {
    for (unsigned short i = 0; i < count; ++i) {
        const float r = GammaToLinear(Normalise(in[i].component[0]));
        const float g = GammaToLinear(Normalise(in[i].component[1]));
        const float b = GammaToLinear(Normalise(in[i].component[2]));
        float X, Y, Z;
        LinearRGBtoXYZLinearConversion(r, g, b, X, Y, Z);
        Sample converted;  // component 3 is never written in the three-word form; keep it 0
        XYZLinearToXYZLog(X, Y, Z, converted.component[0], converted.component[1], converted.component[2]);
        out[i] = converted;
    }
}

void Section::ConvertToXYZ(bool standardDefinition) {
    // A run stores its one sample; a literal all of them.
    size_t count = repeatCount != 0 ? 1 : static_cast<unsigned short>(samplePairs.size());
    if (count > samplePairs.size()) count = samplePairs.size();
    std::vector<Sample> converted(count);
    XYZColourSpaceConvert(samplePairs.data(), converted.data(), static_cast<unsigned short>(count), standardDefinition);
    samplePairs.swap(converted);
}

void TovaKelmPatternFile::ConvertToXYZ() {
    const bool standardDefinition = lineWidth == 720;
    if (blockLayout == 0) {
        if (!line_blocks.empty()) line_blocks.front()->ConvertToXYZ(standardDefinition);
    } else if (blockLayout == 1) {
        for (CompressedLine* line : line_blocks) line->ConvertToXYZ(standardDefinition);
    }
    threeWordSamples = true;
    format = Format_XYZ;
}
