#include "render/audio/loudness.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <new>
#include <numbers>
#include <numeric>

#include "dsp/lanes.h"

namespace {

constexpr uint32_t kRangeSeconds = 3;  // a shorter stream has at most one window
constexpr size_t kBlockTenths = 4, kWindowTenths = size_t{10} * kRangeSeconds,
                 kWindowStepTenths = 10;
constexpr double kAbsoluteGateLufs = -70;

double LufsOf(double meanSquare) {
    return -0.691 + 10 * std::log10(meanSquare);
}

template <typename Number>
double Mean(std::span<const Number> numbers) {
    return std::accumulate(numbers.begin(), numbers.end(), 0.0) /
           static_cast<double>(std::max<size_t>(numbers.size(), 1));
}

// Returns the integrated loudness of BS.1770-4: the mean of the blocks of 0.4 s that are louder
// than -70 LUFS and than 10 LU below the mean of these. Minus infinity if no block is. `blocks`:
// K-weighted mean squares.
double IntegratedLufs(std::span<const double> blocks) {
    const auto meanAbove = [&](double gateLufs) {
        double sum = 0, count = 0;
        for (const double block : blocks) {
            if (!(LufsOf(block) > gateLufs)) continue;
            sum += block;
            ++count;
        }
        return LufsOf(sum / std::max(count, 1.0));
    };
    return meanAbove(std::max(meanAbove(kAbsoluteGateLufs) - 10, kAbsoluteGateLufs));
}

// Returns the loudness range of EBU Tech 3342: from the 10th to the 95th percentile of the windows
// that are louder than 20 LU below their mean. `windows`: K-weighted mean squares of windows that
// are louder than -70 LUFS.
double RangeLu(std::vector<double> windows) {
    const double gate = Mean(std::span<const double>(windows)) / 100;
    std::erase_if(windows, [&](double window) { return window < gate; });
    if (windows.empty()) return 0;
    std::sort(windows.begin(), windows.end());
    const auto percentile = [&](double part) {
        const auto last = static_cast<double>(windows.size() - 1);
        return LufsOf(windows[static_cast<size_t>(std::lround(last * part))]);
    };
    return percentile(0.95) - percentile(0.1);
}

}  // namespace

LoudnessMeter::LoudnessMeter(uint32_t channelCount, uint32_t rateHz, Metering metering,
                             uint64_t firstFrame)
    : channels(channelCount),
      rate(rateHz),
      takesTenths(metering == Metering::kParts || metering == Metering::kOverTime),
      first(firstFrame) {
    if (metering == Metering::kNothing || rateHz < kLowestMeteredRateHz) return;
    state.reset(ebur128_init(channelCount, rateHz, EBUR128_MODE_M));
    if (metering != Metering::kLoudness) truePeak.emplace(channelCount, rateHz);
}

void LoudnessMeter::Continue(uint32_t channelCount, uint32_t rateHz) {
    if (state == nullptr) return;
    if (truePeak) {
        earlierPeak = std::max(earlierPeak, truePeak->Peak());
        truePeak.emplace(channelCount, rateHz);
    }
    channels = channelCount;
    rate = rateHz;
    first = stepsFrom = frames;
    tenths.clear();
    steps.clear();
    if (rateHz < kLowestMeteredRateHz ||
        ebur128_change_parameters(state.get(), channels, rate) == EBUR128_ERROR_NOMEM)
        state.reset();
}

// Both return the number of frames from the start of the stream to the end of the current tenth.
uint64_t LoudnessMeter::TenthEnds() const {
    return first + ((tenths.size() + 1) * rate + 5) / 10;
}
uint64_t LoudnessMeter::StepEnds() const {
    return stepsFrom + (steps.size() + 1) * ((rate + 5) / 10);  // as libebur128 divides a stream
}

