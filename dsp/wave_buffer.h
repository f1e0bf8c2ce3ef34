// A first-in first-out buffer of interleaved audio frames. It holds floats with full scale 1.0;
// samples are pushed and popped as 16-bit integers, floats or doubles.
//
// The storage is contiguous, oldest sample first. So a caller may process the held samples in place
// (GetCurrentBufferR32Ptr) and then declare how many frames are held (SetBufferOffset).
// Allocates: the constructor, Reserve, and a push into too small a storage. Thread: no lock of its
// own; the owner serialises all calls.
#pragma once
#include <cstdint>

#include "dsp/owned_array.h"
#include "dsp/samples.h"
#include "platform/export.h"

class ORVANE_API WaveBuffer_R32 {
public:
    // Makes room for `frames` frames of `channelCount` samples (at least 1). If memory is refused,
    // the buffer has a size of 0 and refuses every push and pop.
    WaveBuffer_R32(uint32_t channelCount, uint32_t frames);
    ~WaveBuffer_R32();

    // Append `frames` interleaved frames. If the storage is too small, it grows to exactly what is
    // needed. They return 1. They return 0, with the buffer unchanged, if there is no storage, if
    // memory is refused, or if more than 2^32 samples would be held.
    uint32_t PushSamples(const int16_t* source, uint32_t frames);
    uint32_t PushSamples(const float* source, uint32_t frames);
    uint32_t PushSamples(const double* source, uint32_t frames);
    // Appends `frames` frames of silence, with the same results.
    uint32_t PushZero(uint32_t frames);

    // Move the oldest `frames` frames to `destination` (interleaved) and return `frames`. If fewer
    // are held and `partial` is true, they move those and return their number. If `partial` is
    // false, they move nothing and return 0.
    uint32_t PopSamples(int16_t* destination, uint32_t frames, bool partial);
    uint32_t PopSamples(float* destination, uint32_t frames, bool partial);
    uint32_t PopSamples(double* destination, uint32_t frames, bool partial);

    // Discards the oldest `frames` frames, or all if fewer are held.
    void DropFrames(uint32_t frames);

    // Empties the buffer, keeps the storage.
    void Reset();

    // Makes room for `frames` more frames, so that later pushes of that many don't allocate.
    // Returns 1, or 0 with the buffer unchanged for the reasons that a push has.
    uint32_t Reserve(uint32_t frames);

    // Declares that the first `frames` frames of the storage are held; does nothing if that exceeds
    // the size. Returns the size in frames.
    uint32_t SetBufferOffset(uint32_t frames);
    uint32_t GetBufferOffset() const;  // frames held
    uint32_t GetBufferSize() const;    // frames that fit into the storage
    float* GetCurrentBufferR32Ptr() { return samples.data(); }

    // Each converts frames * channels samples. Short2Float multiplies by the float nearest to
    // 1/32767.
    void Short2Float(const int16_t* source, float* destination, uint32_t frames) const;
    // Multiplies by 32767, truncates toward zero, saturates to 32 bits and keeps the low 16 bits.
    // So nothing is clipped: 1.5 wraps to -16386. NaN gives 0.
    void Float2Short(const float* source, int16_t* destination, uint32_t frames) const;
    void Double2Float(const double* source, float* destination, uint32_t frames) const;
    void Float2Double(const float* source, double* destination, uint32_t frames) const;

private:
    template <typename From, typename To>
    ORVANE_LOCAL void Convert(const From* source, To* destination, uint32_t frames) const {
        ConvertSamples(source, destination, size_t{frames} * channels);
    }
    template <typename Sample>
    ORVANE_LOCAL uint32_t Push(const Sample* source, uint32_t frames);
    template <typename Sample>
    ORVANE_LOCAL uint32_t Pop(Sample* destination, uint32_t frames, bool partial);
    ORVANE_LOCAL bool Usable() const { return capacity != 0 && channels != 0; }

    OwnedArray<float> samples;  // the first `count` are held
    uint32_t capacity = 0;      // samples
    uint32_t count = 0;         // samples, whole frames
    uint32_t channels;
};
