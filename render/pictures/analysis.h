// Computes what the pictures show: a grid of frequencies, the loudness over time, and the measured
// frequency response of a chain. Use the functions on one thread at a time, because FFTW's planner
// is not thread-safe.
#pragma once

#include <complex>
#include <cstdint>
#include <functional>
#include <vector>

// Processes a whole piece of interleaved 16-bit samples. Returns as many samples, with the chain's
// delay removed.
using SampleChain = std::function<std::vector<int16_t>(const std::vector<int16_t>&)>;

// Returns frequencies in Hz from 20 Hz to 20 kHz, or to 0.49 times the rate if that is lower. There
// are 48 in each octave.
std::vector<double> FrequencyGrid(double rateHz);

// Returns the loudness in LUFS over a sliding window of `windowTenths` tenths of a second. This
// number is even: 4 for momentary and 30 for short-term loudness. `tenths` are those of
// LoudnessMeter::Tenths.
//
// The window of element k is centred on k tenths of a second. Only the part of it that lies within
// the piece counts. Silence is minus infinity. There is one element more than `tenths` has, or none
// if it has none.
std::vector<double> LoudnessCurve(const std::vector<float>& tenths, size_t windowTenths);

// The frequency response of a linear chain that gets the same signal on all channels.
struct MeasuredResponse {
    double stepHz = 0;
    std::vector<std::complex<double>> values;  // element k is the response at k * stepHz
    // The part of the output's power that the response doesn't explain, in dB relative to the
    // whole.
    double residualDb = 0;
};

// Measures the response with pink noise: four periodic sequences with random phases. A period is
// the power of two of frames that lasts at least 2.7 s. Each sequence is played twice, first to let
// the chain settle and then to measure.
//
// The response is the averaged cross spectrum divided by the averaged power of the input (H1).
// Whole periods are measured, so no power leaks between frequencies, and the rounding to 16 bits
// averages out. The noise begins at an RMS of -20 dB full scale. While the residual shows that a
// limiter is at work, the level is lowered in steps of 6 dB. The measurement with the smallest
// residual is returned.
//
// Throws Failure if the chain returns another number of samples than it was given.
MeasuredResponse MeasureResponse(const SampleChain& chain, int channels, double rateHz);

// Returns the mean power of the response in a band of 1/24 octave around a frequency, in dB.
double MagnitudeDb(const MeasuredResponse& response, double frequencyHz);

// Returns the group delay in a band of 1/24 octave around a frequency, weighted with the power. It
// is 0 if output and input are aligned.
double GroupDelayMs(const MeasuredResponse& response, double frequencyHz);
