// One second-order recursive filter section for one channel, fixed point: the integer sibling of
// Biquad (same section, same designs, same ramp) for processors without a floating-point unit.
//
// Coefficients are Q24. Samples are 32-bit integers in whatever scale the caller uses; nothing is
// scaled or limited, sums wrap modulo 2^32. Floating point (single precision) only in the
// designers and SetCoeffs.
//
// Delay: none. Allocates: never. Thread: no lock of its own; the owner serialises all calls.
#pragma once
#include <cstdint>

#include "dsp/biquad_section.h"
#include "platform/export.h"

class ORVANE_API Biquad_FP {
public:
    // A pass-through.
    Biquad_FP();

    // Everything to zero, coefficients included: silence until coefficients are set again.
    void Reset();

    // Forgets the samples; keeps the coefficients and a ramp that is running.
    void ClearHistory();

    // Coefficients of H(z) = (b0 + b1 z^-1 + b2 z^-2) / (a0 + a1 z^-1 + a2 z^-2), a0 not 0. Each
    // quotient by a0 is converted as ToQ24 does (saturating at +-128); the feedback coefficients
    // are negated after that. Clears the history. rampLength 0 (or below) sets them at once;
    // otherwise they move toward the new ones over that many samples (positive) in truncated
    // integer steps, so they end up to rampLength - 1 units short.
    void SetCoeffs(int rampLength, float a0, float a1, float a2, float b0, float b1, float b2);

    // frequency and samplingRate in Hz, 0 < frequency < samplingRate / 2; q > 0.
    void SetLowPassParameter(int rampLength, float frequency, float samplingRate, float q);
    void SetBandPassParameter(int rampLength, float frequency, float samplingRate, float q);
    // A high shelf in spite of the name: outputGainDb at 0 Hz, outputGainDb + shelfGainDb at half
    // the sampling rate, the transition around `frequency`; shelfSlope > 0.
    void SetHighPassParameter(int rampLength, float frequency, float samplingRate,
                              float shelfGainDb, float shelfSlope, float outputGainDb);

    // Each of the five products is rounded toward minus infinity by itself.
    int32_t ProcessSample(int32_t x);
    // In place, `count` samples of the channel.
    void Process(int32_t* samples, uint32_t count);

    // For loops that hold a filter in registers: whether coefficients stay, and what to take along
    // and to put back.
    ORVANE_LOCAL bool IsRamping() const { return rampRemaining != 0; }
    ORVANE_LOCAL const BiquadCoefficients<int32_t>& Coefficients() const { return coefficients; }
    ORVANE_LOCAL BiquadHistory<int32_t>& History() { return history; }

private:
    BiquadCoefficients<int32_t> coefficients;
    BiquadCoefficients<int32_t> increments;  // a sample, while a ramp is running
    BiquadHistory<int32_t> history;
    int32_t rampRemaining = 0;  // samples
};
