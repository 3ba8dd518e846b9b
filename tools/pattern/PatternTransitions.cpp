// Band-limited transitions: raised-cosine ramp coefficients sampled at the pixel clock.
#include <cmath>
#include <cstdint>

#include "pattern/PatternWrapper.h"

namespace {

namespace RaisedCosine {
constexpr double pi = 3.141592653589793;
// 2 asin(0.6): scales a 20%-80% rise time to the duration of the whole ramp.
constexpr double riseTimeToDuration = 1.2870022175865685;
}  // namespace RaisedCosine

// Sample rates (Hz) implied by the picture height, for frequency-to-pixel conversion.
namespace SampleRate {
constexpr double standardDefinition = 13500000.0;
constexpr double highDefinition = 74250000.0;
constexpr double ultraHighDefinition = 148500000.0;
constexpr int standardDefinitionMaxLines = 599;
constexpr int highDefinitionMaxLines = 1089;
}  // namespace SampleRate

// f(t) = (1 - cos(pi t / T)) / 2: the ramp's level at time t of a ramp lasting T.
double rampLevel(double t, double duration) { return (1.0 - std::cos(t * RaisedCosine::pi / duration)) / 2.0; }

}  // namespace

void PatternSpec::noRiseTime() { riseTimeEnabled = false; }

double PatternSpec::freqToPixels(double frequencyHz) const {
    if (height <= SampleRate::standardDefinitionMaxLines) return SampleRate::standardDefinition / frequencyHz;
    if (height <= SampleRate::highDefinitionMaxLines) return SampleRate::highDefinition / frequencyHz;
    return SampleRate::ultraHighDefinition / frequencyHz;
}

// Fills coefficients with the rising ramp's samples, placed symmetrically about its centre one
// sample period apart; samples at or before the ramp's start are left out.
void PatternSpec::calculateTransition(std::deque<double>& coefficients, double riseTime, double clockMHz) const {
    const double duration = riseTime * RaisedCosine::pi / RaisedCosine::riseTimeToDuration;
    const double period = (1.0 / clockMHz) * 1000.0;
    const int32_t samples = static_cast<int32_t>(std::floor(duration / period));

    coefficients.clear();
    double t;
    if (samples % 2 != 0) {
        coefficients.push_back(rampLevel(duration / 2.0, duration));
        t = duration / 2.0 - period;
    } else {
        t = duration / 2.0 - period / 2.0;
    }
    while (t > 0) {
        const double v = rampLevel(t, duration);
        coefficients.push_front(v);
        coefficients.push_back(1.0 - v);
        t -= period;
    }
}

void PatternSpec::calculateTransition(double riseTime, double clockMHz) {
    if (riseTime == 0.0) {
        riseTimeEnabled = false;
        transitionLength = 0;
        return;
    }
    riseTimeEnabled = true;
    calculateTransition(lumaTransition, riseTime, clockMHz);
    transitionLength = static_cast<int>(lumaTransition.size());

    if (sampling == PatternGen::Sampling_444) {
        chromaTransition = lumaTransition;
        return;
    }
    // Subsampled chroma runs at half the luma clock; each chroma coefficient covers two pixels.
    std::deque<double> halfClock;
    calculateTransition(halfClock, riseTime, clockMHz * 0.5);
    chromaTransition.clear();
    for (double v : halfClock) {
        chromaTransition.push_back(v);
        chromaTransition.push_back(v);
    }
}
