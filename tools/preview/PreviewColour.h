// Rows of a rendered frame as 8-bit sRGB, for a preview that any viewer shows with the right colours.
//
// The 8-bit values are BT.709 signal values for a BT.1886 (gamma 2.4) display, labelled sRGB: both
// share primaries and white point, and showing a BT.709 signal as sRGB is what every SDR viewer does.
// - SDR R'G'B' and BT.601/BT.709 Y'CbCr: decoded with the encoding's own matrix and range, values kept.
// - BT.2020 SDR: decoded, brought to linear light with the gamma 2.4 law, converted to BT.709
//   primaries, clipped per channel and re-encoded.
// - HDR (PQ, HLG, S-Log3, Mapped, Live): decoded to light relative to reference white (see
//   PreviewColour.cpp), highlights rolled off, then as BT.2020 SDR from linear light on.
#pragma once

#include <cstdint>

#include "colour/ColourMatrices.h"
#include "colour/ColourSpace.h"

class PreviewColour {
public:
    PreviewColour(PatternGen::colorAxes_e axes, int bits);

    // frameRow: width pixels of a full-frame row (pattern/FrameRow.h), each code value shifted to the
    // 16-bit scale. rgb: width x 3 bytes. Alpha is ignored.
    void convertRow(const uint16_t* frameRow, int width, uint8_t* rgb) const;

private:
    // How the codes become R'G'B' signal values.
    enum class Signal { RGB, YCbCr601, YCbCr709, YCbCr2020, SLog3RGB, SLog3YCbCr };
    // How the signal becomes light.
    enum class Transfer { SDR, PQ, HLG, SLog3, SLog3Live };

    ColourMatrix::Rgb signalOf(const uint16_t* pixel) const;
    ColourMatrix::Rgb relativeLight(const ColourMatrix::Rgb& signal) const;
    void toSrgb(const uint16_t* pixel, uint8_t* rgb) const;

    ColourSpace codes_;    // the frame's encoding and depth: levels and normalisation
    ColourSpace display_;  // the gamma 2.4 law of BT.1886
    int bits_;
    Signal signal_;
    Transfer transfer_;
    bool in2020_;
};
