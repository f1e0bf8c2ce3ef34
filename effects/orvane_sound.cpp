#include "effects/orvane_sound.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <type_traits>

#include "dsp/softfloat/contour_mix.h"

namespace {

constexpr uint32_t kWindowType = 1;  // rectangular
constexpr uint32_t kKernelLength = 255;
constexpr uint32_t kBlock = 770;  // frames
static_assert(kBlock == BandFilters<float>::BlockLengthFor(kKernelLength));
constexpr uint32_t kLeastCapacity = 2 * kBlock;  // frames
// Up to this many frames a call, Process allocates nothing.
constexpr uint32_t kMaxCall = 2048;
// Less than a block waits for processing when a call brings its frames.
constexpr uint32_t kInputCapacity = (kBlock - 1) + kMaxCall;
// Every frame that waits and those of the call may be processed at once. A call that gets frames
// back leaves as many waiting as before; one that gets none leaves fewer processed than it asked
// for, and less than a block unprocessed.
constexpr uint32_t kMostWaiting = (kMaxCall - 1) + (kBlock - 1);
constexpr uint32_t kOutputCapacity = kMostWaiting + kMaxCall;
constexpr double kBandDelayNs = 200000.0;
constexpr double kLowDelayNs = 2850000.0;
constexpr float kContourHz = 55.0F;
constexpr float kContourOffset = 0.1F;
// In single precision the contour's coefficients lie inside the stability triangle from a quality
// of 2.07e-6 on at every rate from 32000 to 48000 Hz; at this one, rounding moves the gain at 0 Hz
// by no more than 27 %, so it is also no louder than asked for.
constexpr float kSmallestQuality = 1e-5F;

// What the variants don't share. The weights of the float variant are tuned: with a
// process amount of 1 the middle band stands 0.8 dB above the high one and the low band 0.4 dB
// below it. The double variant leaves both as they are.
template <typename Real>
struct Variant;
template <>
struct Variant<float> {
    static constexpr float kLowWeight = 0.95F, kBandWeight = 1.1F;
    static constexpr bool kForgetsWhenSwitchedOn = true;
};
template <>
struct Variant<double> {
    static constexpr double kLowWeight = 1, kBandWeight = 1;
    static constexpr bool kForgetsWhenSwitchedOn = false;
};

// Multiplied last: at 35000 Hz, 0.2 ms are 6 frames, not 7.
uint32_t DelayFrames(uint32_t rateHz, double ns) {
    return static_cast<uint32_t>(static_cast<double>(rateHz) / 1000000000.0 * ns);
}

std::unique_ptr<WaveBuffer_R32> MakeBuffer(uint32_t channels, uint32_t frames) {
    std::unique_ptr<WaveBuffer_R32> buffer(new (std::nothrow) WaveBuffer_R32(channels, frames));
    if (buffer && buffer->GetBufferSize() == 0) buffer.reset();
    return buffer;
}

}  // namespace

template <typename Sample, typename Real>
OrvaneSound<Sample, Real>::OrvaneSound(uint32_t capacityFrames)
    : bufferCapacity(std::max(capacityFrames, kLeastCapacity)) {
    SetUpFilters();
    DesignContour();
    SetUpBuffers();
    Reset();
}

