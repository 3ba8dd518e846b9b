#include "TestPattern.h"

#include <algorithm>

#include "TestFiles.h"

Pixel TestPattern::body(int x, int y) {
    ++bodyCalls;
    minX = std::min(minX, x);
    maxX = std::max(maxX, x);
    minY = std::min(minY, y);
    maxY = std::max(maxY, y);
    calls.emplace_back(x, y);
    return bodyFn ? bodyFn(x, y) : Pixel();
}

void TestPattern::initQuietly(int w, int h, int an, int ad, PatternGen::colorAxes_e axes, PatternGen::sampling_e s,
                              int bits, PatternGen::quadrant_e q, bool taperOff) {
    TestFiles::stdoutOf([&] { init(w, h, an, ad, axes, s, bits, q, 0, taperOff); });
}
