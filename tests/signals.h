// Test signals and brute-force computations. The seeds are fixed, so a failure can be repeated.
#pragma once
#include <algorithm>
#include <bit>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstring>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

// Returns noise, uniform in [-amplitude, amplitude).
template <typename T>
std::vector<T> Noise(size_t count, double amplitude, unsigned seed = 1) {
    std::mt19937 random(seed);
    std::vector<T> noise(count);
    for (T& v : noise)
        v = static_cast<T>(amplitude * (static_cast<double>(random()) * 0x1p-31 - 1.0));
    return noise;
}

// Returns values of many magnitudes whose sums neither overflow nor vanish. `seed` % 5 quarters of
// them are zeros of both signs.
template <typename T>
std::vector<T> SparseNoise(size_t count, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<T> noise = Noise<T>(count, 1.0, seed + 1);
    for (T& v : noise) {
        v = std::ldexp(v, static_cast<int>(random() % 150) - 100);
        if (random() % 4 < seed % 5) v = std::copysign(T(0), v);
    }
    return noise;
}

template <typename T>
bool HaveTheSameBits(const std::vector<T>& a, const std::vector<T>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0;
}

// Returns the bits of the samples, to compare zeros of both signs and NaNs.
template <typename T>
std::vector<uint32_t> Bits(const std::vector<T>& samples) {
    std::vector<uint32_t> bits(samples.size());
    for (size_t i = 0; i < bits.size(); ++i) bits[i] = std::bit_cast<uint32_t>(samples[i]);
    return bits;
}

// Returns the largest magnitude of a difference. It is infinite if the lengths differ or a value is
// NaN.
template <typename A, typename B>
double LargestDifference(const std::vector<A>& a, const std::vector<B>& b) {
    if (a.size() != b.size()) return HUGE_VAL;
    double largest = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        const double difference = std::fabs(static_cast<double>(a[i]) - static_cast<double>(b[i]));
        if (!(difference <= largest)) largest = std::isnan(difference) ? HUGE_VAL : difference;
    }
    return largest;
}

// Returns y[n] = sum of h[k] x[n - k], as long as x.
template <typename X, typename H>
std::vector<double> DirectConvolution(const std::vector<X>& x, const std::vector<H>& h) {
    std::vector<double> y(x.size());
    for (size_t n = 0; n < x.size(); ++n)
        for (size_t k = 0; k < h.size() && k <= n; ++k)
            y[n] += static_cast<double>(h[k]) * static_cast<double>(x[n - k]);
    return y;
}

// Returns the transfer function of the impulse response h at `turns` cycles per sample.
template <typename T>
std::complex<double> Response(const std::vector<T>& h, double turns) {
    std::complex<double> sum;
    for (size_t n = 0; n < h.size(); ++n) {
        const double turned = turns * static_cast<double>(n);
        sum += static_cast<double>(h[n]) *
               std::polar(1.0, -2 * std::numbers::pi * (turned - std::floor(turned)));
    }
    return sum;
}
