#include <gtest/gtest.h>

#include <bit>
#include <cmath>

#include "dsp/fft_r24.h"
#include "dsp/softfloat/band_convolver.h"
#include "dsp/softfloat/contour_mix.h"
#include "dsp/softfloat/samples.h"
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
            fft.rdft(static_cast<int>(n), direction, a.data(), fft.ip.data(), fft.w.data());
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
