// The geometry fit. Both stages measure the reference and the capture with the same estimators, so
// that what the chain does alike to every edge (blur, ringing, levels) cancels out.
#include "analysis/Geometry.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <future>
#include <utility>
#include <unordered_map>
#include <vector>

namespace pm5544::analysis {

namespace {

// Lines summed into a gradient profile, at most.
constexpr int kProfileLines = 384;
// Profile bins at the coarse level of the search; its scale step.
constexpr int kCoarseBins = 192;
constexpr double kCoarseScaleStep = 0.01;
// Scales searched, relative to the capture's size over the card's.
constexpr double kSmallestScale = 0.4, kLargestScale = 2.5;
// Candidates kept from the coarse level per axis.
constexpr int kCandidates = 3;
// Capture lines measured per axis to choose among candidates; samples on the lines measured to fit (the
// lines of a small capture are all measured, those of a large one in steps).
constexpr int kRoughLines = 64;
constexpr double kMeasuredSamples = 640.0 * 1280.0;
// Flat samples averaged for a level either side of a feature, at most.
constexpr int kFlatSamples = 8;
// Features wider than this, in reference pixels (the gratings), are not measured.
constexpr int kWidestFeature = 48;
// A step or line must span this share of the code range.
constexpr double kMinimumContrast = 0.06;
// Measurements farther from the fit than this many robust sigmas (and the floor, pixels) are outliers.
constexpr double kOutlierSigmas = 3.0, kOutlierFloor = 0.15;
// Fewer agreeing measurements than this, or a smaller share of them, and there is no card.
constexpr int kFewestFeatures = 24;
constexpr double kLeastAgreement = 0.9;
// A rough placement this much like the card ends the search among candidates.
constexpr double kPlainlyTheCard = 0.95;

// A picture seen along one axis: its lines are rows. The Y axis is seen through a transposed copy, so
// that both walk memory in order.
struct AxisView {
    const Picture& picture;
    int length() const { return picture.width; }
    int lines() const { return picture.height; }
    int at(int c, int position, int line) const { return picture.at(c, position, line); }
};

// The picture's planes `first` .. `last` transposed, in tiles that keep both sides in the cache.
Picture transposed(const Picture& p, int first, int last) {
    constexpr int kTile = 64;
    Picture t;
    t.width = p.height;
    t.height = p.width;
    t.bits = p.bits;
    t.components = p.components;
    t.chromaShiftX = p.chromaShiftY;
    t.chromaShiftY = p.chromaShiftX;
    for (int c = first; c <= last; ++c) {
        const int w = p.planeWidth(c), h = p.planeHeight(c);
        const std::vector<uint16_t>& in = p.planes[c];
        std::vector<uint16_t>& out = t.planes[c];
        out.resize(in.size());
        for (int x0 = 0; x0 < w; x0 += kTile)
            for (int y0 = 0; y0 < h; y0 += kTile) {
                const int x1 = std::min(w, x0 + kTile), y1 = std::min(h, y0 + kTile);
                for (int x = x0; x < x1; ++x) {
                    uint16_t* to = &out[size_t(x) * size_t(h)];
                    for (int y = y0; y < y1; ++y) to[y] = in[size_t(y) * size_t(w) + size_t(x)];
                }
            }
    }
    return t;
}

// The mapping along one axis: capture = scale * sent + offset.
struct AxisMap {
    double scale = 1, offset = 0;
    double operator()(double x) const { return scale * x + offset; }
    double inverse(double x) const { return (x - offset) / scale; }
};

// How far an edge of the chain's making may spread, in capture pixels: a few taps of the scaler's
// kernel at the larger of the two rasters.
double blurMargin(double scale) { return 2.0 + 3.0 * std::max(1.0, std::fabs(scale)); }

// ---- Coarse search ----

std::vector<double> gradientProfile(const AxisView& view) {
    const int n = view.length(), lines = view.lines(), plane = structurePlane(view.picture);
    std::vector<double> profile(size_t(std::max(n - 1, 0)), 0.0);
    const int step = std::max(1, lines / kProfileLines);
    for (int line = step / 2; line < lines; line += step)
        for (int i = 0; i + 1 < n; ++i)
            profile[size_t(i)] += std::abs(view.at(plane, i + 1, line) - view.at(plane, i, line));
    // Take away the slow part (noise, texture) so that only the edges correlate.
    const int half = std::max(2, n / 32);
    std::vector<double> prefix(profile.size() + 1, 0.0);
    for (size_t i = 0; i < profile.size(); ++i) prefix[i + 1] = prefix[i] + profile[i];
    std::vector<double> detail(profile.size());
    for (size_t i = 0; i < profile.size(); ++i) {
        const size_t lo = i >= size_t(half) ? i - size_t(half) : 0, hi = std::min(profile.size(), i + size_t(half) + 1);
        detail[i] = profile[i] - (prefix[hi] - prefix[lo]) / double(hi - lo);
    }
    return detail;
}

// The reference profile seen at `scale` in capture pixels: bin u holds sent positions [u, u + 1) / scale.
void resampleProfile(const std::vector<double>& prefix, double scale, std::vector<double>& out) {
    const double length = double(prefix.size() - 1);
    const size_t bins = size_t(std::ceil(length * scale));
    out.resize(bins);
    auto integral = [&](double x) {
        if (x <= 0) return 0.0;
        if (x >= length) return prefix.back();
        const size_t k = size_t(x);
        return prefix[k] + (prefix[k + 1] - prefix[k]) * (x - double(k));
    };
    for (size_t u = 0; u < bins; ++u) out[u] = integral(double(u + 1) / scale) - integral(double(u) / scale);
}

void decimate(const std::vector<double>& in, int factor, std::vector<double>& out) {
    out.assign((in.size() + size_t(factor) - 1) / size_t(factor), 0.0);
    for (size_t i = 0; i < in.size(); ++i) out[i / size_t(factor)] += in[i];
}

// Normalised correlation of capture[j] with reference[j - shift] over their overlap; -1 when the
// overlap is less than half the shorter of the two.
double correlation(const std::vector<double>& capture, const std::vector<double>& reference, long shift) {
    const long n = long(capture.size()), m = long(reference.size());
    const long first = std::max(0L, shift), last = std::min(n, m + shift);
    if (last - first < std::min(n, m) / 2 || last - first < 4) return -1;
    double cr = 0, cc = 0, rr = 0;
    for (long j = first; j < last; ++j) {
        const double c = capture[size_t(j)], r = reference[size_t(j - shift)];
        cr += c * r;
        cc += c * c;
        rr += r * r;
    }
    return cc > 0 && rr > 0 ? cr / std::sqrt(cc * rr) : -1;
}

struct Candidate {
    double score = -1;
    double scale = 1;  // > 0: the sign is the search's
    long shift = 0;    // in capture pixels
    bool mirrored = false;
};

// The best shift for one scale at one decimation, within [lo, hi].
Candidate bestShift(const std::vector<double>& capture, const std::vector<double>& reference, long lo, long hi) {
    Candidate best;
    for (long shift = lo; shift <= hi; ++shift) {
        const double score = correlation(capture, reference, shift);
        if (score > best.score) {
            best.score = score;
            best.shift = shift;
        }
    }
    return best;
}

// Scales and shifts that line the reference's gradient profile up with the capture's, best first.
std::vector<Candidate> coarseSearch(const std::vector<double>& reference, const std::vector<double>& capture,
                                    double nominalScale) {
    std::vector<double> prefix(reference.size() + 1, 0.0);
    for (size_t i = 0; i < reference.size(); ++i) prefix[i + 1] = prefix[i] + reference[i];
    const int factor = std::max(1, int(capture.size()) / kCoarseBins);
    std::vector<double> resampled, coarseReference, coarseCapture, mirror(capture.rbegin(), capture.rend());
    std::vector<Candidate> found;
    for (const bool mirrored : {false, true}) {
        decimate(mirrored ? mirror : capture, factor, coarseCapture);
        for (double scale = nominalScale * kSmallestScale; scale <= nominalScale * kLargestScale;
             scale *= 1 + kCoarseScaleStep) {
            resampleProfile(prefix, scale, resampled);
            decimate(resampled, factor, coarseReference);
            Candidate c = bestShift(coarseCapture, coarseReference, -long(coarseReference.size()),
                                    long(coarseCapture.size()));
            c.scale = scale;
            c.shift *= factor;
            c.mirrored = mirrored;
            found.push_back(c);
        }
    }
    std::sort(found.begin(), found.end(), [](const Candidate& a, const Candidate& b) { return a.score > b.score; });
    // Refine the best distinct candidates at a finer decimation; the fine fit takes it from there.
    const int fine = std::max(1, factor / 6);
    std::vector<double> fineCapture, fineMirror, fineReference;
    decimate(capture, fine, fineCapture);
    decimate(mirror, fine, fineMirror);
    // The best of each direction first: the card is almost symmetric left to right and top to bottom.
    std::vector<Candidate> ordered;
    for (const bool mirrored : {false, true}) {
        const auto best = std::find_if(found.begin(), found.end(), [&](const Candidate& c) { return c.mirrored == mirrored; });
        if (best != found.end()) ordered.push_back(*best);
    }
    ordered.insert(ordered.end(), found.begin(), found.end());
    std::vector<Candidate> refined;
    for (const Candidate& c : ordered) {
        if (int(refined.size()) == kCandidates) break;
        const bool distinct = std::none_of(refined.begin(), refined.end(), [&](const Candidate& r) {
            return r.mirrored == c.mirrored && std::fabs(r.scale / c.scale - 1) < 0.03 &&
                   std::labs(r.shift - c.shift) < 4 * factor;
        });
        if (!distinct || c.score <= 0) continue;
        Candidate best = c;
        best.score = -1;
        for (int step = -8; step <= 8; ++step) {
            const double scale = c.scale * (1 + step * 0.0015);
            resampleProfile(prefix, scale, resampled);
            decimate(resampled, fine, fineReference);
            Candidate r = bestShift(c.mirrored ? fineMirror : fineCapture, fineReference, (c.shift - 2 * factor) / fine,
                                    (c.shift + 2 * factor) / fine);
            if (r.score > best.score) {
                best.score = r.score;
                best.scale = scale;
                best.shift = r.shift * fine;
            }
        }
        refined.push_back(best);
    }
    return refined;
}

AxisMap mapOf(const Candidate& c, int captureLength) {
    // A mirrored search ran on the reversed profile: x' = (n - 1) - (s x + o).
    if (c.mirrored) return {-c.scale, double(captureLength - 1) - double(c.shift)};
    return {c.scale, double(c.shift)};
}

// ---- Fine fit ----

// A neutral step or line on a reference line between two long flat runs [a0, a1] and [b0, b1].
struct Feature {
    int a0, a1, b0, b1;
    bool line;        // the same level either side: measured by its centroid
    double position;  // where it lies on the line, reference pixels
};

// What a sample is apart from its structure: the colour differences (Cb, Cr) of Y'CbCr or R' - G' and
// B' - G' of R'G'B'. A feature is neutral when it is constant across it.
uint32_t colourKey(const AxisView& v, int position, int line) {
    if (v.picture.components == Components::YCbCr)
        return uint32_t(v.at(1, position, line)) << 16 | uint32_t(v.at(2, position, line));
    const int g = v.at(1, position, line);
    return uint32_t(uint16_t(v.at(0, position, line) - g)) << 16 | uint32_t(uint16_t(v.at(2, position, line) - g));
}

// The step's position measured from the end of the flat before it: each window sample adds how far it
// still is from the far level. Linear in the samples, so any symmetric blur keeps it.
double stepPosition(const double* window, int count, int first, double before, double after) {
    double sum = 0;
    for (int i = 0; i < count; ++i) sum += 1.0 - (window[i] - before) / (after - before);
    return double(first) - 0.5 + sum;
}

// A line's centroid over its level; NaN when it has too little area.
double linePosition(const double* window, int count, int first, double level, double leastArea) {
    double area = 0, moment = 0;
    for (int i = 0; i < count; ++i) {
        area += window[i] - level;
        moment += double(first + i) * (window[i] - level);
    }
    return std::fabs(area) >= leastArea ? moment / area : NAN;
}

// The reference along one axis, line by line as the fits ask for them: each line's runs of identical
// samples, and where each line differs from the next.
class ReferenceAxis {
public:
    explicit ReferenceAxis(const AxisView& view) : view_(view), plane_(structurePlane(view.picture)) {
        minimumContrast_ = kMinimumContrast * double((1 << view.picture.bits) - 1);
    }

