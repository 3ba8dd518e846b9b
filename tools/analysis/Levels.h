// How the capture's components follow the sent ones: the card's flat areas gathered by the colour sent
// there, an affine fit over them, and the chain of named operations (range, matrix, swap) that best
// explains it, with the gain and offset left over.
#pragma once

#include <vector>

#include "analysis/Analysis.h"
#include "analysis/Picture.h"

namespace pm5544::analysis {

// One colour of the card's flat areas and what the capture shows there, at the sent depth.
struct FlatArea {
    Triple sent{};
    Triple captured{};  // means near the median, robust against text and stray edges
    Triple sigma{};     // their standard deviation: the noise
    int samples = 0;
};

// Converts capture codes to codes at the sent depth.
struct DepthScale {
    double factor = 1;
    double operator()(int code) const { return factor * code; }
};
DepthScale depthScale(const Picture& capture, const Sent& sent);

std::vector<FlatArea> gatherFlatAreas(const Picture& reference, const Picture& capture, const Geometry& geometry,
                                      const DepthScale& depth, bool permuted);

// The named chain and what is left of it.
struct ColourModel {
    RangeChange range = RangeChange::AsSent;
    std::optional<MatrixChange> matrix;
    Swap swap = Swap::None;
    Affine chain{};  // the named operations, sent codes to capture codes at the sent depth
    Triple gain{1, 1, 1}, offset{0, 0, 0};
    double residual = 0;  // RMS of the flat areas about the model, codes
    Triple apply(const Triple& sent) const;
};

// The best chain for the areas; `captureYCbCr` says what the capture's components are, `ceiling` is its
// highest code at the sent depth.
ColourModel nameColourChain(const std::vector<FlatArea>& areas, const Sent& sent, bool captureYCbCr, double ceiling);

}  // namespace pm5544::analysis
