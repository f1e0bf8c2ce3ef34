// Converts a stream from one sampling rate to another, with soxr's high quality (SOXR_HQ). The
// output is aligned with the input: the converter's delay is removed. Use an object on one thread.
#pragma once
#include <soxr.h>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

// Returns the rate at which the chain processes a file of `fileRateHz`. From 32000 to 48000 Hz, it
// is the file's own rate. Otherwise it is 44100 Hz for multiples of 11025 Hz and 48000 Hz for all
// others.
uint32_t ChainRateHz(uint32_t fileRateHz);

class Resampler {
public:
    // If the rates are equal, samples pass unchanged. The constructor, Process and Finish throw
    // Failure.
    Resampler(uint32_t inRateHz, uint32_t outRateHz, uint32_t channelCount);

    bool IsIdle() const { return handle == nullptr; }
    // Takes whole interleaved frames and appends the resampled frames that are ready to *out.
    void Process(std::span<const float> in, std::vector<float>* out);
    // Ends the stream and appends its last frames to *out.
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
