#include "dsp/planar_fft.h"

#include <algorithm>
#include <bit>

namespace {

template <typename V, typename T>
ORVANE_LANE_INLINE void StoreAll(Planar<T> a, size_t q, size_t apart, const Radix4<V>& r) {
    StoreAt(a, q, r.y0);
    StoreAt(a, q + apart, r.y1);
    StoreAt(a, q + 2 * apart, r.y2);
    StoreAt(a, q + 3 * apart, r.y3);
}

// Applies a butterfly `span` times, to the four values q, q + span, q + 2 span and q + 3 span, for
// `span` consecutive q. A lane is a value of q.
template <typename V, typename T, typename Butterfly>
ORVANE_LANE_INLINE void ApplyToGroup(Planar<T> a, size_t q, size_t span, Butterfly butterfly) {
    for (const size_t end = q + span; q < end; q += kWidth<V, T>)
        StoreAll(a, q, span,
                 butterfly(LoadAt<V>(a, q), LoadAt<V>(a, q + span), LoadAt<V>(a, q + 2 * span),
                           LoadAt<V>(a, q + 3 * span)));
}

// The factors are six consecutive vectors: w1.re, w1.im, w2.re, w2.im, w3.re, w3.im.
template <typename V, typename T>
ORVANE_LANE_INLINE Twiddles<V> LoadTwiddles(const T* w) {
    constexpr size_t W = kWidth<V, T>;
    return {{Load<V>(w), Load<V>(w + W)},
            {Load<V>(w + 2 * W), Load<V>(w + 3 * W)},
            {Load<V>(w + 4 * W), Load<V>(w + 5 * W)}};
}
template <typename T>
void SetTwiddles(T* w, size_t width, size_t lane, const Twiddles<T>& factors) {
    const T parts[] = {factors.w1.re, factors.w1.im, factors.w2.re,
                       factors.w2.im, factors.w3.re, factors.w3.im};
    for (size_t i = 0; i < 6; ++i) w[i * width + lane] = parts[i];
}

template <typename V, typename T>
ORVANE_LANE_INLINE Complex<V> Spread(Complex<T> w) {
    return {Broadcast<V>(w.re), Broadcast<V>(w.im)};
}

template <typename V>
ORVANE_LANE_INLINE Radix4<V> Transposed(const Radix4<V>& r) {
    V re0 = r.y0.re, re1 = r.y1.re, re2 = r.y2.re, re3 = r.y3.re;
    V im0 = r.y0.im, im1 = r.y1.im, im2 = r.y2.im, im3 = r.y3.im;
    Transpose(re0, re1, re2, re3);
    Transpose(im0, im1, im2, im3);
    return {{re0, im0}, {re1, im1}, {re2, im2}, {re3, im3}};
}
template <typename V, typename T>
ORVANE_LANE_INLINE void StoreFoursAt(Planar<T> a, size_t first, size_t second, Complex<V> v) {
    StoreFours(a.re + first, a.re + second, v.re);
    StoreFours(a.im + first, a.im + second, v.im);
}

// Returns i (0 to 3) with its two bits reversed.
constexpr size_t ReversedOfFour(size_t i) {
    return i % 2 * 2 + i / 2;
}

}  // namespace

template <typename T>
bool PlanarFft<T>::Prepare(uint32_t n, const T* w) {
    *this = {};
    M = n / 2;
    const bool granted = M >= 32 * kWide && kWide > 1 ? PrepareVectors(w) : PreparePacked(w);
    if (!granted) *this = {};
    return granted;
}

template <typename T>
bool PlanarFft<T>::PreparePacked(const T* w) {
    // The bit reversal needs at least as many offsets as the square root of 2 M.
    if (!packed.Allocate(2 * M) || !packedFactors.Allocate(M / 2) ||
        !workArea.Allocate(size_t{1} << (std::bit_width(2 * M) / 2)))
        return false;
    std::copy_n(w, M / 2, packedFactors.data());
    return true;
}

