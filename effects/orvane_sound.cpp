#include "effects/orvane_sound.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <type_traits>

namespace {

constexpr uint32_t kWindowType = 1;  // rectangular
constexpr uint32_t kKernelLength = 255;
constexpr uint32_t kBlock = 770;           // frames; what 255 taps give
constexpr uint32_t kMinCapacity = 1540;    // frames
constexpr uint32_t kDelayCapacity = 1540;  // frames
// Up to this many frames a call, Process allocates nothing. Before a call the input holds less than
// a block. Frames that wait anywhere in here: a call that is answered leaves their number as it
// was, one that isn't leaves fewer than it asked for processed and less than a block unprocessed.
constexpr uint32_t kMaxCall = 2048;
constexpr uint32_t kInputCapacity = (kBlock - 1) + kMaxCall;
constexpr uint32_t kOutputCapacity = (kMaxCall - 1) + (kBlock - 1) + kMaxCall;
constexpr double kBandDelayNs = 200000.0;
constexpr double kLowDelayNs = 2850000.0;
constexpr float kContourHz = 55.0F;
constexpr float kContourOffset = 0.1F;
// In single precision the contour's coefficients lie inside the stability triangle from a quality
// of 2.07e-6 on at every rate from 32000 to 48000 Hz; at this one, rounding moves the gain at 0 Hz
// by no more than 27 %, so it is also no louder than asked for.
constexpr float kSmallestQuality = 1e-5F;

template <typename Real>
struct Weights;
template <>
struct Weights<float> {
    static constexpr float kLow = 0.95F, kBand = 1.1F;
};
template <>
struct Weights<double> {
    static constexpr double kLow = 1, kBand = 1;
};

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
    : bufferCapacity(std::max(capacityFrames, kMinCapacity)) {
    for (auto& splitter : splitters) splitter.reset(new (std::nothrow) BandSpliter<Real>());
    SetUpSplitters();
    DesignContour();
    SetUpBuffers();
    Reset();
}

template <typename Sample, typename Real>
OrvaneSound<Sample, Real>::~OrvaneSound() = default;

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::SetUpSplitters() {
    constexpr Real kLowCutoff = 150, kHighCutoff = 1800;
    blockSize = 0;
    for (auto& splitter : splitters)
        if (!splitter || !splitter->SetParameter(kWindowType, kKernelLength, samplingRate,
                                                 kLowCutoff, kHighCutoff))
            return;
    blockSize = splitters[0]->GetProceedBufferSize();
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::SetUpBuffers() {
    inputBuffer = MakeBuffer(channels, std::max(bufferCapacity, kInputCapacity));
    outputBuffer = MakeBuffer(channels, std::max(bufferCapacity, kOutputCapacity));
    bandDelay = MakeBuffer(channels, kDelayCapacity);
    lowDelay = MakeBuffer(channels, kDelayCapacity);
    for (OwnedArray<Real>* block : {&blockBuffer, &highBlock, &bandBlock, &lowBlock})
        if (!block->Allocate(static_cast<size_t>(channels) * kBlock)) block->Release();
}

template <typename Sample, typename Real>
bool OrvaneSound<Sample, Real>::GetPrepared() const {
    return splitters[0] && splitters[1] && blockSize == kBlock && inputBuffer && outputBuffer &&
           bandDelay && lowDelay && !blockBuffer.empty() && !highBlock.empty() &&
           !bandBlock.empty() && !lowBlock.empty();
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::Reset() {
    loContourFilter = contourDesign;
    if (!GetPrepared()) return;
    for (auto& splitter : splitters) splitter->Reset();
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
    if (enable && std::is_same_v<Real, float>) Reset();
    enabled = enable;
    return true;
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::SetSamplingRate(uint32_t rateHz) {
    if (rateHz == samplingRate) return;
    samplingRate = rateHz;
    SetUpSplitters();
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
    loContourFilter = contourDesign;
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::DesignContour() {
    float quality = static_cast<float>(loContour + static_cast<Real>(kContourOffset));
    if (!(quality >= kSmallestQuality)) quality = kSmallestQuality;
    contourDesign.SetLowPassParameter(0, kContourHz, static_cast<float>(samplingRate), quality);
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
        splitters[c]->ConvolveInterleaved(blockBuffer.data() + c, lowBlock.data() + c,
                                          highBlock.data() + c, bandBlock.data() + c, blockSize,
                                          channels);
    bandDelay->PushSamples(bandBlock.data(), blockSize);
    lowDelay->PushSamples(lowBlock.data(), blockSize);
    bandDelay->PopSamples(bandBlock.data(), blockSize, false);
    lowDelay->PopSamples(lowBlock.data(), blockSize, false);
    for (size_t i = 0; i < blockBuffer.size(); ++i) {
        const Real low = lowBlock[i] * Weights<Real>::kLow;
        const Real high = highBlock[i] * process;
        const Real band = bandBlock[i] * Weights<Real>::kBand;
        blockBuffer[i] = (high + band) + low;
    }
    AddContour();
    outputBuffer->PushSamples(blockBuffer.data(), blockSize);
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
