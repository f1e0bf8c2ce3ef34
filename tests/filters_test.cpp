// Tests filters, their designs and the fader. They use no lanes, so that these tests serve the
// libraries of every width.
#include <gtest/gtest.h>

#include "dsp/biquad.h"
#include "dsp/biquad_fp.h"
#include "dsp/fir_window.h"
#include "dsp/fixed_point.h"
#include "effects/cross_fader.h"
#include "signals.h"

namespace {

template <typename Filter>
using Sample = decltype(Filter().ProcessSample(0));

// Passes one sample, full scale 1.0, through any variant of the filter.
template <typename Filter>
double Feed(Filter& filter, double x) {
    constexpr double kUnit = std::is_same_v<Filter, Biquad_FP> ? 0x1p24 : 1;
    return static_cast<double>(filter.ProcessSample(static_cast<Sample<Filter>>(x * kUnit))) /
           kUnit;
}

template <typename Filter>
class BiquadTest : public testing::Test {};
using Filters = testing::Types<Biquad_R32R32, Biquad_R32R64, Biquad_R64R64, Biquad_FP>;
TYPED_TEST_SUITE(BiquadTest, Filters);

}  // namespace

// The designs are bilinear transforms of second-order prototypes in s, whose corner is at s = j.
TYPED_TEST(BiquadTest, DesignsHaveTheResponseOfTheirPrototypes) {
    const double tolerance = std::is_same_v<TypeParam, Biquad_FP>       ? 1e-3
                             : std::is_same_v<TypeParam, Biquad_R32R32> ? 3e-5
                                                                        : 1e-6;
    for (const auto& [corner, quality] : {std::pair(900.0F, 0.33F), {2200, 0.75F}, {9000, 2}}) {
        const double q = quality, slope = std::min(q, 1.0), A = std::pow(10, 6.0 / 40);
        const double d = std::sqrt(A) * std::sqrt((A + 1 / A) * (1 / slope - 1) + 2);
        const double G = std::pow(10, -3.0 / 20);
        TypeParam filters[3];
        filters[0].SetLowPassParameter(0, corner, 44100, quality);
        filters[1].SetBandPassParameter(0, corner, 44100, quality);
        filters[2].SetHighPassParameter(0, corner, 44100, 6, static_cast<float>(slope), -3);
        for (size_t i = 0; i < 3; ++i) {
            std::vector<double> h(2048);
            for (double& y : h) y = Feed(filters[i], &y == h.data() ? 32 : 0) / 32;
            for (const double turns : {0.0, 0.01, 0.05, 0.15, 0.3, 0.499}) {
                const std::complex<double> s(0, std::tan(std::numbers::pi * turns) /
                                                    std::tan(std::numbers::pi * corner / 44100.0));
                const std::complex<double> ideal[] = {
                    1.0 / (s * s + s / q + 1.0), s / (s * s + s / q + 1.0),
                    G * A * (A * s * s + d * s + 1.0) / (s * s + d * s + A)};
                EXPECT_LT(std::abs(Response(h, turns) - ideal[i]), tolerance)
                    << "design " << i << ", " << corner << " Hz, q " << q << ", " << turns;
            }
        }
    }
}

