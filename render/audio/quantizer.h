// Converts floats to the 16-bit samples that the chain takes. Use an object on one thread.
#pragma once
#include <cstdint>
#include <random>
#include <span>
#include <vector>

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
