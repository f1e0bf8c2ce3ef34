// A first-in first-out store of interleaved audio frames, held as floats with full scale 1.0,
// pushed and popped as 16-bit, float or double samples.
//
// The storage is contiguous, oldest sample first: a caller may work on the held samples in place
// (GetCurrentBufferR32Ptr) and then declare how many frames are held (SetBufferOffset).
// Allocates: the constructor, Reserve, and a push into too small a storage. Thread: no lock of its
// own; the owner serialises all calls.
#pragma once
#include <cstdint>

#include "dsp/owned_array.h"
#include "platform/export.h"

class ORVANE_API WaveBuffer_R32 {
public:
    // Room for `frames` frames of `channelCount` samples (at least 1). If memory is refused the
    // buffer has a size of 0 and refuses every push and pop.
    WaveBuffer_R32(uint32_t channelCount, uint32_t frames);
    ~WaveBuffer_R32();

    // Appends `frames` interleaved frames. Grows the storage to exactly what is needed. Returns 1,
    // or 0 with the buffer unchanged: no storage, or memory refused, or beyond 2^32 samples.
    uint32_t PushSamples(const int16_t* source, uint32_t frames);
    uint32_t PushSamples(const float* source, uint32_t frames);
    uint32_t PushSamples(const double* source, uint32_t frames);
    // Appends silence, likewise.
    uint32_t PushZero(uint32_t frames);

    // Moves the oldest `frames` frames to `destination` (interleaved) and returns `frames`. With
    // fewer held: `partial` moves those that there are and returns their number; without it nothing
    // happens and the result is 0.
    uint32_t PopSamples(int16_t* destination, uint32_t frames, bool partial);
    uint32_t PopSamples(float* destination, uint32_t frames, bool partial);
    uint32_t PopSamples(double* destination, uint32_t frames, bool partial);

    // Forgets the oldest `frames` frames, at most those that there are.
    void DropFrames(uint32_t frames);

    // Empties the buffer, keeps the storage.
    void Reset();

    // Makes room for `frames` more frames; later pushes of that many don't allocate. Like a push,
    // returns 1, or 0 with the buffer unchanged.
    uint32_t Reserve(uint32_t frames);

    // Declares the first `frames` frames of the storage held, unless they exceed the size. Returns
    // the size in frames.
    uint32_t SetBufferOffset(uint32_t frames);
    uint32_t GetBufferOffset() const;  // frames held
    uint32_t GetBufferSize() const;    // frames that the storage holds
    float* GetCurrentBufferR32Ptr() { return samples.data(); }

    // frames * channels samples. 16 bits to float: times the float nearest to 1/32767.
    void Short2Float(const int16_t* source, float* destination, uint32_t frames) const;
    // Times 32767, toward zero, saturated to 32 bits, of which the low 16 are kept: no clipping,
    // 1.5 wraps to -16386. Not a number gives 0.
    void Float2Short(const float* source, int16_t* destination, uint32_t frames) const;
    void Double2Float(const double* source, float* destination, uint32_t frames) const;
    void Float2Double(const float* source, double* destination, uint32_t frames) const;

private:
    ORVANE_LOCAL void Convert(const int16_t* source, float* destination, uint32_t frames) const;
    ORVANE_LOCAL void Convert(const float* source, float* destination, uint32_t frames) const;
    ORVANE_LOCAL void Convert(const double* source, float* destination, uint32_t frames) const;
    ORVANE_LOCAL void Convert(const float* source, int16_t* destination, uint32_t frames) const;
    ORVANE_LOCAL void Convert(const float* source, double* destination, uint32_t frames) const;
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
