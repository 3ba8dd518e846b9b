#include "TestPattern.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

Pixel TestPattern::body(int x, int y) {
    ++bodyCalls;
    minX = std::min(minX, x);
    maxX = std::max(maxX, x);
    minY = std::min(minY, y);
    maxY = std::max(maxY, y);
    if (recordCalls) calls.emplace_back(x, y);
    return bodyFn ? bodyFn(x, y) : Pixel();
}

void TestPattern::initQuietly(int w, int h, int an, int ad, PatternGen::colorAxes_e axes, PatternGen::sampling_e s,
                              int bits, PatternGen::quadrant_e q, bool taperOff) {
    // init prints the geometry; keep test output readable by sending it to /dev/null meanwhile.
    fflush(stdout);
    const int saved = dup(fileno(stdout));
    FILE* null = fopen("/dev/null", "w");
    if (null != nullptr) dup2(fileno(null), fileno(stdout));
    init(w, h, an, ad, axes, s, bits, q, 0, taperOff);
    fflush(stdout);
    if (saved >= 0) {
        dup2(saved, fileno(stdout));
        close(saved);
    }
    if (null != nullptr) fclose(null);
}
