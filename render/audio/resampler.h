// A stream from one sampling rate to another, through soxr. Aligned: what it delays it also drops.
#pragma once
#include <soxr.h>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

// The rate at which the chain runs for a file of fileRateHz: the same from 32000 to 48000 Hz, else
// 44100 or 48000, whose family the file's rate belongs to (48000 for one that belongs to neither).
uint32_t ChainRateHz(uint32_t fileRateHz);

class Resampler {
public:
    // Equal rates: samples pass unchanged. Throws Failure.
    Resampler(uint32_t inRateHz, uint32_t outRateHz, uint32_t channelCount);

    bool IsIdle() const { return handle == nullptr; }
    // Interleaved samples, whole frames; appends to `out`.
    void Process(std::span<const float> in, std::vector<float>* out);
    // The end of the stream: appends the rest.
    void Finish(std::vector<float>* out);

private:
    struct Deleter {
        void operator()(soxr_t state) const { soxr_delete(state); }
    };
    void Run(const float* in, size_t frames, std::vector<float>* out);

    std::unique_ptr<soxr, Deleter> handle;
    size_t channels;
    std::vector<float> block;
};
