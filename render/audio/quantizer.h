// Floats to the 16 bits that the chain takes.
#pragma once
#include <cstdint>
#include <random>
#include <span>
#include <vector>

// y = round(32768 x + d), held within 16 bits; full scale of x is 1.0. With dither, d is triangular
// over +-1 (the difference of two uniform numbers), which leaves of the rounding an even noise
// instead of distortion: S. P. Lipshitz, R. A. Wannamaker and J. Vanderkooy, "Quantization and
// Dither: A Theoretical Survey", JAES 40 (1992). The same noise in every run. Without dither, what
// was 16 bits comes back to the bit. An x that is no number, or infinite, is taken for silence.
class Quantizer {
public:
    explicit Quantizer(bool dithered) : dither(dithered) {}

    // Appends to `out`.
    void Process(std::span<const float> in, std::vector<int16_t>* out);

    // Samples beyond full scale so far.
    uint64_t Clipped() const { return clipped; }
    // Samples taken for silence so far.
    uint64_t NotNumbers() const { return notNumbers; }

private:
    double Noise();

    bool dither;
    std::minstd_rand random;
    uint64_t clipped = 0, notNumbers = 0;
};
