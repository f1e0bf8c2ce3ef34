#include "render/pictures/analysis.h"

#include <ebur128.h>
#include <fftw3.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <memory>
#include <numbers>
#include <random>

namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kSmoothingOctaves = 1.0 / 24.0;

// A real transform of a fixed length, both ways and unscaled: a round trip multiplies by `length`.
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
    void Inverse() { fftw_execute(inverse.get()); }  // overwrites `spectrum`

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

// Sum of the elements between two frequencies; those at the ends count with the part that lies
// inside. Element k covers half a step to either side of k * stepHz.
double SumBetween(const std::vector<double>& values, double stepHz, double lowHz, double highHz) {
    const double low = std::max(lowHz / stepHz + 0.5, 0.0);
    const double high = std::min(highHz / stepHz + 0.5, static_cast<double>(values.size()));
    double sum = 0;
    for (auto k = static_cast<size_t>(low); static_cast<double>(k) < high; ++k) {
        const auto edge = static_cast<double>(k);
        sum += values[k] * (std::min(high, edge + 1) - std::max(low, edge));
    }
    return sum;
}

// The elements k with k * stepHz around a frequency, at least two of them.
struct Bins {
    size_t first, last;
};
Bins BinsAround(const MeasuredResponse& response, double frequencyHz) {
    const double center = frequencyHz / response.stepHz;
    const double reach = std::exp2(kSmoothingOctaves / 2);
    const size_t end = response.values.size() - 2;
    const auto first = std::min(static_cast<size_t>(center / reach), end);
    return {first, std::clamp(static_cast<size_t>(std::ceil(center * reach)), first + 1, end + 1)};
}

constexpr int kLoudestTestDb = -20, kSoftestTestDb = -62, kTestStepDb = 6;
// Rounding alone stays below this at the two loudest levels.
constexpr double kCleanResidualDb = -60;
constexpr size_t kTestSequences = 4;
constexpr double kPinkFromHz = 10;
// The end of a sequence is not measured: a linear-phase filter hears the next one ahead.
constexpr size_t kLookAheadFrames = 2048;

// One period of noise with the power of every octave alike, RMS 1.
void MakePinkNoise(double rateHz, std::mt19937* random, RealTransform* transform) {
    const size_t length = transform->time.size();
    const double stepHz = rateHz / static_cast<double>(length);
    double power = 0;
    transform->spectrum.assign(length / 2 + 1, 0);
    for (size_t k = 1; k < length / 2; ++k) {
        const double amplitude =
            1 / std::sqrt(std::max(static_cast<double>(k) * stepHz, kPinkFromHz));
        transform->spectrum[k] =
            std::polar(amplitude, 2 * kPi * static_cast<double>((*random)()) / std::exp2(32));
        power += 2 * amplitude * amplitude;
    }
    transform->Inverse();
    for (double& x : transform->time) x /= std::sqrt(power);
}

int16_t ToSample(double value) {
    return static_cast<int16_t>(std::lround(std::clamp(value * 32767.0, -32768.0, 32767.0)));
}

std::optional<MeasuredResponse> MeasureAtLevel(const SampleChain& chain, int channels,
                                               double rateHz, double levelDb) {
    const auto stride = static_cast<size_t>(channels);
    const size_t length = std::bit_ceil(static_cast<size_t>(2.7 * rateHz));
    const size_t measuredFrom = length - kLookAheadFrames;
    RealTransform transform(length);
    std::mt19937 random(20);  // the same noise every time
    const double level = std::pow(10, levelDb / 20);

    std::vector<int16_t> input(kTestSequences * 2 * length * stride);
    for (size_t s = 0; s < kTestSequences; ++s) {
        MakePinkNoise(rateHz, &random, &transform);
        for (size_t n = 0; n < 2 * length; ++n)
            std::fill_n(&input[(s * 2 * length + n) * stride], stride,
                        ToSample(level * transform.time[n % length]));
    }
    const std::vector<int16_t> output = chain(input);
    if (output.size() != input.size()) return std::nullopt;

    const auto measure = [&](const std::vector<int16_t>& samples, size_t sequence) {
        const size_t first = sequence * 2 * length + measuredFrom;
        for (size_t n = 0; n < length; ++n) transform.time[n] = samples[(first + n) * stride];
        transform.Forward();
    };
    std::vector<std::complex<double>> cross(length / 2 + 1);
    std::vector<double> inputPower(length / 2 + 1);
    double outputPower = 0;
    for (size_t s = 0; s < kTestSequences; ++s) {
        measure(input, s);
        const std::vector<std::complex<double>> in = transform.spectrum;
        measure(output, s);
        for (size_t k = 0; k < in.size(); ++k) {
            cross[k] += transform.spectrum[k] * std::conj(in[k]);
            inputPower[k] += std::norm(in[k]);
            outputPower += std::norm(transform.spectrum[k]);
        }
    }
    double residualPower = outputPower;
    for (size_t k = 0; k < cross.size(); ++k) {
        if (inputPower[k] == 0) continue;
        residualPower -= std::norm(cross[k]) / inputPower[k];
        cross[k] /= inputPower[k];
    }
    const double residualDb =
        outputPower > 0 ? 10 * std::log10(std::max(residualPower / outputPower, 1e-20)) : -200;
    return MeasuredResponse{rateHz / static_cast<double>(length), std::move(cross), residualDb};
}

}  // namespace

