// Vectors of independent numbers, as wide as the target supports.
//
// Code above this header names neither a width nor a processor. It works with 1, 4 and 8 lanes and
// gives the bits of the same expression on single numbers. The samples at the end of a buffer that
// fill no vector go through the same template with V = float. Products and sums are the plain
// operators, each rounded by itself; a choice is `x > y ? x : y`. Write a zero vector as
// Broadcast(0). Don't add it to a value that may be -0, because -0 + 0 is +0.
#pragma once
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#if defined(ORVANE_LANES)  // for tests: any width works on any processor, but slowly
inline constexpr size_t kLanes = ORVANE_LANES;
#elif defined(__AVX2__)
inline constexpr size_t kLanes = 8;
#elif defined(__SSE2__) || defined(__aarch64__) || defined(__wasm_simd128__)
inline constexpr size_t kLanes = 4;
#else
inline constexpr size_t kLanes = 1;
#endif
static_assert(kLanes == 1 || kLanes == 4 || kLanes == 8);

template <typename T, size_t width>
struct VectorOf {
    typedef T Type __attribute__((vector_size(width * sizeof(T))));
};
template <typename T>
struct VectorOf<T, 1> {
    using Type = T;
};
// kLanes floats. With one lane this is plain float.
using Lanes = VectorOf<float, kLanes>::Type;
using IntLanes = VectorOf<int32_t, kLanes>::Type;

// The widest vector type for T. It is Lanes for float; other types have no vector.
template <typename T>
struct WidestVector {
    using Type = T;
};
template <>
struct WidestVector<float> {
    using Type = Lanes;
};
template <typename V, typename T>
inline constexpr size_t kWidth = sizeof(V) / sizeof(T);

// Load from and store to any address that is aligned for T. Lane i is p[i].
template <typename V = Lanes, typename T>
[[gnu::always_inline]] inline V Load(const T* p) {
    V v;
    std::memcpy(&v, __builtin_assume_aligned(p, alignof(T)), sizeof v);
    return v;
}
template <typename V, typename T>
[[gnu::always_inline]] inline void Store(T* p, V v) {
    std::memcpy(__builtin_assume_aligned(p, alignof(T)), &v, sizeof v);
}

// Stores lanes 0 to 3 at `first` and lanes 4 to 7 at `second`. Narrower vectors go to `first` only.
template <typename V, typename T>
[[gnu::always_inline]] inline void StoreFours(T* first, T* second, V v) {
    if constexpr (kWidth<V, T> == 8) {
        Store(first, __builtin_shufflevector(v, v, 0, 1, 2, 3));
        Store(second, __builtin_shufflevector(v, v, 4, 5, 6, 7));
    } else {
        Store(first, v);
    }
}

// Load two floats from `first` and two from `second`, and store them back. The pairs are moved as
// doubles, because compilers load and store these directly as halves of a register.
using FourFloats = VectorOf<float, 4>::Type;
using TwoFloats [[gnu::may_alias, gnu::aligned(alignof(float))]] = double;
[[gnu::always_inline]] inline FourFloats LoadTwos(const float* first, const float* second) {
    const VectorOf<double, 2>::Type twos = {*reinterpret_cast<const TwoFloats*>(first),
                                            *reinterpret_cast<const TwoFloats*>(second)};
    return std::bit_cast<FourFloats>(twos);
}
[[gnu::always_inline]] inline void StoreTwos(float* first, float* second, FourFloats v) {
    const auto twos = std::bit_cast<VectorOf<double, 2>::Type>(v);
    *reinterpret_cast<TwoFloats*>(first) = twos[0];
    *reinterpret_cast<TwoFloats*>(second) = twos[1];
}

// Returns a vector with x in every lane.
template <typename V = Lanes, typename T>
[[gnu::always_inline]] inline V Broadcast(T x) {
    if constexpr (kWidth<V, T> == 1)
        return x;
    else
        return x - V{};  // keeps the sign of a zero
}

// Returns `width` lanes. Lane i is the one that index(i) names: 0 and up are the lanes of a, and
// those of b follow.
template <size_t width, auto index, typename V>
[[gnu::always_inline]] inline auto Shuffled(V a, V b) {
    return [=]<size_t... i>(std::index_sequence<i...>) __attribute__((always_inline)) {
        return __builtin_shufflevector(a, b, index(i)...);
    }
    (std::make_index_sequence<width>());
}

