// Tests the numbers that are used where there is no unit for floats.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>

#include "dsp/fft_r24.h"
#include "dsp/softfloat/band_convolver.h"
#include "dsp/softfloat/contour_mix.h"
#include "dsp/softfloat/limiter.h"
#include "dsp/softfloat/samples.h"
#include "effects/limiter_arithmetic.h"
#include "routine_call.h"
#include "signals.h"

namespace {

// Random floats that unpacked floats can hold, of many magnitudes: near each other, ties, with few
// bits, and zeros.
class Operands {
public:
    float Next() {
        const uint32_t kind = Bits() % 8, significand = Bits() % (1U << 23U);
        const uint32_t masks[] = {0, 0x7f0000, 0x7fffc0, 0x00003f};
        uint32_t bits = Bits() & 0x80000000U;
        bits |= kind < 4 ? significand & masks[kind] : significand;
        bits |= (kind % 2 == 0 ? 120 + Bits() % 8 : 47 + Bits() % 140) << 23U;
        return Bits() % 32 == 0 ? 0.0F : std::bit_cast<float>(bits);
    }
    uint32_t Bits() { return static_cast<uint32_t>(random()); }

private:
    std::mt19937 random;
};

// Unpacks a float. Zeros get random exponents, as after cancellation.
SoftFloat Unpacked(float v, uint32_t bits) {
    SoftFloat a = softfloat::Unpack(std::bit_cast<uint32_t>(v));
    if (v == 0) a.e = static_cast<int32_t>(bits % 400) - 200;
    return a;
}

float Packed(SoftFloat a) {
    return std::bit_cast<float>(softfloat::Pack(a));
}

}  // namespace

TEST(SoftFloat, CalculatesLikeFloats) {
    Operands operands;
    for (int i = 0; i < (kSoftFloat ? 300000 : 3000000); ++i) {
        const float x = operands.Next();
        const float near = std::bit_cast<float>(std::bit_cast<uint32_t>(x) ^ operands.Bits() % 4);
        const float y = i % 8 == 0 && x != 0 ? near : operands.Next();
        const SoftFloat a = Unpacked(x, operands.Bits()), b = Unpacked(y, operands.Bits());
        const auto [sum, difference] = SumAndDifference(a, b);
        ASSERT_EQ(Packed(sum), x + y) << x << " " << y;
        ASSERT_EQ(Packed(difference), x - y) << x << " " << y;
        ASSERT_EQ(Packed(a + b), x + y) << x << " " << y;
        ASSERT_EQ(Packed(a - b), x - y) << x << " " << y;
        if (!softfloat::CanBeFactor(y)) continue;
        ASSERT_EQ(Packed(softfloat::FactorOf(y) * a), x * y) << x << " " << y;
    }
}

TEST(SoftFloat, AcceptsExactlyTheFloatsThatItCanHold) {
    for (const float v : {0.0F, -0.0F, 0x1p-80F, -0x1p-80F, 0x1.fffffep59F})
        EXPECT_TRUE(softfloat::Enters(std::bit_cast<uint32_t>(v))) << v;
    for (const float v : {0x1.fffffep-81F, -0x1p60F, 0x1p-149F, INFINITY, float(kNan)})
        EXPECT_FALSE(softfloat::Enters(std::bit_cast<uint32_t>(v))) << v;
    SoftFloat small = softfloat::Unpack(std::bit_cast<uint32_t>(0x1p-80F)), zero = {0, -9};
    EXPECT_TRUE(softfloat::Settles(small, zero));
    EXPECT_EQ(zero.e, 0);
    --small.e;
    EXPECT_FALSE(softfloat::Settles(zero, small));
}

// Tests every 16-bit sample, and the floats at and next to every boundary between two of them.
TEST(SoftFloat, ConvertsSamplesAsFloatsDo) {
    for (int sample = INT16_MIN; sample <= INT16_MAX; ++sample) {
        const auto value = static_cast<float>(sample);
        ASSERT_EQ(SoftFromInt16(static_cast<int16_t>(sample)), value * 0x1.0002p-15F);
        for (const float x : {value / 32767, std::nextafter(value / 32767, 2.0F),
                              std::nextafter(value / 32767, -2.0F), value * 0x1p-31F})
            ASSERT_EQ(SoftTruncated(x, 32767), static_cast<int>(x * 32767)) << x;
    }
}

// Processes chunks of all magnitudes, then silence until the filter's history is subnormal, then
// one more chunk.
TEST(ContourMix, GivesTheValuesOfThePlainSumAndFilter) {
    Operands operands;
    for (const size_t channels : {1U, 2U}) {
        Biquad_R32R32 filter, plain;
        // a fast and a slow filter
        filter.SetLowPassParameter(0, channels == 1 ? 8000 : 55, 44100, 0.5F);
        plain = filter;
        for (int chunk = 0; chunk < 400; ++chunk) {
            // ordered by channel, band and even or odd index
            std::vector<float> samples(size_t{6} * 32 * channels);
            const int scale = chunk == 399 ? 0 : -4 * chunk;
            if (chunk < 20 || chunk == 399)
                for (float& x : samples)
                    x = std::ldexp(static_cast<float>(operands.Bits() % 65536), scale);
            const auto at = [&](size_t c, size_t b) { return &samples[(6 * c + b) * 32]; };
            BandSamples bands[2];
            for (size_t c = 0; c < channels; ++c)
                bands[c] = {{at(c, 0), at(c, 1)}, {at(c, 2), at(c, 3)}, {at(c, 4), at(c, 5)}};
            std::vector<float> got(64 * channels), expected(64 * channels);
            ASSERT_TRUE(
                MixWithContour(bands, {1.8F, 1.1F, 0.95F}, &filter, got.data(), 64, channels));
            for (size_t i = 0; i < expected.size(); ++i) {
                const size_t c = i % channels, n = i / channels, odd = n % 2, q = n / 2;
                expected[i] =
                    (at(c, odd)[q] * 1.8F + at(c, 2 + odd)[q] * 1.1F) + at(c, 4 + odd)[q] * 0.95F;
            }
            for (size_t i = 0; i < expected.size(); i += channels) {
                const float sum = channels == 2 ? expected[i] + expected[i + 1] : expected[i];
                const float contour = plain.ProcessSample(sum);
                for (size_t c = 0; c < channels; ++c) expected[i + c] += contour;
            }
            ASSERT_EQ(got, expected) << channels << " " << chunk;
        }
    }
}

