#include "dsp/biquad.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kTwoPi = 6.283185307179586;

struct Angle {
    double sine, cosine;
};

Angle CornerAngle(float frequency, float samplingRate) {
    const double w0 = static_cast<double>(frequency) * kTwoPi / static_cast<double>(samplingRate);
    return {std::sin(w0), std::cos(w0)};
}

// The coefficients in the form that SetCoeffs takes.
struct Design {
    double a0, a1, a2, b0, b1, b2;
};

// The designs are functions outside the template, because they are the same for every type.
Design LowPass(float frequency, float samplingRate, float q) {
    const auto [s, c] = CornerAngle(frequency, samplingRate);
    const double quality = q;
    const double alpha = s / (quality + quality);
    return {1 + alpha, -2 * c, 1 - alpha, (1 - c) * 0.5, 1 - c, (1 - c) * 0.5};
}

Design BandPass(float frequency, float samplingRate, float q) {
    const auto [s, c] = CornerAngle(frequency, samplingRate);
    const double quality = q;
    const double alpha = s / (quality + quality);
    return {1 + alpha, -2 * c, 1 - alpha, 0.5 * s, 0.0, -0.5 * s};
}

Design HighShelf(float frequency, float samplingRate, float shelfGainDb, float shelfSlope,
                 float outputGainDb) {
    const auto [s, c] = CornerAngle(frequency, samplingRate);
    const double A = std::pow(10.0, static_cast<double>(shelfGainDb) / 40);
    const double slope = shelfSlope;
    const double alpha = 0.5 * s * std::sqrt((1 / A + A) * (1 / slope - 1) + 2);
    const double G = std::pow(10.0, static_cast<double>(outputGainDb) / 20);
    const double root = 2 * std::sqrt(A) * alpha;
    return {.a0 = (A + 1) - (A - 1) * c + root,
            .a1 = 2 * ((A - 1) - (A + 1) * c),
            .a2 = (A + 1) - (A - 1) * c - root,
            .b0 = (G * A) * ((A + 1) + (A - 1) * c + root),
            .b1 = (G * (-2 * A)) * ((A - 1) + (A + 1) * c),
            .b2 = (G * A) * ((A + 1) + (A - 1) * c - root)};
}

template <typename Filter>
void Set(Filter* filter, int rampLength, const Design& d) {
    filter->SetCoeffs(rampLength, d.a0, d.a1, d.a2, d.b0, d.b1, d.b2);
}

}  // namespace

template <typename Sample, typename Real>
Biquad<Sample, Real>::Biquad() {
    SetCoeffs(0, 1.0, 0.0, 0.0, 1.0, 0.0, 0.0);
}

template <typename Sample, typename Real>
void Biquad<Sample, Real>::Reset() {
    coefficients = {};
    rampRemaining = 0;
    ClearHistory();
}

template <typename Sample, typename Real>
void Biquad<Sample, Real>::ClearHistory() {
    history = {};
}

template <typename Sample, typename Real>
void Biquad<Sample, Real>::SetCoeffs(int rampLength, double a0, double a1, double a2, double b0,
                                     double b1, double b2) {
    const BiquadCoefficients<double> target = {b0 / a0, b1 / a0, b2 / a0, -(a1 / a0), -(a2 / a0)};
    ClearHistory();
    rampRemaining = std::max(rampLength, 0);
    if (rampRemaining == 0) {
        coefficients.ForEach([](Real& c, double to) { c = static_cast<Real>(to); }, target);
    } else {
        const double length = rampLength;
        increments.ForEach(
            [length](Real& increment, double to, Real from) {
                increment = static_cast<Real>((to - static_cast<double>(from)) / length);
            },
            target, coefficients);
    }
}

template <typename Sample, typename Real>
void Biquad<Sample, Real>::SetLowPassParameter(int rampLength, float frequency, float samplingRate,
                                               float q) {
    Set(this, rampLength, LowPass(frequency, samplingRate, q));
}

template <typename Sample, typename Real>
void Biquad<Sample, Real>::SetBandPassParameter(int rampLength, float frequency, float samplingRate,
                                                float q) {
    Set(this, rampLength, BandPass(frequency, samplingRate, q));
}

template <typename Sample, typename Real>
void Biquad<Sample, Real>::SetHighPassParameter(int rampLength, float frequency, float samplingRate,
                                                float shelfGainDb, float shelfSlope,
                                                float outputGainDb) {
    Set(this, rampLength,
        HighShelf(frequency, samplingRate, shelfGainDb, shelfSlope, outputGainDb));
}

template <typename Sample, typename Real>
Sample Biquad<Sample, Real>::ProcessSample(Sample sample) {
    const Real x = sample;
    const Real y = BiquadOutput(coefficients, history, x);
    history.Push(x, y);
    if (rampRemaining != 0) {
        --rampRemaining;
        coefficients.ForEach([](Real& c, Real increment) { c += increment; }, increments);
    }
    return static_cast<Sample>(y);
}

template <typename Sample, typename Real>
void Biquad<Sample, Real>::Process(Sample* samples, uint32_t count) {
    Biquad local = *this;  // a write to `samples` can't change a copy
    for (uint32_t i = 0; i < count; ++i) samples[i] = local.ProcessSample(samples[i]);
    *this = local;
}

template class Biquad<float, float>;
template class Biquad<float, double>;
template class Biquad<double, double>;
