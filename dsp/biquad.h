// One second-order recursive filter section for one channel, floating point, direct form I:
//
//   H(z) = (b0 + b1 z^-1 + b2 z^-2) / (a0 + a1 z^-1 + a2 z^-2)
//   y[n] = b0 x[n] + b1 x[n-1] + b2 x[n-2] + fb1 y[n-1] + fb2 y[n-2]
//
// All coefficients are divided by a0 on entry, and the feedback coefficients are stored negated:
// fb1 = -a1 / a0, fb2 = -a2 / a0. The designs are those of the Audio EQ Cookbook (R.
// Bristow-Johnson): low-pass, band-pass with constant skirt gain (peak gain q), high shelf.
//
// Delay: none. Allocates: never. Thread: no lock of its own; the owner serialises all calls.
#pragma once
#include <cstdint>

#include "dsp/biquad_section.h"
#include "platform/export.h"

// `Sample` is the type of ProcessSample's argument and result. `Real` is the type of coefficients,
// history and arithmetic.
template <typename Sample, typename Real>
class ORVANE_API Biquad {
public:
    // Makes a filter that passes its input through.
    Biquad();

    // Sets everything to zero, the coefficients too. The output is silence until they are set
    // again.
    void Reset();

    // Clears the history; keeps the coefficients and a running ramp.
    void ClearHistory();

    // Sets the coefficients of H(z); a0 must not be 0. Clears the history. With a rampLength of 0
    // or below they change at once. A positive rampLength moves them in a straight line over that
    // many samples; the next output still uses the present coefficients.
    void SetCoeffs(int rampLength, double a0, double a1, double a2, double b0, double b1,
                   double b2);

    // frequency and samplingRate in Hz, 0 < frequency < samplingRate / 2; q > 0.
    void SetLowPassParameter(int rampLength, float frequency, float samplingRate, float q);
    void SetBandPassParameter(int rampLength, float frequency, float samplingRate, float q);
    // Designs a high shelf in spite of the name. The gain is outputGainDb at 0 Hz and outputGainDb
    // + shelfGainDb at half the sampling rate, with the transition around `frequency`. shelfSlope >
    // 0; 1 is the steepest slope without overshoot.
    void SetHighPassParameter(int rampLength, float frequency, float samplingRate,
                              float shelfGainDb, float shelfSlope, float outputGainDb);

    Sample ProcessSample(Sample sample);
    // Filters `count` samples of the channel in place.
    void Process(Sample* samples, uint32_t count);

    // Process as a run (runs.h), for a filter that never had a ramp. Finish stores the history that
    // the run has reached.
    ORVANE_LOCAL BiquadRun<Real> Begin(Real* samples) const {
        return {samples, coefficients, history};
    }
    ORVANE_LOCAL void Finish(const BiquadRun<Real>& run) { history = run.history; }

private:
    friend class UnpackedBiquad;  // reads coefficients and history, writes the history back

    BiquadCoefficients<Real> coefficients;
    BiquadCoefficients<Real> increments;  // added for each sample of a running ramp
    BiquadHistory<Real> history;
    int32_t rampRemaining = 0;  // samples
};

extern template class Biquad<float, float>;
extern template class Biquad<float, double>;
extern template class Biquad<double, double>;
using Biquad_R32R32 = Biquad<float, float>;
using Biquad_R32R64 = Biquad<float, double>;
using Biquad_R64R64 = Biquad<double, double>;
