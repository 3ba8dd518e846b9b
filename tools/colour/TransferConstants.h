// Constants of the transfer functions, grouped by standard and written as the standards write
// them. Light values of the colour library are in units of SDR white, 100 cd/m2.
#pragma once

namespace TransferConstants {

// ITU-R BT.709 OETF: 4.5 L up to L = 0.018, 1.099 L^0.45 - 0.099 above.
namespace BT709 {
constexpr double linearSlope = 4.5;
constexpr double linearSignalLimit = 0.081;  // the signal at the end of the linear segment, 4.5 x 0.018
constexpr double exponent = 0.45;
constexpr double gain = 1.099;
constexpr double offset = 0.099;
}  // namespace BT709

// ITU-R BT.2020: BT.709's curve with the constants to the precision of 12-bit systems.
namespace BT2020 {
constexpr double linearLimit = 0.0181;
constexpr double gain = 1.0993;
constexpr double offset = 0.0993;
}  // namespace BT2020

// SMPTE ST 2084 (PQ); the curve's peak is 10000 cd/m2, 100 units of SDR white.
namespace ST2084 {
constexpr double m1 = 0.1593017578125;
constexpr double m2 = 78.84375;
constexpr double c1 = 0.8359375;
constexpr double c2 = 18.8515625;
constexpr double c3 = 18.6875;
constexpr double inputScale = 100.0;
}  // namespace ST2084

// ITU-R BT.2100 HLG OETF and OOTF for a 1000 cd/m2 display.
namespace BT2100_HLG {
constexpr double a = 0.17883277;
constexpr double b = 0.28466892;
constexpr double c = 0.55991073;
constexpr double knee = 0.08333333333333333;  // 1/12
constexpr double kneeSignal = 0.5;            // the OETF of the knee
constexpr double nominalPeak = 1000.0;        // cd/m2
constexpr double sdrWhite = 100.0;            // cd/m2 of a source value of 1.0
constexpr double kr = 0.2627, kg = 0.678, kb = 0.0593;
constexpr double inverseGammaExponent = -0.16666670143604279;  // single-precision -1/6, widened
// The OOTF's exponent gamma - 1 that this inverse undoes exactly: -e / (1 + e).
constexpr double gammaExponent = -inverseGammaExponent / (1.0 + inverseGammaExponent);
}  // namespace BT2100_HLG

// S-Log3 OETF giving 10-bit code values, and the inverse OOTF of the Live encodings.
namespace SLog3 {
constexpr int blackCode = 95;  // the OETF of 0
constexpr double inputFactor = 0.9;
constexpr double threshold = 0.012499999999999999;
constexpr double linearBase = blackCode;
constexpr double linearSlope = 6774.248417146666;
constexpr double logBase = 420.0;
constexpr double logGain = 261.5;
constexpr double logOffset = 0.01;
constexpr double logDivisor = 0.19;
constexpr double liveKnee = 3.0;
constexpr double liveExponent = 0.8333333333333334;
constexpr double liveOffset = 0.7474385637693104;
constexpr double liveDivisor1 = 1.2;
constexpr double liveDivisor2 = 1.2457309396155174;
constexpr int codeBits = 10;  // bits of the code values the OETF gives
}  // namespace SLog3

}  // namespace TransferConstants
