// The levels and colour fit: what the capture shows in each of the card's flat colours, and the named
// chain of operations that explains it best.
#include "analysis/Levels.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <unordered_map>

#include <Eigen/Dense>

#include "colour/ColourMatrices.h"
#include "colour/ColourSpace.h"

namespace pm5544::analysis {

namespace {

// Capture samples gathered for the flat areas, at most.
constexpr double kFlatSampleBudget = 100000;
// Areas with fewer samples than this are not used.
constexpr int kSmallestArea = 12;
// Reference pixels kept clear of any change around a flat sample, beyond the chain's blur.
constexpr int kFlatClearance = 1;
// A named operation must earn its place by this much of the score, in codes at 10 bits.
constexpr double kOperationCost = 0.5;
// Leftover gain and offset count this much against a chain.
constexpr double kLeftoverWeight = 0.25;

using Matrix4 = Eigen::Matrix4d;

Affine toAffine(const Matrix4& m) {
    Affine a{};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 4; ++j) a[size_t(i)][size_t(j)] = m(i, j);
    return a;
}

Matrix4 diagonal(double a, double b, double c, double oa, double ob, double oc) {
    Matrix4 m = Matrix4::Identity();
    m(0, 0) = a;
    m(1, 1) = b;
    m(2, 2) = c;
    m(0, 3) = oa;
    m(1, 3) = ob;
    m(2, 3) = oc;
    return m;
}

// Normalised values (Y' 0..1 with Cb, Cr -0.5..0.5, or R'G'B' 0..1) to codes at a depth; full range
// tops out at 2^bits - 1 (a converter that stops at 255 << (bits - 8) leaves a gain of its own).
Matrix4 codeMap(bool ycbcr, bool studio, int bits) {
    const double full = Levels::fullScale(bits);
    if (ycbcr && studio) {
        const double c = Levels::chromaExcursion(bits), zero = Levels::chromaZero(bits);
        return diagonal(Levels::lumaExcursion(bits), c, c, Levels::studioBlack(bits), zero, zero);
    }
    if (ycbcr) return diagonal(full, full, full, 0, Levels::chromaZero(bits), Levels::chromaZero(bits));
    if (studio) {
        const double e = Levels::lumaExcursion(bits), b = Levels::studioBlack(bits);
        return diagonal(e, e, e, b, b, b);
    }
    return diagonal(full, full, full, 0, 0, 0);
}

template <typename Encode>
Matrix4 linearMap(Encode encode) {
    Matrix4 m = Matrix4::Identity();
    for (int j = 0; j < 3; ++j) {
        const ColourMatrix::Rgb in{j == 0 ? 1.0 : 0.0, j == 1 ? 1.0 : 0.0, j == 2 ? 1.0 : 0.0};
        const auto out = encode(in);
        m(0, j) = out.y;
        m(1, j) = out.cb;
        m(2, j) = out.cr;
    }
    return m;
}

// R'G'B' to Y'CbCr with a matrix ("601", "709", "2020"), normalised.
Matrix4 encodeMatrix(const std::string& name) {
    if (name == "601") return linearMap(ColourMatrix::encode601);
    if (name == "709") return linearMap(ColourMatrix::encode709);
    return linearMap(ColourMatrix::encode2020);
}

Matrix4 swapMap(bool ycbcr) {
    Matrix4 m = Matrix4::Zero();
    m(3, 3) = 1;
    if (ycbcr) {
        m(0, 0) = 1;
        m(1, 2) = 1;
        m(2, 1) = 1;
    } else {
        m(1, 1) = 1;
        m(0, 2) = 1;
        m(2, 0) = 1;
    }
    return m;
}

const char* const kMatrices[] = {"601", "709", "2020"};

struct Fit {
    Triple gain{1, 1, 1}, offset{0, 0, 0};
    double residual = 0, leftover = 0;
};

// capture = gain * predicted + offset per component, weighted by the areas' sizes.
// An area the capture shows at an end of its code range where the chain takes it beyond that end by
// more than rounding is clipped: it is left out of that component's fit.
bool clippedAt(const FlatArea& a, size_t c, double predicted, double ceiling) {
    return (a.captured[c] <= 0.5 && predicted < -0.5) || (a.captured[c] >= ceiling - 0.5 && predicted > ceiling + 0.5);
}

Fit fitLeftover(const std::vector<FlatArea>& areas, const std::vector<bool>& used, const Matrix4& chain,
                double ceiling) {
    Fit fit;
    double total = 0, residual = 0, leftover = 0;
    std::vector<Triple> predicted(areas.size());
    for (size_t a = 0; a < areas.size(); ++a) {
        const Eigen::Vector4d p = chain * Eigen::Vector4d(areas[a].sent[0], areas[a].sent[1], areas[a].sent[2], 1);
        predicted[a] = {p[0], p[1], p[2]};
    }
    for (size_t c = 0; c < 3; ++c) {
        double sw = 0, sp = 0, sc = 0, spp = 0, spc = 0;
        for (size_t a = 0; a < areas.size(); ++a) {
            if (!used[a] || clippedAt(areas[a], c, predicted[a][c], ceiling)) continue;
            const double w = std::sqrt(double(areas[a].samples)), p = predicted[a][c], v = areas[a].captured[c];
            sw += w;
            sp += w * p;
            sc += w * v;
            spp += w * p * p;
            spc += w * p * v;
        }
        const double det = sw * spp - sp * sp;
        if (sw > 0 && det > 1e-9 * sw * spp) {
            fit.gain[c] = (sw * spc - sp * sc) / det;
            fit.offset[c] = (sc - fit.gain[c] * sp) / sw;
        } else if (sw > 0) {
            fit.offset[c] = (sc - sp) / sw;
        }
        for (size_t a = 0; a < areas.size(); ++a) {
            if (!used[a] || clippedAt(areas[a], c, predicted[a][c], ceiling)) continue;
            const double w = std::sqrt(double(areas[a].samples)), p = predicted[a][c];
            const double e = areas[a].captured[c] - (fit.gain[c] * p + fit.offset[c]);
            const double l = (fit.gain[c] - 1) * p + fit.offset[c];
            residual += w * e * e;
            leftover += w * l * l;
            if (c == 0) total += w;
        }
    }
    fit.residual = total > 0 ? std::sqrt(residual / (3 * total)) : 0;
    fit.leftover = total > 0 ? std::sqrt(leftover / (3 * total)) : 0;
    return fit;
}

struct Chain {
    RangeChange range;
    std::optional<MatrixChange> matrix;
    Swap swap;
    Matrix4 map;
    int operations;  // named operations beyond what the kinds of sent and captured components need
};

// Every chain considered: a range change in the capture's codes, a matrix between the sent codes and the
// capture's, and an exchange of the colour components.
std::vector<Chain> candidateChains(const Sent& sent, bool captureYCbCr) {
    const int bits = sent.bits;
    const Matrix4 fromSent = codeMap(sent.ycbcr, sent.studioRange, bits).inverse();
    // The capture's own range: the sent one for the same kind of components, else the usual one.
    const bool captureStudio = captureYCbCr == sent.ycbcr ? sent.studioRange : captureYCbCr;
    const Matrix4 toCapture = codeMap(captureYCbCr, captureStudio, bits);
    const Matrix4 expand = codeMap(captureYCbCr, false, bits) * codeMap(captureYCbCr, true, bits).inverse();
    struct Named {
        std::optional<MatrixChange> matrix;
        Matrix4 map;
        int operations;
    };
    std::vector<Named> matrices;
    if (sent.ycbcr && captureYCbCr) {
        matrices.push_back({std::nullopt, Matrix4::Identity(), 0});
        for (const char* from : kMatrices)
            for (const char* to : kMatrices)
                if (std::string(from) != to)
                    matrices.push_back({MatrixChange{from, to}, encodeMatrix(to) * encodeMatrix(from).inverse(), 1});
    } else if (sent.ycbcr) {
        for (const char* from : kMatrices) matrices.push_back({MatrixChange{from, "rgb"}, encodeMatrix(from).inverse(), 0});
    } else if (captureYCbCr) {
        for (const char* to : kMatrices) matrices.push_back({MatrixChange{"rgb", to}, encodeMatrix(to), 0});
    } else {
        matrices.push_back({std::nullopt, Matrix4::Identity(), 0});
    }
    // An exchange of the colour components on the capture's side, or, between kinds, on the sent side
    // before the matrix.
    struct Exchange {
        Swap swap;
        Matrix4 before, after;
    };
    std::vector<Exchange> exchanges = {{Swap::None, Matrix4::Identity(), Matrix4::Identity()},
                                       {captureYCbCr ? Swap::CbCr : Swap::RB, Matrix4::Identity(), swapMap(captureYCbCr)}};
    if (captureYCbCr != sent.ycbcr)
        exchanges.push_back({sent.ycbcr ? Swap::CbCr : Swap::RB, swapMap(sent.ycbcr), Matrix4::Identity()});
    std::vector<Chain> chains;
    for (const Named& m : matrices)
        for (const RangeChange range : {RangeChange::AsSent, RangeChange::Expanded, RangeChange::Compressed})
            for (const Exchange& e : exchanges) {
                Matrix4 map = toCapture * m.map * e.before * fromSent;
                if (range == RangeChange::Expanded) map = expand * map;
                if (range == RangeChange::Compressed) map = expand.inverse() * map;
                chains.push_back({range, m.matrix, e.swap, e.after * map,
                                  m.operations + (range != RangeChange::AsSent) + (e.swap != Swap::None)});
            }
    return chains;
}

struct Choice {
    const Chain* chain = nullptr;
    Fit fit;
};

Choice choose(const std::vector<Chain>& chains, const std::vector<FlatArea>& areas, const std::vector<bool>& used,
              int bits, double ceiling) {
    const double cost = kOperationCost * std::ldexp(1.0, bits - 10);
    Choice best;
    double bestScore = 0;
    for (const Chain& chain : chains) {
        const Fit fit = fitLeftover(areas, used, chain.map, ceiling);
        const double score = fit.residual + kLeftoverWeight * fit.leftover + cost * chain.operations;
        if (best.chain == nullptr || score < bestScore) {
            best = {&chain, fit};
            bestScore = score;
        }
    }
    return best;
}

double median(std::vector<float>& values) {
    const auto middle = values.begin() + long(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// The mean and standard deviation of the values near their median: text and stray edges in an area are
// left out, while noise of any distribution and the dither of a shallower link average out, as a median
// of quantised values would not.
double trimmedMean(std::vector<float>& values, double& sigma) {
    const double centre = median(values);
    std::vector<float> spread(values.size());
    for (size_t i = 0; i < values.size(); ++i) spread[i] = std::fabs(values[i] - float(centre));
    const double limit = std::max(6 * 1.4826 * median(spread), 2.0);
    double n = 0, sum = 0, squares = 0;
    for (const float v : values)
        if (std::fabs(v - centre) <= limit) {
            n += 1;
            sum += v;
            squares += double(v) * v;
        }
    const double mean = sum / n;
    sigma = std::sqrt(std::max(0.0, squares / n - mean * mean));
    return mean;
}

// Where each reference row changes: the positions x at which pixel x differs from pixel x - 1.
class RowChanges {
public:
    explicit RowChanges(const Picture& reference)
        : ref_(reference), rows_(size_t(reference.height)), computed_(size_t(reference.height), 0) {}

    // Whether pixel (x, y) is at least `dx` pixels from any change along its row.
    bool clearAlongRow(int x, int y, int dx) {
        const std::vector<int>& changes = row(y);
        const auto next = std::upper_bound(changes.begin(), changes.end(), x);
        const int after = next == changes.end() ? ref_.width : *next;       // first pixel of the next run
        const int begin = next == changes.begin() ? 0 : *std::prev(next);  // first pixel of this run
        return x - begin >= dx && after - 1 - x >= dx;
    }

private:
    const std::vector<int>& row(int y) {
        std::vector<int>& changes = rows_[size_t(y)];
        if (!computed_[size_t(y)]) {
            for (int x = 1; x < ref_.width; ++x)
                for (int c = 0; c < 3; ++c)
                    if (ref_.at(c, x, y) != ref_.at(c, x - 1, y)) {
                        changes.push_back(x);
                        break;
                    }
            computed_[size_t(y)] = 1;
        }
        return changes;
    }

    const Picture& ref_;
    std::vector<std::vector<int>> rows_;
    std::vector<char> computed_;
};

uint64_t colourOf(const Picture& p, int x, int y) {
    return uint64_t(p.at(0, x, y)) << 32 | uint64_t(p.at(1, x, y)) << 16 | uint64_t(p.at(2, x, y));
}

}  // namespace

Triple ColourModel::apply(const Triple& sent) const {
    Triple out{};
    for (size_t i = 0; i < 3; ++i) {
        double v = chain[i][3];
        for (size_t j = 0; j < 3; ++j) v += chain[i][j] * sent[j];
        out[i] = gain[i] * v + offset[i];
    }
    return out;
}

DepthScale depthScale(const Picture& capture, const Sent& sent) {
    if (capture.bits == sent.bits) return {};
    const double shift = std::ldexp(1.0, sent.bits - capture.bits);
    if (capture.bits > sent.bits) {
        // Codes in the high bits, as the program's own 16-bit files hold them, are the sent codes exactly.
        const uint16_t low = uint16_t((1u << (capture.bits - sent.bits)) - 1);
        bool shifted = true;
        for (size_t i = 0; i < capture.planes[0].size() && shifted; i += 97) shifted = (capture.planes[0][i] & low) == 0;
        if (shifted) return {shift};
    }
    // Y'CbCr codes scale by powers of two; R'G'B' files keep their full scale at the top of any depth.
    if (capture.components == Components::YCbCr) return {shift};
    return {double(Levels::fullScale(sent.bits)) / double((1 << capture.bits) - 1)};
}

std::vector<FlatArea> gatherFlatAreas(const Picture& reference, const Picture& capture, const Geometry& g,
                                      const DepthScale& depth, bool permuted) {
    // Reference pixels clear of any change by the chain's blur in both directions, the blur of the
    // capture's subsampled chroma included.
    auto clearance = [](double scale, int chromaShift) {
        const double blur = (2.0 + 3.0 * std::max(1.0, std::fabs(scale))) * (1 << chromaShift);
        return int(std::ceil(blur / std::fabs(scale))) + kFlatClearance;
    };
    const int dx = clearance(g.scaleX, capture.chromaShiftX), dy = clearance(g.scaleY, capture.chromaShiftY);
    const double pixels = double(capture.width) * double(capture.height);
    const int step = std::max(1, int(std::sqrt(pixels / kFlatSampleBudget)));
    const int order[3] = {permuted ? 1 : 0, permuted ? 2 : 1, permuted ? 0 : 2};
    RowChanges changes(reference);
    std::unordered_map<uint64_t, size_t> index;
    std::vector<std::vector<float>> values[3];
    std::vector<FlatArea> areas;
    for (int cy = step / 2; cy < capture.height; cy += step) {
        const long ry = std::lround((cy - g.offsetY) / g.scaleY);
        if (ry - dy < 0 || ry + dy >= reference.height) continue;
        for (int cx = step / 2; cx < capture.width; cx += step) {
            const long rx = std::lround((cx - g.offsetX) / g.scaleX);
            if (rx - dx < 0 || rx + dx >= reference.width) continue;
            const uint64_t colour = colourOf(reference, int(rx), int(ry));
            bool flat = true;
            for (int y = int(ry) - dy; y <= int(ry) + dy && flat; ++y)
                flat = colourOf(reference, int(rx), y) == colour && changes.clearAlongRow(int(rx), y, dx);
            if (!flat) continue;
            auto [at, added] = index.emplace(colour, areas.size());
            if (added) {
                FlatArea area;
                for (size_t c = 0; c < 3; ++c) area.sent[c] = double(reference.at(int(c), int(rx), int(ry)));
                areas.push_back(area);
                for (auto& v : values) v.emplace_back();
            }
            for (size_t c = 0; c < 3; ++c) values[c][at->second].push_back(float(depth(capture.at(order[c], cx, cy))));
        }
    }
    std::vector<FlatArea> kept;
    for (size_t a = 0; a < areas.size(); ++a) {
        FlatArea area = areas[a];
        area.samples = int(values[0][a].size());
        if (area.samples < kSmallestArea) continue;
        for (size_t c = 0; c < 3; ++c) area.captured[c] = trimmedMean(values[c][a], area.sigma[c]);
        kept.push_back(area);
    }
    return kept;
}

ColourModel nameColourChain(const std::vector<FlatArea>& areas, const Sent& sent, bool captureYCbCr, double ceiling) {
    const std::vector<Chain> chains = candidateChains(sent, captureYCbCr);
    std::vector<bool> used(areas.size(), true);
    Choice best = choose(chains, areas, used, sent.bits, ceiling);
    // Areas the first choice cannot explain (clipped, covered by text the card did not have) are left
    // out of the second.
    std::vector<double> errors;
    ColourModel model;
    model.chain = toAffine(best.chain->map);
    model.gain = best.fit.gain;
    model.offset = best.fit.offset;
    for (const FlatArea& a : areas) {
        const Triple p = model.apply(a.sent);
        double e = 0;
        for (size_t c = 0; c < 3; ++c) e = std::max(e, std::fabs(p[c] - a.captured[c]));
        errors.push_back(e);
    }
    std::vector<double> sorted(errors);
    std::nth_element(sorted.begin(), sorted.begin() + long(sorted.size() / 2), sorted.end());
    const double limit = 4 * sorted[sorted.size() / 2] + 2 * std::ldexp(1.0, sent.bits - 8);
    for (size_t a = 0; a < areas.size(); ++a) used[a] = errors[a] <= limit;
    best = choose(chains, areas, used, sent.bits, ceiling);
    model.range = best.chain->range;
    model.matrix = best.chain->matrix;
    model.swap = best.chain->swap;
    model.chain = toAffine(best.chain->map);
    model.gain = best.fit.gain;
    model.offset = best.fit.offset;
    model.residual = best.fit.residual;
    return model;
}

}  // namespace pm5544::analysis
