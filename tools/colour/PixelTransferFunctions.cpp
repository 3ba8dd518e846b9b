// The HDR transfer functions of the pixel value type (PQ, HLG, S-Log3) with their inverses, the
// sign handling around them, and the primaries conversions between BT.709 and BT.2020.
#include <algorithm>
#include <cmath>

#include "colour/ColourMatrices.h"
#include "colour/Pixel.h"
#include "colour/TransferConstants.h"

using namespace TransferConstants;

namespace {

// The S-Log3 code at which the linear and the logarithmic segments meet (about 171.2).
constexpr double sLog3ThresholdCode = SLog3::linearBase + SLog3::linearSlope * SLog3::inputFactor * SLog3::threshold;

double hlgLuma(double r, double g, double b) { return BT2100_HLG::kr * r + BT2100_HLG::kg * g + BT2100_HLG::kb * b; }

}  // namespace

// ---------------------------------------------------------------------------------------------
// PQ

// Light in units of 100 cd/m2 to the PQ signal (0..1); 1.0 gives about 0.508.
double Pixel::applyPqInverseEOTF(double x) {
    if (!(x > 0.0)) return 0.0;
    const double p = std::pow(x / ST2084::inputScale, ST2084::m1);
    return std::pow((ST2084::c1 + ST2084::c2 * p) / (1.0 + ST2084::c3 * p), ST2084::m2);
}

// The PQ signal (0..1) to light in units of 100 cd/m2; 1.0 gives 100 (10000 cd/m2).
double Pixel::applyPqEOTF(double signal) {
    if (!(signal > 0.0)) return 0.0;
    const double p = std::pow(std::min(signal, 1.0), 1.0 / ST2084::m2);
    const double numerator = std::max(p - ST2084::c1, 0.0);
    return ST2084::inputScale * std::pow(numerator / (ST2084::c2 - ST2084::c3 * p), 1.0 / ST2084::m1);
}

// ---------------------------------------------------------------------------------------------
// HLG

// Scene light (0..1) to the HLG signal (0..1); the knee 1/12 gives 0.5.
double Pixel::applyHlgOETF(double x) {
    if (!(x > 0.0)) return 0.0;
    if (x <= BT2100_HLG::knee) return std::pow(3.0 * x, 0.5);
    return BT2100_HLG::a * std::log(12.0 * x - BT2100_HLG::b) + BT2100_HLG::c;
}

// The HLG signal (0..1) to scene light (0..1).
double Pixel::applyHlgInverseOETF(double signal) {
    if (!(signal > 0.0)) return 0.0;
    if (signal <= BT2100_HLG::kneeSignal) return signal * signal / 3.0;
    return (std::exp((signal - BT2100_HLG::c) / BT2100_HLG::a) + BT2100_HLG::b) / 12.0;
}

// Display light (units of SDR white) to scene light: E = (D / peak) * Yd^(-1/6), Yd the display
// luminance relative to the peak. Black stays black.
void Pixel::applyHlgInverseOOTF(double& r, double& g, double& b) {
    const double displayR = BT2100_HLG::sdrWhite * r;
    const double displayG = BT2100_HLG::sdrWhite * g;
    const double displayB = BT2100_HLG::sdrWhite * b;
    const double ys = hlgLuma(displayR, displayG, displayB) / BT2100_HLG::nominalPeak;
    if (ys > 0.0) {
        const double gain = std::pow(ys, BT2100_HLG::inverseGammaExponent);
        r = displayR / BT2100_HLG::nominalPeak * gain;
        g = displayG / BT2100_HLG::nominalPeak * gain;
        b = displayB / BT2100_HLG::nominalPeak * gain;
    } else {
        r = g = b = 0.0;
    }
}