// Returns the lanes in reverse order.
template <typename V>
[[gnu::always_inline]] inline V Reversed(V v) {
    if constexpr (std::is_arithmetic_v<V>) {
        return v;
    } else {
        constexpr size_t W = sizeof v / sizeof v[0];
        return Shuffled<W, [](size_t i) { return W - 1 - i; }>(v, v);
    }
}

// Returns |x| of a float or of each lane of a vector of floats.
template <typename V>
[[gnu::always_inline]] inline V Absolute(V x) {
    using Ints = typename VectorOf<int32_t, kWidth<V, float>>::Type;
    return std::bit_cast<V>(std::bit_cast<Ints>(x) & INT32_MAX);
}

// Returns true if the comparison holds in any lane.
template <typename Mask>
[[gnu::always_inline]] inline bool AnyLane(Mask mask) {
    if constexpr (std::is_integral_v<Mask>) {
        return mask != 0;
    } else {
        uint64_t halves[sizeof mask / sizeof(uint64_t)], any = 0;
        std::memcpy(halves, &mask, sizeof mask);
        for (const uint64_t half : halves) any |= half;
        return any != 0;
    }
}

// Transposes the four rows a, b, c, d within each group of four lanes. Rows before and after:
//   a0 a1 a2 a3      a0 b0 c0 d0
//   b0 b1 b2 b3      a1 b1 c1 d1
//   c0 c1 c2 c3      a2 b2 c2 d2
//   d0 d1 d2 d3      a3 b3 c3 d3
// Single numbers stay as they are.
template <typename V>
[[gnu::always_inline]] inline void Transpose(V& a, V& b, V& c, V& d) {
    if constexpr (!std::is_arithmetic_v<V>) {
        constexpr size_t W = sizeof a / sizeof a[0];
        constexpr auto lower = [](size_t i) { return i / 4 * 4 + i % 4 / 2 + i % 2 * W; };
        constexpr auto upper = [](size_t i) { return i / 4 * 4 + i % 4 / 2 + i % 2 * W + 2; };
        constexpr auto first = [](size_t i) { return i / 4 * 4 + i % 2 + i % 4 / 2 * W; };
        constexpr auto second = [](size_t i) { return i / 4 * 4 + i % 2 + i % 4 / 2 * W + 2; };
        const V a0b0a1b1 = Shuffled<W, lower>(a, b), a2b2a3b3 = Shuffled<W, upper>(a, b);
        const V c0d0c1d1 = Shuffled<W, lower>(c, d), c2d2c3d3 = Shuffled<W, upper>(c, d);
        a = Shuffled<W, first>(a0b0a1b1, c0d0c1d1);
        b = Shuffled<W, second>(a0b0a1b1, c0d0c1d1);
        c = Shuffled<W, first>(a2b2a3b3, c2d2c3d3);
        d = Shuffled<W, second>(a2b2a3b3, c2d2c3d3);
    }
}

// Load and store four rows as columns. place(i) is the address of four numbers; they are lane i of
// the rows a, b, c, d. With x = place(0), y = place(1), ...
//   a  x0 y0 z0 w0 ..
//   b  x1 y1 z1 w1 ..
//   c  x2 y2 z2 w2 ..
//   d  x3 y3 z3 w3 ..
template <typename V, typename Place>
[[gnu::always_inline]] inline void LoadColumns(V& a, V& b, V& c, V& d, Place place) {
    if constexpr (std::is_arithmetic_v<V>) {
        a = place(0)[0];
        b = place(0)[1];
        c = place(0)[2];
        d = place(0)[3];
    } else {
        const auto row = [&](size_t r) __attribute__((always_inline)) {
            using T = std::remove_cvref_t<decltype(*place(0))>;
            using Four = typename VectorOf<T, 4>::Type;
            const Four first = Load<Four>(place(r));
            if constexpr (kWidth<V, T> == 4)
                return first;
            else
                return __builtin_shufflevector(first, Load<Four>(place(r + 4)), 0, 1, 2, 3, 4, 5, 6,
                                               7);
        };
        a = row(0);
        b = row(1);
        c = row(2);
        d = row(3);
        Transpose(a, b, c, d);
    }
}
template <typename V, typename Place>
[[gnu::always_inline]] inline void StoreColumns(V a, V b, V c, V d, Place place) {
    if constexpr (std::is_arithmetic_v<V>) {
        place(0)[0] = a;
        place(0)[1] = b;
        place(0)[2] = c;
        place(0)[3] = d;
    } else {
        const auto store = [&](size_t r, V row) __attribute__((always_inline)) {
            if constexpr (sizeof(V) == 4 * sizeof(row[0])) {
                Store(place(r), row);
            } else {
                Store(place(r), __builtin_shufflevector(row, row, 0, 1, 2, 3));
                Store(place(r + 4), __builtin_shufflevector(row, row, 4, 5, 6, 7));
            }
        };
        Transpose(a, b, c, d);
        store(0, a);
        store(1, b);
        store(2, c);
        store(3, d);
    }
}

