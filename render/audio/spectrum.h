// The long-term average spectrum of a stream.
#pragma once
#include <cstdint>
#include <span>
#include <vector>

#include "render/audio/real_transform.h"

// Power over frequency: element k belongs to k * stepHz.
struct Spectrum {
    double stepHz = 0;
    std::vector<double> power;  // 1.0: a full-scale sine on every channel; empty: not measured
};

// Power between two frequencies in dB; 0 dB is a full-scale sine. Minus infinity where none is.
double BandLevelDb(const Spectrum& spectrum, double lowHz, double highHz);

// Averages over all samples, each of the same weight, and over the channels: the elements add up to
// twice the mean square. Hann windows of a good second (P. D. Welch, IEEE Trans. Audio
// Electroacoust. 15, 1967): a sine spreads over 4 elements.
class SpectrumMeter {
public:
    SpectrumMeter(uint32_t channelCount, double rateHz);

    // Interleaved samples, whole frames, full scale 1.0.
    void Add(std::span<const float> samples);
    // The end of the stream; nothing may be added any more.
    Spectrum Finish();

private:
    void Push(const float* frame);
    void AddWindow();

    size_t channels;
    RealTransform transform;
    std::vector<double> window;
    std::vector<float> ring;  // the last frames, as many as a window has, interleaved
    size_t next = 0;          // frame of the ring that is overwritten next
    uint64_t frames = 0;
    Spectrum spectrum;
};
