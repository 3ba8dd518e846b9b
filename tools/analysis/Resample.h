// The reference as the capture's raster sees it: resampled through the fitted geometry with a cubic
// kernel widened when the card was scaled down, as scalers do, so that the differences left are the
// chain's and not those of a sampling that no scaler uses.
#pragma once

#include <cmath>
#include <vector>

#include "analysis/Analysis.h"
#include "analysis/Picture.h"

namespace pm5544::analysis {

class ReferenceResampler {
public:
    ReferenceResampler(const Picture& reference, const Geometry& geometry, int captureWidth, int captureHeight);

    // Capture row y, each pixel the reference's three components there, or NaN outside the card.
    const std::vector<Triple>& row(int y);

private:
    struct Taps {
        int first = 0;  // the first reference sample, or -1 outside the card
        std::vector<float> weights;
    };
    static std::vector<Taps> kernels(int captureLength, int referenceLength, double scale, double offset);
    const std::vector<float>& horizontal(int referenceRow);

    const Picture& ref_;
    std::vector<Taps> columns_, rows_;
    std::vector<std::vector<float>> filtered_;  // reference rows resampled across, 3 floats a capture pixel
    std::vector<char> ready_;
    std::vector<int> live_;  // the rows filtered_ holds
    std::vector<Triple> out_;
};

}  // namespace pm5544::analysis