// Load and store interleaved numbers as two vectors: those at even and those at odd indices.
//   p      0 1 2 3 4 5 6 7
//   even   0 2 4 6
//   odd    1 3 5 7
template <typename V, typename T>
[[gnu::always_inline]] inline void LoadPairs(V& even, V& odd, const T* p) {
    if constexpr (std::is_arithmetic_v<V>) {
        even = p[0];
        odd = p[1];
    } else {
        constexpr size_t W = kWidth<V, T>;
        const V first = Load<V>(p), second = Load<V>(p + W);
        even = Shuffled<W, [](size_t i) { return 2 * i; }>(first, second);
        odd = Shuffled<W, [](size_t i) { return 2 * i + 1; }>(first, second);
    }
}
template <typename V, typename T>
[[gnu::always_inline]] inline void StorePairs(T* p, V even, V odd) {
    V first = even, second = odd;
    if constexpr (constexpr size_t W = kWidth<V, T>; W > 1) {
        first = Shuffled<W, [](size_t i) { return i / 2 + i % 2 * W; }>(even, odd);
        second = Shuffled<W, [](size_t i) { return W / 2 + i / 2 + i % 2 * W; }>(even, odd);
    }
    Store(p, first);
    Store(p + kWidth<V, T>, second);
}

// Calls body.template operator()<V>(i) for each whole vector among `count` numbers of type T. Then
// calls it with V = T for each remaining number.
template <typename T, typename Body>
[[gnu::always_inline]] inline void ForLanes(size_t count, Body body) {
    using V = typename WidestVector<T>::Type;
    constexpr size_t kWide = kWidth<V, T>;
    size_t i = 0;
    for (; count - i >= kWide; i += kWide) body.template operator()<V>(i);
    if constexpr (kWide > 1)
        for (; i < count; ++i) body.template operator()<T>(i);
}

// Converts lane by lane, as static_cast does. Floats must be in the range of the integer type.
template <typename To, typename From>
[[gnu::always_inline]] inline To ConvertLanes(From from) {
    if constexpr (std::is_arithmetic_v<From>)
        return static_cast<To>(from);
    else
        return __builtin_convertvector(from, To);
}

// Load 16-bit integers into two vectors of 32-bit integers, and store the low halves of two
// vectors.
//   p       0 1 2 3 4 5 6 7
//   first   0 1 2 3
//   second  4 5 6 7
template <typename V>
[[gnu::always_inline]] inline void LoadShorts(V& first, V& second, const int16_t* p) {
    constexpr size_t kWide = kWidth<V, int32_t>;
    if constexpr (kWide == 1) {
        first = p[0];
        second = p[1];
    } else {
        // Put each number into both halves of 32 bits; the shift down then extends its sign.
        const auto v = Load<typename VectorOf<int16_t, 2 * kWide>::Type>(p);
        const auto low = Shuffled<2 * kWide, [](size_t i) { return i / 2; }>(v, v);
        const auto high = Shuffled<2 * kWide, [](size_t i) { return kWide + i / 2; }>(v, v);
        first = std::bit_cast<V>(low) >> 16;
        second = std::bit_cast<V>(high) >> 16;
    }
}
template <typename V>
[[gnu::always_inline]] inline void StoreShorts(int16_t* p, V first, V second) {
    constexpr size_t kWide = kWidth<V, int32_t>;
    if constexpr (kWide == 1) {
        p[0] = static_cast<int16_t>(first);
        p[1] = static_cast<int16_t>(second);
    } else {
        static_assert(std::endian::native == std::endian::little, "a low half lies first");
        using Shorts = typename VectorOf<int16_t, 2 * kWide>::Type;
        const auto a = std::bit_cast<Shorts>(first), b = std::bit_cast<Shorts>(second);
        Store(p, Shuffled<2 * kWide, [](size_t i) { return 2 * i; }>(a, b));
    }
}
