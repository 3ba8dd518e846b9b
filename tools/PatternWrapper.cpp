// Placeholder definitions; replaced by the pattern framework.
#include "PatternWrapper.h"
PatternSpec::PatternSpec() {}
PatternSpec::~PatternSpec() { releaseText(); }
void PatternSpec::getLineRepeats(std::vector<std::pair<int, int>>& list) { list.clear(); }
bool PatternSpec::useFullCanvasSize() { return false; }
bool PatternSpec::init(int w, int h, int an, int ad, PatternGen::colorAxes_e axes, PatternGen::sampling_e s, int bits,
                       PatternGen::quadrant_e q, int o, bool e) {
    width = w; height = h; aspectNum = an; aspectDen = ad; colourSpace = ColourSpace(axes, bits);
    sampling = s; quadrant = q; optionValue = o; edgeTaperOff = e; setup(); return true;
}
int PatternSpec::heightFraction(int num, int den) const { return height * num / den; }
int PatternSpec::widthFraction(int num, int den) const { return width * num / den; }
int PatternSpec::fractionOf(int value, int num, int den) const { return value * num / den; }
int PatternSpec::aspectAdjustedVertFraction(int, int) const { return 0; }
int PatternSpec::aspectAdjustedHorizFraction(int, int) const { return 0; }
bool PatternSpec::insideCircleHeight(int, int, int, int, int) const { return false; }
bool PatternSpec::insideCircleWidth(int, int, int, int, int) const { return false; }
int PatternSpec::newLayer() { return 0; }
unsigned PatternSpec::getOverlay(unsigned, int, int, int, int) const { return 0; }
void PatternSpec::noRiseTime() { riseTimeEnabled = false; }
double PatternSpec::freqToPixels(double) const { return 1; }
void PatternSpec::calculateTransition(std::deque<double>& c, double, double) const { c.clear(); }
void PatternSpec::calculateTransition(double, double) {}
bool PatternSpec::bars(int, Pixel&, int, int, ...) { return true; }
bool PatternSpec::barsLayered(int, Pixel&, int, int, ...) { return true; }
bool PatternSpec::barsLayered(int, Pixel&, int, int*, ...) { return true; }
Pixel PatternSpec::squareWave(int, int, Pixel& low, Pixel&) { return low; }
bool PatternSpec::grid(int, int, int, int, Pixel&, Pixel) { return false; }
bool PatternSpec::gridVertical(int, int, int, int, Pixel&, Pixel) { return false; }
bool PatternSpec::gridFlipVphase(int, int, int, int, Pixel&, Pixel) { return false; }
void PatternSpec::edge(Pixel&, int, Pixel, int) {}
void PatternSpec::edgeInv(Pixel&, int, Pixel, int) {}
bool PatternSpec::vertLineAt(int, int, int, Pixel, Pixel, Pixel, Pixel&) { return false; }
bool PatternSpec::run_body(int, int, int, unsigned short*) { return true; }
bool PatternSpec::run_body(int, int, int&, std::vector<std::pair<int, int>>&, unsigned char*) { return true; }
