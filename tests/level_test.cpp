// Tests what controls the level: limiters, loudness and playback gain.
#include <gtest/gtest.h>

#include <deque>

#include "effects/limiter.h"
#include "effects/loudness.h"
#include "effects/playback_gain.h"
#include "signals.h"

namespace {

// The limiter's definition, sample by sample. Scans the newest 256 samples since limiting began. A
// NaN counts as 0 and comes out as NaN.
template <typename A>
struct Scan {
    using T = typename A::Sample;
    using Quotient = typename A::template Quotient<T>;
    T gate = 0, smooth = A::kUnity, gain = A::kUnity;
    bool limiting = false;
    std::deque<T> seen = {}, waiting = std::deque<T>(255);

    T Process(T x) {
        const T size = A::Magnitude(x);
        if (size > gate && !limiting) seen.clear(), limiting = true;
        seen.push_front(size > 0 ? size : 0);
        seen.resize(256);
        const T peak = *std::max_element(seen.begin(), seen.end());
        limiting = limiting && peak > gate;
        smooth = A::Smooth(smooth, limiting ? Quotient()(gate, peak) : A::kUnity);
        gain = std::min(smooth, A::Recover(gain));
        waiting.push_back(x);
        const T delayed = waiting.front(), y = A::Apply(delayed, gain);
        waiting.pop_front();
        if (!(A::Magnitude(y) > gate)) return y;
        gain = Quotient()(gate, A::Magnitude(delayed));
        return A::Apply(delayed, gain);
    }
};

float NextAbove(float x) {
    return std::nextafterf(x, kInfinity);
}
int32_t NextAbove(int32_t x) {
    return x + 1;
}

// Limiters of unpacked floats take no NaN; the chain never makes one.
template <typename A>
constexpr bool kHasNan = A::kUnity == 1 && !kSoftFloat;

template <typename A>
class LimiterTest : public testing::Test {};
using Limiters = testing::Types<FloatLimiting, Q24Limiting>;
TYPED_TEST_SUITE(LimiterTest, Limiters);

}  // namespace

// The inputs are a constant, or one sample after ten zeros.
TEST(Limiter, GivesTheOutputsThatFollowFromItsConstants) {
    Limiter rest, limited, pulse;
    Limiter_FP restFp, pulseFp, lowest, atGate, beyondGate;
    // a gate of 5 units
    for (Limiter_FP* limiter : {&atGate, &beyondGate}) limiter->SetGate(3e-7F);
    for (int n = 0; n < 1000; ++n) {
        ASSERT_EQ(rest.Process(0.5F), n < 255 ? 0 : 0.49900126F) << n;
        ASSERT_FLOAT_EQ(limited.Process(1.5F), n < 255 ? 0 : 0x1.feed2p-1F) << n;
        ASSERT_FLOAT_EQ(pulse.Process(n == 10 ? 2.0F : 0.0F), n == 265 ? 0.9979025F : 0) << n;
        ASSERT_EQ(restFp.Process(8388608), n < 255 ? 0 : 8371849) << n;
        ASSERT_EQ(lowest.Process(n == 10 ? INT32_MIN : 0), n == 265 ? -16742272 : 0) << n;
        ASSERT_EQ(atGate.Process(n == 10 ? 5 : 0), n == 265 ? 4 : 0) << n;
        ASSERT_EQ(beyondGate.Process(n == 10 ? 6 : 0), n == 265 ? 4 : 0) << n;
        ASSERT_EQ(pulseFp.Process(n == 10 ? 33554432 : 0), n == 265 ? 16743678 : 0) << n;
    }
}

