#include "effects/playback_gain.h"

#include <gtest/gtest.h>

#include "effects/limiter_fp.h"
#include "signals.h"

namespace {

using Samples = std::vector<int16_t>;

Samples Play(PlaybackGain& gain, Samples samples, unsigned frames) {
    for (size_t at = 0; at < samples.size(); at += size_t{frames} * 2)
        gain.Process(&samples[at], &samples[at], frames);
    return samples;
}

// The last of `times` outputs.
Samples OutputOf(float ratio, float volume, float maxGain, const Samples& input, unsigned frames,
                 int times = 1) {
    PlaybackGain gain;
    gain.SetRatio(ratio);
    gain.SetVolume(volume);
    gain.SetMaxGainFactor(maxGain);
    gain.SetEnable(true);
    gain.Process(nullptr, nullptr, 0);
    while (--times > 0) Play(gain, input, frames);
    return Play(gain, input, frames);
}

}  // namespace

// A tone at the centre of the weighting filter in one channel, a hundredth of it in the other, long
// after the warm-up: the gain in dB is g - g^2 / 200 with g = L / (ratio + 1) - L.
TEST(PlaybackGain, MovesTheLevelOfTheLouderChannelTowardTheReference) {
    for (const auto& [ratio, amplitude, louder] :
         {std::tuple{1, 20000.0, 0U}, {1, 300.0, 1U}, {9, 900.0, 0U}, {0, 5000.0, 1U}}) {
        Samples input(size_t{2} * 2205);  // whole periods
        for (size_t n = 0; n < 2205; ++n) {
            const double turn = 2 * std::numbers::pi * 2.2 / 44.1;
            const double tone = amplitude * std::sin(static_cast<double>(n) * turn);
            input[2 * n + louder] = static_cast<int16_t>(tone);
            input[2 * n + 1 - louder] = static_cast<int16_t>(tone / 100);
        }
        const Samples output = OutputOf(static_cast<float>(ratio), 1, 64, input, 2205, 250);
        const double level = 20 * std::log10(amplitude / 32768 * 0.33 * std::sqrt(0.5)) + 23;
        const double g = level / (ratio + 1) - level;
        const double expected = 0.998 * amplitude * std::pow(10, (g - g * g / 200) / 20);
        EXPECT_NEAR(*std::max_element(output.begin(), output.end()) / expected, 1, 0.01) << ratio;
    }
}

// At ratio 0 from silence, the limiter behind it: 951 units of Q24 per sample in the first 1024,
// then (2^24 - 973824) / 1102 / 16. Downward four times 2^24 / 1102, not beyond the maximum.
TEST(PlaybackGain, RisesASixteenthAsFastAsItFallsAndTakesNoHostileControls) {
    const auto input = Noise<int16_t>(size_t{2} * 1024 * 20, 9000);
    const auto rising = OutputOf(0, 1, 1, input, 1024), falling = OutputOf(0, -4, 1, input, 1024);
    Limiter_FP up, down;
    for (int64_t n = 0; n < 2048; ++n) {
        const auto at = static_cast<size_t>(2 * n);
        const auto limited = [x = input[at]](Limiter_FP& limiter, int64_t gain) {
            return limiter.Process(static_cast<int32_t>(x * gain >> 15)) >> 9;
        };
        ASSERT_EQ(rising[at], limited(up, n < 1024 ? n * 951 : 973824 + (n - 1024) * 896)) << n;
        ASSERT_EQ(falling[at], limited(down, std::max<int64_t>(n * -60897, -(1 << 24)))) << n;
    }
    for (const float none : {-kInfinity, -0.5F, kNan})
        EXPECT_EQ(OutputOf(none, 1, 1, input, 1024), rising);
    for (const float huge : {128.0F, kInfinity}) {
        EXPECT_EQ(OutputOf(0, 1, huge, input, 1024), OutputOf(0, 1, 127.99999F, input, 1024));
        EXPECT_EQ(OutputOf(0, huge, 1, input, 1024), OutputOf(0, 127.99999F, 1, input, 1024));
    }
    EXPECT_EQ(OutputOf(1, kNan, 1, input, 1024), Samples(input.size()));
    EXPECT_EQ(OutputOf(1, 1, kNan, input, 1024), Samples(input.size()));
}

TEST(PlaybackGain, IsAsNewAfterResetAndAfterChangesOfTheStream) {
    PlaybackGain e;
    const auto input = Noise<int16_t>(40000, 9000);
    const auto play = [&](auto act) {
        act();
        return Play(e, input, 400);
    };
    EXPECT_EQ(play([] {}), input);
    const auto expected = play([&] { EXPECT_EQ(e.SetEnable(true), 1); });
    EXPECT_EQ(play([&] { e.Reset(); }), expected);
    EXPECT_EQ(play([&] { e.SetSamplingRate(48000), e.SetSamplingRate(44100); }), expected);
    EXPECT_EQ(play([&] { e.SetChannels(1), e.SetChannels(2); }), expected);
    EXPECT_EQ(play([&] { e.SetEnable(false), e.SetEnable(true); }), expected);
    EXPECT_NE(play([&] { EXPECT_EQ(e.SetEnable(true), 0); }), expected);
    EXPECT_NE(play([&] { e.SetSamplingRate(44100), e.SetChannels(2), e.SetChannels(3); }),
              expected);
}