    const AxisView& view() const { return view_; }

    // The features of a line between runs of at least minimumRun samples.
    std::vector<Feature> features(int line, int minimumRun) {
        const Line& l = lineData(line);
        std::vector<Feature> found;
        int previous = -1;  // the last long run
        for (int r = 0; r < int(l.runs.size()); ++r) {
            const Run& run = l.runs[size_t(r)];
            if (run.end - run.begin + 1 < minimumRun) continue;
            if (previous >= 0) addFeature(l, l.runs[size_t(previous)], run, found);
            previous = r;
        }
        return found;
    }

    // Whether lines first .. last are the same over positions [lo, hi].
    bool sameLines(int first, int last, int lo, int hi) {
        for (int line = first; line < last; ++line) {
            const std::vector<int>& d = differences(line);
            const auto at = std::lower_bound(d.begin(), d.end(), lo);
            if (at != d.end() && *at <= hi) return false;
        }
        return true;
    }

private:
    struct Run {
        int begin, end;  // inclusive
    };
    struct Line {
        std::vector<int> structure;
        std::vector<uint32_t> key;
        std::vector<Run> runs;
    };

    const Line& lineData(int line) {
        auto found = lines_.find(line);
        if (found != lines_.end()) return found->second;
        Line l;
        const int n = view_.length();
        l.structure.resize(size_t(n));
        l.key.resize(size_t(n));
        for (int i = 0; i < n; ++i) {
            l.structure[size_t(i)] = view_.at(plane_, i, line);
            l.key[size_t(i)] = colourKey(view_, i, line);
        }
        int begin = 0;
        for (int i = 1; i <= n; ++i) {
            if (i < n && l.structure[size_t(i)] == l.structure[size_t(begin)] && l.key[size_t(i)] == l.key[size_t(begin)])
                continue;
            l.runs.push_back({begin, i - 1});
            begin = i;
        }
        return lines_.emplace(line, std::move(l)).first->second;
    }

