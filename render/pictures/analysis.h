// What pictures are drawn from: frequencies, loudness over time, and the response of a chain of
// 16-bit samples, interleaved. Thread: one at a time, for FFTW.
#pragma once

#include <complex>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

// Interleaved 16-bit samples in, as many out, delay removed.
using SampleChain = std::function<std::vector<int16_t>(const std::vector<int16_t>&)>;

// Frequencies from 20 Hz to 20 kHz (or to just below half the rate), 48 to the octave.
std::vector<double> FrequencyGrid(double rateHz);

// Loudness in LUFS over a sliding window of an even number of tenths of a second (4: momentary, 30:
// short-term), from LoudnessMeter::Tenths. Element k: centred on k tenths of a second, over what
// the window covers of the piece; minus infinity for silence. One more element than tenths, or
// none.
std::vector<double> LoudnessCurve(const std::vector<float>& tenths, size_t windowTenths);

// The response of a linear chain that hears the same signal on all channels: element k of `values`
// belongs to k * stepHz.
struct MeasuredResponse {
    double stepHz = 0;
    std::vector<std::complex<double>> values;
    double residualDb = 0;  // power of the output that no response explains, against all of it
};

// Sends pink noise through the chain: four periodic sequences of random phase, a power of two
// frames of at least 2.7 s long. Each is heard once to settle and once to measure, and the response
// is the averaged cross spectrum over the power of the input (H1), so that nothing leaks and the
// rounding to 16 bit averages out. The noise starts at -20 dB full scale and goes down in steps of
// 6 dB as long as the residual says that a limiter is at work; the best measurement counts.
// Nothing when the chain returns another number of samples than it was given.
std::optional<MeasuredResponse> MeasureResponse(const SampleChain& chain, int channels,
                                                double rateHz);

// Mean power of the response around a frequency, 1/24 octave wide, in dB.
double MagnitudeDb(const MeasuredResponse& response, double frequencyHz);

// Group delay around a frequency, 1/24 octave wide, weighted with the power; 0 for aligned streams.
double GroupDelayMs(const MeasuredResponse& response, double frequencyHz);
