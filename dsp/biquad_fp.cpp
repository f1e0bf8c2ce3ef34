#include "dsp/biquad_fp.h"

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
    x1 = x2 = y1 = y2 = 0;
    b0 = b1 = b2 = fb1 = fb2 = 0;
    db0 = db1 = db2 = dfb1 = dfb2 = 0;
    rampRemaining = 0;
}

void Biquad_FP::SetCoeffs(int rampLength, float newA0, float newA1, float newA2, float newB0,
                          float newB1, float newB2) {
    const double a0 = newA0;
    const int32_t target0 = ToQ24(static_cast<double>(newB0) / a0);
    const int32_t target1 = ToQ24(static_cast<double>(newB1) / a0);
    const int32_t target2 = ToQ24(static_cast<double>(newB2) / a0);
    const int32_t targetFb1 = WrapSub(0, ToQ24(static_cast<double>(newA1) / a0));
    const int32_t targetFb2 = WrapSub(0, ToQ24(static_cast<double>(newA2) / a0));
    x1 = x2 = y1 = y2 = 0;
    if (rampLength <= 0) {
        b0 = target0;
        b1 = target1;
        b2 = target2;
        fb1 = targetFb1;
        fb2 = targetFb2;
    } else {
        const auto increment = [rampLength](int32_t target, int32_t present) {
            return WrapSub(target, present) / rampLength;
        };
        db0 = increment(target0, b0);
        db1 = increment(target1, b1);
        db2 = increment(target2, b2);
        dfb1 = increment(targetFb1, fb1);
        dfb2 = increment(targetFb2, fb2);
    }
    rampRemaining = rampLength > 0 ? rampLength : 0;
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
    int32_t y = MulQ24(b0, x);
    y = WrapAdd(y, MulQ24(b1, x1));
    y = WrapAdd(y, MulQ24(b2, x2));
    y = WrapAdd(y, MulQ24(fb1, y1));
    y = WrapAdd(y, MulQ24(fb2, y2));
    x2 = x1;
    x1 = x;
    y2 = y1;
    y1 = y;
    if (rampRemaining != 0) {
        --rampRemaining;
        b0 = WrapAdd(b0, db0);
        b1 = WrapAdd(b1, db1);
        b2 = WrapAdd(b2, db2);
        fb1 = WrapAdd(fb1, dfb1);
        fb2 = WrapAdd(fb2, dfb2);
    }
    return y;
}
