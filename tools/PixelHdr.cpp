// HDR conversions (being written); placeholders so the library links.
#include "Pixel.h"
using PatternGen::colorAxes_e;
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
