#include "render/pictures/analysis.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>
#include <random>

#include "render/audio/spectrum.h"
#include "render/failure.h"

namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kSmoothingOctaves = 1.0 / 24.0;

// The indices of the elements whose frequencies lie around a frequency, at least two.
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
// At the two loudest levels, rounding alone gives a smaller residual than this.
constexpr double kCleanResidualDb = -60;
constexpr size_t kTestSequences = 4;
constexpr double kPinkFromHz = 10;
// The last frames of a sequence are not measured. The aligned output of a linear-phase filter
// depends on later input, so it contains the beginning of the next sequence there.
constexpr size_t kLookAheadFrames = 2048;

// Writes one period of pink noise, which has the same power in every octave, to transform->time.
// Its RMS is 1.
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

MeasuredResponse MeasureAtLevel(const SampleChain& chain, int channels, double rateHz,
                                double levelDb) {
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
    if (output.size() != input.size())
        throw Failure("the effect returned {} samples for {}, so its response cannot be measured",
                      output.size(), input.size());

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
    return {rateHz / static_cast<double>(length), std::move(cross), residualDb};
}

}  // namespace

std::vector<double> FrequencyGrid(double rateHz) {
    std::vector<double> grid;
    const double endHz = std::min(20000.0, 0.49 * rateHz);
    for (int i = 0; 20 * std::exp2(i / 48.0) < endHz; ++i) grid.push_back(20 * std::exp2(i / 48.0));
    grid.push_back(endHz);
    return grid;
}

std::vector<double> LoudnessCurve(const std::vector<float>& tenths, size_t windowTenths) {
    std::vector<double> lufs;
    for (size_t k = 0; k <= tenths.size(); ++k) {
        const size_t first = k - std::min(k, windowTenths / 2);
        const size_t end = std::min(k + windowTenths / 2, tenths.size());
        // A running sum would lose soft passages to the rounding of loud ones.
        double sum = 0;
        for (size_t i = first; i < end; ++i) sum += static_cast<double>(tenths[i]);
        lufs.push_back(-0.691 + 10 * std::log10(sum / static_cast<double>(end - first)));
    }
    if (tenths.empty()) lufs.clear();
    return lufs;
}

MeasuredResponse MeasureResponse(const SampleChain& chain, int channels, double rateHz) {
    MeasuredResponse best = MeasureAtLevel(chain, channels, rateHz, kLoudestTestDb);
    for (int levelDb = kLoudestTestDb - kTestStepDb;
         levelDb >= kSoftestTestDb && best.residualDb >= kCleanResidualDb; levelDb -= kTestStepDb) {
        MeasuredResponse response = MeasureAtLevel(chain, channels, rateHz, levelDb);
        if (response.residualDb < best.residualDb) best = std::move(response);
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
