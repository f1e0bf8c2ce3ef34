// The complex transforms inside FFT_R24, on planar data: real parts in one array, imaginary parts
// in another, so that vectors hold butterflies side by side and the bit reversal costs nothing.
//
// M = n / 2 complex values, n a power of two, at least 128. Forward equals FFT_R24's bitrv2 and
// cftfsub, Backward its bitrv2 and cftbsub, bit for bit: value q of its packed array, a[2q] and
// a[2q + 1], stands at re[q] and im[q]. Numbers of which no vector holds several, and transforms
// too short for vectors, are packed and left to FFT_R24.
//
// Allocates: Prepare. Thread: no lock of its own, and the transforms have a work area; the owner
// serialises all calls.
#pragma once
#include <cstddef>
#include <cstdint>

#include "dsp/fft_r24.h"
#include "dsp/owned_array.h"
#include "dsp/planar.h"

template <typename T>
class PlanarFft {
public:
    // Takes the factors for n from FFT_R24's table `w` of n / 4 twiddle factors. False if memory is
    // refused.
    bool Prepare(uint32_t n, const T* w);
    bool Prepared() const { return M != 0; }

    // Not in place, `in` and `out` don't overlap.
    void Forward(Planar<const T> in, Planar<T> out);
    void Backward(Planar<const T> in, Planar<T> out);

private:
    using Widest = typename WidestVector<T>::Type;
    static constexpr size_t kWide = kWidth<Widest, T>;

    bool PreparePacked(const T* w);
    bool PrepareVectors(const T* w);
    void TransformPacked(bool backward, Planar<const T> in, Planar<T> out);
    template <bool backward>
    void TransformVectors(Planar<const T> in, Planar<T> out) const;
    void FirstTwoStages(Planar<const T> in, Planar<T> out) const;
    void RedoGroup(Planar<const T> in, Planar<T> rows, size_t t, Planar<T> out) const;
    void MiddleStage(Planar<T> a, size_t span) const;
    template <bool backward>
    void LastTwoStages(Planar<T> a, size_t span) const;

    size_t M = 0;
    OwnedArray<T> packed, packedFactors;  // FFT_R24's array and table
    OwnedArray<int> workArea;             // of its bit reversal

    T eighth = 0;                               // cos(pi / 4)
    OwnedArray<uint32_t> reversed;              // M / 16 numbers, their bits reversed
    OwnedArray<T> firstFactors, secondFactors;  // of the first two stages, vectors of each part
    OwnedArray<Twiddles<T>> laterFactors;       // of group t in every later stage
};

extern template class PlanarFft<float>;
extern template class PlanarFft<double>;
