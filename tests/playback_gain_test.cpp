#include "effects/playback_gain.h"

#include <gtest/gtest.h>

#include "dsp/biquad.h"
#include "signals.h"

namespace {

using Samples = std::vector<int16_t>;

void Set(PlaybackGain& gain, float ratio, float volume, float maxGain) {
    gain.SetRatio(ratio);
    gain.SetVolume(volume);
    gain.SetMaxGainFactor(maxGain);
}

Samples Play(PlaybackGain& gain, Samples samples, unsigned frames) {
    for (size_t at = 0; at < samples.size(); at += size_t{frames} * 2)
        gain.Process(&samples[at], &samples[at], frames);
    return samples;
}

}  // namespace

// A tone at the centre of the weighting filter in one channel, a hundredth of it in the other, long
// after the warm-up: the gain in dB is g - g^2 / 200 with g = L / (ratio + 1) - L.
TEST(PlaybackGain, MovesTheLevelOfTheLouderChannelTowardTheReference) {
    for (const auto& [ratio, amplitude] : {std::pair(1.0F, 20000.0), {1, 300}, {9, 900}, {0, 5000}})
        for (const size_t louder : {0U, 1U}) {
            Samples input(size_t{2} * 2205);  // whole periods
            for (size_t n = 0; n < 2205; ++n) {
                const double tone = amplitude * std::sin(static_cast<double>(n) * 2 *
                                                         std::numbers::pi * 2.2 / 44.1);
                input[2 * n + louder] = static_cast<int16_t>(tone);
                input[2 * n + 1 - louder] = static_cast<int16_t>(tone / 100);
            }
            PlaybackGain gain;
            Set(gain, ratio, 1, 64);
            gain.SetEnable(true);
            Samples output;
            for (int n = 0; n < 250; ++n) output = Play(gain, input, 2205);
            const double power = std::pow(amplitude / 32768 * 0.33, 2) / 2;
            const double level = 10 * std::log10(power) + 23;
            const double g = level / (static_cast<double>(ratio) + 1) - level;
            const double expected = 0.998 * amplitude * std::pow(10, (g - g * g / 200) / 20);
            EXPECT_NEAR(*std::max_element(output.begin(), output.end()) / expected, 1, 0.01)
                << ratio << ' ' << amplitude;
        }
}

// At ratio 0 from silence: 951 units of Q24 per sample in the first 1024, the limiter behind it.
TEST(PlaybackGain, RisesASixteenthAsFastAndTakesNoHostileControls) {
    const auto input = Noise<int16_t>(size_t{2} * 1024 * 20, 9000);
    const auto outputOf = [&input](float ratio, float volume, float maxGain) {
        PlaybackGain gain;
        Set(gain, ratio, volume, maxGain);
        gain.SetEnable(true);
        gain.Process(nullptr, nullptr, 0);
        return Play(gain, input, 1024);
    };
    const auto output = outputOf(0, 1, 1);
    Limiter_FP limiter;
    for (int64_t n = 0; n < 2048; ++n) {  // the next step: (2^24 - 973824) / 1102 / 16
        const int64_t gain = n < 1024 ? n * 951 : 973824 + (n - 1024) * 896;
        const auto at = static_cast<size_t>(2 * n);
        ASSERT_EQ(output[at], limiter.Process(static_cast<int32_t>(input[at] * gain >> 15)) >> 9);
    }
    for (const float none : {-kInfinity, -0.5F, kNan}) EXPECT_EQ(outputOf(none, 1, 1), output);
    EXPECT_EQ(outputOf(1, kNan, 1), Samples(input.size()));
    EXPECT_EQ(outputOf(1, 1, kNan), Samples(input.size()));
    for (const float huge : {128.0F, kInfinity}) {
        EXPECT_EQ(outputOf(0, 1, huge), outputOf(0, 1, 127.99999F));
        EXPECT_EQ(outputOf(0, huge, 1), outputOf(0, 127.99999F, 1));
    }
}

TEST(PlaybackGain, IsAsNewAfterResetAndAfterChangesOfTheStream) {
    PlaybackGain e;
    Set(e, 2, 0.8F, 4);
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
