// The analysis: exactness first, then where the card lies, how its colours were changed, and what the
// chain left in noise, depth and clipping; the verdict and the findings in words from those.
#include "analysis/Analysis.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

#include "analysis/Geometry.h"
#include "analysis/Levels.h"
#include "analysis/Resample.h"
#include "colour/ColourSpace.h"

namespace pm5544::analysis {

namespace {

// Tolerances within which a capture is the card as sent.
constexpr double kScaleTolerance = 2e-4;
constexpr double kOffsetTolerance = 0.05;  // pixels
constexpr double kGainTolerance = 1e-3;
constexpr double kOffsetCodes = 0.25;  // codes at 10 bits
constexpr double kNoiseCodes = 0.5;    // codes at 10 bits
constexpr double kAsSentPsnr = 50;     // dB, the worst component
// Flat areas the colour fit needs, and the largest RMS error, as a share of the code range, with which
// the fitted chain may still be said to show the card.
constexpr int kFewestAreas = 6;
constexpr double kWorstCardResidual = 0.05;
// Below this PSNR over all three components, after the named operations, the capture is another picture
// (or a card of other settings) whatever its edges and colours have in common with the card.
constexpr double kLeastCardPsnr = 20;
// Capture samples compared for the PSNR, at most.
constexpr double kPsnrSampleBudget = 1.5e6;
// Samples a depth must leave unused in their low bits to count as not carried.
constexpr double kUnusedBitsShare = 0.98;

std::string format(const char* pattern, double a, double b = 0, double c = 0) {
    char text[160];
    std::snprintf(text, sizeof text, pattern, a, b, c);
    return text;
}

const char* componentName(Components components, int c) {
    static const char* const ycbcr[] = {"Y", "Cb", "Cr"};
    static const char* const rgb[] = {"R", "G", "B"};
    return components == Components::YCbCr ? ycbcr[c] : rgb[c];
}

double codeScale(int bits) { return std::ldexp(1.0, bits - 10); }

// Every sample of the capture is the card's, in the card's components at its depth.
bool bitExact(const Picture& ref, const Picture& cap, const Sent& sent, const DepthScale& depth, bool permuted) {
    if (cap.width != ref.width || cap.height != ref.height) return false;
    if ((cap.components == Components::YCbCr) != (sent.ycbcr && !permuted) && !permuted) return false;
    if (depth.factor != std::floor(depth.factor) && depth.factor > 1) return false;
    const int order[3] = {permuted ? 1 : 0, permuted ? 2 : 1, permuted ? 0 : 2};
    for (int c = 0; c < 3; ++c)
        for (int y = 0; y < ref.height; ++y)
            for (int x = 0; x < ref.width; ++x)
                if (depth(cap.at(order[c], x, y)) != ref.at(c, x, y)) return false;
    return true;
}

struct PsnrPair {
    std::array<std::optional<double>, 3> raw, explained;  // as captured; after undoing the named operations
    double fitted = 0;  // after undoing all of the fitted chain, over the three components together
};

// Whether the capture's pixels are the card's own pixels, shifted by whole pixels or mirrored, within
// the tolerances of the fit.
bool wholePixels(const Geometry& g) {
    auto whole = [](double v) { return std::fabs(v - std::round(v)) <= kOffsetTolerance; };
    return std::fabs(std::fabs(g.scaleX) - 1) <= kScaleTolerance && std::fabs(std::fabs(g.scaleY) - 1) <= kScaleTolerance &&
           whole(g.offsetX) && whole(g.offsetY);
}

// The whole-pixel placement nearest a fitted one.
Geometry wholeOf(const Geometry& g) {
    return {g.scaleX < 0 ? -1.0 : 1.0, g.scaleY < 0 ? -1.0 : 1.0, std::round(g.offsetX), std::round(g.offsetY)};
}

PsnrPair measurePsnr(const Picture& ref, const Picture& cap, const Geometry& g, const ColourModel& model,
                     const DepthScale& depth, const int (&order)[3], int bits) {
    const double pixels = double(cap.width) * double(cap.height);
    const int step = std::max(1, int(std::ceil(std::sqrt(pixels / kPsnrSampleBudget))));
    double raw[3] = {0, 0, 0}, explained[3] = {0, 0, 0}, fitted = 0, count = 0;
    ColourModel named = model;
    named.gain = {1, 1, 1};
    named.offset = {0, 0, 0};
    const bool direct = wholePixels(g);
    // Where the chain kept the card's pixels, it is compared pixel for pixel.
    const Geometry whole = wholeOf(g);
    std::optional<ReferenceResampler> resampler;
    if (!direct) resampler.emplace(ref, g, cap.width, cap.height);
    for (int cy = 0; cy < cap.height; cy += step) {
        const std::vector<Triple>* row = direct ? nullptr : &resampler->row(cy);
        const long ry = std::lround((cy - whole.offsetY) / whole.scaleY);
        if (direct && (ry < 0 || ry >= ref.height)) continue;
        for (int cx = 0; cx < cap.width; cx += step) {
            Triple sent{};
            if (direct) {
                const long rx = std::lround((cx - whole.offsetX) / whole.scaleX);
                if (rx < 0 || rx >= ref.width) continue;
                for (size_t c = 0; c < 3; ++c) sent[c] = ref.at(int(c), int(rx), int(ry));
            } else {
                sent = (*row)[size_t(cx)];
                if (std::isnan(sent[0])) continue;
            }
            const Triple predicted = named.apply(sent), all = model.apply(sent);
            for (size_t c = 0; c < 3; ++c) {
                const double v = depth(cap.at(order[c], cx, cy));
                raw[c] += (v - sent[c]) * (v - sent[c]);
                explained[c] += (v - predicted[c]) * (v - predicted[c]);
                fitted += (v - all[c]) * (v - all[c]);
            }
            count += 1;
        }
    }
    PsnrPair p;
    const double peak = double((1 << bits) - 1);
    auto psnr = [&](double sse) -> std::optional<double> {
        if (count == 0 || sse <= 1e-9 * count) return std::nullopt;  // equal but for rounding
        return 10 * std::log10(peak * peak * count / sse);
    };
    for (size_t c = 0; c < 3; ++c) {
        p.raw[c] = psnr(raw[c]);
        p.explained[c] = psnr(explained[c]);
    }
    p.fitted = psnr(fitted / 3).value_or(1e9);
    return p;
}

// The bits of the sent depth the capture carries: low bits that are always zero, or always repeat the
// top bits (as a depth is widened by bit replication), carry nothing.
int effectiveBits(const Picture& cap, int sentBits) {
    const std::vector<uint16_t>& plane = cap.planes[0];
    const size_t step = std::max<size_t>(1, plane.size() / 400000);
    int unused = 0;
    for (int k = 1; k < cap.bits; ++k) {
        const uint16_t mask = uint16_t((1u << k) - 1);
        size_t zero = 0, repeated = 0, n = 0;
        for (size_t i = 0; i < plane.size(); i += step, ++n) {
            const uint16_t low = plane[i] & mask;
            zero += low == 0;
            repeated += low == (plane[i] >> (cap.bits - k));
        }
        if (double(std::max(zero, repeated)) < kUnusedBitsShare * double(n)) break;
        unused = k;
    }
    return std::min(sentBits, cap.bits - unused);
}

const char* aspectName(double ratio) {
    static const struct {
        double value;
        const char* name;
    } named[] = {{4.0 / 3, "4:3"}, {16.0 / 9, "16:9"}, {14.0 / 9, "14:9"}, {5.0 / 4, "5:4"},
                 {3.0 / 2, "3:2"}, {1.85, "1.85:1"}, {2.39, "2.39:1"},    {1.0, "1:1"}};
    for (const auto& n : named)
        if (std::fabs(ratio / n.value - 1) < 0.01) return n.name;
    return nullptr;
}

std::string ratioText(double ratio) {
    const char* name = aspectName(ratio);
    return name ? name : format("%.3f:1", ratio);
}

// The placement is the sent one within the tolerances, widened where the edges themselves are uncertain
// (a codec's ringing), so that such a capture is not said to be shifted.
bool identity(const Geometry& g, double edgeResidual) {
    const double offsets = std::max(kOffsetTolerance, 0.25 * edgeResidual);
    return std::fabs(g.scaleX - 1) <= kScaleTolerance && std::fabs(g.scaleY - 1) <= kScaleTolerance &&
           std::fabs(g.offsetX) <= offsets && std::fabs(g.offsetY) <= offsets;
}

void describeGeometry(const Geometry& g, double edgeResidual, const Picture& ref, const Picture& cap,
                      std::vector<Finding>& findings) {
    if (identity(g, edgeResidual)) return;
    if (g.scaleX < 0) findings.push_back({"geometry", "mirrored left to right"});
    if (g.scaleY < 0) findings.push_back({"geometry", "upside down"});
    const double sx = std::fabs(g.scaleX), sy = std::fabs(g.scaleY);
    const double shownWidth = sx * ref.width, shownHeight = sy * ref.height;
    const double left = std::min(g.offsetX - 0.5 * g.scaleX, g.offsetX + (ref.width - 0.5) * g.scaleX) + 0.5;
    const double top = std::min(g.offsetY - 0.5 * g.scaleY, g.offsetY + (ref.height - 0.5) * g.scaleY) + 0.5;
    const double right = cap.width - (left + shownWidth), bottom = cap.height - (top + shownHeight);
    if (std::fabs(sx - 1) <= kScaleTolerance && std::fabs(sy - 1) <= kScaleTolerance) {
        if (std::fabs(left) > kOffsetTolerance || std::fabs(top) > kOffsetTolerance)
            findings.push_back({"geometry", format("shifted %.2f px right and %.2f px down", left, top)});
    } else {
        findings.push_back({"geometry", format("scaled %.0fx%.0f to %.1fx", ref.width, ref.height, shownWidth) +
                                            format("%.1f", shownHeight)});
        if (std::fabs(sx / sy - 1) > 0.005) findings.push_back({"geometry", format("aspect changed: pixels %.4f times as wide", sx / sy)});
    }
    const double within = 0.5;
    const std::string shown = ratioText(shownWidth / shownHeight), frame = ratioText(double(cap.width) / cap.height);
    if (left > within && right > within && std::fabs(top) <= within && std::fabs(bottom) <= within)
        findings.push_back({"geometry", "pillarboxed " + shown + " in " + frame +
                                            (std::fabs(left - right) < 1 ? format(", %.0f px bars", left)
                                                                          : format(", bars of %.0f and %.0f px", left, right))});
    else if (top > within && bottom > within && std::fabs(left) <= within && std::fabs(right) <= within)
        findings.push_back({"geometry", "letterboxed " + shown + " in " + frame +
                                            (std::fabs(top - bottom) < 1 ? format(", %.0f px bars", top)
                                                                          : format(", bars of %.0f and %.0f px", top, bottom))});
    else if (left < -within || right < -within || top < -within || bottom < -within)
        findings.push_back({"geometry", format("cropped: %.1f px of the card cut at the left, %.1f at the right, ",
                                               std::max(0.0, -left / sx), std::max(0.0, -right / sx)) +
                                            format("%.1f at the top and %.1f at the bottom", std::max(0.0, -top / sy),
                                                   std::max(0.0, -bottom / sy))});
}

std::string matrixName(const std::string& m) { return m == "rgb" ? std::string("R'G'B'") : "BT." + m; }

// The components the capture holds once the named operations are undone: the sent ones, or the other
// kind where the chain changed it.
Components capturedComponents(const Report& r) {
    if (r.matrix && r.matrix->to == "rgb") return Components::RGB;
    if (r.matrix && r.matrix->from == "rgb") return Components::YCbCr;
    return r.components;
}

// A leftover offset where the component's line is pinned: Cb and Cr at their neutral code, where an
// offset is a cast on the greys and a gain moves nothing; Y' and R'G'B' at code 0.
double pinnedOffset(const Report& r, int c, int bits) {
    const double pin = capturedComponents(r) == Components::YCbCr && c > 0 ? Levels::chromaZero(bits) : 0;
    return r.offset[size_t(c)] + (r.gain[size_t(c)] - 1) * pin;
}

// A leftover gain and offset in words: colour differences by their offset at the neutral code.
std::string levelsText(const Report& r, int c, int bits) {
    const double gain = r.gain[size_t(c)];
    if (capturedComponents(r) == Components::YCbCr && c > 0)
        return format(" gain %.4f, offset %+.2f codes at %.0f", gain, pinnedOffset(r, c, bits), Levels::chromaZero(bits));
    return format(" gain %.4f, offset %+.2f codes", gain, r.offset[size_t(c)]);
}

void describeColour(const Report& r, const Sent& sent, std::vector<Finding>& findings) {
    if (r.range == RangeChange::Expanded) findings.push_back({"range", "studio range stretched to full (expanded)"});
    if (r.range == RangeChange::Compressed) findings.push_back({"range", "full range squeezed into studio range (compressed)"});
    if (r.matrix) {
        const MatrixChange& m = *r.matrix;
        std::string text = m.to == "rgb"    ? "a Y'CbCr card taken to R'G'B' with " + matrixName(m.from)
                           : m.from == "rgb" ? "an R'G'B' card taken to Y'CbCr with " + matrixName(m.to)
                                             : "encoded with " + matrixName(m.from) + ", decoded with " + matrixName(m.to);
        findings.push_back({"matrix", text});
    }
    if (r.swap == Swap::CbCr) findings.push_back({"swap", "Cb and Cr exchanged"});
    if (r.swap == Swap::RB) findings.push_back({"swap", "R' and B' exchanged"});
    const Components shown = capturedComponents(r);
    // A shallower link rounds every level: the tolerances grow with its step.
    const double step = std::ldexp(1.0, sent.bits - r.bitDepth);
    for (int c = 0; c < 3; ++c)
        if (std::fabs(r.gain[size_t(c)] - 1) > kGainTolerance * step ||
            std::fabs(pinnedOffset(r, c, sent.bits)) > std::max(kOffsetCodes * codeScale(sent.bits), 0.25 * step))
            findings.push_back({"levels", componentName(shown, c) + levelsText(r, c, sent.bits)});
}

bool namesNothing(const Report& r) { return r.range == RangeChange::AsSent && !r.matrix && r.swap == Swap::None; }

}  // namespace

Report analyse(const Picture& reference, const Sent& sent, const Picture& capture) {
    Report report;
    report.components = sent.ycbcr ? Components::YCbCr : Components::RGB;
    report.sentMatrix = sent.matrix;
    report.bitDepth = sent.bits;
    const DepthScale depth = depthScale(capture, sent);
    const bool ownFile = sent.ycbcr && capture.components == Components::RGB;  // may hold Cr, Y', Cb
    for (const bool permuted : {false, true}) {
        if (permuted && !ownFile) break;
        if (bitExact(reference, capture, sent, depth, permuted)) {
            report.verdict = Verdict::BitExact;
            report.captureComponentsPermuted = permuted;
            for (size_t i = 0; i < 3; ++i) report.colour[i][i] = 1;
            return report;
        }
    }
    const GeometryFit placed = fitGeometry(reference, capture);
    report.geometry = placed.geometry;

    // The capture's components as R'G'B' or, for an R'G'B' file of a Y'CbCr card, perhaps the program's
    // own Cr, Y', Cb: whichever the card's colours explain better.
    std::vector<FlatArea> areas = gatherFlatAreas(reference, capture, report.geometry, depth, false);
    const double ceiling = depth((1 << capture.bits) - 1);
    ColourModel model = nameColourChain(areas, sent, capture.components == Components::YCbCr, ceiling);
    if (ownFile) {
        std::vector<FlatArea> own = gatherFlatAreas(reference, capture, report.geometry, depth, true);
        ColourModel ownModel = nameColourChain(own, sent, true, ceiling);
        if (ownModel.residual < model.residual) {
            areas = std::move(own);
            model = ownModel;
            report.captureComponentsPermuted = true;
        }
    }
    const double range = double((1 << sent.bits) - 1);
    if (int(areas.size()) < kFewestAreas || model.residual > kWorstCardResidual * range) throw NoCardFound();
    report.range = model.range;
    report.matrix = model.matrix;
    report.swap = model.swap;
    report.gain = model.gain;
    report.offset = model.offset;
    report.captureScale = depth.factor;
    report.colour = model.chain;
    for (size_t i = 0; i < 3; ++i)
        for (size_t j = 0; j < 4; ++j) report.colour[i][j] *= model.gain[i];
    for (size_t i = 0; i < 3; ++i) report.colour[i][3] += model.offset[i];

    const bool permuted = report.captureComponentsPermuted;
    const int order[3] = {permuted ? 1 : 0, permuted ? 2 : 1, permuted ? 0 : 2};
    const PsnrPair psnr = measurePsnr(reference, capture, report.geometry, model, depth, order, sent.bits);
    report.psnrRaw = psnr.raw;
    report.psnrExplained = psnr.explained;
    if (psnr.fitted < kLeastCardPsnr) throw NoCardFound();
    for (size_t c = 0; c < 3; ++c) {
        std::vector<double> sigmas;
        for (const FlatArea& a : areas) sigmas.push_back(a.sigma[c]);
        std::nth_element(sigmas.begin(), sigmas.begin() + long(sigmas.size() / 2), sigmas.end());
        report.noise[c] = sigmas[sigmas.size() / 2];
    }
    report.bitDepth = effectiveBits(capture, sent.bits);
    double clipped = 0, total = 0;
    for (const FlatArea& a : areas) {
        const Triple p = model.apply(a.sent);
        bool clip = false;
        for (size_t c = 0; c < 3; ++c)
            clip = clip || (p[c] < -1 && a.captured[c] <= 0.5) || (p[c] > range + 1 && a.captured[c] >= range - 0.5);
        clipped += clip ? a.samples : 0;
        total += a.samples;
    }
    report.clipped = total > 0 ? clipped / total : 0;

    describeGeometry(report.geometry, placed.residual, reference, capture, report.findings);
    describeColour(report, sent, report.findings);
    const double noiseLimit = kNoiseCodes * codeScale(sent.bits);
    if (*std::max_element(report.noise.begin(), report.noise.end()) > noiseLimit)
        report.findings.push_back({"noise", format("noise sigma %.2f, %.2f, %.2f codes", report.noise[0], report.noise[1], report.noise[2])});
    if (report.bitDepth < sent.bits)
        report.findings.push_back({"bit-depth", format("%.0f-bit link: the capture carries %.0f of the card's %.0f bits",
                                                       report.bitDepth, report.bitDepth, sent.bits)});
    if (report.clipped > 0)
        report.findings.push_back({"clipping", format("%.1f %% of the card's flat areas clipped", 100 * report.clipped)});

    double worst = 1e9;
    for (const auto& p : report.psnrExplained) worst = std::min(worst, p.value_or(1e9));
    const bool levelsKept = report.findings.end() == std::find_if(report.findings.begin(), report.findings.end(),
                                                                  [](const Finding& f) { return f.kind == "levels"; });
    const bool asSent = identity(report.geometry, placed.residual) && namesNothing(report) && levelsKept &&
                        report.bitDepth == sent.bits && report.clipped == 0 &&
                        *std::max_element(report.noise.begin(), report.noise.end()) <= noiseLimit && worst >= kAsSentPsnr;
    report.verdict = asSent ? Verdict::AsSent : Verdict::Changed;
    if (worst < 1e9) report.findings.push_back({"quality", format("PSNR after the named operations %.1f dB (worst component)", worst)});
    return report;
}

CapturePrediction::CapturePrediction(const Report& report, const Picture& reference, int width, int height)
    : report_(report), reference_(reference), row_(size_t(width)) {
    if (!wholePixels(report.geometry))
        resampler_ = std::make_unique<ReferenceResampler>(reference, report.geometry, width, height);
}

CapturePrediction::~CapturePrediction() = default;

const std::vector<Triple>& CapturePrediction::row(int y) {
    if (resampler_) {
        row_ = resampler_->row(y);
    } else {
        const Geometry w = wholeOf(report_.geometry);
        const long ry = std::lround((y - w.offsetY) / w.scaleY);
        for (size_t x = 0; x < row_.size(); ++x) {
            const long rx = std::lround((double(x) - w.offsetX) / w.scaleX);
            const bool inside = ry >= 0 && ry < reference_.height && rx >= 0 && rx < reference_.width;
            for (size_t c = 0; c < 3; ++c) row_[x][c] = inside ? reference_.at(int(c), int(rx), int(ry)) : NAN;
        }
    }
    for (Triple& t : row_) {
        if (std::isnan(t[0])) continue;
        Triple out{};
        for (size_t i = 0; i < 3; ++i) {
            out[i] = report_.colour[i][3];
            for (size_t j = 0; j < 3; ++j) out[i] += report_.colour[i][j] * t[j];
        }
        t = out;
    }
    return row_;
}

}  // namespace pm5544::analysis
