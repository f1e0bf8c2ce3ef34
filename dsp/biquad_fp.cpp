#include "dsp/biquad_fp.h"

#include <algorithm>
#include <cmath>

#include "dsp/fixed_point.h"

namespace {

constexpr float kTwoPi = 6.2831855F;

struct Angle {
    float sine, cosine;
};

Angle CornerAngle(float frequency, float samplingRate) {
    const float w0 = frequency * kTwoPi / samplingRate;
    return {sinf(w0), cosf(w0)};
}

}  // namespace

Biquad_FP::Biquad_FP() {
    SetCoeffs(0, 1.0F, 0.0F, 0.0F, 1.0F, 0.0F, 0.0F);
}

void Biquad_FP::Reset() {
    coefficients = {};
    rampRemaining = 0;
    ClearHistory();
}

void Biquad_FP::ClearHistory() {
    history = {};
}

void Biquad_FP::SetCoeffs(int rampLength, float a0, float a1, float a2, float b0, float b1,
                          float b2) {
    const auto quotient = [divisor = static_cast<double>(a0)](float c) {
        return ToQ24(static_cast<double>(c) / divisor);
    };
    const BiquadCoefficients<int32_t> target = {quotient(b0), quotient(b1), quotient(b2),
                                                WrapSub(0, quotient(a1)), WrapSub(0, quotient(a2))};
    ClearHistory();
    rampRemaining = std::max(rampLength, 0);
    if (rampRemaining == 0) {
        coefficients = target;
    } else {
        increments.ForEach(
            [rampLength](int32_t& increment, int32_t to, int32_t from) {
                increment = WrapSub(to, from) / rampLength;
            },
            target, coefficients);
    }
}

void Biquad_FP::SetLowPassParameter(int rampLength, float frequency, float samplingRate, float q) {
    const auto [s, c] = CornerAngle(frequency, samplingRate);
    const float alpha = s / (q + q);
    SetCoeffs(rampLength, alpha + 1, c * -2, 1 - alpha, (1 - c) * 0.5F, 1 - c, (1 - c) * 0.5F);
}

void Biquad_FP::SetBandPassParameter(int rampLength, float frequency, float samplingRate, float q) {
    const auto [s, c] = CornerAngle(frequency, samplingRate);
    const float alpha = s / (q + q);
    SetCoeffs(rampLength, alpha + 1, c * -2, 1 - alpha, s * 0.5F, 0.0F, -s * 0.5F);
}

void Biquad_FP::SetHighPassParameter(int rampLength, float frequency, float samplingRate,
                                     float shelfGainDb, float shelfSlope, float outputGainDb) {
    const auto [s, c] = CornerAngle(frequency, samplingRate);
    const float A = powf(10.0F, shelfGainDb / 40);
    const float alpha = s * 0.5F * sqrtf((1 / A + A) * (1 / shelfSlope - 1) + 2);
    const float G = powf(10.0F, outputGainDb / 20);
    const float root = 2 * sqrtf(A) * alpha;
    SetCoeffs(rampLength,                                 //
              (A + 1) - (A - 1) * c + root,               // a0
              2 * ((A - 1) - (A + 1) * c),                // a1
              (A + 1) - (A - 1) * c - root,               // a2
              (G * A) * ((A + 1) + (A - 1) * c + root),   // b0
              (G * (-2 * A)) * ((A - 1) + (A + 1) * c),   // b1
              (G * A) * ((A + 1) + (A - 1) * c - root));  // b2
}

int32_t Biquad_FP::ProcessSample(int32_t x) {
    int32_t y = MulQ24(coefficients.b0, x);
    y = WrapAdd(y, MulQ24(coefficients.b1, history.x1));
    y = WrapAdd(y, MulQ24(coefficients.b2, history.x2));
    y = WrapAdd(y, MulQ24(coefficients.fb1, history.y1));
    y = WrapAdd(y, MulQ24(coefficients.fb2, history.y2));
    history.Push(x, y);
    if (rampRemaining != 0) {
        --rampRemaining;
        coefficients.ForEach([](int32_t& c, int32_t increment) { c = WrapAdd(c, increment); },
                             increments);
    }
    return y;
}

void Biquad_FP::Process(int32_t* samples, uint32_t count) {
    Biquad_FP local = *this;  // a write to `samples` can't change a copy
    for (uint32_t i = 0; i < count; ++i) samples[i] = local.ProcessSample(samples[i]);
    *this = local;
}
