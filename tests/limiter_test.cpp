#include "effects/limiter.h"

#include <gtest/gtest.h>

#include "effects/limiter_fp.h"
#include "signals.h"

namespace {

template <typename L>
class LimiterTest : public testing::Test {};
using Limiters = testing::Types<Limiter, Limiter_FP>;
TYPED_TEST_SUITE(LimiterTest, Limiters);

template <typename L>
using Sample = decltype(L().Process(0));
template <typename L>
constexpr double kUnit = std::is_same_v<L, Limiter> ? 1 : 0x1p24;

template <typename L>
std::vector<Sample<L>> Play(L& limiter, std::vector<Sample<L>> samples) {
    for (auto& x : samples) x = limiter.Process(x);
    return samples;
}

// The same law in double, with a scan of the newest 256 samples.
template <typename T>
std::vector<double> Model(const std::vector<T>& x, double gate) {
    double smooth = 1, gain = 1;
    std::vector<double> y;
    for (size_t n = 0; n < x.size(); ++n) {
        double peak = std::max(gate, 1e-99);
        for (size_t i = n < 255 ? 0 : n - 255; i <= n; ++i)
            peak = std::max(peak, std::fabs(static_cast<double>(x[i])));
        smooth = smooth * 0.8999 + gate / peak * 0.0999;
        gain = std::min(gain * 0.9999 + 0.0001, smooth);
        const double delayed = n < 255 ? 0 : static_cast<double>(x[n - 255]);
        if (std::fabs(delayed * gain) > gate) gain = gate / std::fabs(delayed);
        y.push_back(delayed * gain);
    }
    return y;
}

}  // namespace

// A sample for ever, or one after ten zeros.
TEST(Limiter, HasTheOutputsOfItsConstants) {
    Limiter rest, limited, pulse;
    Limiter_FP restFp, pulseFp, lowest;
    for (int n = 0; n < 1000; ++n) {
        ASSERT_EQ(rest.Process(0.5F), n < 255 ? 0 : 0.49900126F) << n;
        ASSERT_FLOAT_EQ(limited.Process(1.5F), n < 255 ? 0 : 0x1.feed2p-1F) << n;
        ASSERT_FLOAT_EQ(pulse.Process(n == 10 ? 2.0F : 0.0F), n == 265 ? 0.9979025F : 0) << n;
        ASSERT_EQ(restFp.Process(8388608), n < 255 ? 0 : 8371849) << n;
        ASSERT_EQ(lowest.Process(n == 10 ? INT32_MIN : 0), n == 265 ? -16742272 : 0) << n;
        ASSERT_EQ(pulseFp.Process(n == 10 ? 33554432 : 0), n == 265 ? 16743678 : 0) << n;
    }
}

// One limiter, reset for every gate: bursts and rests. A gate that is none silences.
TYPED_TEST(LimiterTest, FollowsTheLargestOfTheNewest256SamplesAndNeverExceedsTheGate) {
    TypeParam limiter;
    const double unit = kUnit<TypeParam>;
    for (const float setting : {0.9999F, 0.5F, 0.3F, 1.0F, 0.01F, 0.0F, -1.0F, kNan, kInfinity}) {
        limiter.SetGate(setting);
        const double gate = setting > 0 ? std::min(setting, 127.0F) * unit : 0;
        std::vector<Sample<TypeParam>> input;
        for (const double loudness : {0.4, 3.0, 0.0, 0.29, 0.8, 0.25, 40.0, 0.35}) {
            const auto burst = Noise<Sample<TypeParam>>(600, loudness * unit);
            input.insert(input.end(), burst.begin(), burst.end());
        }
        const auto output = Play(limiter, input);
        EXPECT_LT(LargestDifference(output, Model(input, gate)), 5e-5 * unit) << setting;
        const auto largest = [](const auto& samples) {
            return LargestDifference(samples, std::vector<int>(samples.size()));
        };
        const auto ceiling = [unit](double g) {
            return unit == 1 ? g * (1 + 0x1p-23) : std::floor(g + 0.5);
        };
        EXPECT_LE(largest(output), ceiling(gate)) << setting;
        limiter.SetGate(setting / 2);  // too late for the gain to come down in advance
        EXPECT_LE(largest(Play(limiter, input)), ceiling(gate / 2)) << setting;
        limiter.SetGate(setting);
        limiter.Reset();
        EXPECT_EQ(Play(limiter, input), output);
        limiter.Reset();
    }
}

// Under a peak that stays, a new gate counts at once, and not that of the quotient kept.
TYPED_TEST(LimiterTest, FollowsAGateThatMovesUnderAConstantPeak) {
    TypeParam moved, set;
    set.SetGate(0.5F);
    const auto loud = static_cast<Sample<TypeParam>>(1.5 * kUnit<TypeParam>);
    Play(moved, std::vector(400, loud));
    moved.SetGate(0.5F);
    EXPECT_EQ(Play(moved, std::vector(800, loud)).back(), Play(set, std::vector(800, loud)).back());
}
