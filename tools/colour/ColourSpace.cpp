// Encoding names, code levels per encoding, normalisation, clipping and the simple gamma laws.
#include "colour/ColourSpace.h"

#include <cmath>

#include "colour/TransferConstants.h"

using PatternGen::colorAxes_e;

namespace {

const char* const axisNames[PatternGen::colourAxesCount] = {
    "Colour_RGB",
    "Colour_RGB_219",
    "Colour_YCbCr_601",
    "Colour_YCbCr_709",
    "Colour_YCbCr_PQ",
    "Colour_YCbCr_PQ_Mapped",
    "Colour_YCbCr_HLG",
    "Colour_YCbCr_HLG_Mapped",
    "Colour_YCbCr_2020",
    "Colour_YCbCr_SLog3",
    "Colour_YCbCr_SLog3_Mapped",
    "Colour_YCbCr_SLog3_Live",
    "Colour_YCbCr_SLog3_Live_Mapped",
    "Colour_RGB_PQ",
    "Colour_RGB_HLG",
    "Colour_RGB_SLog3",
    "Colour_RGB_SLog3_Live",
    "Colour_RGB_PQ_Mapped",
    "Colour_RGB_HLG_Mapped",
    "Colour_RGB_SLog3_Mapped",
    "Colour_RGB_SLog3_Live_Mapped",
};

// The gamma laws selected by gammaType.
enum GammaLaw { GammaNone = 0, GammaPower24 = 1, GammaPower22 = 2 };

// Exponents of the gamma laws.
namespace GammaCurve {
constexpr double decode24 = 2.4;
constexpr double decode22 = 2.2;
constexpr double encode045 = TransferConstants::BT709::exponent;
constexpr double inverse24 = 0.4166666666666667;   // 1 / 2.4
constexpr double inverse22 = 0.45454545454545453;  // 1 / 2.2
}  // namespace GammaCurve

// The camera curve with BT.2020's constants: linear near black, a 0.45 power above; the limit itself
// stays linear.
double cameraCurve(double v) {
    using namespace TransferConstants;
    if (v <= BT2020::linearLimit) return BT709::linearSlope * v;
    return BT2020::gain * std::pow(v, BT709::exponent) - BT2020::offset;
}

// Gamma-to-linear power law without the negative pass-through.
double decodePower(int gammaType, double v) {
    if (gammaType == GammaPower24) return std::pow(v, GammaCurve::decode24);
    if (gammaType == GammaPower22) return std::pow(v, GammaCurve::decode22);
    return v;
}

}  // namespace

const char* axisToString(colorAxes_e axes) {
    const int index = static_cast<int>(axes);
    if (index < 0 || index >= PatternGen::colourAxesCount) return "undefined";
    return axisNames[index];
}

ColourSpace::ColourSpace(colorAxes_e axes, int bits) { setColourSpace(axes, bits); }

void ColourSpace::setColourSpace(colorAxes_e axes, int bits) {
    colourAxes = axes;
    bitDepth = bits;
    if (axes == PatternGen::Colour_RGB) {
        blackLevel = 0;
        whiteLevel = Levels::fullScale(bits);
        gammaType = GammaPower24;
    } else if (PatternGen::isSLog3YCbCrAxes(axes)) {
        blackLevel = TransferConstants::SLog3::blackCode;  // the same at every depth
        whiteLevel = Levels::highestLegal(bits);
        gammaType = GammaPower22;
    } else {
        blackLevel = Levels::studioBlack(bits);
        whiteLevel = Levels::studioWhite(bits);
        if (axes == PatternGen::Colour_YCbCr_601)
            gammaType = GammaNone;
        else if (axes == PatternGen::Colour_YCbCr_2020)
            gammaType = GammaPower22;
        else
            gammaType = GammaPower24;
    }
}

// Normalisation ignores the stored black level: luma is always measured from studio black.
double ColourSpace::normaliseLuma(int code) const {
    if (colourAxes == PatternGen::Colour_RGB) return code / static_cast<double>(Levels::fullScale(bitDepth));
    return (code - Levels::studioBlack(bitDepth)) / static_cast<double>(Levels::lumaExcursion(bitDepth));
}

double ColourSpace::normaliseChroma(int code) const {
    if (colourAxes == PatternGen::Colour_RGB) return code / static_cast<double>(Levels::fullScale(bitDepth));
    return (code - Levels::chromaZero(bitDepth)) / static_cast<double>(Levels::chromaExcursion(bitDepth));
}

namespace {
bool clip(int& code, int low, int high) {
    if (code < low) {
        code = low;
        return true;
    }
    if (code > high) {
        code = high;
        return true;
    }
    return false;
}
}  // namespace

bool ColourSpace::limitLuma(int& code) const {
    if (colourAxes == PatternGen::Colour_RGB) return clip(code, 0, Levels::fullScale(bitDepth));
    return clip(code, Levels::lowestLegal(bitDepth), Levels::highestLegal(bitDepth));
}

bool ColourSpace::limitChroma(int& code) const {
    return clip(code, Levels::lowestLegal(bitDepth), Levels::highestLegal(bitDepth));
}

bool ColourSpace::isColourDifference() const { return PatternGen::isYCbCrAxes(colourAxes); }

bool ColourSpace::colourIsRGB() const { return PatternGen::isRGBAxes(colourAxes); }

bool ColourSpace::colourIsIn2020() const { return PatternGen::isIn2020Axes(colourAxes); }

bool ColourSpace::colourIsHDR() const { return PatternGen::isHDRAxes(colourAxes); }

double ColourSpace::gammaToLinear(int code) const { return decodePower(gammaType, normaliseLuma(code)); }

// Type 0 returns the code itself, unnormalised.
double ColourSpace::linearToGamma(int code) const {
    if (gammaType == GammaPower24) return std::pow(normaliseLuma(code), GammaCurve::encode045);
    if (gammaType == GammaPower22) return cameraCurve(normaliseLuma(code));
    return static_cast<double>(code);
}

double ColourSpace::gammaFloatToLinear(double v) const {
    if (v < 0.0) return v;
    return decodePower(gammaType, v);
}

double ColourSpace::linearFloatToGamma(double v) const {
    if (gammaType == GammaPower24) return std::pow(v, GammaCurve::encode045);
    if (gammaType == GammaPower22) return cameraCurve(v);
    return v;
}

double ColourSpace::gammaFloatLinearToNonLinear(double v) const {
    if (v < 0.0) return v;
    if (gammaType == GammaPower24) return std::pow(v, GammaCurve::inverse24);
    if (gammaType == GammaPower22) return std::pow(v, GammaCurve::inverse22);
    return v;
}