void LoudnessMeter::Add(std::span<const float> samples) {
    if (state == nullptr) return;
    if (truePeak) truePeak->Add(samples);
    while (!samples.empty()) {
        size_t count = samples.size() / channels;
        count = std::min<uint64_t>(count, StepEnds() - frames);
        if (takesTenths) count = std::min<uint64_t>(count, TenthEnds() - frames);
        // If libebur128 continued after this error, it would write beyond its buffer.
        if (ebur128_add_frames_float(state.get(), samples.data(), count) == EBUR128_ERROR_NOMEM)
            throw std::bad_alloc();
        samples = samples.subspan(count * channels);
        frames += count;
        if (takesTenths && frames == TenthEnds()) tenths.push_back(static_cast<float>(LastTenth()));
        if (frames == StepEnds()) EndStep();
    }
}

// Returns the K-weighted mean square of the last tenth of a second, summed over the channels. At
// rates that are no multiple of 10 Hz, it lacks up to one frame.
double LoudnessMeter::LastTenth() const {
    double lufs = 0;
    ebur128_loudness_window(state.get(), 100, &lufs);
    return std::pow(10, (lufs + 0.691) / 10);
}

// Ends a tenth of a second, and with it a gating block and perhaps a window of the range.
void LoudnessMeter::EndStep() {
    steps.push_back(LastTenth());
    const std::span<const double> all(steps);
    const auto keep = [&](size_t tenthsCount, std::vector<double>* kept) {
        if (steps.size() < tenthsCount) return;
        const double mean = Mean(all.last(tenthsCount));
        if (LufsOf(mean) >= kAbsoluteGateLufs) kept->push_back(mean);
    };
    keep(kBlockTenths, &blocks);
    if (steps.size() % kWindowStepTenths == 0) keep(kWindowTenths, &windows);
}

void LoudnessMeter::EndPart() {
    if (state == nullptr || !truePeak) {
        parts.push_back({NAN, NAN, NAN});
        return;
    }
    std::vector<double> partBlocks;
    const std::span<const float> all(tenths);
    for (size_t i = kBlockTenths; i <= tenths.size(); ++i)
        partBlocks.push_back(Mean(all.subspan(i - kBlockTenths, kBlockTenths)));
    parts.push_back({IntegratedLufs(partBlocks), NAN, 20 * std::log10(truePeak->Peak())});
    earlierPeak = std::max(earlierPeak, truePeak->Peak());
    truePeak.emplace(channels, rate);
    first = frames;
    tenths.clear();
}

Loudness LoudnessMeter::Result() const {
    Loudness result{NAN, NAN, NAN};
    if (state == nullptr) return result;
    result.integratedLufs = IntegratedLufs(blocks);
    if (frames >= uint64_t{kRangeSeconds} * rate && std::isfinite(result.integratedLufs))
        result.rangeLu = RangeLu(windows);
    if (truePeak) result.truePeakDb = 20 * std::log10(std::max(earlierPeak, truePeak->Peak()));
    return result;
}

namespace {

constexpr size_t kBlockFrames = 64;
constexpr size_t kReachFrames =
    // At an oversampling of 2, an interpolated value has 25 taps, so it reaches 24 frames back.
    24;
// Single precision differs from libebur128's result by less than this fraction of the peak.
constexpr double kRounding = 1e-5;

Lanes Larger(Lanes a, Lanes b) {
    return a > b ? a : b;
}

float Largest(Lanes lanes) {
    std::array<float, kLanes> values{};
    Store(values.data(), lanes);
    return *std::max_element(values.begin(), values.end());
}

// Returns how many values libebur128 computes for each frame.
int Oversampling(uint32_t rateHz) {
    return rateHz < 96000 ? 4 : rateHz < 192000 ? 2 : 1;
}

double Weight(int tap, int oversampling) {
    constexpr int kMiddle = 24;
    const double x = std::numbers::pi * (tap - kMiddle) / oversampling;
    const double window = 0.5 - 0.5 * std::cos(std::numbers::pi * tap / kMiddle);
    return window * (x == 0 ? 1 : std::sin(x) / x);
}

std::vector<TruePeakMeter::PairWeights> MakePairs(int oversampling) {
    std::vector<TruePeakMeter::PairWeights> pairs;
    if (oversampling == 1) return pairs;
    for (int first = 0; first < 24; first += oversampling) {
        const double late = Weight(first + 3, oversampling);
        const double early = Weight(first + 1, oversampling);
        if (oversampling == 2)
            pairs.push_back({.half = static_cast<float>(early)});
        else
            pairs.push_back({static_cast<float>(Weight(first + 2, oversampling)),
                             static_cast<float>((early + late) / 2),
                             static_cast<float>((early - late) / 2)});
    }
    return pairs;
}

}  // namespace

