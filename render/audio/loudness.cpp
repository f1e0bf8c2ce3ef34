#include "render/audio/loudness.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numbers>
#include <numeric>
#include <utility>

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

// Returns the integrated loudness of BS.1770-4. The mean of the blocks of 0.4 s above -70 LUFS,
// less 10 LU, is a second limit. The loudness is the mean of the blocks above both limits, or minus
// infinity if there is none. `blocks`: K-weighted mean squares.
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

// Returns the loudness range of EBU Tech 3342. It reaches from the 10th to the 95th percentile of
// the windows that are louder than 20 LU below their mean. `windows`: K-weighted mean squares of
// windows that are louder than -70 LUFS.
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

// Both filters are bilinear transforms of analog ones with these frequencies, quality factors and
// gains. At 48 kHz they give the coefficients that BS.1770 tabulates.
KWeighting::KWeighting(uint32_t channelCount, uint32_t rateHz) : channels(channelCount) {
    const auto tangent = [&](double hz) { return std::tan(std::numbers::pi * hz / rateHz); };
    const double shelfQ = 0.7071752369554196, shelf = tangent(1681.974450955533);
    const double high = std::pow(10, 3.999843853973347 / 20);
    const double middle = std::pow(high, 0.4996667741545416);
    const double square = shelf * shelf, shelfScale = 1 + shelf / shelfQ + square;
    const std::array shelfForward{(high + middle * shelf / shelfQ + square) / shelfScale,
                                  2 * (square - high) / shelfScale,
                                  (high - middle * shelf / shelfQ + square) / shelfScale};
    const std::array shelfBack{1.0, 2 * (square - 1) / shelfScale,
                               (1 - shelf / shelfQ + square) / shelfScale};
    const double passQ = 0.5003270373238773, pass = tangent(38.13547087602444);
    const double passScale = 1 + pass / passQ + pass * pass;
    const std::array passForward{1.0, -2.0, 1.0};
    const std::array passBack{1.0, 2 * (pass * pass - 1) / passScale,
                              (1 - pass / passQ + pass * pass) / passScale};
    for (size_t i = 0; i < shelfBack.size(); ++i)
        for (size_t k = 0; k < passBack.size(); ++k) {
            feedForward[i + k] += shelfForward[i] * passForward[k];
            feedBack[i + k] += shelfBack[i] * passBack[k];
        }
}

void KWeighting::AddSquares(std::span<const float> samples, Pair* sum) {
    *sum = channels == 1 ? Filter<1>(samples, *sum) : Filter<2>(samples, *sum);
}

void KWeighting::ClearInaudible() {
    // In silence, a tenth of a second makes the history smaller by a factor of about 1e-10.
    constexpr double kInaudible = 1e-30;
    for (Pair& values : history)
        for (const size_t channel : {0U, 1U})
            if (std::abs(values[channel]) < kInaudible) values[channel] = 0;
}

template <size_t channelCount>
KWeighting::Pair KWeighting::Filter(std::span<const float> samples, Pair sum) {
    std::array<Pair, kOrder + 1> forward{}, back{};
    for (size_t k = 0; k <= kOrder; ++k) {
        forward[k] = Broadcast<Pair>(feedForward[k]);
        back[k] = Broadcast<Pair>(feedBack[k]);
    }
    // `oldest` receives the newest value. The product that waits for the frame before comes last.
    const auto filterFrame = [&](const float* frame, Pair latest, Pair second, Pair third,
                                 Pair& oldest) {
        Pair value{frame[0], channelCount == 1 ? 0 : frame[channelCount - 1]};
        value -= back[4] * oldest;
        value -= back[3] * third;
        value -= back[2] * second;
        value -= back[1] * latest;
        const Pair weighted = forward[0] * value + forward[1] * latest + forward[2] * second +
                              forward[3] * third + forward[4] * oldest;
        sum += weighted * weighted;
        oldest = value;
    };
    auto [a, b, c, d] = history;
    const float* frame = samples.data();
    size_t left = samples.size() / channelCount;
    for (; left >= kOrder; left -= kOrder, frame += kOrder * channelCount) {
        filterFrame(frame, a, b, c, d);
        filterFrame(frame + channelCount, d, a, b, c);
        filterFrame(frame + 2 * channelCount, c, d, a, b);
        filterFrame(frame + 3 * channelCount, b, c, d, a);
    }
    history = {a, b, c, d};
    for (; left > 0; --left, frame += channelCount) {
        filterFrame(frame, history[0], history[1], history[2], history[3]);
        std::rotate(history.begin(), history.end() - 1, history.end());
    }
    return sum;
}

double LoudnessMeter::RunningMean::Take() {
    const RunningMean taken = std::exchange(*this, {});
    return (taken.sum[0] + taken.sum[1]) / static_cast<double>(taken.frames);
}

LoudnessMeter::LoudnessMeter(uint32_t channelCount, uint32_t rateHz, Metering whatToMeter,
                             uint64_t firstFrame)
    : metering(whatToMeter), channels(channelCount), rate(rateHz), first(firstFrame) {
    Start();
}

// Begins to measure at the present rate and number of channels.
void LoudnessMeter::Start() {
    weighting.reset();
    truePeak.reset();
    if (metering == Metering::kNothing || rate < kLowestMeteredRateHz || channels > 2) return;
    weighting.emplace(channels, rate);
    if (metering != Metering::kLoudness) truePeak.emplace(channels, rate);
}

void LoudnessMeter::Continue(uint32_t channelCount, uint32_t rateHz) {
    if (!weighting) return;
    if (truePeak) earlierPeak = std::max(earlierPeak, truePeak->Peak());
    channels = channelCount;
    rate = rateHz;
    first = frames;
    tenth = step = {};
    tenths.clear();
    steps.clear();
    Start();
}

// Returns the number of frames from the start of the stream to the end of the current tenth.
uint64_t LoudnessMeter::TenthEnds() const {
    return first + ((tenths.size() + 1) * rate + 5) / 10;
}

void LoudnessMeter::Add(std::span<const float> samples) {
    if (!weighting) return;
    if (truePeak) truePeak->Add(samples);
    const bool takesTenths = metering == Metering::kParts || metering == Metering::kOverTime;
    const uint64_t stepFrames = (rate + 5) / 10;  // as libebur128 divides a stream
    while (!samples.empty()) {
        uint64_t count = std::min<uint64_t>(samples.size() / channels, stepFrames - step.frames);
        if (takesTenths) count = std::min(count, (frames < first ? first : TenthEnds()) - frames);
        const KWeighting::Pair before = step.sum;
        weighting->AddSquares(samples.first(count * channels), &step.sum);
        samples = samples.subspan(count * channels);
        frames += count;
        step.frames += count;
        if (takesTenths && frames > first) {
            tenth.sum += step.sum - before;
            tenth.frames += count;
            if (frames == TenthEnds()) tenths.push_back(static_cast<float>(tenth.Take()));
        }
        if (step.frames == stepFrames) EndStep();
    }
}

// Ends a step of a tenth of a second, and with it a gating block and perhaps a window of the range.
void LoudnessMeter::EndStep() {
    weighting->ClearInaudible();
    steps.push_back(step.Take());
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
    if (!truePeak) {
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
    tenth = {};
    tenths.clear();
}

Loudness LoudnessMeter::Result() const {
    Loudness result{NAN, NAN, NAN};
    if (!weighting) return result;
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
