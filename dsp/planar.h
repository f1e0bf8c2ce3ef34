// Planar storage of pairs: the first parts are in one array, the second parts in another. A pair is
// a complex value, or two neighbouring samples (2q, 2q + 1) of one channel.
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

// Load and store the values from index q on, one in each lane.
template <typename V, typename T>
ORVANE_LANE_INLINE Complex<V> LoadAt(Planar<T> a, size_t q) {
    return {Load<V>(a.re + q), Load<V>(a.im + q)};
}
template <typename V, typename T>
ORVANE_LANE_INLINE void StoreAt(Planar<T> a, size_t q, Complex<V> v) {
    Store(a.re + q, v.re);
    Store(a.im + q, v.im);
}

// Load and store the values from index q downward: lane i is value q - i.
template <typename V, typename T>
ORVANE_LANE_INLINE Complex<V> LoadReversed(Planar<T> a, size_t q) {
    const size_t first = q - (kWidth<V, T> - 1);
    return {Reversed(Load<V>(a.re + first)), Reversed(Load<V>(a.im + first))};
}
template <typename V, typename T>
ORVANE_LANE_INLINE void StoreReversed(Planar<T> a, size_t q, Complex<V> v) {
    StoreAt(a, q - (kWidth<V, T> - 1), Complex<V>{Reversed(v.re), Reversed(v.im)});
}
