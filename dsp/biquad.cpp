#include "dsp/biquad.h"

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

}  // namespace

template <typename Sample, typename Real>
Biquad<Sample, Real>::Biquad() {
    SetCoeffs(0, 1.0, 0.0, 0.0, 1.0, 0.0, 0.0);
}

template <typename Sample, typename Real>
void Biquad<Sample, Real>::Reset() {
    x1 = x2 = y1 = y2 = 0;
    b0 = b1 = b2 = fb1 = fb2 = 0;
    db0 = db1 = db2 = dfb1 = dfb2 = 0;
    rampRemaining = 0;
}

template <typename Sample, typename Real>
void Biquad<Sample, Real>::SetCoeffs(int rampLength, double newA0, double newA1, double newA2,
                                     double newB0, double newB1, double newB2) {
    const double target0 = newB0 / newA0;
    const double target1 = newB1 / newA0;
    const double target2 = newB2 / newA0;
    const double targetFb1 = -(newA1 / newA0);
    const double targetFb2 = -(newA2 / newA0);
    x1 = x2 = y1 = y2 = 0;
    if (rampLength <= 0) {
        b0 = static_cast<Real>(target0);
        b1 = static_cast<Real>(target1);
        b2 = static_cast<Real>(target2);
        fb1 = static_cast<Real>(targetFb1);
        fb2 = static_cast<Real>(targetFb2);
    } else {
        const auto increment = [rampLength](double target, Real present) {
            return static_cast<Real>((target - static_cast<double>(present)) /
                                     static_cast<double>(rampLength));
        };
        db0 = increment(target0, b0);
        db1 = increment(target1, b1);
        db2 = increment(target2, b2);
        dfb1 = increment(targetFb1, fb1);
        dfb2 = increment(targetFb2, fb2);
    }
    rampRemaining = rampLength > 0 ? rampLength : 0;
}

template <typename Sample, typename Real>
void Biquad<Sample, Real>::SetLowPassParameter(int rampLength, float frequency, float samplingRate,
                                               float q) {
    const auto [s, c] = CornerAngle(frequency, samplingRate);
    const double quality = q;
    const double alpha = s / (quality + quality);
    SetCoeffs(rampLength, 1 + alpha, -2 * c, 1 - alpha, (1 - c) * 0.5, 1 - c, (1 - c) * 0.5);
}

template <typename Sample, typename Real>
void Biquad<Sample, Real>::SetBandPassParameter(int rampLength, float frequency, float samplingRate,
                                                float q) {
    const auto [s, c] = CornerAngle(frequency, samplingRate);
    const double quality = q;
    const double alpha = s / (quality + quality);
    SetCoeffs(rampLength, 1 + alpha, -2 * c, 1 - alpha, 0.5 * s, 0.0, -0.5 * s);
}

template <typename Sample, typename Real>
void Biquad<Sample, Real>::SetHighPassParameter(int rampLength, float frequency, float samplingRate,
                                                float shelfGainDb, float shelfSlope,
                                                float outputGainDb) {
    const auto [s, c] = CornerAngle(frequency, samplingRate);
    const double A = std::pow(10.0, static_cast<double>(shelfGainDb) / 40);
    const double slope = shelfSlope;
    const double alpha = 0.5 * s * std::sqrt((1 / A + A) * (1 / slope - 1) + 2);
    const double G = std::pow(10.0, static_cast<double>(outputGainDb) / 20);
    const double root = 2 * std::sqrt(A) * alpha;
    SetCoeffs(rampLength,                                 //
              (A + 1) - (A - 1) * c + root,               // a0
              2 * ((A - 1) - (A + 1) * c),                // a1
              (A + 1) - (A - 1) * c - root,               // a2
              (G * A) * ((A + 1) + (A - 1) * c + root),   // b0
              (G * (-2 * A)) * ((A - 1) + (A + 1) * c),   // b1
              (G * A) * ((A + 1) + (A - 1) * c - root));  // b2
}

template <typename Sample, typename Real>
Sample Biquad<Sample, Real>::ProcessSample(Sample sample) {
    const Real x = sample;
    const Real y = b0 * x + b1 * x1 + b2 * x2 + fb1 * y1 + fb2 * y2;
    x2 = x1;
    x1 = x;
    y2 = y1;
    y1 = y;
    if (rampRemaining != 0) {
        --rampRemaining;
        b0 += db0;
        b1 += db1;
        b2 += db2;
        fb1 += dfb1;
        fb2 += dfb2;
    }
    return static_cast<Sample>(y);
}

template class Biquad<float, float>;
template class Biquad<float, double>;
template class Biquad<double, double>;