template <typename T>
bool PlanarFft<T>::PrepareVectors(const T* w) {
    const size_t groups = M / 16;
    if (!firstFactors.Allocate(24 * groups) || !secondFactors.Allocate(24 * groups) ||
        !laterFactors.Allocate(groups / 4) || !reversed.Allocate(groups))
        return false;
    eighth = w[2];
    for (size_t q = 1; q < groups; ++q)
        reversed[q] = (reversed[q / 2] + static_cast<uint32_t>(q % 2 * groups)) / 2;
    // Store the factors in the order in which the first two stages read them, vector by vector.
    constexpr size_t W = kWide;
    for (size_t q = 0; q < groups; ++q)
        for (size_t i = 0; i < 4; ++i) {
            const size_t first = q + ReversedOfFour(i) * groups, lane = q % W;
            SetTwiddles(&firstFactors[6 * (first - lane)], W, lane,
                        GroupTwiddles(w, size_t{4} * reversed[q] + i));
            // The row and the lane that result i of group q has after the transposition.
            SetTwiddles(&secondFactors[6 * (4 * (q - lane) + q % 4 * W)], W, lane / 4 * 4 + i,
                        GroupTwiddles(w, reversed[q]));
        }
    for (size_t t = 0; t < laterFactors.size(); ++t) laterFactors[t] = GroupTwiddles(w, t);
    return true;
}

template <typename T>
void PlanarFft<T>::Forward(Planar<const T> in, Planar<T> out) {
    if (!packed.empty()) return TransformPacked(false, in, out);
    TransformVectors<false>(in, out);
}
template <typename T>
void PlanarFft<T>::Backward(Planar<const T> in, Planar<T> out) {
    if (!packed.empty()) return TransformPacked(true, in, out);
    TransformVectors<true>(in, out);
}

template <typename T>
void PlanarFft<T>::TransformPacked(bool backward, Planar<const T> in, Planar<T> out) {
    const int n = static_cast<int>(2 * M);
    T* const a = packed.data();
    for (size_t q = 0; q < M; ++q) {
        a[2 * q] = in.re[q];
        a[2 * q + 1] = in.im[q];
    }
    FFT_R24<T>::bitrv2(n, workArea.data(), a);
    (backward ? FFT_R24<T>::cftbsub : FFT_R24<T>::cftfsub)(n, a, packedFactors.data());
    for (size_t q = 0; q < M; ++q) {
        out.re[q] = a[2 * q];
        out.im[q] = a[2 * q + 1];
    }
}

template <typename T>
template <bool backward>
void PlanarFft<T>::TransformVectors([[maybe_unused]] Planar<const T> in,
                                    [[maybe_unused]] Planar<T> out) const {
    if constexpr (kWide > 1) {
        FirstTwoStages(in, out);
        size_t span = 16;
        for (; 8 * span < M; span *= 4) MiddleStage(out, span);
        if (8 * span == M)
            LastTwoStages<backward>(out, span);
        else
            ApplyToGroup<Widest>(out, 0, span, backward ? Conjugated<Widest> : Untwiddled<Widest>);
    }
}

// Does the bit reversal and the stages of spans 1 and 4 in one pass. Let q be t with its bits
// reversed. In the first stage, groups 4 t to 4 t + 3 have four values each. They read values M / 4
// apart, beginning at q, q + M / 8, q + M / 16 and q + 3 M / 16. In the second stage, the results j
// of these four groups meet, which gives group t of 16 neighbours.
//
// In the first stage a lane is a value of q (a, b, ..). After the transposition, four lanes are the
// results 0 1 2 3 of one q, and eight lanes are those of two:
//   a0 b0 c0 d0 | e0 f0 g0 h0       a0 a1 a2 a3 | e0 e1 e2 e3
//   a1 b1 c1 d1 | e1 f1 g1 h1       b0 b1 b2 b3 | f0 f1 f2 f3
template <typename T>
void PlanarFft<T>::FirstTwoStages(Planar<const T> in, Planar<T> out) const {
    using V = Widest;
    constexpr size_t W = kWide;
    const size_t groups = M / 16, quarter = M / 4;
    size_t place[4], secondPlace[4];  // where a row's first four and last four lanes go
    for (size_t row = 0; row < 4; ++row) {
        place[row] = 16 * size_t{reversed[row]};
        secondPlace[row] = W == 8 ? 16 * size_t{reversed[row + 4]} : 0;
    }
    const T *const first = firstFactors.data(), *const second = secondFactors.data();
    const uint32_t* const order = reversed.data();
    T re[16 * W], im[16 * W];  // four rows for each of the four groups
    const Planar<T> rows = {re, im};
    for (size_t q = 0; q < groups; q += W) {
        for (size_t i = 0; i < 4; ++i) {
            const size_t at = q + ReversedOfFour(i) * groups;
            const Radix4<V> r = Twiddled(
                LoadAt<V>(in, at), LoadAt<V>(in, at + 2 * quarter), LoadAt<V>(in, at + quarter),
                LoadAt<V>(in, at + 3 * quarter), LoadTwiddles<V>(first + 6 * at));
            StoreAll(rows, 4 * W * i, W, Transposed(r));
        }
        const size_t t = order[q];
        for (size_t row = 0; row < 4; ++row) {
            const Radix4<V> r =
                Twiddled(LoadAt<V>(rows, row * W), LoadAt<V>(rows, (row + 4) * W),
                         LoadAt<V>(rows, (row + 8) * W), LoadAt<V>(rows, (row + 12) * W),
                         LoadTwiddles<V>(second + 6 * (4 * q + row * W)));
            const size_t to = 16 * t + place[row], alsoTo = 16 * t + secondPlace[row];
            StoreFoursAt(out, to, alsoTo, r.y0);
            StoreFoursAt(out, to + 4, alsoTo + 4, r.y1);
            StoreFoursAt(out, to + 8, alsoTo + 8, r.y2);
            StoreFoursAt(out, to + 12, alsoTo + 12, r.y3);
        }
        if (t < 2) RedoGroup(in, rows, t, out);
    }
}

