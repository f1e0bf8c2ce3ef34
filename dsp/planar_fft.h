// The complex transforms inside FFT_R24 on planar data (real parts in one array, imaginary parts in
// another). So a vector holds independent butterflies, and the bit reversal costs nothing.
//
// A transform has M = n / 2 complex values; n is a power of two and at least 128. Forward gives the
// bits of FFT_R24's bitrv2 followed by cftfsub, Backward those of bitrv2 followed by cftbsub. Value
// q of the packed array, a[2q] and a[2q + 1], is at re[q] and im[q] here. Types without vectors,
// and transforms too short for vectors, are packed and computed by FFT_R24 itself.
//
// Allocates: Prepare. Thread: no lock of its own, and the transforms share a work area; the owner
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
    // Prepares transforms of n real samples. `w` is FFT_R24's table of n / 4 twiddle factors.
    // Returns false, and the object isn't prepared, if memory is refused.
    bool Prepare(uint32_t n, const T* w);
    bool Prepared() const { return M != 0; }

    // Transform M values from `in` to `out`, which must not overlap.
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
    OwnedArray<T> packed, packedFactors;  // the packed array and table for FFT_R24
    OwnedArray<int> workArea;             // for FFT_R24's bit reversal

    T eighth = 0;                               // cos(pi / 4)
    OwnedArray<uint32_t> reversed;              // the bit-reversed numbers 0 to M / 16 - 1
    OwnedArray<T> firstFactors, secondFactors;  // of the first two stages, as vectors of each part
    OwnedArray<Twiddles<T>> laterFactors;       // [t]: factors of group t in every later stage
};

extern template class PlanarFft<float>;
extern template class PlanarFft<double>;