template <typename Sample, typename Real>
OrvaneSound<Sample, Real>::~OrvaneSound() = default;

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::SetUpFilters() {
    constexpr Real kLowCutoff = 150, kHighCutoff = 1800;
    blockSize = 0;
    for (BandTails<Real>& each : tails)
        if (!each.Allocate(kKernelLength - 1)) return;
    if (filters.Design(kWindowType, kKernelLength, samplingRate, kLowCutoff, kHighCutoff))
        blockSize = filters.BlockLength();
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::SetUpBuffers() {
    inputBuffer = MakeBuffer(channels, std::max(bufferCapacity, kInputCapacity));
    outputBuffer = MakeBuffer(channels, std::max(bufferCapacity, kOutputCapacity));
    bandDelay = MakeBuffer(channels, kLeastCapacity);
    lowDelay = MakeBuffer(channels, kLeastCapacity);
    for (OwnedArray<Real>* block : {&blockBuffer, &highBlock, &bandBlock, &lowBlock})
        if (!block->Allocate(static_cast<size_t>(channels) * kBlock)) block->Release();
}

template <typename Sample, typename Real>
bool OrvaneSound<Sample, Real>::GetPrepared() const {
    return blockSize == kBlock && inputBuffer && outputBuffer && bandDelay && lowDelay &&
           !blockBuffer.empty() && !highBlock.empty() && !bandBlock.empty() && !lowBlock.empty();
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::Reset() {
    loContourFilter.ClearHistory();
    if (!GetPrepared()) return;
    for (BandTails<Real>& each : tails) each.Clear();
    inputBuffer->Reset();
    outputBuffer->Reset();
    bandDelay->Reset();
    bandDelay->PushZero(DelayFrames(samplingRate, kBandDelayNs));
    lowDelay->Reset();
    lowDelay->PushZero(DelayFrames(samplingRate, kLowDelayNs));
}

template <typename Sample, typename Real>
bool OrvaneSound<Sample, Real>::SetEnable(bool enable) {
    if (enable == enabled) return false;
    if (enable && Variant<Real>::kForgetsWhenSwitchedOn) Reset();
    enabled = enable;
    return true;
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::SetSamplingRate(uint32_t rateHz) {
    if (rateHz == samplingRate) return;
    samplingRate = rateHz;
    SetUpFilters();
    DesignContour();
    Reset();
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::SetChannels(uint32_t count) {
    if (count == channels || count == 0 || count > kMaxChannels) return;
    channels = count;
    SetUpBuffers();
    Reset();
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::SetProcess(float amount) {
    if (std::isfinite(amount)) process = amount;
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::SetLoContour(float level) {
    if (!std::isfinite(level)) return;
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
uint32_t OrvaneSound<Sample, Real>::ProcessBuffer() {
    if (!GetPrepared()) return inputBuffer ? inputBuffer->GetBufferOffset() : 0;
    while (inputBuffer->GetBufferOffset() >= blockSize) RunBlock();
    return inputBuffer->GetBufferOffset();
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::RunBlock() {
    inputBuffer->PopSamples(blockBuffer.data(), blockSize, false);
    for (uint32_t c = 0; c < channels; ++c)
        filters.Split(tails[c], blockBuffer.data() + c, lowBlock.data() + c, highBlock.data() + c,
                      bandBlock.data() + c, channels);
    bandDelay->PushSamples(bandBlock.data(), blockSize);
    lowDelay->PushSamples(lowBlock.data(), blockSize);
    bandDelay->PopSamples(bandBlock.data(), blockSize, false);
    lowDelay->PopSamples(lowBlock.data(), blockSize, false);
    if (!MixUnpacked()) MixOnFloats();
    outputBuffer->PushSamples(blockBuffer.data(), blockSize);
}

// On unpacked numbers, where there are any; false, with nothing changed that counts, if not.
template <typename Sample, typename Real>
bool OrvaneSound<Sample, Real>::MixUnpacked() {
    if constexpr (kSoftFloat && std::is_same_v<Real, float>) {
        const auto bands = [this](size_t frame, size_t channel) -> BandSamples {
            const size_t i = frame * channels + channel;
            return {lowBlock[i], highBlock[i], bandBlock[i]};
        };
        return MixWithContour(bands,
                              {Variant<Real>::kLowWeight, process, Variant<Real>::kBandWeight},
                              &loContourFilter, blockBuffer.data(), blockSize, channels);
    }
    return false;
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::MixOnFloats() {
    for (size_t i = 0; i < blockBuffer.size(); ++i) {
        const Real low = lowBlock[i] * Variant<Real>::kLowWeight;
        const Real high = highBlock[i] * process;
        const Real band = bandBlock[i] * Variant<Real>::kBandWeight;
        blockBuffer[i] = (high + band) + low;
    }
    AddContour();
}

// Everything into and out of the filter is rounded to Sample.
template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::AddContour() {
    Real* const block = blockBuffer.data();
    if (channels == 1) {
        for (size_t i = 0; i < blockSize; ++i) {
            const Sample in = static_cast<Sample>(block[i]);
            block[i] += static_cast<Sample>(loContourFilter.ProcessSample(in));
        }
    } else {
        for (size_t i = 0; i < blockSize; ++i) {
            Real& left = block[2 * i];
            Real& right = block[2 * i + 1];
            const Sample in = static_cast<Sample>(left + right);
            const Real contour = static_cast<Sample>(loContourFilter.ProcessSample(in));
            left += contour;
            right += contour;
        }
    }
}

template class OrvaneSound<float, float>;
template class OrvaneSound<float, double>;
