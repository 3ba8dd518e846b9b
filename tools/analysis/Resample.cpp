// Separable cubic resampling of the reference into the capture's raster, row by row, keeping only the
// reference rows the kernel still needs.
#include "analysis/Resample.h"

#include <algorithm>

namespace pm5544::analysis {

namespace {

// The Catmull-Rom cubic: interpolating, and what bicubic scalers use.
double cubic(double x) {
    x = std::fabs(x);
    if (x < 1) return 1.5 * x * x * x - 2.5 * x * x + 1;
    if (x < 2) return -0.5 * x * x * x + 2.5 * x * x - 4 * x + 2;
    return 0;
}

}  // namespace

std::vector<ReferenceResampler::Taps> ReferenceResampler::kernels(int captureLength, int referenceLength, double scale,
                                                                  double offset) {
    const double stretch = std::max(1.0, 1.0 / std::fabs(scale));  // wider when scaled down
    const double reach = 2 * stretch;
    std::vector<Taps> taps{size_t(captureLength)};
    for (int i = 0; i < captureLength; ++i) {
        const double centre = (i - offset) / scale;
        Taps& t = taps[size_t(i)];
        if (centre < -0.5 || centre > referenceLength - 0.5) {
            t.first = -1;
            continue;
        }
        const int first = int(std::floor(centre - reach)) + 1, last = int(std::ceil(centre + reach)) - 1;
        t.first = std::max(0, first);
        double sum = 0;
        for (int k = first; k <= last; ++k) {
            const double w = cubic((k - centre) / stretch);
            const int clamped = std::clamp(k, 0, referenceLength - 1);
            // Samples beyond the card's edge repeat its edge.
            if (clamped - t.first >= int(t.weights.size())) t.weights.resize(size_t(clamped - t.first + 1), 0.0f);
            t.weights[size_t(clamped - t.first)] += float(w);
            sum += w;
        }
        for (float& w : t.weights) w = float(w / sum);
    }
    return taps;
}

ReferenceResampler::ReferenceResampler(const Picture& reference, const Geometry& g, int captureWidth, int captureHeight)
    : ref_(reference),
      columns_(kernels(captureWidth, reference.width, g.scaleX, g.offsetX)),
      rows_(kernels(captureHeight, reference.height, g.scaleY, g.offsetY)),
      filtered_(size_t(reference.height)),
      ready_(size_t(reference.height), 0),
      out_(size_t(captureWidth)) {}

const std::vector<float>& ReferenceResampler::horizontal(int referenceRow) {
    std::vector<float>& row = filtered_[size_t(referenceRow)];
    if (!ready_[size_t(referenceRow)]) {
        row.assign(columns_.size() * 3, 0.0f);
        for (size_t x = 0; x < columns_.size(); ++x) {
            const Taps& t = columns_[x];
            if (t.first < 0) continue;
            for (int c = 0; c < 3; ++c) {
                float sum = 0;
                for (size_t k = 0; k < t.weights.size(); ++k)
                    sum += t.weights[k] * float(ref_.at(c, t.first + int(k), referenceRow));
                row[x * 3 + size_t(c)] = sum;
            }
        }
        ready_[size_t(referenceRow)] = 1;
        live_.push_back(referenceRow);
    }
    return row;
}

const std::vector<Triple>& ReferenceResampler::row(int y) {
    const Taps& t = rows_[size_t(y)];
    if (t.first < 0) {
        std::fill(out_.begin(), out_.end(), Triple{NAN, NAN, NAN});
        return out_;
    }
    // Capture rows come in order, so reference rows out of this one's reach are not needed again.
    const int last = t.first + int(t.weights.size()) - 1;
    live_.erase(std::remove_if(live_.begin(), live_.end(),
                               [&](int r) {
                                   if (r >= t.first && r <= last) return false;
                                   std::vector<float>().swap(filtered_[size_t(r)]);
                                   ready_[size_t(r)] = 0;
                                   return true;
                               }),
                live_.end());
    std::fill(out_.begin(), out_.end(), Triple{0, 0, 0});
    for (size_t k = 0; k < t.weights.size(); ++k) {
        const std::vector<float>& across = horizontal(t.first + int(k));
        const double w = t.weights[k];
        for (size_t x = 0; x < out_.size(); ++x)
            for (size_t c = 0; c < 3; ++c) out_[x][c] += w * across[x * 3 + c];
    }
    for (size_t x = 0; x < out_.size(); ++x)
        if (columns_[x].first < 0) out_[x] = {NAN, NAN, NAN};
    return out_;
}

}  // namespace pm5544::analysis