// Computes groups 0 and 1 again, because these two have other butterflies in every stage. The 16
// values of group 0 contain both special groups of the first stage.
template <typename T>
void PlanarFft<T>::RedoGroup(Planar<const T> in, Planar<T> rows, size_t t, Planar<T> out) const {
    constexpr size_t W = kWide;
    using Four = typename VectorOf<T, W == 1 ? 1 : 4>::Type;
    if (t == 0) {
        const auto load = [&](size_t i) { return LoadAt<T>(in, i * (M / 8)); };
        StoreAll(rows, 0, 1, Untwiddled(load(0), load(4), load(2), load(6)));
        StoreAll(rows, 4 * W, 1, EighthTurn(load(1), load(5), load(3), load(7), eighth));
    }
    const Complex<Four> a = LoadAt<Four>(rows, 0), b = LoadAt<Four>(rows, 4 * W),
                        c = LoadAt<Four>(rows, 8 * W), d = LoadAt<Four>(rows, 12 * W);
    StoreAll(out, 16 * t, 4,
             t == 0 ? Untwiddled(a, b, c, d) : EighthTurn(a, b, c, d, Broadcast<Four>(eighth)));
}

template <typename T>
void PlanarFft<T>::MiddleStage(Planar<T> a, size_t span) const {
    using V = Widest;
    const V u = Broadcast<V>(eighth);
    ApplyToGroup<V>(a, 0, span, Untwiddled<V>);
    ApplyToGroup<V>(a, 4 * span, span, [u](auto... x) { return EighthTurn(x..., u); });
    for (size_t t = 2; t < M / 4 / span; ++t) {
        const Twiddles<T>& one = laterFactors[t];
        const Twiddles<V> w = {Spread<V>(one.w1), Spread<V>(one.w2), Spread<V>(one.w3)};
        ApplyToGroup<V>(a, 4 * span * t, span, [&](auto... x) { return Twiddled(x..., w); });
    }
}

// Runs the last radix-4 stage, which has only the two groups that need no table. Then runs the
// radix-2 stage that combines these two groups.
template <typename T>
template <bool backward>
void PlanarFft<T>::LastTwoStages(Planar<T> a, size_t span) const {
    using V = Widest;
    const V u = Broadcast<V>(eighth);
    const auto finish = [&](size_t q, Complex<V> A, Complex<V> B) {
        const Radix2<V> r = backward ? SummedConjugated(A, B) : Summed(A, B);
        StoreAt(a, q, r.y0);
        StoreAt(a, q + 4 * span, r.y1);
    };
    for (size_t q = 0; q < span; q += kWidth<V, T>) {
        const auto load = [&](size_t i) { return LoadAt<V>(a, q + i * span); };
        const Radix4<V> low = Untwiddled(load(0), load(1), load(2), load(3));
        const Radix4<V> high = EighthTurn(load(4), load(5), load(6), load(7), u);
        finish(q, low.y0, high.y0);
        finish(q + span, low.y1, high.y1);
        finish(q + 2 * span, low.y2, high.y2);
        finish(q + 3 * span, low.y3, high.y3);
    }
}

template class PlanarFft<float>;
template class PlanarFft<double>;