    const std::vector<int>& differences(int line) {
        auto found = differences_.find(line);
        if (found != differences_.end()) return found->second;
        std::vector<int> d;
        for (int i = 0; i < view_.length(); ++i)
            for (int c = 0; c < 3; ++c)
                if (view_.at(c, i, line) != view_.at(c, i, line + 1)) {
                    d.push_back(i);
                    break;
                }
        return differences_.emplace(line, std::move(d)).first->second;
    }

    void addFeature(const Line& l, const Run& a, const Run& b, std::vector<Feature>& found) const {
        const int first = a.end + 1, count = b.begin - first;
        if (count > kWidestFeature) return;
        const uint32_t key = l.key[size_t(a.begin)];
        for (int i = first; i <= b.begin; ++i)
            if (l.key[size_t(i)] != key) return;
        window_.assign(l.structure.begin() + first, l.structure.begin() + b.begin);
        const double before = l.structure[size_t(a.end)], after = l.structure[size_t(b.begin)];
        Feature f{a.begin, a.end, b.begin, b.end, before == after, NAN};
        if (!f.line && std::fabs(after - before) >= minimumContrast_)
            f.position = stepPosition(window_.data(), count, first, before, after);
        else if (f.line && count > 0)
            f.position = linePosition(window_.data(), count, first, before, minimumContrast_);
        if (!std::isnan(f.position)) found.push_back(f);
    }

