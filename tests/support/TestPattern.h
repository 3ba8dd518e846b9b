// A configurable pattern for tests: body is a function of (x, y), and every call is recorded.
#pragma once

#include <climits>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "pattern/PatternWrapper.h"

// A sink that appends every line it is given, of either kind, to text (which outlives its use).
inline MessageSink into(std::string& text) {
    return [&text](MessageKind, const std::string& lines) { text += lines; };
}

class TestPattern : public PatternSpec {
public:
    using BodyFn = std::function<Pixel(int x, int y)>;

    // Without a body function every pixel is the default Pixel().
    explicit TestPattern(BodyFn fn = nullptr) : bodyFn(std::move(fn)) {}

    void setup() override { ++setupCalls; }
    Pixel body(int x, int y) override;
    // An empty list leaves the line repeats to PatternSpec.
    void getLineRepeats(std::vector<std::pair<int, int>>& list) override {
        if (lineRepeats.empty())
            PatternSpec::getLineRepeats(list);
        else
            list = lineRepeats;
    }
    bool useFullCanvasSize() override { return fullCanvas; }

    // init without its geometry report on standard output.
    void initQuietly(int width, int height, int aspectNum = 16, int aspectDen = 9,
                     PatternGen::colorAxes_e axes = PatternGen::Colour_RGB,
                     PatternGen::sampling_e sampling = PatternGen::Sampling_444, int bits = 12,
                     PatternGen::quadrant_e quadrant = PatternGen::Quadrant_None, bool edgeTaperOff = false);

    // Configuration.
    BodyFn bodyFn;
    bool fullCanvas = false;
    std::vector<std::pair<int, int>> lineRepeats;

    // What the loops asked for.
    int setupCalls = 0;
    long long bodyCalls = 0;
    int minX = INT_MAX, maxX = INT_MIN, minY = INT_MAX, maxY = INT_MIN;
    std::vector<std::pair<int, int>> calls;
};
