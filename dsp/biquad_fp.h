// One second-order recursive filter section for one channel in fixed point. It has the section, the
// designs and the ramp of Biquad, for processors without a floating-point unit.
//
// Coefficients are Q24. Samples are 32-bit integers in the caller's scale; nothing is scaled or
// limited, and sums wrap modulo 2^32. Only the designers and SetCoeffs use floating point (single
// precision).
//
// Delay: none. Allocates: never. Thread: no lock of its own; the owner serialises all calls.
#pragma once
#include <cstdint>

#include "dsp/biquad_section.h"
#include "platform/export.h"

class ORVANE_API Biquad_FP {
public:
    // Makes a filter that passes its input through.
    Biquad_FP();

    // Sets everything to zero, the coefficients too. The output is silence until they are set
    // again.
    void Reset();

    // Clears the history; keeps the coefficients and a running ramp.
    void ClearHistory();

    // Sets the coefficients of H(z) = (b0 + b1 z^-1 + b2 z^-2) / (a0 + a1 z^-1 + a2 z^-2); a0 must
    // not be 0. Each quotient by a0 is converted by ToQ24 (saturating at +-128); the feedback
    // coefficients are negated afterwards. Clears the history. With a rampLength of 0 or below they
    // change at once. A positive rampLength moves them over that many samples in integer steps,
    // truncated toward zero. So they end up to rampLength - 1 units short of the new values.
    void SetCoeffs(int rampLength, float a0, float a1, float a2, float b0, float b1, float b2);

    // frequency and samplingRate in Hz, 0 < frequency < samplingRate / 2; q > 0.
    void SetLowPassParameter(int rampLength, float frequency, float samplingRate, float q);
    void SetBandPassParameter(int rampLength, float frequency, float samplingRate, float q);
    // Designs a high shelf in spite of the name. The gain is outputGainDb at 0 Hz and outputGainDb
    // + shelfGainDb at half the sampling rate, with the transition around `frequency`. shelfSlope >
    // 0.
    void SetHighPassParameter(int rampLength, float frequency, float samplingRate,
                              float shelfGainDb, float shelfSlope, float outputGainDb);

    // Returns the next output. Each of the five products is rounded toward minus infinity by
    // itself.
    int32_t ProcessSample(int32_t x);
    // Filters `count` samples of the channel in place.
    void Process(int32_t* samples, uint32_t count);

    // For loops that hold the filter in registers. They may do so only while IsRamping() is false;
    // they read the coefficients and write the history back.
    ORVANE_LOCAL bool IsRamping() const { return rampRemaining != 0; }
    ORVANE_LOCAL const BiquadCoefficients<int32_t>& Coefficients() const { return coefficients; }
    ORVANE_LOCAL BiquadHistory<int32_t>& History() { return history; }

private:
    BiquadCoefficients<int32_t> coefficients;
    BiquadCoefficients<int32_t> increments;  // added for each sample of a running ramp
    BiquadHistory<int32_t> history;
    int32_t rampRemaining = 0;  // samples
};
