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
std::vector<float> Play(Equalizer& equalizer, std::vector<float> samples, unsigned channels,
                        unsigned frames) {
    for (size_t at = 0; at < samples.size(); at += size_t{frames} * channels)
        equalizer.Process(&samples[at], frames);  // whole calls
    return samples;
}

// The 513 taps of the filter whose band b has gain gains[b].
std::vector<double> Taps(const std::vector<double>& gains) {
    std::vector<double> taps(513);
    for (size_t n = 0; n < taps.size(); ++n) {
        const int i = static_cast<int>(n) - 256;
        double& tap = taps[n];
        double finer = i == 0 ? 1 : 0;  // tap of the next narrower average; first the sample itself
        int halfWidth = 1;
        for (size_t band = 9; band > 0; --band, halfWidth *= 2) {
            const double wider = std::abs(i) <= halfWidth ? 0.5 / halfWidth : 0;
            tap += gains[band] * (finer - wider);
            finer = wider;
        }
        tap += gains[0] * finer;
    }
    return taps;
}

}  // namespace

TYPED_TEST(FirEqualizerTest, IsTheFirFilterOfItsGainsInBothChannelsAndAnyBuffers) {
    constexpr float kLevels[] = {2, -1, 0.5F, -0.5F, 0, 1, -2, 0.25F, -0.75F, 0.125F};
    const std::vector<double> gains =
        kIsFloat<TypeParam> ? std::vector<double>{5, 0, 2, 0.5, 1, 3, 0, 1.5, 0.25, 1.25}
                            : std::vector<double>{2, 0, 1.5, 0.5, 1, 2, 0, 1.25, 0.25, 1.125};
    TypeParam both, mono;
    mono.SetChannels(1);
    for (TypeParam* e : {&both, &mono}) {
        EXPECT_TRUE(e->SetEnable(true));
        for (int band = 0; band < 10; ++band) e->SetBandLevel(band, kLevels[band]);
        for (const int band : {-1, 10}) e->SetBandLevel(band, 0.5F);
        for (const float level : {kNan, kIsFloat<TypeParam> ? kInfinity : kNan})
            e->SetBandLevel(4, level);
    }
    const auto stereo = Noise<float>(6000, 1.0), output = Play(both, stereo, 2, 3000);
    for (const size_t channel : {0U, 1U}) {
        std::vector<float> in, out;
        for (size_t i = channel; i < stereo.size(); i += 2) {
            in.push_back(stereo[i]);
            out.push_back(output[i]);
        }
        EXPECT_LT(LargestDifference(out, DirectConvolution(in, Taps(gains))),
                  kIsFloat<TypeParam> ? 1e-5 : 3e-7);
        mono.Reset();
        EXPECT_EQ(Play(mono, in, 1, 100), out);
    }
}

// Every way to start with an empty history, or not, and every reason not to process.
TYPED_TEST(FirEqualizerTest, ForgetsItsHistoryAndStopsWhenItsHeaderSays) {
    const auto input = Noise<float>(1200, 1.0);
    TypeParam e;
    const auto play = [&] { return Play(e, input, 2, 300); };
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

// Where floats are unpacked: as without, in any history that the numbers can hold and behind it.
// A gain that they can't hold, met before anything else, makes the other equalizer plain.
TEST(FirEqualizer, GivesTheSameValuesOnUnpackedNumbers) {
    std::mt19937 random(5);
    FIREqualizer_R32R32 unpacked, plain;
    for (FIREqualizer_R32R32* e : {&unpacked, &plain}) e->SetEnable(true);
    plain.SetBandLevel(0, 1e30F);
    plain.Process(nullptr, 0);
    plain.SetBandLevel(0, 0);
    for (int call = 0; call < 60; ++call) {
        const auto frames = static_cast<unsigned>(random() % 300);
        const int scale = static_cast<int>(random() % 30) - 15;
        const auto band = static_cast<int>(random() % 10);
        const float level = static_cast<float>(random() % 400) / 100 - 1.5F;
        std::vector<float> samples = Noise<float>(size_t{2} * frames, std::ldexp(1.0, scale));
        for (float& x : samples)
            if (call % 5 == 2 && random() % 100 != 0) x = 0;
        if (call == 55) samples.assign(samples.size(), 0x1p-41F);
        std::vector<float> expected = samples;
        for (FIREqualizer_R32R32* e : {&unpacked, &plain}) e->SetBandLevel(band, level);
        unpacked.Process(samples.data(), frames);
        plain.Process(expected.data(), frames);
        ASSERT_EQ(samples, expected) << call;
    }
}
