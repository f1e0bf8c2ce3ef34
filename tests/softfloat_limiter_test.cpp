#include <gtest/gtest.h>

#include <bit>
#include <cmath>

#include "dsp/softfloat/limiter.h"
#include "dsp/softfloat/samples.h"
#include "effects/limiter_arithmetic.h"
#include "signals.h"
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
#include "routine_call.h"
#endif

// Tests all kinds of gains and samples, ties, and products at both ends of the range.
TEST(SoftFloat, AmplifiesAsFloatsDo) {
    std::mt19937 random(1);
    const auto bits = [&random] { return static_cast<uint32_t>(random()); };
    const auto next = [&bits](uint32_t lowest, uint32_t count) {
        const uint32_t masks[] = {0x7fffff, 0x7ff000, 0, 0x7fff00, 0x400000};
        const uint32_t fraction = bits() & masks[bits() % 5];
        return std::bit_cast<float>((bits() & 0x80000000U) | (lowest + bits() % count) << 23U |
                                    (bits() % 8 == 0 ? 0x7fffff : fraction));
    };
    for (unsigned n = 0; n < 20000; ++n) {
        const float gain = n % 4 == 0 ? next(0, 256) : next(120, 10);
        const int field = static_cast<int>(std::bit_cast<uint32_t>(gain) << 1U >> 24U);
        std::vector<float> samples(1 + n % 8), expected;
        for (float& x : samples) {
            const int end = (bits() % 2 == 0 ? 0 : 254) + 127 - field;
            const int beside = std::clamp(end + static_cast<int>(bits() % 5) - 2, 0, 255);
            x = bits() % 3 == 0 ? next(static_cast<uint32_t>(beside), 1) : next(100, 40);
            if (bits() % 16 == 0) x = std::copysign(bits() % 2 == 0 ? 0.0F : INFINITY, x);
            expected.push_back(x * gain);
        }
        SoftAmplified(samples.data(), samples.size(), gain);
        for (size_t i = 0; i < samples.size(); ++i)
            ASSERT_TRUE(std::isnan(expected[i]) ? std::isnan(samples[i])
                                                : std::bit_cast<uint32_t>(samples[i]) ==
                                                      std::bit_cast<uint32_t>(expected[i]))
                << samples[i] << " " << expected[i] << " " << gain;
    }
}

// Tests products of all magnitudes, products next to integers, and products next to the gate.
TEST(SoftFloat, MakesShortsOfProductsAsFloatsDo) {
    std::mt19937 random(1);
    for (const float gate : {0.0F, 0x1p-140F, 0.01F, 0.8F, 0.9999F, 1.0F, 1e7F}) {
        const ShortProducts products(gate);
        for (int i = 0; i < 40000; ++i) {
            const float gain = 1 - std::ldexp(static_cast<float>(random() % 65536), -16);
            const float whole = static_cast<float>(random() % 65536) / 32767 - 1;
            const float near = i % 3 == 0 ? gate : whole;
            const float moved = std::nextafter(near, i % 2 == 0 ? 2.0F : -2.0F);
            const float aimed = i % 4 < 2 ? near / gain : moved / gain;
            const float x = i % 5 != 0 ? aimed : std::ldexp(whole, 130 - static_cast<int>(i % 290));
            const float output = x * gain;
            int16_t got = 0;
            const bool made = products.MakeRun(&x, &gain, &got, 1) == 1;
            ASSERT_EQ(made, std::abs(output) <= gate && std::abs(output) < 1) << x << " " << gain;
            if (!made) continue;
            ASSERT_EQ(got, static_cast<int16_t>(output * 32767)) << x << " " << gain;
        }
    }
}

