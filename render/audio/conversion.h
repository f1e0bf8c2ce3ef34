// Converts streams of samples: from one sampling rate to another, and from floats to 16 bits. Use
// an object on one thread.
#pragma once
#include <soxr.h>

#include <cstdint>
#include <memory>
#include <random>
#include <span>
#include <vector>

// Returns the rate at which the chain processes a file of `fileRateHz`. From 32000 to 48000 Hz, it
// is the file's own rate. Otherwise it is 44100 Hz for multiples of 11025 Hz and 48000 Hz for all
// others.
uint32_t ChainRateHz(uint32_t fileRateHz);

// Converts a stream from one sampling rate to another, with soxr's high quality (SOXR_HQ). The
// output is aligned with the input: the converter's delay is removed.
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

// Converts floats to the 16-bit samples that the chain takes:
// y = round(32768 x + d), clamped to 16 bits. Full scale of x is 1.0.
//
// With dither, d is the difference of two uniform random numbers, triangular over -1 to 1. It turns
// the distortion of rounding into even noise: S. P. Lipshitz, R. A. Wannamaker and J. Vanderkooy,
// "Quantization and Dither: A Theoretical Survey", JAES 40 (1992). The noise is the same in every
// run.
//
// Without dither d is 0, and samples that came from 16 bits are returned exactly. If x is NaN or
// infinite, y is that of x = 0.
class Quantizer {
public:
    explicit Quantizer(bool dithered) : dither(dithered) {}

    // Appends one sample to *out for each sample of `in`.
    void Process(std::span<const float> in, std::vector<int16_t>* out);

    // Returns how many samples were beyond full scale so far.
    uint64_t Clipped() const { return clipped; }
    // Returns how many samples were NaN or infinite so far.
    uint64_t NotNumbers() const { return notNumbers; }

private:
    double Noise();

    bool dither;
    std::minstd_rand random;
    uint64_t clipped = 0, notNumbers = 0;
};
