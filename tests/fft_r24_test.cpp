#include "dsp/fft_r24.h"

#include <gtest/gtest.h>

#include "signals.h"

namespace {

template <typename T>
class FftTest : public testing::Test {};
using RealTypes = testing::Types<float, double>;
TYPED_TEST_SUITE(FftTest, RealTypes);

template <typename T>
std::vector<double> DirectTransform(const std::vector<T>& a) {
    const size_t n = a.size();
    std::vector<std::complex<double>> turn;  // one table of angles: the emulator's sines are slow
    for (size_t i = 0; i < n; ++i)
        turn.push_back(std::polar(
            1.0, 2 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(n)));
    std::vector<double> packed(n);
    for (size_t k = 0; k <= n / 2; ++k) {
        std::complex<double> bin;
        for (size_t i = 0; i < n; ++i) bin += static_cast<double>(a[i]) * turn[k * i % n];
        packed[k == n / 2 ? 1 : 2 * k] = bin.real();
        if (k > 0 && k < n / 2) packed[2 * k + 1] = bin.imag();
    }
    return packed;
}

}  // namespace

// With one object's tables: built once, extended for longer transforms, kept for shorter ones.
TYPED_TEST(FftTest, IsTheDirectTransformAndItsInverse) {
    FFT_R24<TypeParam> fft(2048);
    ASSERT_TRUE(fft.Prepared());
    for (const size_t n : {2U, 4U, 8U, 64U, 16U, 32U, 128U, 1024U, 256U, 512U, 2048U, 2048U, 2U}) {
        const auto input = Noise<TypeParam>(n, 1.0);
        auto a = input;
        const auto length = static_cast<int>(n);
        const int built = fft.ip[0];
        fft.rdft(length, 1, a.data(), fft.ip.data(), fft.w.data());
        EXPECT_EQ(fft.ip[0], std::max(built, length / 4));
        const double tolerance =
            static_cast<double>(std::numeric_limits<TypeParam>::epsilon()) * (length + 10);
        EXPECT_LT(LargestDifference(a, DirectTransform(input)), tolerance) << n;
        const std::vector<TypeParam> tables(fft.w.data(), fft.w.data() + 1024);
        fft.rdft(length, -1, a.data(), fft.ip.data(), fft.w.data());
        EXPECT_EQ(tables, std::vector<TypeParam>(fft.w.data(), fft.w.data() + 1024));
        for (TypeParam& v : a) v /= static_cast<TypeParam>(n) / 2;
        EXPECT_LT(LargestDifference(a, input), tolerance) << n;
    }
}
