// Measures the long-term average power spectrum of a stream. Use an object on one thread.
#pragma once
#include <fftw3.h>

#include <complex>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

// A real FFT of fixed length, with FFTW. Both directions are unscaled, so a round trip multiplies
// by `length`. FFTW's planner is not thread-safe, so construct and destroy all objects on one
// thread.
class RealTransform {
public:
    explicit RealTransform(size_t length)
        : time(length),
          spectrum(length / 2 + 1),
          forward(
              fftw_plan_dft_r2c_1d(static_cast<int>(length), time.data(), Bins(), FFTW_ESTIMATE)),
          inverse(
              fftw_plan_dft_c2r_1d(static_cast<int>(length), Bins(), time.data(), FFTW_ESTIMATE)) {}

    void Forward() { fftw_execute(forward.get()); }
    void Inverse() { fftw_execute(inverse.get()); }  // also overwrites `spectrum`

    std::vector<double> time;
    std::vector<std::complex<double>> spectrum;

private:
    fftw_complex* Bins() { return reinterpret_cast<fftw_complex*>(spectrum.data()); }

    struct DestroyPlan {
        void operator()(fftw_plan plan) const { fftw_destroy_plan(plan); }
    };
    using Plan = std::unique_ptr<fftw_plan_s, DestroyPlan>;
    Plan forward, inverse;
};

// A power spectrum. Element k is the power at k * stepHz.
struct Spectrum {
    double stepHz = 0;
    // Elements that add up to 1.0 are the power of a full-scale sine on every channel. Empty if
    // nothing was measured.
    std::vector<double> power;
};

// Returns the power between two frequencies in dB. 0 dB is a full-scale sine on every channel.
// Returns -infinity if there is no power between them.
double BandLevelDb(const Spectrum& spectrum, double lowHz, double highHz);

// Averages the power over all channels and over all samples with equal weight. The elements of the
// result add up to twice the mean square. Windows: Hann, 1.2 to 2.4 s long (at most 262,144
// frames), a quarter of their length apart (P. D. Welch, IEEE Trans. Audio Electroacoust. 15,
// 1967). The power of a sine spreads over 4 elements.
class SpectrumMeter {
public:
    SpectrumMeter(uint32_t channelCount, double rateHz);

    // `samples`: whole interleaved frames; full scale is 1.0.
    void Add(std::span<const float> samples);
    // Ends the measurement and returns the spectrum. Add must not be called afterwards.
    Spectrum Finish();

private:
    void Push(const float* frame);
    void AddWindow();

    size_t channels;
    RealTransform transform;
    std::vector<double> window;
    std::vector<float> ring;  // the last frames, interleaved, as many as the window is long
    size_t next = 0;          // index of the frame in `ring` that Push overwrites next
    uint64_t frames = 0;
    Spectrum spectrum;
};