// Scene light to display light (units of SDR white): D = peak * Ys^(gamma - 1) * E.
void Pixel::applyHlgOOTF(double& r, double& g, double& b) {
    const double ys = hlgLuma(r, g, b);
    const double gain = ys > 0.0 ? std::pow(ys, BT2100_HLG::gammaExponent) : 0.0;
    const double scale = BT2100_HLG::nominalPeak / BT2100_HLG::sdrWhite * gain;
    r *= scale;
    g *= scale;
    b *= scale;
}

// ---------------------------------------------------------------------------------------------
// S-Log3

double Pixel::applySLog3InverseOOTF(double x) {
    if (x <= SLog3::liveKnee) return std::pow(x, SLog3::liveExponent);
    return (x + SLog3::liveOffset) / SLog3::liveDivisor1 / SLog3::liveDivisor2;
}

// The Live curve's segments do not meet at its knee; a value in the gap between them goes to the knee.
double Pixel::applySLog3OOTF(double x) {
    if (!(x > 0.0)) return 0.0;
    if (x <= std::pow(SLog3::liveKnee, SLog3::liveExponent)) return std::pow(x, 1.0 / SLog3::liveExponent);
    return std::max(SLog3::liveKnee, x * SLog3::liveDivisor1 * SLog3::liveDivisor2 - SLog3::liveOffset);
}

// Reflectance to a 10-bit S-Log3 code value (unrounded); a negative source mirrors about the base.
double Pixel::applySLog3OETFAndRestoreAbsolutisedInput(double x, bool negative) {
    if (x < 0.0) return 0.0;
    const double t = SLog3::inputFactor * x;
    double v;
    double base;
    if (x < SLog3::threshold) {
        v = SLog3::linearSlope * t;
        base = SLog3::linearBase;
    } else {
        v = SLog3::logGain * std::log10((t + SLog3::logOffset) / SLog3::logDivisor);
        base = SLog3::logBase;
    }
    return negative ? base - v : base + v;
}

// A 10-bit S-Log3 code value to the source value of the OETF (1.0 at code 597.9); codes below
// black continue the linear segment into negative values.
double Pixel::applySLog3InverseOETF(double code) {
    double t;
    if (code < sLog3ThresholdCode)
        t = (code - SLog3::linearBase) / SLog3::linearSlope;
    else
        t = std::pow(10.0, (code - SLog3::logBase) / SLog3::logGain) * SLog3::logDivisor - SLog3::logOffset;
    return t / SLog3::inputFactor;
}

// ---------------------------------------------------------------------------------------------
// Signs

Pixel::AbsoluteRGB Pixel::absolutiseRgbInput(double& r, double& g, double& b) {
    AbsoluteRGB flags;
    flags.r = r < 0.0;
    flags.g = g < 0.0;
    flags.b = b < 0.0;
    if (flags.r) r = -r;
    if (flags.g) g = -g;
    if (flags.b) b = -b;
    return flags;
}

void Pixel::restoreAbsolutisedRgbInput(const AbsoluteRGB& flags, double& r, double& g, double& b) {
    if (flags.r) r = -r;
    if (flags.g) g = -g;
    if (flags.b) b = -b;
}

// ---------------------------------------------------------------------------------------------
// Primaries

// Linearises with this pixel's gamma law, then maps BT.709 primaries into BT.2020; stays linear.
void Pixel::applyMatrixRGB709ValuesIn2020(double& r, double& g, double& b) const {
    const ColourMatrix::Rgb linear = {colourSpace.gammaFloatToLinear(r), colourSpace.gammaFloatToLinear(g),
                                      colourSpace.gammaFloatToLinear(b)};
    const ColourMatrix::Rgb mapped = ColourMatrix::bt709To2020.apply(linear);
    r = mapped.r;
    g = mapped.g;
    b = mapped.b;
}

// Linear BT.2020 to linear BT.709; colours outside BT.709 get components below 0 or above 1.
void Pixel::applyMatrixRGB2020ValuesIn709(double& r, double& g, double& b) {
    const ColourMatrix::Rgb mapped = ColourMatrix::bt2020To709.apply({r, g, b});
    r = mapped.r;
    g = mapped.g;
    b = mapped.b;
}
