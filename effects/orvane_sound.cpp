#include "effects/orvane_sound.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <new>

#include "effects/band_mix.h"

namespace {

constexpr uint32_t kWindowType = 1;  // rectangular
constexpr double kBandDelayNs = 200000.0;
constexpr double kLowDelayNs = 2850000.0;
constexpr float kContourHz = 55.0F;
constexpr float kContourOffset = 0.1F;
// In single precision, the contour's coefficients are inside the stability triangle from a quality
// of 2.07e-6 on, at every rate from 32000 to 48000 Hz. At the quality chosen here, rounding changes
// the gain at 0 Hz by at most 27 %, so the contour is not louder than asked for.
constexpr float kSmallestQuality = 1e-5F;

// Returns a delay in frames. The multiplication comes last: at 35000 Hz, 0.2 ms are 6 frames,
// not 7.
size_t DelayFrames(uint32_t rateHz, double ns) {
    return static_cast<size_t>(static_cast<double>(rateHz) / 1000000000.0 * ns);
}

// Returns the bands of one channel from pair `at` of the block on.
template <typename Real, typename Channel>
DelayedBands<Real> BandsOf(Channel& channel, size_t at, const BandWeights<Real>& weights) {
    return {channel.Block() + at, channel.bandDelay.Delayed() + at, channel.lowDelay.Delayed() + at,
            weights};
}

std::unique_ptr<WaveBuffer_R32> MakeBuffer(uint32_t channels, uint32_t frames) {
    std::unique_ptr<WaveBuffer_R32> buffer(new (std::nothrow) WaveBuffer_R32(channels, frames));
    if (buffer && buffer->GetBufferSize() == 0) buffer.reset();
    return buffer;
}

// Returns where the next frames of a buffer belong.
float* BehindHeld(WaveBuffer_R32& buffer, uint32_t channels) {
    return buffer.GetCurrentBufferR32Ptr() + size_t{buffer.GetBufferOffset()} * channels;
}

}  // namespace

template <typename Sample, typename Real>
OrvaneSound<Sample, Real>::OrvaneSound(uint32_t capacityFrames)
    : bufferCapacity(std::max(capacityFrames, 2 * kBlock)) {
    SetUpBuffers();
    SetUpChannels();
    DesignFilters();
    DesignContour();
    Reset();
}

