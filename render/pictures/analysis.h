// Measures audio: spectrum, loudness over time, and the response of a chain of 16-bit samples.
//
// Buffers are interleaved; floats have full scale 1.0. Thread: any; nothing is shared.
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

// Power over frequency: element k belongs to k * stepHz.
struct Spectrum {
    double stepHz = 0;
    std::vector<double> power;  // 1.0: a full-scale sine on every channel
};

// Long-term average over all samples, each of the same weight, and over the channels: the elements
// add up to twice the mean square. Hann windows of 65536 frames: a sine spreads over 4 elements.
Spectrum AverageSpectrum(const std::vector<float>& samples, int channels, double rateHz);

// Power between two frequencies in dB; 0 dB is a full-scale sine. Minus infinity where none is.
double BandLevelDb(const Spectrum& spectrum, double lowHz, double highHz);

// Loudness of a piece after EBU R 128 (ITU-R BS.1770). Minus infinity for silence.
struct LoudnessOverTime {
    double stepSeconds = 0;
    std::vector<double> momentaryLufs;  // element k: over the 400 ms centred on k * stepSeconds
    double integratedLufs = 0;
    double rangeLu = 0;
    double truePeakDb = 0;  // dB over full scale
};

// stepSeconds is 0.1, or more in pieces that would give above a thousand steps.
LoudnessOverTime MeasureLoudness(const std::vector<float>& samples, int channels, double rateHz);

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
