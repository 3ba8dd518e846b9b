// The pixel value type: a colour space plus four 16-bit code values.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

#include "colour/ColourSpace.h"

class Pixel {
public:
    // Sample indices: Cb or B, Y' or G, Cr or R, alpha.
    enum { CB_B = 0, Y_G = 1, CR_R = 2, ALPHA = 3 };

    // One flag per component, in the order R, G, B: true if it was negative.
    struct AbsoluteRGB {
        bool r = false;
        bool g = false;
        bool b = false;
    };

    ColourSpace colourSpace;
    uint16_t sample[4];

    // Arguments are always (Y' or G, Cb or B, Cr or R); alpha is full scale.
    Pixel();
    Pixel(int y, int cb, int cr);
    Pixel(int y, int cb, int cr, PatternGen::colorAxes_e axes);
    Pixel(int y, int cb, int cr, PatternGen::colorAxes_e axes, int bits);

    // Two equalities, for two questions. sameCodes: the codes a file would hold are the same (encoding,
    // depth and the four samples), whatever levels and gamma law came with them. identicalTo: every
    // field is the same, levels and gamma too, so the pixels convert and blend identically; a cached
    // conversion or a run of equal pixels needs this one.
    bool sameCodes(const Pixel& other) const {
        return colourSpace.colourAxes == other.colourSpace.colourAxes &&
               colourSpace.bitDepth == other.colourSpace.bitDepth && sample[0] == other.sample[0] &&
               sample[1] == other.sample[1] && sample[2] == other.sample[2] && sample[3] == other.sample[3];
    }
    bool identicalTo(const Pixel& other) const;

    // Arithmetic and scaling about each component's reference level.
    Pixel operator+(const Pixel& other) const;
    Pixel& operator+=(const Pixel& other);
    Pixel scale(int num, int den) const;
    Pixel scale(double factor) const;
    Pixel scaleLumChrom(double lumaFactor, double chromaFactor) const;
    Pixel scaleWithClip(int num, int den) const;
    Pixel scaleWithGamma(int num, int den) const;

    // Level operations.
    Pixel subBlack() const;
    Pixel superWhite() const;
    Pixel noAlpha() const;
    Pixel legalise() const;

    // lumaMix and chromaMix are the weights of this pixel; the other gets the rest.
    Pixel blend(double lumaMix, double chromaMix, const Pixel& other) const;

    // Depth changes.
    Pixel truncateTo(int bits) const;
    Pixel roundTo(int bits) const;

    // Printing: each appends a whole line to text, for its caller to report; nothing reaches a stream.
    void print(const char* label, std::string& text) const;
    // The label and the Y', Cb and Cr terms that differ from other; 1 if any did, else 0 and no line.
    int printDiff(const char* label, const Pixel& other, std::string& text) const;

    // Conversions (SDR).
    Pixel convertTo(PatternGen::colorAxes_e toSpace) const;
    Pixel convertFromYCbCr2020(PatternGen::colorAxes_e toSpace) const;
    Pixel convertRGB709toYCbCr2020(double r, double g, double b) const;

    // Assigners: overwrite the samples from normalised R, G, B in this pixel's (already set) encoding.
    void assignRGBValues(double r, double g, double b);
    void assignRGB219Values(double r, double g, double b);
    void assignYCbCr601Values(double r, double g, double b);
    void assignYCbCr709Values(double r, double g, double b);
    void assignYCbCr2020Values(double r, double g, double b);

    // HDR transfer functions and their inverses. Light is in units of SDR white (100 cd/m2),
    // signals 0..1, S-Log3 codes 10-bit code values.
    static double applyPqInverseEOTF(double x);
    static double applyPqEOTF(double signal);
    static double applyHlgOETF(double x);
    static double applyHlgInverseOETF(double signal);
    // Display light to scene light (0..1) for the nominal 1000 cd/m2 display, and back.
    static void applyHlgInverseOOTF(double& r, double& g, double& b);
    static void applyHlgOOTF(double& r, double& g, double& b);
    static double applySLog3InverseOOTF(double x);
    static double applySLog3OOTF(double x);
    static double applySLog3OETFAndRestoreAbsolutisedInput(double x, bool negative);
    static double applySLog3InverseOETF(double code);
    static AbsoluteRGB absolutiseRgbInput(double& r, double& g, double& b);
    static void restoreAbsolutisedRgbInput(const AbsoluteRGB& flags, double& r, double& g, double& b);

    // Primaries: this pixel's gamma law then BT.709 into BT.2020; and BT.2020 into BT.709, linear
    // light in and out.
    void applyMatrixRGB709ValuesIn2020(double& r, double& g, double& b) const;
    static void applyMatrixRGB2020ValuesIn709(double& r, double& g, double& b);

    // Conversions (HDR).
    Pixel convertRGB709toYCbCrPQ(double r, double g, double b, PatternGen::colorAxes_e toSpace) const;
    Pixel convertRGB709toYCbCrHLG(double r, double g, double b, PatternGen::colorAxes_e toSpace) const;
    Pixel convertRGB709toYCbCrSLog3(double r, double g, double b, PatternGen::colorAxes_e toSpace) const;
    Pixel convertRGB709toRGBHDR(double r, double g, double b, PatternGen::colorAxes_e toSpace) const;
    Pixel convertYCbCrHDRToRGB(PatternGen::colorAxes_e toSpace) const;
    Pixel convertHDRFromRGB(PatternGen::colorAxes_e toSpace) const;
};

// A pixel's bytes are its fields and nothing else, so pixels are identical exactly when their bytes are:
// one comparison of the whole, and runs of identical pixels can be found a block of bytes at a time.
static_assert(std::has_unique_object_representations_v<Pixel>, "Pixel bytes hold nothing but its fields");

inline bool Pixel::identicalTo(const Pixel& other) const { return std::memcmp(this, &other, sizeof(Pixel)) == 0; }
