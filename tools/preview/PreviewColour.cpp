// HDR to SDR for the preview, after ITU-R BT.2408: HDR reference white is shown at SDR 100 %.
// Reference white is the level at which the colour library's HDR encodings put SDR white, and so
// the card's white: 100 cd/m2 for PQ and HLG (PQ signal 0.508; HLG 0.63 on the nominal 1000 cd/m2
// display), and the S-Log3 source value 1.0 (90 % reflectance, code 598). BT.2408 names 203 cd/m2
// for content graded to it; with that value this card's white would show as a 74 % grey.
// - PQ: the ST 2084 EOTF gives display light. HLG: the BT.2100 inverse OETF and OOTF for the
//   nominal display give display light. S-Log3: the inverse OETF gives scene light relative to
//   white (Live: then the Live OOTF); it is shown as display light of the same level.
// - Highlights: light up to 90 % of reference white is kept; above it the largest component is
//   rolled off along knee + (1 - knee) tanh((m - knee) / (1 - knee)), which meets the straight
//   line with the same slope and approaches SDR peak without reaching it. The three components
//   are scaled alike, so hue and saturation stay. Reference white itself lands at 97.6 % of
//   peak light (code 252), twice reference white at code 255.
// - Gamut: BT.2020 to BT.709 in linear light with the inverse of the BT.2087 matrix, then each
//   component clipped to 0..1. Colours inside BT.709 (the whole card in the Mapped encodings and
//   in BT.709 itself) pass unchanged and only colours outside it move, to the gamut's edge, at
//   the price of a hue shift there: the plain clipping of ITU-R BT.2407, enough for a preview,
//   where a compressing method would change in-gamut colours too.
#include "preview/PreviewColour.h"

#include <algorithm>
#include <cmath>

#include "colour/Pixel.h"
#include "colour/TransferConstants.h"
#include "pattern/FrameRow.h"

using ColourMatrix::Rgb;

namespace {

constexpr int sampleBits = 16;
constexpr int maxCode8 = 255;
// Fraction of reference white (linear light) where the highlight roll-off starts.
constexpr double rollOffKnee = 0.9;

using FrameRow::crOrR, FrameRow::yOrG, FrameRow::cbOrB, FrameRow::alpha, FrameRow::samplesPerPixel;

double clampUnit(double v) { return std::min(std::max(v, 0.0), 1.0); }

uint8_t to8Bit(double v) { return static_cast<uint8_t>(clampUnit(v) * maxCode8 + 0.5); }

double rollOff(double m) {
    if (m <= rollOffKnee) return m;
    return rollOffKnee + (1.0 - rollOffKnee) * std::tanh((m - rollOffKnee) / (1.0 - rollOffKnee));
}

}  // namespace

PreviewColour::PreviewColour(PatternGen::colorAxes_e axes, int bits)
    : codes_(axes, bits),
      display_(PatternGen::Colour_YCbCr_709, bits),
      bits_(bits),
      in2020_(PatternGen::isIn2020Axes(axes)) {
    using namespace PatternGen;
    if (isSLog3Axes(axes))
        signal_ = isRGBAxes(axes) ? Signal::SLog3RGB : Signal::SLog3YCbCr;
    else if (isRGBAxes(axes))
        signal_ = Signal::RGB;
    else if (axes == Colour_YCbCr_601)
        signal_ = Signal::YCbCr601;
    else if (axes == Colour_YCbCr_709)
        signal_ = Signal::YCbCr709;
    else
        signal_ = Signal::YCbCr2020;

    if (isPQAxes(axes))
        transfer_ = Transfer::PQ;
    else if (isHLGAxes(axes))
        transfer_ = Transfer::HLG;
    else if (isSLog3LiveAxes(axes))
        transfer_ = Transfer::SLog3Live;
    else if (isSLog3Axes(axes))
        transfer_ = Transfer::SLog3;
    else
        transfer_ = Transfer::SDR;
}

