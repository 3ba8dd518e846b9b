// What a chain did to the card: the fitted geometry, levels and colour, the operations named from them,
// and the quality figures that are left.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "analysis/Picture.h"

namespace pm5544::analysis {

enum class Verdict { BitExact, AsSent, Changed };
enum class RangeChange { AsSent, Expanded, Compressed };  // studio range stretched to full, or the reverse
enum class Swap { None, CbCr, RB };

// A sent pixel centre (x, y) appears at (scaleX * x + offsetX, scaleY * y + offsetY) in the capture,
// pixel centres at integers; a mirrored axis has a negative scale.
struct Geometry {
    double scaleX = 1, scaleY = 1, offsetX = 0, offsetY = 0;
};

// The capture is the sent codes taken to R'G'B' with matrix `from` and back with `to`: "601", "709",
// "2020", or "rgb" where one side has no matrix.
struct MatrixChange {
    std::string from, to;
};

struct Finding {
    std::string kind;  // "geometry", "range", "matrix", "swap", "levels", "noise", "bit-depth", "clipping", ...
    std::string message;
};

using Triple = std::array<double, 3>;
// An affine map of three components: out[i] = sum_j m[i][j] * in[j] + m[i][3].
using Affine = std::array<std::array<double, 4>, 3>;

struct Report {
    Verdict verdict = Verdict::Changed;
    Components components = Components::RGB;  // as sent
    std::string sentMatrix;                   // "601", "709", "2020" or "rgb", as sent
    Geometry geometry;
    RangeChange range = RangeChange::AsSent;
    std::optional<MatrixChange> matrix;
    Swap swap = Swap::None;
    Triple gain{1, 1, 1};
    Triple offset{0, 0, 0};  // codes at the sent depth
    // dB; no value where the capture and the card agree exactly
    std::array<std::optional<double>, 3> psnrRaw, psnrExplained;
    Triple noise{0, 0, 0};  // sigma in codes at the sent depth
    int bitDepth = 0;       // effective bits
    double clipped = 0;     // share of the card's area that is clipped
    std::vector<Finding> findings;

    // For drawing: the capture's components (in its own order, at the sent depth) from the sent codes.
    Affine colour{};
    bool captureComponentsPermuted = false;  // an R'G'B' file holding Cr, Y', Cb, as the program writes them
    double captureScale = 1;                 // capture codes to codes at the sent depth
};

// What was sent, beside the reference picture itself.
struct Sent {
    int bits = 10;
    bool ycbcr = true;
    bool studioRange = true;
    std::string matrix;  // "601", "709", "2020" for Y'CbCr encodings, "rgb" otherwise
};

struct NoCardFound : std::runtime_error {
    NoCardFound() : std::runtime_error("no PM5544 card found") {}
};

// Fits the capture against the reference (the card as sent, chroma at full resolution). Throws
// NoCardFound when the capture shows no such card.
Report analyse(const Picture& reference, const Sent& sent, const Picture& capture);

class ReferenceResampler;

// The capture's components at the sent depth, in the sent order, as the fitted chain predicts them from
// the reference, row by row and NaN outside the card; for the difference map.
class CapturePrediction {
public:
    CapturePrediction(const Report& report, const Picture& reference, int width, int height);
    ~CapturePrediction();
    const std::vector<Triple>& row(int y);

private:
    const Report& report_;
    const Picture& reference_;
    std::unique_ptr<ReferenceResampler> resampler_;  // null where the chain kept the card's pixels
    std::vector<Triple> row_;
};

}  // namespace pm5544::analysis