// Blocks have many magnitudes; some are sparse, some leave the range on the way. Each band in turn
// shares the block's memory, which must not change if the block is refused.
TEST(SoftBandConvolver, GivesTheValuesOfThePlainTransforms) {
    for (const size_t n : {256U, 1024U, 4096U}) {
        const size_t half = n / 2, taps = n / 4 - 1, pairs = (n + 1 - taps) / 2;
        FFT_R24<float> fft(static_cast<uint32_t>(n));
        const auto transform = [&](std::vector<float>& a, int direction) {
            a.resize(n);
            FFT_R24<float>::rdft(static_cast<int>(n), direction, a.data(), fft.ip.data(),
                                 fft.w.data());
        };
        // the kernels, and the factors of the real-spectrum step
        std::vector<float> packed[3], planar[4];
        for (size_t b = 0; b < 3; ++b) {
            packed[b] = Noise<float>(taps, b == 0 ? 1e-3 : 1e-8);
            transform(packed[b], 1);
            planar[b].resize(n);
            for (size_t k = 0; k < half; ++k) {
                const size_t bin = k <= half / 2 ? k : half / 2 + half - k;
                planar[b][bin] = packed[b][2 * k];
                planar[b][half + bin] = packed[b][2 * k + 1];
            }
        }
        planar[3].resize(half);
        for (size_t k = 1; k < half / 2; ++k) {
            planar[3][k] = 0.5F - fft.w[half - k];
            planar[3][half / 2 + k] = fft.w[half / 2 + k];
        }
        const auto halves = [](std::vector<float>& a) {
            return Planar<float>{a.data(), a.data() + a.size() / 2};
        };
        SoftBandConvolver convolver;
        ASSERT_TRUE(convolver.Allocate(static_cast<uint32_t>(n)));
        convolver.SetFactors(fft.w.data(), halves(planar[3]));
        convolver.SetKernels({halves(planar[0]), halves(planar[1]), halves(planar[2])});
        Operands operands;
        int taken = 0;
        for (size_t block = 0; block < 200; ++block) {
            std::vector<float> bands[3] = {std::vector<float>(n), std::vector<float>(n),
                                           std::vector<float>(n)};
            std::vector<float>& input = bands[block % 3];
            std::vector<float> spectrum(2 * pairs);
            for (size_t i = 0; i < spectrum.size(); ++i) {
                float x = operands.Next();
                if (block % 4 != 0)
                    x = std::ldexp(x - std::trunc(x), static_cast<int>(block) - 100);
                if (block % 4 == 1 && operands.Bits() % 64 != 0) x = 0;
                spectrum[i] = input[i % 2 * half + i / 2] = x;
            }
            // Each band has the first samples of its pairs and then the second ones, as the tails
            // are stored.
            const size_t tailPairs = half - pairs;
            std::vector<float> tails(6 * tailPairs);
            for (float& tail : tails) tail = operands.Next();
            tails[0] = 0x1p-140F;
            tails[1] = 0x1p90F;
            const std::vector<float> before = input, joining = tails;
            if (!convolver.Convolve(halves(input), pairs,
                                    {halves(bands[0]), halves(bands[1]), halves(bands[2])},
                                    tails.data())) {
                ASSERT_EQ(input, before);
                ASSERT_EQ(tails, joining);
                continue;
            }
            ++taken;
            transform(spectrum, 1);
            for (size_t b = 0; b < 3; ++b) {
                std::vector<float> expected = spectrum, got(n);
                const auto& k = packed[b];
                for (size_t j = 0; j < n; j += 2) {
                    const float re = spectrum[j], im = spectrum[j + 1];
                    expected[j] = j == 0 ? re * k[0] : re * k[j] - im * k[j + 1];
                    expected[j + 1] = j == 0 ? im * k[1] : im * k[j] + k[j + 1] * re;
                    got[j] = bands[b][j / 2];
                    got[j + 1] = bands[b][half + j / 2];
                }
                transform(expected, -1);
                for (size_t i = 0; i < 2 * tailPairs; ++i) {
                    const size_t at = (2 * b + i % 2) * tailPairs + i / 2;
                    expected[i] += joining[at];
                    ASSERT_EQ(tails[at], expected[2 * pairs + i]);
                }
                ASSERT_EQ(got, expected) << n << " block " << block << " band " << b;
            }
        }
        // The smallest factor of the longest transform is too small for raised exponents.
        EXPECT_EQ(taken > 80, n <= 1024) << taken;
        EXPECT_LT(taken, 200);
    }
}

#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
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
