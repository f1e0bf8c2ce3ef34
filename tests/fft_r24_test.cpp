#include "dsp/fft_r24.h"

#include <gtest/gtest.h>

#include "dsp/planar_fft.h"
#include "signals.h"

namespace {

template <typename T>
class FftTest : public testing::Test {};
using RealTypes = testing::Types<float, double>;
TYPED_TEST_SUITE(FftTest, RealTypes);

template <typename T>
std::vector<double> DirectTransform(const std::vector<T>& a) {
    const size_t n = a.size();
    std::vector<double> packed(n);
    for (size_t k = 0; k <= n / 2; ++k) {
        const auto bin = Response(a, static_cast<double>(k) / static_cast<double>(n));
        packed[k == n / 2 ? 1 : 2 * k] = bin.real();
        if (k > 0 && k < n / 2) packed[2 * k + 1] = -bin.imag();
    }
    return packed;
}

}  // namespace

// All lengths use the tables of one object. They are built once, extended for longer transforms and
// kept for shorter ones.
TYPED_TEST(FftTest, IsTheDirectTransformAndItsInverse) {
    FFT_R24<TypeParam> fft(1024);
    for (const int n : {2, 4, 8, 64, 16, 32, 128, 512, 256, 1024, 1024, 2}) {
        const auto input = Noise<TypeParam>(static_cast<size_t>(n), 1.0);
        auto a = input;
        fft.rdft(n, 1, a.data(), fft.ip.data(), fft.w.data());
        const double tolerance =
            static_cast<double>(std::numeric_limits<TypeParam>::epsilon()) * (n + 10);
        EXPECT_LT(LargestDifference(a, DirectTransform(input)), tolerance) << n;
        const std::vector<TypeParam> tables(fft.w.data(), fft.w.data() + 512);
        fft.rdft(n, -1, a.data(), fft.ip.data(), fft.w.data());
        EXPECT_EQ(tables, std::vector<TypeParam>(fft.w.data(), fft.w.data() + 512));
        for (TypeParam& v : a) v /= static_cast<TypeParam>(n) / 2;
        EXPECT_LT(LargestDifference(a, input), tolerance) << n;
    }
}

// The inputs have many magnitudes and zeros of both signs. They are stored in both forms' layouts.
TYPED_TEST(FftTest, PlanarTransformsHaveItsBits) {
    for (const int n : {128, 256, 512, 1024, 2048}) {
        const auto M = static_cast<size_t>(n / 2);
        FFT_R24<TypeParam> fft(static_cast<uint32_t>(n));
        PlanarFft<TypeParam> planar;
        std::vector<TypeParam> a = Noise<TypeParam>(2 * M, 1.0), in(2 * M), out(2 * M), got(2 * M);
        fft.rdft(n, 1, a.data(), fft.ip.data(), fft.w.data());  // builds the tables
        ASSERT_TRUE(planar.Prepare(static_cast<uint32_t>(n), fft.w.data()));
        for (unsigned seed = 0; seed < 40; ++seed) {
            a = SparseNoise<TypeParam>(2 * M, seed);
            for (size_t q = 0; q < M; ++q) in[q] = a[2 * q], in[M + q] = a[2 * q + 1];
            fft.bitrv2(n, fft.ip.data() + 2, a.data());
            const Planar<const TypeParam> from = {&in[0], &in[M]};
            if (seed % 2 == 0) {
                fft.cftfsub(n, a.data(), fft.w.data());
                planar.Forward(from, {&out[0], &out[M]});
            } else {
                fft.cftbsub(n, a.data(), fft.w.data());
                planar.Backward(from, {&out[0], &out[M]});
            }
            for (size_t q = 0; q < M; ++q) got[2 * q] = out[q], got[2 * q + 1] = out[M + q];
            ASSERT_TRUE(HaveTheSameBits(a, got)) << n << " " << seed;
        }
    }
}