    AxisView view_;
    int plane_;
    double minimumContrast_ = 0;
    std::unordered_map<int, Line> lines_;
    std::unordered_map<int, std::vector<int>> differences_;
    mutable std::vector<double> window_;
};

struct Point {
    double sent, captured;
};

class Measurer {
public:
    Measurer(const AxisView& capture, double scale, double uncertainty)
        : cap_(capture), plane_(structurePlane(capture.picture)), margin_(blurMargin(scale) + uncertainty) {
        leastContrast_ = 0.5 * kMinimumContrast * double((1 << capture.picture.bits) - 1);
    }

    // The feature's position on capture line `line`, or NaN where it cannot be measured.
    double measure(const Feature& f, int line, const AxisMap& map) {
        const double aLo = std::min(map(f.a0 - 0.5), map(f.a1 + 0.5)), aHi = std::max(map(f.a0 - 0.5), map(f.a1 + 0.5));
        const double bLo = std::min(map(f.b0 - 0.5), map(f.b1 + 0.5)), bHi = std::max(map(f.b0 - 0.5), map(f.b1 + 0.5));
        const bool forward = map.scale > 0;
        const double leftLo = forward ? aLo : bLo, leftHi = forward ? aHi : bHi;
        const double rightLo = forward ? bLo : aLo, rightHi = forward ? bHi : aHi;
        const int leftEnd = int(std::floor(leftHi - margin_)), rightBegin = int(std::ceil(rightLo + margin_));
        const int leftBegin = std::max(int(std::ceil(leftLo + margin_)), leftEnd - kFlatSamples + 1);
        const int rightEnd = std::min(int(std::floor(rightHi - margin_)), rightBegin + kFlatSamples - 1);
        if (leftEnd - leftBegin < 1 || rightEnd - rightBegin < 1 || leftBegin < 0 || rightEnd >= cap_.length())
            return NAN;
        const double before = mean(leftBegin, leftEnd, line), after = mean(rightBegin, rightEnd, line);
        const int first = leftEnd + 1, count = rightBegin - first;
        window_.resize(size_t(std::max(count, 0)));
        for (int i = 0; i < count; ++i) window_[size_t(i)] = cap_.at(plane_, first + i, line);
        if (f.line) return linePosition(window_.data(), count, first, 0.5 * (before + after), leastContrast_);
        if (std::fabs(after - before) < leastContrast_) return NAN;
        return stepPosition(window_.data(), count, first, before, after);
    }

