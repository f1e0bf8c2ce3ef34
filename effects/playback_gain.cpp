#include "effects/playback_gain.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "dsp/runs.h"

namespace {
constexpr float kWeightingHz = 2200.0F;
constexpr float kWeightingQ = 0.33F;
constexpr float kReferenceDb = 23.0F;    // below full scale
constexpr double kPowerScale = 0x1p-48;  // full scale squared is 1
constexpr float kLog10E = 0.43429446F;   // one unit below the float nearest to log10(e)
constexpr float kPowerFloor = 1e-10F;    // silence counts as this: 77 dB below the reference
constexpr int32_t kWarmupCalls = 100;
// A gain g dB becomes g - g^2 / 200: half of it is left of 100 dB, 7.2 dB of 7.5.
constexpr float kHalvedDb = 100.0F;
constexpr uint32_t kRampsPerSecond = 40;  // a ramp takes 25 ms
constexpr int kRiseShift = 4;             // a gain rises 16 times slower than it falls
constexpr int kSampleShift = 9;           // 16-bit full scale, 2^15, to Q24
constexpr uint32_t kChunk = 64;           // samples of a channel at a time

// sample * gain in Q24, modulo 2^32. sample: 16 bits; gain: Q24.
int32_t Amplified(int16_t sample, int64_t gain) {
    const int64_t amplified = static_cast<int64_t>(sample) * gain >> (kQ24Bits - kSampleShift);
    return static_cast<int32_t>(static_cast<uint32_t>(amplified));
}

// Squares of the weighted samples of one channel, added up.
struct EnergyRun {
    [[gnu::always_inline]] void Step(size_t i) {
        const int64_t weighted =
            filter.Step(samples[static_cast<ptrdiff_t>(i) * stride] * (1 << kSampleShift));
        sum += static_cast<uint64_t>(weighted * weighted);
    }
    const int16_t* samples;
    ptrdiff_t stride;
    Biquad_FP filter;
    uint64_t sum = 0;
};

}  // namespace

PlaybackGain::PlaybackGain() {
    DesignWeighting();
    Reset();
}

void PlaybackGain::DesignWeighting() {
    weighting[0].SetBandPassParameter(0, kWeightingHz, static_cast<float>(samplingRate),
                                      kWeightingQ);
    std::fill(weighting + 1, std::end(weighting), weighting[0]);
}

void PlaybackGain::SetRatio(float ratio) {
    compressionRatio = (ratio >= 0 ? ratio : 0.0F) + 1.0F;
}
void PlaybackGain::SetVolume(float newVolume) {
    volume = ToQ24(static_cast<double>(newVolume));
}
void PlaybackGain::SetMaxGainFactor(float factor) {
    maxGain = ToQ24(static_cast<double>(factor));
}

int PlaybackGain::SetEnable(bool enable) {
    if (enable == enabled) return 0;
    if (enable) Reset();
    enabled = enable;
    return 1;
}

void PlaybackGain::SetSamplingRate(unsigned int rate) {
    if (rate == samplingRate) return;
    samplingRate = rate;
    DesignWeighting();
    Reset();
}

void PlaybackGain::SetChannels(unsigned int count) {
    if (count == channels || count > kMaxChannels) return;
    channels = count;
    Reset();
}

void PlaybackGain::Reset() {
    limiter.Reset();
    for (Biquad_FP& filter : weighting) filter.ClearHistory();
    gain = 0;
    warmupCount = 0;
}

uint64_t PlaybackGain::AnalyseWave(const int16_t* samples, unsigned int frames, int stride,
                                   int offset, Biquad_FP& filter) {
    if (frames == 0) return 0;
    EnergyRun run = {samples + offset, stride, filter};
    RunAlone(run, frames);
    filter = run.filter;
    return run.sum / frames;
}

// Moves the weighting filters over the buffer and the warm-up by a call; returns the automatic
// gain, Q24.
int64_t PlaybackGain::MeasureGain(const int16_t* in, unsigned int frames) {
    uint64_t loudest = 0;
    if (channels == 1) {
        loudest = AnalyseWave(in, frames, 1, 0, weighting[0]);
    } else if (channels == 2) {
        EnergyRun left = {in, 2, weighting[0]}, right = {in + 1, 2, weighting[1]};
        RunTogether(left, frames, right, frames);
        weighting[0] = left.filter;
        weighting[1] = right.filter;
        loudest = std::max(left.sum, right.sum) / frames;
    }
    const float power = static_cast<float>(static_cast<double>(loudest) * kPowerScale);
    const float levelDb = logf(power + kPowerFloor) * kLog10E * 10 + kReferenceDb;
    const float gainDb = levelDb * invCompressionRatio - levelDb;
    if (warmupCount < kWarmupCalls) ++warmupCount;
    const float warmDb = static_cast<float>(warmupCount) / kWarmupCalls * gainDb;
    const float shapedDb = warmDb - ((warmDb / kHalvedDb) * (warmDb / kHalvedDb)) * (kHalvedDb / 2);
    const float linear = powf(10.0F, shapedDb / 20);
    return TruncateToInt64(static_cast<double>(linear) * kQ24One);
}

void PlaybackGain::Amplify(int64_t gainQ24, const int16_t* in, int16_t* out, unsigned int frames) {
    const int64_t rampLength = std::max(samplingRate / kRampsPerSecond, frames);
    const int64_t highest = activeMaxGain;
    const int64_t lowest = -highest;
    const int64_t target = WrapMul64(gainQ24, activeVolume) >> kQ24Bits;
    int64_t step = (target - gain) / rampLength;
    if (step >= 1) step >>= kRiseShift;
    while (frames > 0) {
        const uint32_t count = std::min(frames, kChunk);
        const size_t size = size_t{count} * channels;
        int32_t chunk[kChunk * kMaxChannels];
        for (size_t i = 0; i < size;) {
            for (const size_t end = i + channels; i < end; ++i) chunk[i] = Amplified(in[i], gain);
            gain += step;
            if (gain > highest)
                gain = highest;
            else if (gain < lowest)
                gain = lowest;
        }
        limiter.Process(chunk, count, channels);
        for (size_t i = 0; i < size; ++i)
            out[i] = static_cast<int16_t>(static_cast<uint16_t>(chunk[i] >> kSampleShift));
        in += size;
        out += size;
        frames -= count;
    }
}

void PlaybackGain::Process(const int16_t* in, int16_t* out, unsigned int frames) {
    if (activeCompressionRatio != compressionRatio) {
        activeCompressionRatio = compressionRatio;
        invCompressionRatio = 1.0F / compressionRatio;
    }
    activeVolume = volume;
    activeMaxGain = maxGain;
    if (!enabled || frames == 0) return;
    const int64_t gainQ24 = MeasureGain(in, frames);
    if (channels > 0) Amplify(gainQ24, in, out, frames);
}