std::vector<double> FrequencyGrid(double rateHz) {
    std::vector<double> grid;
    const double endHz = std::min(20000.0, 0.49 * rateHz);
    for (int i = 0; 20 * std::exp2(i / 48.0) < endHz; ++i) grid.push_back(20 * std::exp2(i / 48.0));
    grid.push_back(endHz);
    return grid;
}

Spectrum AverageSpectrum(const std::vector<float>& samples, int channels, double rateHz) {
    constexpr size_t kLength = 65536, kHop = kLength / 4;
    const auto stride = static_cast<size_t>(channels);
    const size_t frames = samples.size() / stride;
    std::vector<double> window(kLength);
    double windowPower = 0;
    for (size_t n = 0; n < kLength; ++n) {
        window[n] = 0.5 - 0.5 * std::cos(2 * kPi * static_cast<double>(n) / kLength);
        windowPower += window[n] * window[n];
    }
    RealTransform transform(kLength);
    Spectrum spectrum{rateHz / kLength, std::vector<double>(kLength / 2 + 1)};
    // Squared Hann windows a quarter apart add up to a constant, so with windows that reach beyond
    // both ends every sample counts the same. The factor: one-sided, and a sine has mean square
    // 1/2.
    const double scale =
        4.0 * kHop /
        (windowPower * kLength * static_cast<double>(std::max<size_t>(frames, 1)) * channels);
    for (size_t channel = 0; channel < stride; ++channel) {
        for (size_t end = kHop; end < frames + kLength; end += kHop) {
            for (size_t n = 0; n < kLength; ++n) {
                const size_t frame = end + n;  // kLength too high, to stay unsigned
                const bool inside = frame >= kLength && frame - kLength < frames;
                transform.time[n] =
                    inside ? window[n] *
                                 static_cast<double>(samples[(frame - kLength) * stride + channel])
                           : 0;
            }
            transform.Forward();
            for (size_t k = 0; k < spectrum.power.size(); ++k)
                spectrum.power[k] += scale * std::norm(transform.spectrum[k]);
        }
    }
    // These two have no mirror image.
    spectrum.power.front() /= 2;
    spectrum.power.back() /= 2;
    return spectrum;
}

double BandLevelDb(const Spectrum& spectrum, double lowHz, double highHz) {
    return 10 * std::log10(SumBetween(spectrum.power, spectrum.stepHz, lowHz, highHz));
}

LoudnessOverTime MeasureLoudness(const std::vector<float>& samples, int channels, double rateHz) {
    const auto stride = static_cast<size_t>(channels);
    const size_t frames = samples.size() / stride;
    const auto half = static_cast<size_t>(std::lround(0.2 * rateHz));
    const size_t step = std::max(half / 2, frames / 1000);
    struct Destroy {
        void operator()(ebur128_state* state) const { ebur128_destroy(&state); }
    };
    const std::unique_ptr<ebur128_state, Destroy> state(ebur128_init(
        static_cast<unsigned>(channels), static_cast<unsigned long>(std::lround(rateHz)),
        EBUR128_MODE_M | EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK));
    LoudnessOverTime loudness;
    loudness.stepSeconds = static_cast<double>(step) / rateHz;
    loudness.truePeakDb = -HUGE_VAL;
    if (!state) return loudness;

    // The meter looks back over 400 ms, silence before the start; read 200 ms later it is centred.
    size_t fed = 0;
    size_t center = 0;
    const auto feed = [&](const float* from, size_t count) {
        while (count > 0) {
            const size_t part = std::min(count, center + half - fed);
            ebur128_add_frames_float(state.get(), from, part);
            from += part * stride;
            fed += part;
            count -= part;
            if (fed < center + half) continue;
            ebur128_loudness_momentary(state.get(), &loudness.momentaryLufs.emplace_back());
            center += step;
        }
    };
    feed(samples.data(), frames);
    ebur128_loudness_global(state.get(), &loudness.integratedLufs);
    ebur128_loudness_range(state.get(), &loudness.rangeLu);
    for (unsigned channel = 0; channel < stride; ++channel) {
        double peak = 0;
        ebur128_true_peak(state.get(), channel, &peak);
        loudness.truePeakDb = std::max(loudness.truePeakDb, 20 * std::log10(peak));
    }
    const std::vector<float> silence(half * stride);
    feed(silence.data(), half);
    return loudness;
}

std::optional<MeasuredResponse> MeasureResponse(const SampleChain& chain, int channels,
                                                double rateHz) {
    std::optional<MeasuredResponse> best;
    for (int levelDb = kLoudestTestDb; levelDb >= kSoftestTestDb; levelDb -= kTestStepDb) {
        std::optional<MeasuredResponse> response = MeasureAtLevel(chain, channels, rateHz, levelDb);
        if (!response) return std::nullopt;
        if (!best || response->residualDb < best->residualDb) best = std::move(response);
        if (best->residualDb < kCleanResidualDb) break;
    }
    return best;
}

double MagnitudeDb(const MeasuredResponse& response, double frequencyHz) {
    const auto [first, last] = BinsAround(response, frequencyHz);
    double sum = 0;
    for (size_t k = first; k <= last; ++k) sum += std::norm(response.values[k]);
    return 10 * std::log10(sum / static_cast<double>(last - first + 1));
}

double GroupDelayMs(const MeasuredResponse& response, double frequencyHz) {
    const auto [first, last] = BinsAround(response, frequencyHz);
    std::complex<double> turn = 0;
    for (size_t k = first; k < last; ++k)
        turn += response.values[k + 1] * std::conj(response.values[k]);
    return -1000 * std::arg(turn) / (2 * kPi * response.stepHz);
}