    double margin() const { return margin_; }

private:
    double mean(int lo, int hi, int line) const {
        double sum = 0;
        for (int i = lo; i <= hi; ++i) sum += cap_.at(plane_, i, line);
        return sum / double(hi - lo + 1);
    }

    const AxisView& cap_;
    int plane_;
    double margin_;
    double leastContrast_ = 0;
    std::vector<double> window_;
};

struct LineFit {
    AxisMap map;
    int inliers = 0;
    int measured = 0;
    double residual = 0;
};

// capture = scale * sent + offset by least squares, dropping outliers in turn.
LineFit robustFit(const std::vector<Point>& points, const AxisMap& start) {
    LineFit fit;
    fit.map = start;
    fit.measured = int(points.size());
    std::vector<double> residuals(points.size());
    double limit = 1e9;
    for (int round = 0; round < 5; ++round) {
        double n = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
        for (const Point& p : points) {
            if (std::fabs(p.captured - fit.map(p.sent)) > limit) continue;
            n += 1;
            sx += p.sent;
            sy += p.captured;
            sxx += p.sent * p.sent;
            sxy += p.sent * p.captured;
        }
        const double det = n * sxx - sx * sx;
        if (n < 2 || std::fabs(det) < 1e-9) break;
        fit.map.scale = (n * sxy - sx * sy) / det;
        fit.map.offset = (sy - fit.map.scale * sx) / n;
        // Measurements that line up on no sensible scale are no card.
        if (!std::isfinite(fit.map.scale) || !std::isfinite(fit.map.offset) || std::fabs(fit.map.scale) < 1e-2 ||
            std::fabs(fit.map.scale) > 1e2) {
            fit.map = start;
            return fit;
        }
        for (size_t i = 0; i < points.size(); ++i) residuals[i] = std::fabs(points[i].captured - fit.map(points[i].sent));
        std::vector<double> sorted(residuals);
        std::nth_element(sorted.begin(), sorted.begin() + long(sorted.size() / 2), sorted.end());
        limit = std::max(kOutlierSigmas * 1.4826 * sorted[sorted.size() / 2], kOutlierFloor);
    }
    double sum = 0;
    for (size_t i = 0; i < points.size(); ++i)
        if (residuals[i] <= limit) {
            ++fit.inliers;
            sum += residuals[i] * residuals[i];
        }
    fit.residual = fit.inliers > 0 ? std::sqrt(sum / fit.inliers) : 0;
    return fit;
}

// Measures the reference's features on capture lines and fits this axis' map, the other axis' map held.
LineFit fineFit(ReferenceAxis& ref, const AxisView& cap, const AxisMap& along, const AxisMap& across,
                double uncertainty, int measuredLines /* 0: as many as the capture's size allows */) {
    Measurer measurer(cap, along.scale, uncertainty);
    const int minimumRun = int(std::ceil((2 * measurer.margin() + 2) / std::fabs(along.scale)));
    const int k = int(std::ceil(blurMargin(across.scale) / std::fabs(across.scale))) + 1;
    const int need = int(std::ceil((measurer.margin() + kFlatSamples) / std::fabs(along.scale))) + 1;
    std::vector<Point> points;
    if (measuredLines == 0) measuredLines = std::max(kRoughLines, int(kMeasuredSamples / cap.length()));
    const int lines = cap.lines(), step = std::max(1, lines / measuredLines);
    for (int line = step / 2; line < lines; line += step) {
        const long refLine = std::lround(across.inverse(line));
        if (refLine - k < 0 || refLine + k >= ref.view().lines()) continue;
        for (const Feature& f : ref.features(int(refLine), minimumRun)) {
            if (!ref.sameLines(int(refLine) - k, int(refLine) + k, std::max(f.a0, f.a1 - need), std::min(f.b1, f.b0 + need)))
                continue;
            const double captured = measurer.measure(f, line, along);
            if (!std::isnan(captured)) points.push_back({f.position, captured});
        }
    }
    return robustFit(points, along);
}

struct AxisResult {
    LineFit x, y;
    int inliers() const { return x.inliers + y.inliers; }
    double agreement() const {
        const int measured = x.measured + y.measured;
        return measured > 0 ? double(inliers()) / measured : 0;
    }
};

struct Placement {
    AxisMap x, y;
    LineFit fitX, fitY;
    double similarity = -1;
    int inliers() const { return fitX.inliers + fitY.inliers; }
    double agreement() const {
        const int measured = fitX.measured + fitY.measured;
        return measured > 0 ? double(inliers()) / measured : 0;
    }
};

// Fits both axes from the placement, each holding the other's map as it was: the axes hardly depend on
// each other, and each has a thread and a reference axis of its own.
void refine(ReferenceAxis (&ref)[2], const AxisView (&cap)[2], Placement& p, double uncertainty, int lines) {
    auto y = std::async(std::launch::async, [&] { return fineFit(ref[1], cap[1], p.y, p.x, uncertainty, lines); });
    p.fitX = fineFit(ref[0], cap[0], p.x, p.y, uncertainty, lines);
    p.fitY = y.get();
    p.x = p.fitX.map;
    p.y = p.fitY.map;
}

// Normalised correlation of the capture's structure with the reference's where the placement puts it:
// it tells a mirrored or misplaced card, whose edges may line up as well, from the right one.
double similarity(const Picture& reference, const Picture& capture, const AxisMap& x, const AxisMap& y) {
    constexpr int kSamples = 128;
    const int rp = structurePlane(reference), cp = structurePlane(capture);
    double n = 0, sr = 0, sc = 0, srr = 0, scc = 0, src = 0;
    for (int j = 0; j < kSamples; ++j) {
        const int cy = int((j + 0.5) * capture.height / kSamples);
        const long ry = std::lround(y.inverse(cy));
        if (ry < 0 || ry >= reference.height) continue;
        for (int i = 0; i < kSamples; ++i) {
            const int cx = int((i + 0.5) * capture.width / kSamples);
            const long rx = std::lround(x.inverse(cx));
            if (rx < 0 || rx >= reference.width) continue;
            const double r = reference.at(rp, int(rx), int(ry)), c = capture.at(cp, cx, cy);
            n += 1;
            sr += r;
            sc += c;
            srr += r * r;
            scc += c * c;
            src += r * c;
        }
    }
    if (n < 16) return -1;
    const double vr = srr - sr * sr / n, vc = scc - sc * sc / n;
    return vr > 0 && vc > 0 ? (src - sr * sc / n) / std::sqrt(vr * vc) : -1;
}

}  // namespace

int structurePlane(const Picture& picture) { return picture.components == Components::YCbCr ? 0 : 1; }

GeometryFit fitGeometry(const Picture& reference, const Picture& capture) {
    // The columns are transposed on a second thread while the rows are searched.
    const int structure = structurePlane(capture);
    auto columns = std::async(std::launch::async, [&] {
        return std::make_pair(transposed(reference, 0, 2), transposed(capture, structure, structure));
    });
    std::vector<Candidate> candidates[2];
    candidates[0] = coarseSearch(gradientProfile({reference}), gradientProfile({capture}),
                                 double(capture.width) / double(reference.width));
    const auto [referenceColumns, captureColumns] = columns.get();
    candidates[1] = coarseSearch(gradientProfile({referenceColumns}), gradientProfile({captureColumns}),
                                 double(capture.height) / double(reference.height));
    const AxisView cap[2] = {{capture}, {captureColumns}};
    ReferenceAxis ref[2] = {ReferenceAxis({reference}), ReferenceAxis({referenceColumns})};
    // The pairings of the axes' candidates are fitted roughly, best first, until one is plainly the card;
    // the one most like the card is fitted well.
    Placement best;
    for (const Candidate& cx : candidates[0])
        for (const Candidate& cy : candidates[1]) {
            if (best.similarity >= kPlainlyTheCard && best.agreement() >= kLeastAgreement) break;
            Placement p;
            p.x = mapOf(cx, capture.width);
            p.y = mapOf(cy, capture.height);
            refine(ref, cap, p, 3.0, kRoughLines);
            p.similarity = similarity(reference, capture, p.x, p.y);
            if (p.similarity > best.similarity) best = p;
        }
    for (const double uncertainty : {2.0, 1.0, 0.5}) refine(ref, cap, best, uncertainty, 0);
    if (best.fitX.inliers < kFewestFeatures / 2 || best.fitY.inliers < kFewestFeatures / 2 ||
        best.agreement() < kLeastAgreement)
        throw NoCardFound();
    GeometryFit fit;
    fit.geometry = {best.x.scale, best.y.scale, best.x.offset, best.y.offset};
    fit.features = best.inliers();
    fit.agreement = best.agreement();
    fit.similarity = similarity(reference, capture, best.x, best.y);
    fit.residual = std::sqrt((best.fitX.residual * best.fitX.residual * best.fitX.inliers +
                              best.fitY.residual * best.fitY.residual * best.fitY.inliers) /
                             std::max(1, best.inliers()));
    return fit;
}

}  // namespace pm5544::analysis
