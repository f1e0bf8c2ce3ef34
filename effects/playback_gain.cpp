#include "effects/playback_gain.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "dsp/lanes.h"
#include "effects/loudness.h"

namespace {
constexpr float kWeightingHz = 2200.0F;
constexpr float kWeightingQ = 0.33F;
constexpr float kReferenceDb = 23.0F;    // below full scale
constexpr double kPowerScale = 0x1p-48;  // full scale squared is 1
constexpr float kLog10E = 0.43429446F;   // one unit below the float nearest to log10(e)
constexpr float kPowerFloor = 1e-10F;    // silence counts as this: 77 dB below the reference
constexpr int32_t kWarmupCalls = 100;
// A gain of g dB becomes g - g^2 / 200: 100 dB become 50 dB, and 7.5 dB become 7.2 dB.
constexpr float kHalvedDb = 100.0F;
constexpr uint32_t kRampsPerSecond = 40;  // a ramp takes 25 ms
constexpr int kRiseShift = 4;             // a gain rises 16 times slower than it falls

// Writes gain, gain + step, ... for the frames of a chunk, the same value for each channel. It
// always fills the whole array, because compilers turn a loop of fixed length into vectors.
template <size_t channels, size_t frames>
void FillLine(int32_t gain, int32_t step, int32_t* gains) {
    uint32_t g = static_cast<uint32_t>(gain);
    for (size_t i = 0; i < frames; ++i) {
        for (size_t c = 0; c < channels; ++c) gains[channels * i + c] = static_cast<int32_t>(g);
        g += static_cast<uint32_t>(step);
    }
}

// The gains of AmplifyAlong must stay below this limit.
constexpr int64_t kLineGainLimit = kLanes == 1 ? int64_t{1} << 30 : INT64_MAX;

// Amplifies at most kChunkFrames frames of 16-bit samples (as s * 2^9) by a gain that isn't
// negative and that changes by `step` each frame. Without vectors, one product of 32 by 16 bits is
// enough.
template <size_t channels>
void AmplifyAlong(const int16_t* in, size_t frames, int32_t gain, int32_t step, int32_t* chunk) {
    if constexpr (kLanes == 1) {
        constexpr int kLeft = 16 - (kQ24Bits - kSampleShift);
        for (; frames > 0; --frames, gain += step)
            for (size_t c = 0; c < channels; ++c) *chunk++ = MulHigh16(gain * (1 << kLeft), *in++);
    } else {
        FillLine<channels, kChunkFrames>(gain, step, chunk);
        MulQ24Run<kSampleShift>(chunk, in, frames * channels);
    }
}

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

void PlaybackGain::Set(ParameterId id, float value, int /*band*/) {
    if (id == PARAM_PLAYBACKGAIN_ENABLE) SetEnable(value != 0);
    if (id == PARAM_PLAYBACKGAIN_RATIO) SetRatio(value);
    if (id == PARAM_PLAYBACKGAIN_VOLUME) SetVolume(value);
    if (id == PARAM_PLAYBACKGAIN_MAXGAIN) SetMaxGainFactor(value);
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
    return AddEnergy(samples + offset, frames, stride, filter) / frames;
}

// Runs the weighting filters over the buffer, counts the call for the fade-in, and returns the
// automatic gain in Q24.
int64_t PlaybackGain::MeasureGain(const int16_t* in, unsigned int frames) {
    uint64_t loudest = 0;
    if (channels == 1) loudest = AddEnergy(in, frames, 1, weighting[0]) / frames;
    if (channels == 2) loudest = LargerEnergy(in, frames, weighting) / frames;
    const float power = static_cast<float>(static_cast<double>(loudest) * kPowerScale);
    const float levelDb = logf(power + kPowerFloor) * kLog10E * 10 + kReferenceDb;
    const float gainDb = levelDb * invCompressionRatio - levelDb;
    if (warmupCount < kWarmupCalls) ++warmupCount;
    const float warmDb = static_cast<float>(warmupCount) / kWarmupCalls * gainDb;
    const float shapedDb = warmDb - ((warmDb / kHalvedDb) * (warmDb / kHalvedDb)) * (kHalvedDb / 2);
    const float linear = powf(10.0F, shapedDb / 20);
    return TruncateToInt64(static_cast<double>(linear) * kQ24One);
}

// Multiplies by a gain that changes by `step` each frame and stays within the maximum; modulo 2^32.
void PlaybackGain::AmplifyChunk(const int16_t* in, int32_t* chunk, uint32_t frames) {
    const int64_t highest = activeMaxGain, lowest = -highest;
    // A gain that has reached the maximum stays there. A negative maximum is below the lowest gain,
    // so it doesn't hold the gain.
    const int64_t lineStep = gain == highest && step > 0 ? 0 : step;
    const int64_t end = gain + lineStep * frames;
    const int64_t least = std::min(gain, end), most = std::max(gain, end);
    if (least >= std::max<int64_t>(lowest, 0) && most <= highest && most < kLineGainLimit) {
        const auto amplify = channels == 1 ? AmplifyAlong<1> : AmplifyAlong<2>;
        amplify(in, frames, static_cast<int32_t>(gain), static_cast<int32_t>(lineStep), chunk);
        gain = end;
        return;
    }
    for (const int16_t* const last = in + size_t{frames} * channels; in < last;) {
        for (uint32_t c = 0; c < channels; ++c) {
            const int64_t amplified = *in++ * gain >> (kQ24Bits - kSampleShift);
            *chunk++ = static_cast<int32_t>(static_cast<uint32_t>(amplified));
        }
        gain += step;
        if (gain > highest)
            gain = highest;
        else if (gain < lowest)
            gain = lowest;
    }
}

void PlaybackGain::Begin(const int16_t* in, unsigned int frames) {
    if (activeCompressionRatio != compressionRatio) {
        activeCompressionRatio = compressionRatio;
        invCompressionRatio = 1.0F / compressionRatio;
    }
    activeVolume = volume;
    activeMaxGain = maxGain;
    if (!enabled || frames == 0) return;
    const int64_t rampLength = std::max(samplingRate / kRampsPerSecond, frames);
    const int64_t target = WrapMul64(MeasureGain(in, frames), activeVolume) >> kQ24Bits;
    step = (target - gain) / rampLength;
    if (step >= 1) step >>= kRiseShift;
}

void PlaybackGain::Process(const int16_t* in, int16_t* out, unsigned int frames) {
    Begin(in, frames);
    if (!enabled) return;
    while (frames > 0) {
        const uint32_t count = std::min(frames, Room());
        ProcessChunk(in, out, count, Alone());
        in += size_t{count} * channels;
        out += size_t{count} * channels;
        frames -= count;
    }
}

template void PlaybackGain::ProcessChunk(const int16_t*, int16_t*, uint32_t, Alone);
