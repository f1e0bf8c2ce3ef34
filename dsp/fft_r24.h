// Discrete Fourier transform of n real samples, n a power of two, in place, radix 4.
//
//   forward:  R[k] = sum a[j] cos(2 pi j k / n),  I[k] = sum a[j] sin(2 pi j k / n)
//   packed:   a[0] = R[0], a[1] = R[n/2], a[2k] = R[k], a[2k+1] = I[k]   (0 < k < n/2)
//   inverse:  a[j] = (R[0] + R[n/2] cos(pi j)) / 2 + sum over 0 < k < n/2 of
//                    R[k] cos(2 pi j k / n) + I[k] sin(2 pi j k / n)
//
// The sine has a plus sign. Nothing is scaled: forward and then inverse multiplies by n/2. The
// product of two forward spectra, taken as R + iI, is the spectrum of the circular convolution.
//
// Delay: none. Allocates: the constructor only. Thread: any; the static functions use only the
// arrays that the caller passes.
#pragma once
#include <cstdint>

#include "dsp/owned_array.h"
#include "platform/export.h"

template <typename T>
class ORVANE_API FFT_R24 {
public:
    // Allocates zero-filled work areas for transforms of `length` samples (a power of two, at least
    // 2). The first transform builds the tables. Prepared() returns false if memory was refused.
    explicit FFT_R24(uint32_t length);
    bool Prepared() const { return !w.empty() && !ip.empty(); }

    // Transforms a[0 .. n-1] in place.
    // ip: at least 2 + floor(sqrt(n / 2)) integers; ip[0] and ip[1] hold the sizes of the tables
    // built so far (0: none), the rest the offsets of the bit reversal.
    // w: at least n / 2 elements: n/4 twiddle factors, then n/4 factors of the real-spectrum step.
    // isgn: >= 0 forward, < 0 inverse. Builds the tables if n exceeds what ip records.
    static void rdft(int n, int isgn, T* a, int* ip, T* w);

    // The stages of the transform, on n/2 complex values in a[0 .. n-1].
    static void bitrv2(int n, int* ip, T* a);
    static void cft1st(int n, T* a, const T* w);
    static void cftmdl(int n, int l, T* a, const T* w);
    static void cftfsub(int n, T* a, const T* w);
    static void cftbsub(int n, T* a, const T* w);

    OwnedArray<T> w;     // 2 * length
    OwnedArray<int> ip;  // floor(sqrt(length)) + 2
    uint32_t length;
};

// Builds the tables of rdft for n samples, unless `ip` records that they are large enough.
template <typename T>
void MakeFftTables(int n, int* ip, T* w);

extern template class FFT_R24<float>;
extern template class FFT_R24<double>;
using FFT_R24_R32R32 = FFT_R24<float>;
using FFT_R24_R64R64 = FFT_R24<double>;
