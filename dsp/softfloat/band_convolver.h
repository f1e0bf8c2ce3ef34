// The three circular convolutions of BandFilters<float> on unpacked numbers (number.h): one forward
// transform of a block, three products, three inverse transforms, each value as floats give it, to
// the bit but for the signs of zeros.
//
// Allocates: Allocate only. Thread: no lock of its own; the owner serialises all calls.
#pragma once
#include <cstddef>
#include <cstdint>

#include "dsp/butterfly.h"
#include "dsp/owned_array.h"
#include "dsp/planar.h"
#include "dsp/softfloat/block_ends.h"
#include "dsp/softfloat/number.h"
#include "dsp/softfloat/spectrum_product.h"

class SoftBandConvolver {
public:
    static constexpr size_t kBands = 3;

    // For transforms of n values. False if memory is refused. An n other than 2^(2 k), 16 to 2^16,
    // is no error: Convolve then answers false.
    bool Allocate(uint32_t n);

    // twiddles: FFT_R24's table of n / 4 factors; realFactors as BandFilters has them. Where a
    // factor doesn't fit the numbers, as for an n above 1024, Convolve answers false.
    void SetFactors(const float* twiddles, Planar<const float> realFactors);
    // As BandFilters has them. Where a factor doesn't fit the numbers, Convolve answers false.
    void SetKernels(const Planar<const float> (&bands)[kBands]);

    // block: `pairs` pairs of samples, more than n / 4. bands: n / 2 pairs each; one of them may be
    // `block`. tails: of each band n / 2 - pairs pairs, planar, are added to the band's first pairs
    // and become those behind its first `pairs`. False, with block and tails as they were, if a
    // value leaves the numbers' range.
    bool Convolve(Planar<const float> block, size_t pairs, const Planar<float> (&bands)[kBands],
                  float* tails);

private:
    using Number = Complex<SoftFloat>;

    bool Stages(Number* a) const;
    bool RealSpectrum();
    bool ProductToWork(const SoftTurn* kernel);
    void PassSilence(Planar<float> band, size_t pairs, Planar<const float> tail) const;
    void Finish(Planar<float> band, size_t pairs, Planar<const float> tail) const;

    size_t half = 0;  // complex values: n / 2
    bool factorsFit = false, kernelsFit = false;
    SoftFactor eighth = {};             // cos(pi / 4)
    OwnedArray<SoftTwiddles> factors;   // by group of any stage: half / 4
    OwnedArray<MirroredPlaces> places;  // half / 2, the first unused; in `work`
    OwnedArray<SoftTurn> kernels;       // half each; the first of each holds two real factors. With
                                        // exponents raised as the inverse transform's places are.
    OwnedArray<TransformPlace> reversed;  // by index of a complex value: its bits reversed
    OwnedArray<Number> spectrum, work;
};