// Tests runs from all magnitudes and next to the values where exponents change. They include ties,
// bits lost below the last one, and targets that are constant, fall or vanish. If a run ends early,
// the plain steps continue.
TEST(LimiterGains, AreThoseOfPlainFloats) {
    std::mt19937 random(1);
    const auto bits = [&random] { return static_cast<uint32_t>(random()); };
    const auto from = [&bits](uint32_t exponent) {
        const uint32_t ends[] = {0, 0x7fffff, 0x400000, 0x0e3cf0, 0x348};
        const uint32_t end = (ends[bits() % 5] + bits() % 5 - 2) & 0x7fffffU;
        return std::bit_cast<float>(exponent << 23U | (bits() % 3 == 0 ? end : bits() >> 9U));
    };
    size_t done = 0, frames = 0;
    for (int n = 0; n < 40000; ++n) {
        const size_t count = 1 + bits() % 9, stride = 1 + bits() % 2;
        const uint32_t exponent = (n % 8 == 0 ? 15 : 113) + bits() % 15;
        const uint32_t down = bits() % std::min(23U, exponent);
        const uint32_t half = 1U << down;  // half of the last bit of the sum
        const uint32_t tie = (bits() & 0x7fffffU & ~(2 * half - 1)) | half | bits() % 2;
        float smoothed = from(exponent);
        const float power = std::bit_cast<float>(exponent << 23U);
        const auto rest = std::bit_cast<uint32_t>(std::abs(power - smoothed * kLimiterKeep));
        const float takes[] = {
            smoothed * 0.1001F, from(exponent + 2 - down % 8),
            std::bit_cast<float>((exponent - down - 1) << 23U | tie),
            std::bit_cast<float>(std::max(rest, 5U) - 5),  // half a bit below the power of two
            n % 16 == 0 ? 0x1p-149F : 0};
        const float taken = takes[n % 5];
        for (int i = 0; n % 5 == 0 && i < 200; ++i) smoothed = smoothed * kLimiterKeep + taken;
        std::vector<float> gains(count * stride + 4, 7.0F), expected = gains;
        const auto compare = [&](size_t ran) {
            done += ran;
            frames += count;
            for (size_t i = ran; i < count; ++i) gains[i * stride] = expected[i * stride];
            return gains == expected;
        };
        float plain = smoothed;
        for (size_t i = 0; i < count; ++i)
            expected[i * stride] = plain = plain * kLimiterKeep + taken;
        ASSERT_TRUE(compare(RunSmoothing(gains.data(), stride, count, smoothed, taken)))
            << smoothed << " " << taken;

        const float gain = plain = std::min(from(exponent), 1.0F);
        for (size_t i = 0; i < count; ++i) {
            const float leasts[] = {from(exponent), 1, smoothed};
            const float least = leasts[down % 3];
            plain = std::min(least, plain * kLimiterRecoverKeep + kLimiterRecoverStep);
            gains[i * stride] = least;
            expected[i * stride] = plain;
        }
        ASSERT_TRUE(compare(RunRecovery(gains.data(), stride, count, gain))) << gain << " " << n;
    }
    EXPECT_GT(done, frames / 3);
    EXPECT_LT(done, frames - frames / 20);
}

TEST(ShortQuotient, IsTheTruncatedOneOf64Bits) {
    std::mt19937 random(1);
    const auto next = [&random] { return static_cast<int32_t>(random() >> (1 + random() % 31)); };
    for (int i = 0; i < 100000; ++i) {
        const int32_t peak = std::max(next(), 1), gate = i % 4 == 0 ? peak / 2 : next() % peak;
        ASSERT_EQ(ShortQuotient(gate, peak), (int64_t{gate} << 24) / peak) << gate << " " << peak;
    }
}

// Compares memory and registers. The values are compared above.
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
TEST(SoftFloatLoops, LimitersEndWhereTheirPortableVersionsDo) {
    std::array<float, 16> gains = {};
    const float settled = 0.998002505F, taken = kLimiterTake;
    for (const float smoothed : {settled, 1.0F, 0.99F, 0.5556F, 0.5F, 0x1p-70F}) {
        for (const size_t stride : {1U, 2U}) {
            const size_t smoothedFrames =
                RunSmoothingPortable(gains.data(), stride, 8, smoothed, taken);
            EXPECT_EQ(Call(SoftSmoothing, gains.data(), stride, size_t{8}, smoothed, taken),
                      smoothedFrames);
            gains.fill(smoothed);
            const size_t recovered = RunRecoveryPortable(gains.data(), stride, 8, smoothed - 1e-4F);
            gains.fill(smoothed);
            EXPECT_EQ(Call(SoftRecovery, gains.data(), stride, size_t{8}, smoothed - 1e-4F),
                      recovered);
        }
    }
    std::mt19937 random(1);
    const auto below = [&random](uint32_t end) { return static_cast<uint32_t>(random()) % end; };
    RoutineInput input, falling, factors;
    for (int n = 0; n < 2000; ++n) {
        const size_t stride = 1 + below(2), count = 1 + below(6), last = (count - 1) * stride;
        std::vector<float> x(last + 1), maxima(last + 1);
        for (float& each : x) each = static_cast<float>(below(16)) - 6.5F;
        for (float& each : maxima) each = 6.5F + static_cast<float>(below(8) == 0) * -1;
        const float peak = n % 2 == 0 ? 5.5F : 6.5F;
        const float* const hanging = n % 4 < 2 ? falling.Put(maxima) : nullptr;
        float largest = 1, portable = 1;
        const size_t frames =
            SteadyFramesPortable(x.data(), hanging, stride, count, peak, &portable);
        ASSERT_EQ(Call(SoftSteadyFrames, input.Put(x), hanging, stride, count, peak, &largest),
                  frames);
        ASSERT_EQ(largest, portable);
    }
    const SampleGain gain(-1.4F);
    const std::vector<float> samples = {0.3F, -0.0F, 1.1F, INFINITY};
    EXPECT_EQ(Call(SoftAmplify, input.Put(samples), size_t{4}, &gain), 3U);
    EXPECT_EQ(Call(SoftAmplify, input.Put<float>({0.3F, -0.0F, 1.1F}), size_t{3}, &gain), 3U);
    const float* const x = input.Put<float>({0.5F, -0.5F, 0, 0.9F});
    const float* const y = factors.Put<float>({0.3F, 0.3F, 1, 0.9F});
    int16_t out[] = {1, 2, 3, 4, 5};
    EXPECT_EQ(Call(SoftShortProducts, x, y, &out[0], size_t{4}, 0x640000), 3U);
    EXPECT_EQ(std::to_array(out), (std::array<int16_t, 5>{4915, -4915, 0, 4, 5}));
}
#endif
