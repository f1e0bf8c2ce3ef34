// The three circular convolutions of BandFilters<float> with unpacked floats (number.h): one
// forward transform of a block, three products, three inverse transforms. Each value has the bits
// that floats give, but for the signs of zeros.
//
// Allocates: Allocate only. Thread: no lock of its own; the owner serialises all calls.
#pragma once
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "dsp/butterfly.h"
#include "dsp/owned_array.h"
#include "dsp/planar.h"
#include "dsp/softfloat/block_ends.h"
#include "dsp/softfloat/number.h"
#include "dsp/softfloat/spectrum_product.h"

class SoftBandConvolver {
public:
    static constexpr size_t kBands = 3;

    // Prepares transforms of n values. Returns false if memory is refused. n should be 2^(2 k) and
    // from 16 to 2^16; for any other n, Convolve returns false.
    bool Allocate(uint32_t n);

    // Sets the transform's factors. `twiddles` is FFT_R24's table of n / 4 factors; `realFactors`
    // are those of BandFilters. If one can't be a factor of unpacked floats, as for an n above
    // 1024, Convolve returns false.
    void SetFactors(const float* twiddles, Planar<const float> realFactors);
    // Sets the kernels' spectra in BandFilters' order. If one can't be a factor, Convolve returns
    // false.
    void SetKernels(const Planar<const float> (&bands)[kBands]);

    // Convolves a block of `pairs` pairs of samples, more than n / 4. Each of `bands` has room for
    // n / 2 pairs; one of them may be `block`. `tails` has n / 2 - pairs pairs for each band,
    // planar. They are added to the band's first pairs; the pairs behind the first `pairs` become
    // the new tails. Returns false, with block and tails unchanged, if a value leaves the range of
    // unpacked floats.
    bool Convolve(Planar<const float> block, size_t pairs, const Planar<float> (&bands)[kBands],
                  float* tails);

private:
    using Number = Complex<SoftFloat>;

    bool Stages(Number* a) const;
    bool RealSpectrum();
    bool ProductToWork(const MirroredTurns* kernel);
    void PassSilence(Planar<float> band, size_t pairs, Planar<const float> tail) const;
    void Finish(Planar<float> band, size_t pairs, Planar<const float> tail) const;

    size_t half = 0;  // complex values: n / 2
    bool factorsFit = false, kernelsFit = false;
    SoftFactor eighth = {};             // cos(pi / 4)
    OwnedArray<SoftTwiddles> factors;   // [t]: factors of group t in any stage; half / 4
    OwnedArray<MirroredPlaces> places;  // half / 2, the first unused; point into `work`
    // half / 2 for each band. The first one holds two real factors (left) and the middle value's
    // factor (right). Exponents are raised as the inverse transform's places need.
    OwnedArray<MirroredTurns> kernels;
    OwnedArray<TransformPlace> reversed;  // [k]: the place with k's bits reversed
    OwnedArray<Number> spectrum, work;
};

// The place of SoftBandConvolver in builds whose floats aren't unpacked. Convolve returns false, so
// that BandFilters uses the ordinary transforms.
template <typename T>
struct NoConvolver {
    static bool Allocate(uint32_t) { return true; }
    static void SetFactors(const T*, Planar<const T>) {}
    static void SetKernels(const Planar<const T> (&)[SoftBandConvolver::kBands]) {}
    static bool Convolve(Planar<const T>, size_t, const Planar<T> (&)[SoftBandConvolver::kBands],
                         T*) {
        return false;
    }
};
template <typename T>
using UnpackedConvolver =
    std::conditional_t<kSoftFloat && std::is_same_v<T, float>, SoftBandConvolver, NoConvolver<T>>;