TruePeakMeter::TruePeakMeter(uint32_t channelCount, uint32_t rateHz)
    : state(ebur128_init(channelCount, rateHz, EBUR128_MODE_TRUE_PEAK)),
      channels(channelCount),
      pairs(MakePairs(Oversampling(rateHz))),
      line((kReachFrames + kBlockFrames) * channels + kLanes) {
    if (state == nullptr) peak = NAN;
    float half = 0;
    for (const PairWeights& pair : pairs) half += 2 * std::abs(pair.half);
    mostRise = std::max(mostRise, half);
}

void TruePeakMeter::Add(std::span<const float> samples) {
    if (state == nullptr) return;
    while (!samples.empty()) {
        const size_t count = std::min(samples.size(), kBlockFrames * channels);
        AddBlock(samples.first(count));
        samples = samples.subspan(count);
    }
}

void TruePeakMeter::AddBlock(std::span<const float> block) {
    const size_t reach = kReachFrames * channels;
    std::copy(block.begin(), block.end(), &line[reach]);
    if (MayExceedPeak(block.size())) {
        if (!heardBefore) ebur128_add_frames_float(state.get(), line.data(), kReachFrames);
        ebur128_add_frames_float(state.get(), block.data(), block.size() / channels);
        for (unsigned channel = 0; channel < channels; ++channel) {
            double blockPeak = 0;
            ebur128_prev_true_peak(state.get(), channel, &blockPeak);
            peak = std::max(peak, blockPeak);
        }
        heardBefore = true;
    } else {
        heardBefore = false;
    }
    std::memmove(line.data(), &line[block.size()], reach * sizeof(float));
}

bool TruePeakMeter::MayExceedPeak(size_t blockSamples) const {
    const size_t count = kReachFrames * channels + blockSamples;
    Lanes largest{};
    size_t i = 0;
    for (; i + kLanes <= count; i += kLanes) largest = Larger(largest, Absolute(Load(&line[i])));
    float most = Largest(largest);
    for (; i < count; ++i) most = std::max(most, std::abs(line[i]));
    if (static_cast<double>(most * mostRise) * (1 + kRounding) <= peak) return false;
    return static_cast<double>(std::max(most, LargestBetween(blockSamples))) * (1 + kRounding) >
           peak;
}

// The lanes are neighbouring interleaved samples, so they mix channels.
float TruePeakMeter::LargestBetween(size_t blockSamples) const {
    const size_t taps = 2 * pairs.size();
    Lanes largest{};
    for (size_t i = 0; i < blockSamples; i += kLanes) {
        const float* const last = &line[kReachFrames * channels + i];
        const float* const first = last - (taps - 1) * channels;
        Lanes half{}, even{}, odd{};
        for (size_t k = 0; k < pairs.size(); ++k) {
            const Lanes after = Load(last - k * channels), before = Load(first + k * channels);
            const Lanes sum = after + before;
            half += pairs[k].half * sum;
            even += pairs[k].even * sum;
            odd += pairs[k].odd * (after - before);
        }
        largest = Larger(largest, Larger(Absolute(half), Absolute(even) + Absolute(odd)));
    }
    return Largest(largest);
}
