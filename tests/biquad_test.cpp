#include "dsp/biquad.h"

#include <gtest/gtest.h>

#include "dsp/biquad_fp.h"
#include "signals.h"

namespace {

// One sample, full scale 1.0, through any variant.
template <typename Filter>
double Feed(Filter& filter, double x) {
    using Sample = decltype(filter.ProcessSample(0));
    constexpr double kUnit = std::is_same_v<Filter, Biquad_FP> ? 0x1p24 : 1;
    return static_cast<double>(filter.ProcessSample(static_cast<Sample>(x * kUnit))) / kUnit;
}

template <typename Filter>
class BiquadTest : public testing::Test {};
using Filters = testing::Types<Biquad_R32R32, Biquad_R32R64, Biquad_R64R64, Biquad_FP>;
TYPED_TEST_SUITE(BiquadTest, Filters);

}  // namespace

// The designs are bilinear transforms of second-order prototypes in s, the corner at s = j.
TYPED_TEST(BiquadTest, DesignsHaveTheResponseOfTheirPrototypes) {
    using Complex = std::complex<double>;
    const double tolerance = std::is_same_v<TypeParam, Biquad_FP>       ? 1e-3
                             : std::is_same_v<TypeParam, Biquad_R32R32> ? 3e-5
                                                                        : 1e-6;
    for (const float corner : {900.0F, 2200.0F, 9000.0F})
        for (const float quality : {0.33F, 0.75F, 2.0F}) {
            const double q = quality, slope = std::min(q, 1.0), A = std::pow(10, 6.0 / 40);
            const double d = std::sqrt(A) * std::sqrt((A + 1 / A) * (1 / slope - 1) + 2);
            TypeParam filters[3];
            filters[0].SetLowPassParameter(0, corner, 44100.0F, quality);
            filters[1].SetBandPassParameter(0, corner, 44100.0F, quality);
            filters[2].SetHighPassParameter(0, corner, 44100.0F, 6.0F, static_cast<float>(slope),
                                            -3.0F);
            for (size_t i = 0; i < 3; ++i) {
                std::vector<double> h(2048);
                for (double& y : h) y = Feed(filters[i], &y == h.data() ? 32 : 0) / 32;
                for (const double turns : {0.0, 0.01, 0.05, 0.15, 0.3, 0.499}) {
                    const Complex s(0, std::tan(std::numbers::pi * turns) /
                                           std::tan(std::numbers::pi * corner / 44100.0));
                    const Complex ideal[] = {1.0 / (s * s + s / q + 1.0), s / (s * s + s / q + 1.0),
                                             std::pow(10, -3.0 / 20) * A *
                                                 (A * s * s + d * s + 1.0) / (s * s + d * s + A)};
                    EXPECT_LT(std::abs(Response(h, turns) - ideal[i]), tolerance)
                        << "design " << i << ", " << corner << " Hz, q " << q << ", " << turns;
                }
            }
        }
}

// A ramp, one that interrupts it, and new coefficients at once; each time the history is cleared.
TYPED_TEST(BiquadTest, MovesToNewCoefficientsInAStraightLine) {
    TypeParam filter;
    EXPECT_EQ(Feed(filter, 0.75), 0.75);
    filter.SetCoeffs(8, 2, -1, -0.5F, 1, 0.5F, 0.25F);  // b0 from 1 to 1/2, b1 from 0 to 1/4 ...
    for (int n = 0; n < 4; ++n) Feed(filter, 0);
    EXPECT_NEAR(Feed(filter, 1), 0.75, 1e-6);  // half-way
    EXPECT_NEAR(Feed(filter, 0), 5 / 32.0 + 10 / 32.0 * 0.75, 1e-6);
    filter.SetCoeffs(2, 2, -1, -0.5F, 1, 0.5F, 0.25F);  // from 3/4 of the way
    for (int n = 0; n < 9; ++n) Feed(filter, 0);
    double h[4];
    for (double& y : h) y = Feed(filter, &y == h ? 1 : 0);
    EXPECT_NEAR(h[0], 0.5, 1e-6);
    EXPECT_NEAR(h[1], 0.25 + 0.5 * h[0], 1e-6);
    EXPECT_NEAR(h[2], 0.125 + 0.5 * h[1] + 0.25 * h[0], 1e-6);
    EXPECT_NEAR(h[3], 0.5 * h[2] + 0.25 * h[1], 1e-6);
    filter.SetCoeffs(-1, 1, 0, 0, 0.5F, 1, 1);
    EXPECT_EQ(Feed(filter, 0.5), 0.25);
    filter.Reset();
    for (const double x : {0.5, -0.25, 0.75}) EXPECT_EQ(Feed(filter, x), 0);
}