// Normalised R'G'B' for the SDR, PQ and HLG encodings; 10-bit S-Log3 code values for S-Log3, whose
// matrix works on code values.
Rgb PreviewColour::signalOf(const uint16_t* pixel) const {
    const int shift = sampleBits - bits_;
    const int r = pixel[crOrR] >> shift, g = pixel[yOrG] >> shift, b = pixel[cbOrB] >> shift;
    const auto sLog3Code = [this](int code) { return std::ldexp(code, TransferConstants::SLog3::codeBits - bits_); };
    switch (signal_) {
        case Signal::RGB:
            return {codes_.normaliseLuma(r), codes_.normaliseLuma(g), codes_.normaliseLuma(b)};
        case Signal::SLog3RGB:
            return {sLog3Code(r), sLog3Code(g), sLog3Code(b)};
        case Signal::SLog3YCbCr: {
            const double zero = Levels::chromaZero(TransferConstants::SLog3::codeBits);
            return ColourMatrix::decode2020({sLog3Code(g), sLog3Code(b) - zero, sLog3Code(r) - zero});
        }
        default:
            break;
    }
    const ColourMatrix::YCbCr v = {codes_.normaliseLuma(g), codes_.normaliseChroma(b), codes_.normaliseChroma(r)};
    if (signal_ == Signal::YCbCr601) return ColourMatrix::decode601(v);
    if (signal_ == Signal::YCbCr709) return ColourMatrix::decode709(v);
    return ColourMatrix::decode2020(v);
}

// Linear light, 1.0 being reference white; negative light (codes below black) becomes 0.
Rgb PreviewColour::relativeLight(const Rgb& s) const {
    Rgb light{};
    switch (transfer_) {
        case Transfer::SDR:
            light = {display_.gammaFloatToLinear(std::max(s.r, 0.0)), display_.gammaFloatToLinear(std::max(s.g, 0.0)),
                     display_.gammaFloatToLinear(std::max(s.b, 0.0))};
            break;
        case Transfer::PQ:
            light = {Pixel::applyPqEOTF(s.r), Pixel::applyPqEOTF(s.g), Pixel::applyPqEOTF(s.b)};
            break;
        case Transfer::HLG:
            light = {Pixel::applyHlgInverseOETF(s.r), Pixel::applyHlgInverseOETF(s.g), Pixel::applyHlgInverseOETF(s.b)};
            Pixel::applyHlgOOTF(light.r, light.g, light.b);
            break;
        case Transfer::SLog3:
        case Transfer::SLog3Live:
            light = {Pixel::applySLog3InverseOETF(s.r), Pixel::applySLog3InverseOETF(s.g),
                     Pixel::applySLog3InverseOETF(s.b)};
            if (transfer_ == Transfer::SLog3Live)
                light = {Pixel::applySLog3OOTF(light.r), Pixel::applySLog3OOTF(light.g),
                         Pixel::applySLog3OOTF(light.b)};
            break;
    }
    return {std::max(light.r, 0.0), std::max(light.g, 0.0), std::max(light.b, 0.0)};
}

void PreviewColour::toSrgb(const uint16_t* pixel, uint8_t* rgb) const {
    const Rgb signal = signalOf(pixel);
    // BT.601 shares BT.709's primaries closely enough for a preview.
    if (transfer_ == Transfer::SDR && !in2020_) {  // already a BT.709 signal
        rgb[0] = to8Bit(signal.r);
        rgb[1] = to8Bit(signal.g);
        rgb[2] = to8Bit(signal.b);
        return;
    }
    Rgb light = relativeLight(signal);
    const double largest = std::max({light.r, light.g, light.b});
    if (transfer_ != Transfer::SDR && largest > rollOffKnee) {
        const double gain = rollOff(largest) / largest;
        light = {light.r * gain, light.g * gain, light.b * gain};
    }
    if (in2020_) Pixel::applyMatrixRGB2020ValuesIn709(light.r, light.g, light.b);
    rgb[0] = to8Bit(display_.gammaFloatLinearToNonLinear(clampUnit(light.r)));
    rgb[1] = to8Bit(display_.gammaFloatLinearToNonLinear(clampUnit(light.g)));
    rgb[2] = to8Bit(display_.gammaFloatLinearToNonLinear(clampUnit(light.b)));
}

// The card is made of flat areas: a pixel whose colour samples (those before alpha) equal the one
// before it reuses its result.
void PreviewColour::convertRow(const uint16_t* frameRow, int width, uint8_t* rgb) const {
    const uint16_t* previous = nullptr;
    for (int x = 0; x < width; ++x, frameRow += samplesPerPixel, rgb += 3) {
        if (previous != nullptr && std::equal(frameRow, frameRow + alpha, previous)) {
            std::copy(rgb - 3, rgb, rgb);
        } else {
            toSrgb(frameRow, rgb);
        }
        previous = frameRow;
    }
}
