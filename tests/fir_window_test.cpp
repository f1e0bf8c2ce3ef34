#include "dsp/fir_window.h"

#include <gtest/gtest.h>

#include "signals.h"

namespace {
template <typename T>
class FirWindowTest : public testing::Test {};
using RealTypes = testing::Types<float, double>;
TYPED_TEST_SUITE(FirWindowTest, RealTypes);
}  // namespace

TYPED_TEST(FirWindowTest, WindowsHaveTheStatedValuesAndAreSymmetric) {
    const double windows[][5] = {// the type, then weights 0, 8, 12 and 24 of 49
                                 {2, 0.07672, 0.30754, 0.53836, 1},
                                 {3, 0, 0.25, 0.5, 1},
                                 {4, 0, 0.5, 0.707106781, 1},
                                 {5, 0, 0.413496672, 0.636619772, 1},
                                 {6, 0, 0.333333333, 0.5, 1},
                                 {7, 1.0 / 49, 17.0 / 49, 25.0 / 49, 1},
                                 {8, 0.00386592014, 0.0846579886, 0.249352209, 1},
                                 {9, 0, 0.27, 0.5, 1},
                                 {10, 0, 0.13, 0.34, 1},
                                 {11, 0, 0.052558, 0.211536, 1},
                                 {12, 0.00006, 0.055645, 0.21747, 1},
                                 {13, 0.0003648, 0.0613355, 0.2269824, 0.999998},
                                 {14, 0.004, -0.238, -0.258, 4.64},
                                 {1, 1, 1, 1, 1},
                                 {15, 1, 1, 1, 1}};
    const double tolerance = sizeof(TypeParam) == 4 ? 3e-7 : 1e-9;
    for (const auto& [number, w0, w8, w12, w24] : windows) {
        const int type = static_cast<int>(number);
        std::vector<TypeParam> w(49);
        ASSERT_TRUE(FIRWindow<TypeParam>::MakeWindowCoeffs(type, w.data(), 49));
        const std::vector<TypeParam> some = {w[0], w[8], w[12], w[24]};
        EXPECT_LT(LargestDifference(some, std::vector{w0, w8, w12, w24}), tolerance);
        EXPECT_LT(LargestDifference(w, std::vector(w.rbegin(), w.rend())), tolerance) << type;
        FIRWindow<TypeParam>::MakeWindowCoeffs(type, w.data(), 1);
        EXPECT_EQ(w[0], 1);
    }
}

TYPED_TEST(FirWindowTest, KernelsAreWindowedSincsExceptAtTheCentre) {
    using Window = FIRWindow<TypeParam>;
    for (const auto& [N, type] : {std::pair(0U, 1), {1, 2}, {2, 2}, {3, 2}, {64, 2}, {65, 10}}) {
        std::vector<TypeParam> w(N), low(N, 9), high(N, 9), band(N, 9);
        const bool good = N >= 3 && N % 2 == 1;
        EXPECT_EQ(Window::MakeWindowCoeffs(type, w.data(), N), N > 0);
        EXPECT_EQ(Window::MakeLowpassFIRCoeffs(type, low.data(), N, 44100, 500), good);
        EXPECT_EQ(Window::MakeHighpassFIRCoeffs(type, high.data(), N, 44100, 7000), good);
        EXPECT_EQ(Window::MakeBandpassFIRCoeffs(type, band.data(), N, 44100, 500, 7000), good);
        for (size_t i = 0; i < N; ++i) {
            const double m = static_cast<double>(i) - (N - 1) / 2.0, pi = std::numbers::pi;
            const auto tap = [&](double f) {
                const double x = f / 22050;
                return m == 0 ? x : static_cast<double>(w[i]) * std::sin(pi * x * m) / (pi * m);
            };
            const double impulse = m == 0 ? 1 : 0;
            ASSERT_NEAR(low[i], good ? tap(500) : 9, 1e-6) << N << ' ' << i;
            ASSERT_NEAR(high[i], good ? impulse - tap(7000) : 9, 1e-6) << N << ' ' << i;
            ASSERT_NEAR(band[i], good ? tap(7000) - tap(500) : 9, 1e-6) << N << ' ' << i;
        }
    }
}