// Random histories of bursts, rests, steady and sparse levels, different in each channel. They
// contain samples at the gate and just beyond it, changes of the gate at any time, and resets.
// Samples are passed one by one, in runs, and in frames. No output exceeds the gate. An invalid
// gate gives silence.
TYPED_TEST(LimiterTest, FollowsTheLargestSampleSinceLimitingBegan) {
    using A = TypeParam;
    using T = typename A::Sample;
    constexpr float kGates[] = {0.9999F, 0.5F,  0.3F, 1,    0.01F,    3e-7F,
                                0,       -0.0F, -1,   kNan, kInfinity};
    constexpr double kLevels[] = {0, 1e-30, 0.29, 0.4, 0.8, 3, 40, A::kUnity == 1 ? 1e9 : 127};
    std::conditional_t<A::kUnity == 1, Limiter, Limiter_FP> limiter;
    FrameLimiter<A> frameLimiter;
    Scan<A> scans[2];
    std::mt19937 random(3);
    for (unsigned turn = 0; turn < 2000; ++turn) {
        if (turn == 0 || random() % 4 == 0) {
            const float gate = kGates[random() % std::size(kGates)];
            limiter.SetGate(gate);
            frameLimiter.SetGate(gate);
            for (auto& scan : scans) scan.gate = A::Gate(gate);
        }
        if (random() % 32 == 0) {
            limiter.Reset();
            frameLimiter.Reset();
            for (auto& scan : scans) scan = {.gate = scan.gate};
        }
        const auto frames = static_cast<uint32_t>(1 + random() % 400), first = turn % 2;
        const double levels[] = {kLevels[random() % std::size(kLevels)] * A::kUnity,
                                 kLevels[random() % std::size(kLevels)] * A::kUnity};
        auto stereo = Noise<T>(size_t{2} * frames, 1 * A::kUnity, turn), expected = stereo;
        const T gate = std::min<T>(scans[0].gate, 100 * A::kUnity), beyond = NextAbove(gate);
        const T edges[] = {gate, -gate, beyond, -beyond};
        for (size_t i = 0; i < stereo.size(); ++i) {
            const double level = levels[i % 2], shape = static_cast<double>(stereo[i]) / A::kUnity;
            const bool sounds = (turn + i) % 3 != 0 || random() % 16 == 0;
            stereo[i] = static_cast<T>(turn % 3 == 0 ? level : sounds ? level * shape : 0 * shape);
            if (turn % 4 == 1) stereo[i] = random() % 128 == 0 ? edges[random() % 4] : 0;
            if (kHasNan<A> && turn % 16 == 3 && random() % 64 == 0) stereo[i] = T(kNan);
            expected[i] = scans[i % 2].Process(stereo[i]);
            const T size = A::Magnitude(expected[i]);
            ASSERT_TRUE(size != size || size <= static_cast<double>(scans[0].gate) * (1 + 0x1p-23));
        }
        auto left = stereo;
        limiter.Process(left.data(), first, 2);
        if (random() % 2 == 0)
            limiter.Process(&left[size_t{2} * first], frames - first, 2);
        else
            for (size_t i = size_t{2} * first; i < left.size(); i += 2)
                left[i] = limiter.Process(left[i]);
        for (size_t i = 1; i < left.size(); i += 2) {
            ASSERT_EQ(std::bit_cast<uint32_t>(left[i]), std::bit_cast<uint32_t>(stereo[i]));
            left[i] = expected[i];
        }
        frameLimiter.Process(stereo.data(), first, 2);
        frameLimiter.Process(&stereo[size_t{2} * first], frames - first, 2);
        ASSERT_EQ(Bits(stereo), Bits(expected)) << "turn " << turn << ", gate " << scans[0].gate;
        ASSERT_EQ(Bits(left), Bits(expected)) << "turn " << turn << ", gate " << scans[0].gate;
    }
}

