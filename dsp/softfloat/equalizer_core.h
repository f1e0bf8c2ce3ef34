// The arithmetic of FIREqualizer<float, float> on unpacked numbers (number.h): its history, its
// running sums and its bands, each value as the equalizer's own step gives it, to the bit but for
// the signs of zeros.
//
// Samples must be multiples of 2^-30 below 1.5, as conversion from 16 bits makes them, and are kept
// as such integers; gains must fit for factors. Then no product is subnormal.
//
// Allocates: never. Thread: no lock of its own; the owner serialises all calls.
#pragma once
#include <cstddef>
#include <cstdint>

#include "dsp/softfloat/average.h"
#include "dsp/softfloat/number.h"
#include "dsp/stream.h"

class SoftEqualizerCore {
public:
    static constexpr size_t kBands = 10;
    static constexpr size_t kAverages = kBands - 1;
    static constexpr size_t kReach = 256;  // half-width of the widest average

    SoftEqualizerCore() { Reset(); }
    // Silence everywhere.
    void Reset();

    // `frames` frames of `channels` interleaved samples, in place or, if `shorts` are given, from
    // them, as after conversion; gains from the top band down. Returns the frames before the first
    // chunk that has what can't be held, and stays as it is: all of them if shorts are given and
    // the gains fit, else none.
    size_t Process(const int16_t* shorts, float* samples, size_t frames, size_t channels,
                   const float* gains);

    // For a change to the plain form: the sample of `ago` frames (1: the newest, at most 512), and
    // the sum of average k.
    float Past(size_t channel, size_t ago) const;
    float Sum(size_t channel, size_t k) const;

private:
    static constexpr size_t kChunk = 128;  // frames at a time
    static constexpr size_t kRoom = 512;   // frames between two moves of the history
    static constexpr size_t kHistory = 2 * kReach;

    bool Take(const int16_t* shorts, const float* samples, size_t frames, size_t channels);
    void ProcessChunk(size_t channel, size_t frames, const SoftFactor* gains, AverageRow* rows);
    void MakeRoom(size_t frames);

    SampleSum sums[kMaxChannels][kAverages];
    int32_t history[kMaxChannels][kHistory + kRoom];  // the newest lie before `end`
    size_t end;
    size_t silent;  // frames of silence before `end`, as far as it matters
};