// Tests a ramp, a ramp that interrupts it, and new coefficients at once. The history is cleared
// each time.
TYPED_TEST(BiquadTest, MovesToNewCoefficientsInAStraightLine) {
    TypeParam filter, arrived;
    arrived.SetCoeffs(-1, 2, -1, -0.5F, 1, 0.5F, 0.25F);
    EXPECT_EQ(Feed(filter, 0.75), 0.75);
    filter.SetCoeffs(8, 2, -1, -0.5F, 1, 0.5F, 0.25F);  // b0 goes from 1 to 1/2
    for (int n = 0; n < 4; ++n) Feed(filter, 0);
    EXPECT_NEAR(Feed(filter, 1), 0.75, 1e-6);           // half-way
    filter.SetCoeffs(2, 2, -1, -0.5F, 1, 0.5F, 0.25F);  // the rest of the way
    TypeParam block = filter;
    auto run = Noise<Sample<TypeParam>>(9, 100), expected = run;
    for (auto& x : expected) x = filter.ProcessSample(x);
    block.Process(run.data(), 1);
    block.Process(run.data() + 1, 8);
    EXPECT_EQ(run, expected);
    for (TypeParam* moved : {&filter, &block}) {
        moved->ClearHistory();
        for (const double x : {1, 0, 0, 0}) EXPECT_NEAR(Feed(*moved, x), Feed(arrived, x), 1e-6);
        arrived.ClearHistory();
    }
    EXPECT_NEAR(Feed(arrived, 0.5), 0.25, 1e-6);
    arrived.SetCoeffs(0, 1, 0, 0, 0.5F, 1, 1);
    EXPECT_EQ(Feed(arrived, 0.25), 0.125);
    arrived.Reset();
    EXPECT_EQ(Feed(arrived, 0.5), 0);
}

TEST(BiquadFp, RoundsCoefficientsUpAndProductsDown) {
    constexpr float kStep = 0x1p-24F;
    const struct {
        float a1, b0, b1;
        int32_t x, y0, y1;  // the outputs for the inputs x and 0
    } cases[] = {
        {0, 1, 0, INT32_MIN, INT32_MIN, 0},
        {0, 1.6F * kStep, -1.6F * kStep, kQ24One, 2, -1},
        {-1.6F * kStep, 1, 0, kQ24One, kQ24One, 1},
        {1.6F * kStep, 1, 0, kQ24One, kQ24One, -2},
        {0, 0.5F, 0, -1, -1, 0},
        {0, 0.5F, 0, 1, 0, 0},
        {0, 200, -200, kQ24One, INT32_MAX, INT32_MIN},       // coefficients beyond 128 saturate
        {-1, 64, 65, kQ24One, 64 << 24, -(127 << 24) - 64},  // 65 + 64 wraps around
    };
    for (const auto& c : cases) {
        Biquad_FP filter;
        filter.SetCoeffs(0, 1, c.a1, 0, c.b0, c.b1, 0);
        EXPECT_EQ(filter.ProcessSample(c.x), c.y0) << c.a1 << ' ' << c.b0;
        EXPECT_EQ(filter.ProcessSample(0), c.y1) << c.a1 << ' ' << c.b0;
    }
    Biquad_FP ramp;
    ramp.SetCoeffs(0, 1, 0, 0, 0, 0, 0);
    ramp.SetCoeffs(3, 1, 0, 0, 10 * kStep, 0, 0);
    for (const int32_t y : {0, 3, 6, 9, 9}) EXPECT_EQ(ramp.ProcessSample(kQ24One), y);
}

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

// Fades from -2001 to 1001 within five stereo frames, with one call and with one call for each
// frame. `expected` has one value for each frame.
TEST(CrossFader, MixesInAStraightLineAndLeavesWhatFollows) {
    using Samples = std::vector<int16_t>;
    const Samples source(10, -2001);
    const std::pair<int, Samples> fades[] = {{-1, {1001, 1001, 1001, 1001, 1001}},
                                             {0, {-2001, 1001, 1001, 1001, 1001}},
                                             {4, {-2001, -1250, -500, 250, 1001}}};
    for (const auto& [length, expected] : fades)
        for (const int frames : {1, 5}) {
            CrossFader fader;
            if (length >= 0) fader.BeginFader(length);
            Samples target(10, 1001);
            fader.FadeStream(target.data(), target.data(), 5, 2);
            fader.FadeStream(target.data(), source.data(), 0, 2);
            fader.FadeStream(target.data(), source.data(), 5, 0);
            EXPECT_EQ(target, Samples(10, 1001));
            for (size_t at = 0; at < 10; at += 2 * static_cast<size_t>(frames))
                fader.FadeStream(&target[at], &source[at], frames, 2);
            for (size_t i = 0; i < 10; ++i) EXPECT_EQ(target[i], expected[i / 2]) << length;
        }
}