namespace {

using Samples = std::vector<int16_t>;

Samples Play(PlaybackGain& gain, Samples samples, unsigned frames) {
    for (size_t at = 0; at < samples.size(); at += size_t{frames} * 2)
        gain.Process(&samples[at], &samples[at], frames);
    return samples;
}

// Processes the input `times` times and returns the last output.
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

// A tone at the centre frequency of the weighting filter is in one channel, a hundredth of it in
// the other. Long after the warm-up, the gain in dB is g - g^2 / 200 with g = L / (ratio + 1) - L.
TEST(PlaybackGain, MovesTheLevelOfTheLouderChannelTowardTheReference) {
    for (const auto& [ratio, amplitude, louder] :
         {std::tuple{1, 20000.0, 0U}, {1, 300.0, 1U}, {9, 900.0, 0U}, {0, 5000.0, 1U}}) {
        Samples input(size_t{2} * 2205);  // contains whole periods
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

// At ratio 0 every input asks for a gain of 1. What is left is the straight line toward the volume,
// the ends of the gain's range, and the limiters. The line is a sixteenth as steep upward as
// downward. The last volume is so little above the gain that it asks for a step of 1, which is
// none.
TEST(PlaybackGain, MovesItsGainInALineBetweenItsEndsInAnyBuffersAndChannels) {
    constexpr float kVolumes[] = {1, 0, 0.5F, 4, -4, 127.9F, -128},
                    kHighest[] = {16, 1, 0.3F, 128, 0, -2},
                    kLastVolumes[] = {127.9F, 0.5F, 0.5F + 0x880p-24F};
    constexpr unsigned kTurns = 600, kLastFrom = 589;
    std::mt19937 random(7);
    for (const size_t channels : {1U, 2U}) {
        PlaybackGain playbackGain;
        playbackGain.SetRatio(0);
        playbackGain.SetChannels(static_cast<unsigned>(channels));
        playbackGain.SetEnable(true);
        Limiter_FP limiters[2];
        int64_t gain = 0, volume = 1 << 24, highest = 1 << 24;
        for (unsigned turn = 0; turn < kTurns; ++turn) {
            if (turn % 5 == 4) {
                float v = kVolumes[random() % std::size(kVolumes)],
                      h = kHighest[random() % std::size(kHighest)];
                if (turn >= kLastFrom) v = kLastVolumes[(turn - kLastFrom) / 5], h = 128;
                playbackGain.SetVolume(v);
                playbackGain.SetMaxGainFactor(h);
                volume = ToQ24(v);
                highest = ToQ24(h);
            }
            auto frames = static_cast<unsigned>(1 + random() % (turn % 8 == 0 ? 2000 : 300));
            if (turn >= kLastFrom) frames = 1102;
            const bool isLoud = turn % 3 == 0 || turn + 1 == kTurns;
            const auto input = Noise<int16_t>(frames * channels, isLoud ? 32768 : 3000, turn);
            Samples output(input.size());
            playbackGain.Process(input.data(), output.data(), frames);
            int64_t step = (volume - gain) / std::max(1102U, frames);
            if (step >= 1) step >>= 4;
            for (size_t i = 0; i < input.size(); ++i) {
                const auto amplified = static_cast<uint32_t>(input[i] * gain >> 15);
                const int32_t limited =
                    limiters[i % channels].Process(static_cast<int32_t>(amplified));
                ASSERT_EQ(output[i], static_cast<int16_t>(limited >> 9))
                    << "turn " << turn << ", sample " << i;
                if (i % channels != channels - 1) continue;
                gain += step;
                gain = gain > highest ? highest : std::max(gain, -highest);
            }
        }
    }
}

// Controls that are NaN or out of range act like the nearest end of the range, or give silence.
TEST(PlaybackGain, ClampsHostileControls) {
    const auto input = Noise<int16_t>(size_t{2} * 1024 * 20, 9000);
    for (const float none : {-kInfinity, -0.5F, kNan})
        EXPECT_EQ(OutputOf(none, 1, 1, input, 1024), OutputOf(0, 1, 1, input, 1024));
    for (const float huge : {128.0F, kInfinity}) {
        EXPECT_EQ(OutputOf(0, 1, huge, input, 1024), OutputOf(0, 1, 127.99999F, input, 1024));
        EXPECT_EQ(OutputOf(0, huge, 1, input, 1024), OutputOf(0, 127.99999F, 1, input, 1024));
    }
    EXPECT_EQ(OutputOf(1, kNan, 1, input, 1024), Samples(input.size()));
    EXPECT_EQ(OutputOf(1, 1, kNan, input, 1024), Samples(input.size()));
    PlaybackGain silent;
    silent.SetChannels(0);
    silent.SetEnable(true);
    Samples untouched(256, 7);
    silent.Process(input.data(), untouched.data(), 64);
    EXPECT_EQ(untouched, Samples(256, 7));
}

// The coefficients have both signs and many magnitudes, constant or moving. Inputs are split
// anywhere, and the history continues.
TEST(Loudness, IsThatOfTheLouderChannelByItself) {
    for (unsigned turn = 0; turn < 300; ++turn) {
        auto c = Noise<float>(5, turn % 9 == 0 ? 128 : 0.5, turn);
        if (turn % 2 == 0) c[3] = 0;
        Biquad_FP pair[2], single[2];
        for (size_t side = 0; side < 2; ++side) {
            pair[side].SetCoeffs(turn % 7 == 0 ? 50 : 0, 1, c[0], c[1], c[2], c[3],
                                 c[4] * (turn % 11 == side ? -1.0F : 1.0F));
            single[side] = pair[side];
        }
        for (const size_t frames : {1U, 2U, 3U, 64U, 67U, 130U}) {
            const auto in = Noise<int16_t>(2 * frames, 32768, turn);
            uint64_t largest = 0;
            for (ptrdiff_t side = 0; side < 2; ++side)
                largest = std::max(
                    largest, AddEnergy(&in[static_cast<size_t>(side)], frames, 2, single[side]));
            ASSERT_EQ(LargerEnergy(in.data(), frames, pair), largest)
                << "turn " << turn << ", frames " << frames;
        }
    }
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

// When it is switched off in the middle of its limiter's lap, it must not split chunks at laps that
// no longer move.
TEST(PlaybackGain, TakesWholeChunksWhileItIsOff) {
    Samples samples(size_t{2} * 1000);
    PlaybackGain gain;
    gain.SetEnable(true);
    gain.Process(samples.data(), samples.data(), kChunkFrames - 1);
    for (const bool enable : {true, false}) {
        gain.SetEnable(enable);
        size_t chunks = 0;
        gain.Begin(samples.data(), 1000);
        for (uint32_t left = 1000, count = 0; left > 0; left -= count, ++chunks) {
            count = std::min(left, gain.Room());
            gain.ProcessChunk(samples.data(), samples.data(), count, Alone());
        }
        EXPECT_EQ(chunks, (1000 + kChunkFrames - 1) / kChunkFrames + (enable ? 1 : 0));
    }
}
