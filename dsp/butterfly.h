// The butterflies of a radix-4 complex transform. They are templates over V, which is a number type
// or a vector type whose lanes are independent butterflies.
//
//   x0 = A + B     x1 = A - B       x2 = C + D     x3 = C - D
//   y0 = x0 + x2   y1 = x1 + i x3   y2 = x0 - x2   y3 = x1 - i x3
//
// V needs + and -. A type that forms sum and difference at once more cheaply overloads
// SumAndDifference. A type for which it helps to know which operand comes first in a stage
// overloads StagePair. F is the type of the constant factors and needs F * V. Every sum, difference
// and product is rounded by itself, in the order written.
#pragma once
#include <cstddef>

#include "dsp/code_generation.h"

template <typename V>
struct Complex {
    V re, im;
};
template <typename V>
struct SumDifference {
    V sum, difference;
};
template <typename V>
ORVANE_LANE_INLINE SumDifference<V> SumAndDifference(V a, V b) {
    return {a + b, a - b};
}

// Like SumAndDifference, for two values `span` or 2 `span` apart in the array, `first` before
// `second`. The difference is first - second, or second - first in the backward form.
template <typename V>
ORVANE_LANE_INLINE SumDifference<V> StagePair(V first, V second) {
    return SumAndDifference(first, second);
}
template <typename V>
ORVANE_LANE_INLINE SumDifference<V> BackwardStagePair(V first, V second) {
    return SumAndDifference(second, first);
}

// Returns the complex product w * y.
template <typename F, typename V>
ORVANE_LANE_CALL Complex<V> Twiddle(Complex<F> w, Complex<V> y) {
    return {w.re * y.re - w.im * y.im, w.re * y.im + w.im * y.re};
}

template <typename F>
struct Twiddles {
    Complex<F> w1, w2, w3;
};

// Computes the twiddle factors of group t from FFT_R24's table; they are the same in every stage.
// Groups t and t + 1 (t even) share one table entry for w2: the second group's w2 is that entry
// turned by a quarter.
template <typename T>
ORVANE_LANE_INLINE Twiddles<T> GroupTwiddles(const T* w, size_t t) {
    const bool second = t % 2 != 0;
    const Complex<T> w1 = {w[2 * t], w[2 * t + 1]}, shared = {w[t / 2 * 2], w[t / 2 * 2 + 1]};
    const T twice = 2 * (second ? shared.re : shared.im);
    return {w1,
            second ? Complex<T>{-shared.im, shared.re} : shared,
            {w1.re - twice * w1.im, twice * w1.re - w1.im}};
}

// The results, to be stored in the places of A, B, C, D.
template <typename V>
struct Radix4 {
    Complex<V> y0, y1, y2, y3;
};

template <typename V>
struct HalfRadix4 {
    ORVANE_LANE_INLINE HalfRadix4(Complex<V> A, Complex<V> B, Complex<V> C, Complex<V> D) {
        Set(x0.re, x1.re, StagePair(A.re, B.re));
        Set(x0.im, x1.im, StagePair(A.im, B.im));
        Set(x2.re, x3.re, StagePair(C.re, D.re));
        Set(x2.im, x3.im, StagePair(C.im, D.im));
    }
    ORVANE_LANE_INLINE static void Set(V& sum, V& difference, SumDifference<V> both) {
        sum = both.sum;
        difference = both.difference;
    }
    Complex<V> x0, x1, x2, x3;
};

template <typename V>
ORVANE_LANE_INLINE Radix4<V> Untwiddled(Complex<V> A, Complex<V> B, Complex<V> C, Complex<V> D) {
    const HalfRadix4<V> h(A, B, C, D);
    const auto re02 = StagePair(h.x0.re, h.x2.re), im02 = StagePair(h.x0.im, h.x2.im);
    const auto re13 = StagePair(h.x1.re, h.x3.im), im13 = StagePair(h.x1.im, h.x3.re);
    return {{re02.sum, im02.sum},
            {re13.difference, im13.sum},
            {re02.difference, im02.difference},
            {re13.sum, im13.difference}};
}

