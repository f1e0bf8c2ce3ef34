// One second-order recursive filter section for one channel, floating point, direct form I:
//
//   H(z) = (b0 + b1 z^-1 + b2 z^-2) / (a0 + a1 z^-1 + a2 z^-2)
//   y[n] = b0 x[n] + b1 x[n-1] + b2 x[n-2] + fb1 y[n-1] + fb2 y[n-2]
//
// with everything divided by a0 on entry and the feedback coefficients held negated. Designs are
// those of the Audio EQ Cookbook (R. Bristow-Johnson): low-pass, band-pass with constant skirt gain
// (peak gain q), high shelf.
//
// Delay: none. Allocates: never. Thread: no lock of its own; the owner serialises all calls.
#pragma once
#include <cstdint>

#include "dsp/biquad_section.h"
#include "platform/export.h"

// Sample: type of ProcessSample's argument and result. Real: type of coefficients, history and
// arithmetic.
template <typename Sample, typename Real>
class ORVANE_API Biquad {
public:
    // A pass-through.
    Biquad();

    // Everything to zero, coefficients included: silence until coefficients are set again.
    void Reset();

    // Forgets the samples; keeps the coefficients and a ramp that is running.
    void ClearHistory();

    // Coefficients as in H(z), a0 not 0. Clears the history. rampLength 0 (or below) sets them at
    // once; otherwise they move in a straight line to the new ones over that many samples
    // (positive), the next output still using the present ones.
    void SetCoeffs(int rampLength, double a0, double a1, double a2, double b0, double b1,
                   double b2);

    // frequency and samplingRate in Hz, 0 < frequency < samplingRate / 2; q > 0.
    void SetLowPassParameter(int rampLength, float frequency, float samplingRate, float q);
    void SetBandPassParameter(int rampLength, float frequency, float samplingRate, float q);
    // A high shelf in spite of the name: outputGainDb at 0 Hz, outputGainDb + shelfGainDb at half
    // the sampling rate, the transition around `frequency`. shelfSlope > 0; 1 is the steepest
    // without overshoot.
    void SetHighPassParameter(int rampLength, float frequency, float samplingRate,
                              float shelfGainDb, float shelfSlope, float outputGainDb);

    Sample ProcessSample(Sample sample);
    // In place, `count` samples of the channel.
    void Process(Sample* samples, uint32_t count);

    // Process as a run of runs.h, for a filter that never had a ramp, and its end.
    ORVANE_LOCAL BiquadRun<Real> Begin(Real* samples) const {
        return {samples, coefficients, history};
    }
    ORVANE_LOCAL void Finish(const BiquadRun<Real>& run) { history = run.history; }

private:
    friend class UnpackedBiquad;  // takes coefficients and history, hands the history back

    BiquadCoefficients<Real> coefficients;
    BiquadCoefficients<Real> increments;  // a sample, while a ramp is running
    BiquadHistory<Real> history;
    int32_t rampRemaining = 0;  // samples
};

extern template class Biquad<float, float>;
extern template class Biquad<float, double>;
extern template class Biquad<double, double>;
using Biquad_R32R32 = Biquad<float, float>;
using Biquad_R32R64 = Biquad<float, double>;
using Biquad_R64R64 = Biquad<double, double>;
