#include "effects/fir_equalizer.h"

#include <gtest/gtest.h>

#include "signals.h"

namespace {

template <typename Equalizer>
class FirEqualizerTest : public testing::Test {};
using Equalizers = testing::Types<FIREqualizer_R32R32, FIREqualizer_R32R64>;
TYPED_TEST_SUITE(FirEqualizerTest, Equalizers);

template <typename Equalizer>
constexpr bool kIsFloat = std::is_same_v<Equalizer, FIREqualizer_R32R32>;

template <typename Equalizer>
std::vector<float> Play(Equalizer& equalizer, std::vector<float> samples, unsigned frames) {
    for (size_t at = 0; at < samples.size(); at += size_t{frames} * 2)
        equalizer.Process(&samples[at], frames);  // the calls fill `samples` exactly
    return samples;
}

// The plain form of the equalizer: one channel, sample by sample.
template <typename Real>
struct Plain {
    std::vector<Real> past = std::vector<Real>(512), sums = std::vector<Real>(9);

    float Step(float sample, const Real* gains) {
        past.push_back(sample);
        const size_t centre = past.size() - 1 - 256;
        Real finer = past[centre], y = 0;
        for (size_t k = 0; k < 9; ++k) {
            const size_t distance = size_t{1} << k;
            sums[k] += past[centre + distance];
            const Real average = sums[k] / static_cast<Real>(2 * distance);
            const Real band = gains[9 - k] * (finer - average);
            y = k == 0 ? band : y + band;
            finer = average;
            sums[k] -= past[centre - distance];
        }
        return static_cast<float>(gains[0] * finer + y);
    }
};

}  // namespace

// Levels change between calls of many lengths. The inputs are noise, sparse samples and zeros of
// both signs.
TYPED_TEST(FirEqualizerTest, AddsItsBandsInOneOrderInBothChannelsAndAnyBuffers) {
    using Real = std::conditional_t<kIsFloat<TypeParam>, float, double>;
    const struct {
        float level, floatGain, doubleGain;
    } laws[] = {{2, 5, 2}, {-1, 0, 0}, {0.5F, 2, 1.5F},      {-0.5F, 0.5F, 0.5F},
                {0, 1, 1}, {1, 3, 2},  {0.25F, 1.5F, 1.25F}, {-0.75F, 0.25F, 0.25F},
                {-2, 0, 0}};
    std::mt19937 random(5);
    for (const size_t channels : {1U, 2U}) {
        TypeParam equalizer;
        equalizer.SetChannels(static_cast<unsigned>(channels));
        equalizer.SetEnable(true);
        Plain<Real> plain[2];
        Real gains[10] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
        for (unsigned turn = 0; turn < 60; ++turn) {
            const auto& law = laws[random() % std::size(laws)];
            const int band = static_cast<int>(random() % 10);
            equalizer.SetBandLevel(band, law.level);
            gains[band] = kIsFloat<TypeParam> ? law.floatGain : law.doubleGain;
            equalizer.SetBandLevel(turn % 2 == 0 ? -1 : 10, 0.5F);
            equalizer.SetBandLevel(band, kIsFloat<TypeParam> ? kInfinity : kNan);
            auto run = Noise<float>((1 + random() % 700) * channels,
                                    std::ldexp(1.0, static_cast<int>(turn) * 4 - 120), turn);
            for (float& x : run) x *= turn % 3 == 0 || random() % 16 == 0 ? 1.0F : 0.0F;
            auto expected = run;
            for (size_t i = 0; i < run.size(); ++i)
                expected[i] = plain[i % channels].Step(run[i], gains);
            equalizer.Process(run.data(), static_cast<unsigned>(run.size() / channels));
            ASSERT_EQ(Bits(run), Bits(expected)) << "turn " << turn << ", channels " << channels;
        }
    }
}

// Tests every call that must or must not clear the history, and every reason not to process.
TYPED_TEST(FirEqualizerTest, ForgetsItsHistoryAndStopsWhenItsHeaderSays) {
    const auto input = Noise<float>(1200, 1.0);
    TypeParam e;
    const auto play = [&] { return Play(e, input, 300); };
    EXPECT_EQ(play(), input);
    e.SetEnable(true);
    const auto expected = play();
    e.Reset();
    EXPECT_EQ(play(), expected);
    e.SetChannels(1), e.SetChannels(2);
    EXPECT_EQ(play(), expected);
    e.SetChannels(2), e.SetSamplingRate(48000);
    EXPECT_FALSE(e.SetEnable(true));
    EXPECT_NE(play(), expected);
    e.SetEnable(false), e.SetEnable(true);
    EXPECT_EQ(play() == expected, kIsFloat<TypeParam>);
    for (const unsigned rate : {31999U, 32000U, 48000U, 48001U, UINT32_MAX})
        for (const unsigned channels : {0U, 1U, 2U, 3U}) {
            e.SetSamplingRate(rate);
            e.SetChannels(channels);
            EXPECT_EQ(play() != input, rate % 16000 == 0 && (channels == 1 || channels == 2))
                << rate << ' ' << channels;
        }
}

// In builds with unpacked floats, compares the equalizer with one that uses plain floats. The
// histories are multiples of 2^-30 and include full scale and long silence. In call 55, one sample
// is not such a multiple. The plain equalizer first got a gain that unpacked floats cannot hold.
TEST(FirEqualizer, GivesTheSameValuesOnUnpackedNumbers) {
    std::mt19937 random(5);
    FIREqualizer_R32R32 unpacked, plain;
    for (FIREqualizer_R32R32* e : {&unpacked, &plain}) e->SetEnable(true);
    float silence[2] = {};
    plain.SetBandLevel(0, 1e30F);
    plain.Process(silence, 1);
    plain.SetBandLevel(0, 0);
    for (int call = 0; call < 60; ++call) {
        const auto frames = static_cast<unsigned>(random() % 300);
        const int scale = call == 0 ? -25 : -static_cast<int>(random() % 26);
        const auto band = static_cast<int>(random() % 10);
        const float level = static_cast<float>(random() % 400) / 100 - 1.5F;
        std::vector<float> samples = Noise<float>(size_t{2} * frames, std::ldexp(1.0, scale));
        for (float& x : samples) {
            x = std::ldexp(std::round(std::ldexp(x, 30)), -30);
            if ((call % 5 == 2 && random() % 100 != 0) || (call > 20 && call < 28)) x = 0;
            if (call % 7 == 3 && random() % 8 == 0) x = x > 0 ? 1.0F : -1.0000305F;
        }
        if (call == 55) samples[samples.size() / 2] = 0x1p-31F;
        std::vector<float> expected = samples;
        for (FIREqualizer_R32R32* e : {&unpacked, &plain}) e->SetBandLevel(band, level);
        unpacked.Process(samples.data(), frames);
        plain.Process(expected.data(), frames);
        ASSERT_EQ(samples, expected) << call;
    }
}
