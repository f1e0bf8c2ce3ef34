// The complex transforms inside FFT_R24, on planar data: real parts in one array, imaginary parts
// in another, so that vectors hold butterflies side by side and the bit reversal costs nothing.
//
// M = n / 2 complex values, n a power of two, at least 128. Forward equals FFT_R24's bitrv2 and
// cftfsub, Backward its bitrv2 and cftbsub, bit for bit: value q of its packed array, a[2q] and
// a[2q + 1], stands at re[q] and im[q].
//
// Allocates: Prepare. Thread: the transforms have no state.
#pragma once
#include <cstddef>
#include <cstdint>

#include "dsp/owned_array.h"
#include "dsp/planar.h"

template <typename T>
class PlanarFft {
public:
    // Takes the factors for n from FFT_R24's table `w` of n / 4 twiddle factors. False if memory is
    // refused.
    bool Prepare(uint32_t n, const T* w);
    bool Prepared() const { return !reversed.empty(); }

    // Not in place, `in` and `out` don't overlap.
    void Forward(Planar<const T> in, Planar<T> out) const;
    void Backward(Planar<const T> in, Planar<T> out) const;

private:
    size_t Width() const;  // lanes of the first two stages
    template <bool backward>
    void Transform(Planar<const T> in, Planar<T> out) const;
    template <typename V>
    void FirstTwoStages(Planar<const T> in, Planar<T> out) const;
    template <typename V>
    void RedoGroup(Planar<const T> in, Planar<T> rows, size_t t, Planar<T> out) const;
    void MiddleStage(Planar<T> a, size_t span) const;
    template <bool backward>
    void LastTwoStages(Planar<T> a, size_t span) const;

    size_t M = 0;
    T eighth = 0;                               // cos(pi / 4)
    OwnedArray<uint32_t> reversed;              // M / 16 numbers, their bits reversed
    OwnedArray<T> firstFactors, secondFactors;  // of the first two stages, vectors of each part
    OwnedArray<Twiddles<T>> laterFactors;       // of group t in every later stage
};

extern template class PlanarFft<float>;
extern template class PlanarFft<double>;
