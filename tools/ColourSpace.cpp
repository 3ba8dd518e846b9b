// Placeholder definitions; replaced by the colour library.
#include "ColourSpace.h"
const char* axisToString(PatternGen::colorAxes_e) { return "undefined"; }
ColourSpace::ColourSpace(PatternGen::colorAxes_e axes, int bits) { setColourSpace(axes, bits); }
void ColourSpace::setColourSpace(PatternGen::colorAxes_e axes, int bits) { colourAxes = axes; bitDepth = bits; }
double ColourSpace::normaliseLuma(int) const { return 0; }
double ColourSpace::normaliseChroma(int) const { return 0; }
bool ColourSpace::limitLuma(int&) const { return false; }
bool ColourSpace::limitChroma(int&) const { return false; }
bool ColourSpace::isColourDifference() const { return colourAxes >= 2 && colourAxes <= 12; }
bool ColourSpace::colourIsRGB() const { return !isColourDifference(); }
bool ColourSpace::colourIsIn2020() const { return colourAxes >= 4; }
bool ColourSpace::colourIsHDR() const { return colourAxes >= 4 && colourAxes != 8; }
double ColourSpace::gammaToLinear(int) const { return 0; }
double ColourSpace::linearToGamma(int) const { return 0; }
double ColourSpace::gammaFloatToLinear(double v) const { return v; }
double ColourSpace::linearFloatToGamma(double v) const { return v; }
double ColourSpace::gammaFloatLinearToNonLinear(double v) const { return v; }
