// The Y'CbCr matrices (BT.601, BT.709, BT.2020) on normalised values, and the BT.709 <-> BT.2020
// primaries conversion on linear light. Every conversion of the colour library and the preview
// uses these; coefficients are written as the standards write them.
#pragma once

namespace ColourMatrix {

namespace BT601 {
constexpr double kr = 0.299, kg = 0.587, kb = 0.114;
constexpr double cbR = -0.168736, cbG = -0.331264, cbB = 0.5;
constexpr double crR = 0.5, crG = -0.4185, crB = -0.0813;
constexpr double rCr = 1.402;
constexpr double gCb = 0.344136, gCr = 0.714136;
constexpr double bCb = 1.772;
}  // namespace BT601

namespace BT709 {
constexpr double kr = 0.2126, kg = 0.7152, kb = 0.0722;
constexpr double cbDivisor = 1.8556, crDivisor = 1.5748;
constexpr double gCb = 0.1873242729306488, gCr = 0.46812427293064884;
}  // namespace BT709

namespace BT2020 {
constexpr double kr = 0.2627, kg = 0.678, kb = 0.0593;
constexpr double cbDivisor = 1.8814, crDivisor = 1.4746;
constexpr double gCb = 0.16455312684365778, gCr = 0.5713531268436577;
}  // namespace BT2020

// Luma and R'G'B' 0..1, colour differences -0.5..+0.5 (or code values, for S-Log3's matrix on codes).
struct Rgb {
    double r, g, b;
};
struct YCbCr {
    double y, cb, cr;
};

inline YCbCr encode601(const Rgb& c) {
    return {BT601::kr * c.r + BT601::kg * c.g + BT601::kb * c.b, BT601::cbR * c.r + BT601::cbG * c.g + BT601::cbB * c.b,
            BT601::crR * c.r + BT601::crG * c.g + BT601::crB * c.b};
}

inline YCbCr encode709(const Rgb& c) {
    return {BT709::kr * c.r + BT709::kg * c.g + BT709::kb * c.b,
            (-BT709::kr * c.r - BT709::kg * c.g) / BT709::cbDivisor + 0.5 * c.b,
            0.5 * c.r - (BT709::kg * c.g + BT709::kb * c.b) / BT709::crDivisor};
}

inline YCbCr encode2020(const Rgb& c) {
    return {BT2020::kr * c.r + BT2020::kg * c.g + BT2020::kb * c.b,
            (-BT2020::kr * c.r - BT2020::kg * c.g) / BT2020::cbDivisor + 0.5 * c.b,
            0.5 * c.r - (BT2020::kg * c.g + BT2020::kb * c.b) / BT2020::crDivisor};
}

inline Rgb decode601(const YCbCr& v) {
    return {v.y + BT601::rCr * v.cr, v.y - BT601::gCb * v.cb - BT601::gCr * v.cr, v.y + BT601::bCb * v.cb};
}

inline Rgb decode709(const YCbCr& v) {
    return {v.y + BT709::crDivisor * v.cr, v.y - BT709::gCb * v.cb - BT709::gCr * v.cr, v.y + BT709::cbDivisor * v.cb};
}

inline Rgb decode2020(const YCbCr& v) {
    return {v.y + BT2020::crDivisor * v.cr, v.y - BT2020::gCb * v.cb - BT2020::gCr * v.cr,
            v.y + BT2020::cbDivisor * v.cb};
}

// A 3x3 matrix applied to a column (r, g, b).
struct Matrix3 {
    double m[3][3];

    constexpr Rgb apply(const Rgb& c) const {
        return {m[0][0] * c.r + m[0][1] * c.g + m[0][2] * c.b, m[1][0] * c.r + m[1][1] * c.g + m[1][2] * c.b,
                m[2][0] * c.r + m[2][1] * c.g + m[2][2] * c.b};
    }

    // By cofactors; the matrices here are well conditioned.
    constexpr Matrix3 inverse() const {
        const double c00 = m[1][1] * m[2][2] - m[1][2] * m[2][1];
        const double c01 = m[1][2] * m[2][0] - m[1][0] * m[2][2];
        const double c02 = m[1][0] * m[2][1] - m[1][1] * m[2][0];
        const double det = m[0][0] * c00 + m[0][1] * c01 + m[0][2] * c02;
        return {
            {{c00 / det, (m[0][2] * m[2][1] - m[0][1] * m[2][2]) / det, (m[0][1] * m[1][2] - m[0][2] * m[1][1]) / det},
             {c01 / det, (m[0][0] * m[2][2] - m[0][2] * m[2][0]) / det, (m[0][2] * m[1][0] - m[0][0] * m[1][2]) / det},
             {c02 / det, (m[0][1] * m[2][0] - m[0][0] * m[2][1]) / det,
              (m[0][0] * m[1][1] - m[0][1] * m[1][0]) / det}}};
    }
};

// ITU-R BT.2087: BT.709 primaries to BT.2020 primaries, on linear light.
constexpr Matrix3 bt709To2020 = {{{0.6274, 0.3293, 0.0433}, {0.0691, 0.9195, 0.0114}, {0.0164, 0.088, 0.8956}}};
// Its exact inverse (close to the four-digit matrix of ITU-R BT.2407), so that a mapped colour comes back.
constexpr Matrix3 bt2020To709 = bt709To2020.inverse();

}  // namespace ColourMatrix
