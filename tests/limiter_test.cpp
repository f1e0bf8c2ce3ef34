#include "effects/limiter.h"

#include <gtest/gtest.h>

#include <deque>

#include "effects/limiter.h"
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