template <typename V, typename F>
ORVANE_LANE_INLINE Radix4<V> Twiddled(Complex<V> A, Complex<V> B, Complex<V> C, Complex<V> D,
                                      const Twiddles<F>& t) {
    const Radix4<V> r = Untwiddled(A, B, C, D);
    return {r.y0, Twiddle(t.w1, r.y1), Twiddle(t.w2, r.y2), Twiddle(t.w3, r.y3)};
}

// The butterfly of group 1, whose twiddle factors are eighth roots of unity; u = cos(pi/4).
template <typename V, typename F>
ORVANE_LANE_INLINE Radix4<V> EighthTurn(Complex<V> A, Complex<V> B, Complex<V> C, Complex<V> D,
                                        F u) {
    const HalfRadix4<V> h(A, B, C, D);
    const auto re02 = StagePair(h.x0.re, h.x2.re), im20 = BackwardStagePair(h.x0.im, h.x2.im);
    const auto re13 = StagePair(h.x1.re, h.x3.im), im31 = BackwardStagePair(h.x1.im, h.x3.re);
    const auto y1 = SumAndDifference(re13.difference, im31.sum);
    const auto y3 = SumAndDifference(im31.difference, re13.sum);
    return {{re02.sum, im20.sum},
            {u * y1.difference, u * y1.sum},
            {im20.difference, re02.difference},
            {u * y3.difference, u * y3.sum}};
}

// The butterfly of a backward transform's last stage: the conjugates of Untwiddled's results.
template <typename V>
ORVANE_LANE_INLINE Radix4<V> Conjugated(Complex<V> A, Complex<V> B, Complex<V> C, Complex<V> D) {
    HalfRadix4<V> h(A, B, C, D);
    h.x0.im = -A.im - B.im;
    h.x1.im = -A.im + B.im;
    return {{h.x0.re + h.x2.re, h.x0.im - h.x2.im},
            {h.x1.re - h.x3.im, h.x1.im - h.x3.re},
            {h.x0.re - h.x2.re, h.x0.im + h.x2.im},
            {h.x1.re + h.x3.im, h.x1.im + h.x3.re}};
}

// The radix-2 butterfly of a last stage whose span is half the transform.
template <typename V>
struct Radix2 {
    Complex<V> y0, y1;
};
template <typename V>
ORVANE_LANE_INLINE Radix2<V> Summed(Complex<V> A, Complex<V> B) {
    const auto re = SumAndDifference(A.re, B.re), im = SumAndDifference(A.im, B.im);
    return {{re.sum, im.sum}, {re.difference, im.difference}};
}
template <typename V>
ORVANE_LANE_INLINE Radix2<V> SummedConjugated(Complex<V> A, Complex<V> B) {
    const auto re = SumAndDifference(A.re, B.re);
    return {{re.sum, -A.im - B.im}, {re.difference, -A.im + B.im}};
}

// The step between the spectrum of n / 2 complex values and the spectrum of n real samples, for
// values q and n / 2 - q.
template <typename V>
struct MirroredPair {
    Complex<V> low, high;
};
template <typename V, typename F>
ORVANE_LANE_CALL MirroredPair<V> RealForward(Complex<V> a, Complex<V> b, F wkr, F wki) {
    const V xr = a.re - b.re, xi = a.im + b.im;
    const V yr = wkr * xr - wki * xi, yi = wkr * xi + wki * xr;
    return {{a.re - yr, a.im - yi}, {b.re + yr, b.im - yi}};
}
// The inverse of that step. It leaves the conjugates that the backward transform expects.
template <typename V, typename F>
ORVANE_LANE_CALL MirroredPair<V> RealInverse(Complex<V> a, Complex<V> b, F wkr, F wki) {
    const V xr = a.re - b.re, xi = a.im + b.im;
    const V yr = wkr * xr + wki * xi, yi = wkr * xi - wki * xr;
    return {{a.re - yr, yi - a.im}, {b.re + yr, yi - b.im}};
}
