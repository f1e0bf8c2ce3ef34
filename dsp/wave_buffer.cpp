#include "dsp/wave_buffer.h"

#include <algorithm>
#include <cstring>

WaveBuffer_R32::WaveBuffer_R32(uint32_t channelCount, uint32_t frames) : channels(channelCount) {
    const uint64_t wanted = static_cast<uint64_t>(channelCount) * frames;
    if (wanted > UINT32_MAX || !samples.Allocate(static_cast<size_t>(wanted))) return;
    capacity = static_cast<uint32_t>(wanted);
}

WaveBuffer_R32::~WaveBuffer_R32() = default;

void WaveBuffer_R32::Reset() {
    count = 0;
}

uint32_t WaveBuffer_R32::Reserve(uint32_t frames) {
    if (!Usable()) return 0;
    const uint64_t needed = count + static_cast<uint64_t>(frames) * channels;
    if (needed <= capacity) return 1;
    OwnedArray<float> larger;
    if (needed > UINT32_MAX || !larger.Allocate(static_cast<size_t>(needed))) return 0;
    std::memcpy(larger.data(), samples.data(), count * sizeof(float));
    samples = std::move(larger);
    capacity = static_cast<uint32_t>(needed);
    return 1;
}

template <typename Sample>
uint32_t WaveBuffer_R32::Push(const Sample* source, uint32_t frames) {
    if (Reserve(frames) == 0) return 0;
    Convert(source, samples.data() + count, frames);
    count += frames * channels;
    return 1;
}

uint32_t WaveBuffer_R32::PushSamples(const int16_t* source, uint32_t frames) {
    return Push(source, frames);
}
uint32_t WaveBuffer_R32::PushSamples(const float* source, uint32_t frames) {
    return Push(source, frames);
}
uint32_t WaveBuffer_R32::PushSamples(const double* source, uint32_t frames) {
    return Push(source, frames);
}

uint32_t WaveBuffer_R32::PushZero(uint32_t frames) {
    if (Reserve(frames) == 0) return 0;
    std::fill_n(samples.data() + count, frames * channels, 0.0F);
    count += frames * channels;
    return 1;
}

template <typename Sample>
uint32_t WaveBuffer_R32::Pop(Sample* destination, uint32_t frames, bool partial) {
    if (!Usable()) return 0;
    if (static_cast<uint64_t>(frames) * channels > count) {
        if (!partial) return 0;
        frames = count / channels;
    }
    Convert(samples.data(), destination, frames);
    DropFrames(frames);
    return frames;
}

void WaveBuffer_R32::DropFrames(uint32_t frames) {
    const uint32_t dropped = std::min(frames, GetBufferOffset()) * channels;
    count -= dropped;
    std::memmove(samples.data(), samples.data() + dropped, count * sizeof(float));
}

uint32_t WaveBuffer_R32::PopSamples(int16_t* destination, uint32_t frames, bool partial) {
    return Pop(destination, frames, partial);
}
uint32_t WaveBuffer_R32::PopSamples(float* destination, uint32_t frames, bool partial) {
    return Pop(destination, frames, partial);
}
uint32_t WaveBuffer_R32::PopSamples(double* destination, uint32_t frames, bool partial) {
    return Pop(destination, frames, partial);
}

uint32_t WaveBuffer_R32::SetBufferOffset(uint32_t frames) {
    const uint32_t size = GetBufferSize();
    if (frames <= size) count = frames * channels;
    return size;
}

uint32_t WaveBuffer_R32::GetBufferOffset() const {
    return channels != 0 ? count / channels : 0;
}
uint32_t WaveBuffer_R32::GetBufferSize() const {
    return channels != 0 ? capacity / channels : 0;
}

void WaveBuffer_R32::Short2Float(const int16_t* source, float* destination, uint32_t frames) const {
    Convert(source, destination, frames);
}
void WaveBuffer_R32::Float2Short(const float* source, int16_t* destination, uint32_t frames) const {
    Convert(source, destination, frames);
}
void WaveBuffer_R32::Double2Float(const double* source, float* destination, uint32_t frames) const {
    Convert(source, destination, frames);
}
void WaveBuffer_R32::Float2Double(const float* source, double* destination, uint32_t frames) const {
    Convert(source, destination, frames);
}
