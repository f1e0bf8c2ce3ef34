// Complex values, or pairs of neighbouring samples (2q, 2q + 1), with the first parts in one array
// and the second ones in another.
#pragma once
#include <cstddef>

#include "dsp/butterfly.h"
#include "dsp/lanes.h"

template <typename T>
struct Planar {
    T* re;
    T* im;

    operator Planar<const T>() const { return {re, im}; }
    Planar operator+(size_t q) const { return {re + q, im + q}; }
};

// Values from q on, one a lane.
template <typename V, typename T>
ORVANE_LANE_INLINE Complex<V> LoadAt(Planar<T> a, size_t q) {
    return {Load<V>(a.re + q), Load<V>(a.im + q)};
}
template <typename V, typename T>
ORVANE_LANE_INLINE void StoreAt(Planar<T> a, size_t q, Complex<V> v) {
    Store(a.re + q, v.re);
    Store(a.im + q, v.im);
}

// Values from q on down.
template <typename V, typename T>
ORVANE_LANE_INLINE Complex<V> LoadReversed(Planar<T> a, size_t q) {
    const size_t first = q - (kWidth<V, T> - 1);
    return {Reversed(Load<V>(a.re + first)), Reversed(Load<V>(a.im + first))};
}
template <typename V, typename T>
ORVANE_LANE_INLINE void StoreReversed(Planar<T> a, size_t q, Complex<V> v) {
    StoreAt(a, q - (kWidth<V, T> - 1), Complex<V>{Reversed(v.re), Reversed(v.im)});
}
