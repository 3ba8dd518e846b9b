// Placeholder definitions; replaced by the colour library.
#include "Pixel.h"
using PatternGen::colorAxes_e;
Pixel::Pixel() : Pixel(256, 2048, 2048) {}
Pixel::Pixel(int y, int cb, int cr) : Pixel(y, cb, cr, PatternGen::Colour_YCbCr_709, 12) {}
Pixel::Pixel(int y, int cb, int cr, colorAxes_e axes) : Pixel(y, cb, cr, axes, 12) {}
Pixel::Pixel(int y, int cb, int cr, colorAxes_e axes, int bits) : colourSpace(axes, bits) {
    sample[0] = cb; sample[1] = y; sample[2] = cr; sample[3] = (1 << bits) - 1;
}
Pixel Pixel::operator+(const Pixel&) const { return *this; }
Pixel& Pixel::operator+=(const Pixel&) { return *this; }
Pixel Pixel::scale(int, int) const { return *this; }
Pixel Pixel::scale(double) const { return *this; }
Pixel Pixel::scaleLumChrom(double, double) const { return *this; }
Pixel Pixel::scaleWithClip(int, int) const { return *this; }
Pixel Pixel::scaleWithGamma(int, int) const { return *this; }
Pixel Pixel::subBlack() const { return *this; }
Pixel Pixel::superWhite() const { return *this; }
Pixel Pixel::noAlpha() const { return *this; }
Pixel Pixel::legalise() const { return *this; }
Pixel Pixel::blend(double, double, const Pixel&) const { return *this; }
Pixel Pixel::truncateTo(int) const { return *this; }
Pixel Pixel::roundTo(int) const { return *this; }
void Pixel::print(const char*) const {}
int Pixel::printDiff(const char*, const Pixel&) const { return 0; }
Pixel Pixel::convertTo(colorAxes_e) const { return *this; }
Pixel Pixel::convertFromYCbCr2020(colorAxes_e) const { return *this; }
Pixel Pixel::convertRGB709toYCbCr2020(double, double, double) const { return *this; }
void Pixel::assignRGBValues(double, double, double) {}
void Pixel::assignRGB219Values(double, double, double) {}
void Pixel::assignYCbCr601Values(double, double, double) {}
void Pixel::assignYCbCr709Values(double, double, double) {}
void Pixel::assignYCbCr2020Values(double, double, double) {}
double Pixel::applyPqInverseEOTF(double) { return 0; }
double Pixel::applyHlgOETF(double) { return 0; }
double Pixel::applySLog3InverseOOTF(double) { return 0; }
double Pixel::applySLog3OETFAndRestoreAbsolutisedInput(double, bool) { return 0; }
Pixel::AbsoluteRGB Pixel::absolutiseRgbInput(double&, double&, double&) { return {}; }
void Pixel::restoreAbsolutisedRgbInput(const AbsoluteRGB&, double&, double&, double&) {}
void Pixel::applyMatrixRGB709ValuesIn2020(double&, double&, double&) const {}
Pixel Pixel::convertRGB709toYCbCrPQ(double, double, double, colorAxes_e) const { return *this; }
Pixel Pixel::convertRGB709toYCbCrHLG(double, double, double, colorAxes_e) const { return *this; }
Pixel Pixel::convertRGB709toYCbCrSLog3(double, double, double, colorAxes_e) const { return *this; }
Pixel Pixel::convertRGB709toRGBHDR(double, double, double, colorAxes_e) const { return *this; }
Pixel Pixel::convertYCbCrHDRToRGB(colorAxes_e) const { return *this; }
Pixel Pixel::convertHDRFromRGB(colorAxes_e) const { return *this; }