template <typename Sample, typename Real>
OrvaneSound<Sample, Real>::~OrvaneSound() = default;

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::SetUpBuffers() {
    // Less than a block is waiting when a call brings its frames.
    constexpr uint32_t kInputCapacity = (kBlock - 1) + kMaxCall;
    // All waiting frames and those of the call may be processed at once. A call that gets frames
    // back leaves as many waiting as before. A call that gets none back leaves fewer processed
    // frames than it asked for, and less than a block unprocessed.
    constexpr uint32_t kMostWaiting = (kMaxCall - 1) + (kBlock - 1);
    constexpr uint32_t kOutputCapacity = kMostWaiting + kMaxCall;
    inputBuffer = MakeBuffer(channels, std::max(bufferCapacity, kInputCapacity));
    outputBuffer = MakeBuffer(channels, std::max(bufferCapacity, kOutputCapacity));
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::SetUpChannels() {
    const size_t bandFrames = DelayFrames(samplingRate, kBandDelayNs);
    const size_t lowFrames = DelayFrames(samplingRate, kLowDelayNs);
    channelsSetUp = true;
    for (uint32_t c = 0; c < kMaxChannels; ++c) {
        Channel& channel = state[c] = {};
        if (c < channels)
            channelsSetUp = channelsSetUp && channel.block.Allocate(2 * kTransformPairs) &&
                            channel.bandDelay.SetUp(bandFrames, kPairs, kTransformPairs) &&
                            channel.lowDelay.SetUp(lowFrames, kPairs, kTransformPairs) &&
                            channel.tails.Allocate(kKernelLength - 1);
    }
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::DesignFilters() {
    constexpr Real kLowCutoff = 150, kHighCutoff = 1800;
    blockSize = 0;
    if (filters.Design(kWindowType, kKernelLength, samplingRate, kLowCutoff, kHighCutoff))
        blockSize = filters.BlockLength();
}

template <typename Sample, typename Real>
bool OrvaneSound<Sample, Real>::GetPrepared() const {
    return blockSize == kBlock && channelsSetUp && inputBuffer && outputBuffer;
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::Reset() {
    loContourFilter.ClearHistory();
    contoured = 0;
    if (!GetPrepared()) return;
    for (uint32_t c = 0; c < channels; ++c) {
        state[c].tails.Clear();
        state[c].bandDelay.Clear();
        state[c].lowDelay.Clear();
    }
    inputBuffer->Reset();
    outputBuffer->Reset();
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::Set(ParameterId id, float value, int /*band*/) {
    if (id == PARAM_ENHANCER_ENABLE) SetEnable(value != 0);
    if (id == PARAM_ENHANCER_PROCESS) SetProcess(value);
    if (id == PARAM_ENHANCER_LOCONTOUR) SetLoContour(value);
}

template <typename Sample, typename Real>
bool OrvaneSound<Sample, Real>::SetEnable(bool enable) {
    if (enable == enabled) return false;
    if (enable && OrvaneSoundVariant<Real>::kForgetsWhenSwitchedOn) Reset();
    enabled = enable;
    return true;
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::SetSamplingRate(uint32_t rateHz) {
    if (rateHz == samplingRate) return;
    samplingRate = rateHz;
    SetUpChannels();
    DesignFilters();
    DesignContour();
    Reset();
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::SetChannels(uint32_t count) {
    if (count == channels || count == 0 || count > kMaxChannels) return;
    channels = count;
    SetUpBuffers();
    SetUpChannels();
    Reset();
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::SetProcess(float amount) {
    if (std::isfinite(amount)) weights.high = amount;
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::SetLoContour(float level) {
    if (!std::isfinite(level)) return;
    // The waiting frames were processed with the present filter, so they get its contour first.
    if constexpr (kContourLast) AddContourToWaiting();
    loContour = level;
    DesignContour();
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::DesignContour() {
    float quality = static_cast<float>(loContour + static_cast<Real>(kContourOffset));
    if (!(quality >= kSmallestQuality)) quality = kSmallestQuality;
    loContourFilter.SetLowPassParameter(0, kContourHz, static_cast<float>(samplingRate), quality);
}

template <typename Sample, typename Real>
bool OrvaneSound<Sample, Real>::Reserve(uint32_t frames) {
    if (!enabled) return true;
    if (!GetPrepared() || inputBuffer->Reserve(frames) == 0) return false;
    const uint64_t waiting = static_cast<uint64_t>(inputBuffer->GetBufferOffset()) + frames;
    const uint64_t blocks = waiting / blockSize;
    return outputBuffer->Reserve(static_cast<uint32_t>(blocks * blockSize)) != 0;
}

template <typename Sample, typename Real>
template <typename External>
uint32_t OrvaneSound<Sample, Real>::InPlace(External* samples, uint32_t n) {
    if (!enabled) return n;
    if (!Reserve(n)) return 0;
    inputBuffer->PushSamples(samples, n);
    ProcessBuffer();
    if constexpr (kContourLast)
        if (n <= outputBuffer->GetBufferOffset()) AddContour(n);
    return outputBuffer->PopSamples(samples, n, false);
}

template <typename Sample, typename Real>
uint32_t OrvaneSound<Sample, Real>::Process(int16_t* samples, uint32_t n) {
    return InPlace(samples, n);
}
template <typename Sample, typename Real>
uint32_t OrvaneSound<Sample, Real>::Process(float* samples, uint32_t n) {
    return InPlace(samples, n);
}
template <typename Sample, typename Real>
uint32_t OrvaneSound<Sample, Real>::Process(double* samples, uint32_t n) {
    return InPlace(samples, n);
}

template <typename Sample, typename Real>
float* OrvaneSound<Sample, Real>::Input(float* samples) {
    return enabled ? BehindHeld(*inputBuffer, channels) : samples;
}

template <typename Sample, typename Real>
float* OrvaneSound<Sample, Real>::ProcessBands(float* samples, uint32_t n) {
    if (!enabled) return samples;
    inputBuffer->SetBufferOffset(inputBuffer->GetBufferOffset() + n);
    ProcessBuffer();
    return n <= outputBuffer->GetBufferOffset() ? outputBuffer->GetCurrentBufferR32Ptr() : nullptr;
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::Drop(uint32_t n) {
    if (enabled) outputBuffer->DropFrames(n);
}

template <typename Sample, typename Real>
uint32_t OrvaneSound<Sample, Real>::ProcessBuffer() {
    if (!GetPrepared()) return inputBuffer ? inputBuffer->GetBufferOffset() : 0;
    const uint32_t held = inputBuffer->GetBufferOffset();
    uint32_t done = 0;
    for (; held - done >= blockSize; done += blockSize)
        RunBlock(inputBuffer->GetCurrentBufferR32Ptr() + size_t{done} * channels);
    if (done != 0) inputBuffer->DropFrames(done);
    return held - done;
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::RunBlock(const float* frames) {
    const bool stereo = channels == 2;
    Channel &left = state[0], &right = state[1];
    if (stereo)
        Unweave(frames, kPairs, left.Block(), right.Block());
    else
        Unweave(frames, kPairs, left.Block());
    for (uint32_t c = 0; c < channels; ++c)
        filters.Split(state[c].tails, state[c].Block(),
                      {state[c].lowDelay.Next(), state[c].Block(), state[c].bandDelay.Next()});
    PushBands();
    for (uint32_t c = 0; c < channels; ++c) {
        state[c].bandDelay.Advance();
        state[c].lowDelay.Advance();
    }
}

// Appends the weighted sums of a block's bands to the output buffer, which has room for them. With
// unpacked floats, adds the contour at once.
template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::PushBands() {
    if constexpr (kContourLast) {
        const std::array bands = {BandsOf(state[0], 0, weights),
                                  BandsOf(state[channels - 1], 0, weights)};
        const uint32_t held = outputBuffer->GetBufferOffset();
        float* const frames = BehindHeld(*outputBuffer, channels);
        bool mixed = false;
        if constexpr (kSoftFloat) {
            AddContourToWaiting();
            const BandSamples samples[] = {{bands[0].high, bands[0].band, bands[0].low},
                                           {bands[1].high, bands[1].band, bands[1].low}};
            mixed = MixWithContour(samples, weights, &loContourFilter, frames, kBlock, channels);
            if (mixed) contoured += kBlock;
        }
        if (!mixed) WeaveChannels(bands, channels, kPairs, frames);
        outputBuffer->SetBufferOffset(held + kBlock);
    } else {
        PushBandsAndContour();
    }
}

// Like PushBands, but adds the contour too, chunk by chunk.
template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::PushBandsAndContour() {
    Real frames[kChunkFrames * kMaxChannels], contour[kChunkFrames];
    for (size_t at = 0; at < kPairs; at += kChunkFrames / 2) {
        const size_t pairs = std::min<size_t>(kChunkFrames / 2, kPairs - at), count = 2 * pairs;
        WeaveChannels(
            std::array{BandsOf(state[0], at, weights), BandsOf(state[channels - 1], at, weights)},
            channels, pairs, frames);
        SumChannels(frames, channels, count, contour);
        loContourFilter.Process(contour, static_cast<uint32_t>(count));
        AddToChannels(contour, channels, count, frames);
        outputBuffer->PushSamples(frames, static_cast<uint32_t>(count));
    }
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::Begin(Chunk& chunk, const float* frames, size_t count) {
    if constexpr (kContourLast) {
        chunk.done = count;
        if (enabled) {
            chunk.done = std::min<size_t>(count, contoured);
            contoured -= static_cast<uint32_t>(chunk.done);
        }
        chunk.count = count - chunk.done;
        chunk.run = loContourFilter.Begin(chunk.sums);
        SumChannels(frames + chunk.done * channels, channels, chunk.count, chunk.sums);
    }
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::Finish(const Chunk& chunk, float* frames) {
    if constexpr (kContourLast) {
        loContourFilter.Finish(chunk.run);
        AddToChannels(chunk.sums, channels, chunk.count, frames + chunk.done * channels);
    }
}

// Adds the contour to the first n frames of the output.
template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::AddContour(uint32_t n) {
    float* frames = outputBuffer->GetCurrentBufferR32Ptr();
    for (uint32_t left = n; left > 0;) {
        const uint32_t count = std::min<uint32_t>(left, kChunkFrames);
        Chunk chunk;
        Begin(chunk, frames, count);
        RunAlone(chunk.run, chunk.count);
        Finish(chunk, frames);
        frames += size_t{count} * channels;
        left -= count;
    }
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::AddContourToWaiting() {
    if (!GetPrepared()) return;
    const uint32_t waiting = outputBuffer->GetBufferOffset();
    AddContour(waiting);
    contoured = waiting;
}

template class OrvaneSound<float, float>;
template class OrvaneSound<float, double>;
