// Tests a running stream by what a listener and a host observe.
#include "live/live_stream.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "client/presets.h"
#include "host/entry_points.h"
#include "live/any_rate.h"
#include "table/stages.h"
#include "tests/signals.h"
#include "tests/without_system_calls.h"

#ifndef ORVANE_SANITIZED
namespace {
int allocations = 0;
}
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" void* __libc_malloc(size_t);
extern "C" void* malloc(size_t size) {
    ++allocations;
    return __libc_malloc(size);
}
// NOLINTEND(bugprone-reserved-identifier)
#endif

namespace {

constexpr uint32_t kRateHz = 48000;
using Channels = std::array<std::vector<float>, 2>;

size_t ControlOf(ParameterId id, int32_t band = 0) {
    size_t n = 0;
    while (kControls[n].parameter->id != id || kControls[n].band != band) ++n;
    return n;
}
const std::array kSwitches = [] {
    std::array<size_t, kSwitchCount> controls{};
    for (size_t n = 0; n < kSwitchCount; ++n) controls[n] = ControlOf(kStageSwitches[n]);
    return controls;
}();

// Processes the samples in place, in calls of `piece` frames. Returns the source with the delay of
// the result.
Channels Play(LiveStream& stream, Channels* samples, size_t piece) {
    Channels past = *samples;
    for (size_t at = 0; at < past[0].size(); at += piece) {
        float* const io[2] = {&(*samples)[0][at], &(*samples)[1][at]};
        float* const source[2] = {&past[0][at], &past[1][at]};
        stream.Process(io, io, source, std::min(piece, past[0].size() - at));
    }
    return past;
}

// Returns noise whose samples fit into 16 bits.
Channels Piece(size_t frames) {
    Channels piece;
    for (unsigned c = 0; c < 2; ++c)
        for (const int16_t sample : Noise<int16_t>(frames, 30000, 5 + c))
            piece[c].push_back(static_cast<float>(sample) / 32768);
    return piece;
}
Channels Tone(size_t from, size_t frames) {
    Channels tone;
    for (size_t n = from; n < from + frames; ++n)
        for (auto& channel : tone)
            channel.push_back(static_cast<float>(
                0.25 * std::sin(2 * std::numbers::pi * 440 * static_cast<double>(n) / kRateHz)));
    return tone;
}

// Returns what the library gives for buffers of `buffer` frames, delayed by one buffer.
Channels ByTheLibrary(const Channels& in, const Settings& settings, uint32_t buffer) {
    BlockStream stream(AELI, {kRateHz, 2, buffer}, settings);
    Channels out;
    for (size_t n = 0; n < in[0].size(); ++n) {
        int16_t frame[2];
        for (size_t c = 0; c < 2; ++c) frame[c] = static_cast<int16_t>(32768 * in[c][n]);
        stream.Process(frame, frame, 1);
        for (size_t c = 0; c < 2; ++c) out[c].push_back(static_cast<float>(frame[c]) / 32768);
    }
    return out;
}

TEST(LiveStream, GivesTheLibrarysSamplesWhateverPiecesItComesInAndHowManyPlay) {
    const Channels in = Piece(40000);
    for (const char* const preset : {"loud", "night"})
        for (const uint32_t buffer : {LiveStream::kBufferFrames, LiveStream::kLowLatencyFrames}) {
            const Settings settings = SettingsOf(*FindPreset(preset));
            LiveStream stream(kRateHz), other(kRateHz);
            stream.SetLowLatency(buffer == LiveStream::kLowLatencyFrames);
            stream.Apply(settings);
            Channels out = in;
            const size_t sizes[] = {1, 64, 770, 1000, 8192};
            for (size_t at = 0, turn = 0; at < in[0].size(); ++turn) {
                const size_t count = std::min(sizes[turn % 5], in[0].size() - at);
                float* const crossed[2] = {&out[1][at], &out[0][at]};
                const float* const from[2] = {&out[0][at], &out[1][at]};
                float* const nowhere[2] = {};
                stream.Process(from, crossed, nowhere, count);
                float spare[2][8192] = {};
                float* const aside[2] = {spare[0], spare[1]};
                other.Process(aside, aside, nowhere, count);
                at += count;
            }
            std::swap(out[0], out[1]);
            EXPECT_TRUE(out == ByTheLibrary(in, settings, buffer)) << preset << ' ' << buffer;
        }
}

// Returns the delays of an impulse in the result and in the source.
std::pair<size_t, size_t> ImpulseDelays(LiveStream& stream) {
    const size_t at = 100, frames = 8192;
    Channels samples = {std::vector<float>(frames), std::vector<float>(frames)};
    samples[0][at] = samples[1][at] = 0.25F;
    const Channels past = Play(stream, &samples, 480);
    const auto peak = [](const std::vector<float>& v) {
        const auto louder = [](float a, float b) { return std::abs(a) < std::abs(b); };
        return static_cast<size_t>(std::max_element(v.begin(), v.end(), louder) - v.begin()) - at;
    };
    return {peak(samples[0]), peak(past[0])};
}

TEST(LiveStream, IsAsLateAsItSaysAfterEveryMoveOfItsSwitches) {
    LiveStream stream(kRateHz);
    for (unsigned wanted = 0; wanted < 4U << kSwitchCount; ++wanted) {
        const unsigned bits = wanted ^ (wanted >> 1);  // one moves at a time
        stream.SetLowLatency((bits >> kSwitchCount & 1) != 0);
        stream.SetBypass((bits >> kSwitchCount & 2) != 0);
        for (size_t n = 0; n < kSwitchCount; ++n) stream.Set(kSwitches[n], bits >> n & 1);
        Channels settle = {std::vector<float>(200000), std::vector<float>(200000)};
        Play(stream, &settle, 1000);
        const auto [result, source] = ImpulseDelays(stream);
        EXPECT_EQ(result, stream.LatencyFrames()) << bits;
        EXPECT_EQ(source, stream.LatencyFrames()) << bits;
    }
}

TEST(LiveStream, GivesAfterAMoveWhatTheLibraryGivesFromTheMovesBufferOn) {
    const size_t buffer = LiveStream::kBufferFrames;
    const Channels source = Piece(50 * buffer);
    Settings settings = SettingsOf(*FindPreset("music"));
    LiveStream stream(kRateHz);
    stream.Apply(settings);
    // At a gain of 16 the limiters work. The third move must not hear them any more.
    for (const double gain : {16.0, 0.9, 0.8}) {
        Channels before = Piece(10 * buffer), after = source;
        Play(stream, &before, 512);
        settings.Set(PARAM_OUTPUT_GAIN, gain);
        settings.SetBand(3, -0.4 * std::min(gain, 1.0));
        stream.Apply(settings);
        Play(stream, &after, 512);
        const Channels wanted = ByTheLibrary(source, settings, buffer);
        // Settling takes 1024 frames and the fade 2048. A move that is taken a buffer later ends
        // later.
        const auto faded = ptrdiff_t{stream.LatencyFrames()} + 1024 + 2048;
        for (size_t c = 0; c < 2; ++c)
            EXPECT_TRUE(
                std::equal(wanted[c].begin() + faded, wanted[c].end(), after[c].begin() + faded))
                << gain;
    }
}

TEST(LiveStream, KeepsTheGateThatNoCommandRestores) {
    Channels in;
    for (auto& channel : in) channel.assign(20000, 0.99999F);
    LiveStream stream(kRateHz);
    stream.Set(ControlOf(PARAM_OUTPUT_GAIN), 4);
    stream.Set(ControlOf(PARAM_LIMITER_GATE), ParameterOf(PARAM_LIMITER_GATE).defaultValue);
    Settings settings;
    settings.Set(PARAM_OUTPUT_GAIN, 4);
    const Channels wanted = ByTheLibrary(in, settings, LiveStream::kBufferFrames);
    Play(stream, &in, 1000);
    EXPECT_TRUE(in == wanted);
}

TEST(LiveStream, TakesWhatIsNotFiniteForSilenceAndComesBack) {
    LiveStream stream(kRateHz);
    for (const size_t n : kSwitches) stream.Set(n, 1);
    const Channels whole = Piece(30000);
    Channels broken = whole;
    Channels with = whole;
    for (size_t c = 0; c < 2; ++c)
        for (size_t n = 9000; n < 12000; ++n) {
            with[c][n] = 0;
            broken[c][n] = n % 3 == 0 ? kNan : n % 3 == 1 ? kInfinity : -kInfinity;
        }
    AnyRate<LiveStream> resampled[] = {AnyRate<LiveStream>(2 * kRateHz),
                                       AnyRate<LiveStream>(2 * kRateHz)};
    Channels both[] = {broken, with};
    for (size_t i = 0; i < 2; ++i) {
        float* const io[2] = {both[i][0].data(), both[i][1].data()};
        resampled[i].Process(io, io, whole[0].size());
    }
    EXPECT_TRUE(both[0] == both[1]);
    LiveStream silent(kRateHz);
    for (const size_t n : kSwitches) silent.Set(n, 1);
    const Channels past = Play(stream, &broken, 512), expectedPast = Play(silent, &with, 512);
    EXPECT_TRUE(broken == with);
    EXPECT_TRUE(past == expectedPast);
}

TEST(LiveStream, AsksNobodyForAnythingWhileItRuns) {
    LiveStream stream(kRateHz);
    AnyRate<LiveStream> resampled(2 * kRateHz);
    Channels in = Tone(0, 4096);
    float* const io[2] = {in[0].data(), in[1].data()};
    const auto run = [&] {
        for (int turn = 0; turn < 40; ++turn) {
            for (size_t n = 0; n < kControls.size(); ++n)
                stream.Set(n, turn % 3 == 0 ? kNan : turn % 4 * 0.5);
            stream.SetBypass(turn % 5 == 0);
            stream.SetLowLatency(turn % 7 == 0);
            stream.Process(io, io, io, 4096);
            resampled.Process(io, io, 4096);
            if (!(stream.Meters().resultDb < 10)) return 1;
        }
        return 0;
    };
    EXPECT_EQ(EndWithoutSystemCalls(run), 0);
#ifndef ORVANE_SANITIZED
    const auto allocated = std::make_unique<int>();
    ASSERT_GT(allocations, 0) << "they are counted";
    allocations = 0;
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(allocations, 0);
#endif
}

// Stands for the stream: copies its input to the output without delay, and keeps it in `taken`.
struct Through {
    explicit Through(uint32_t) {}
    static void Process(const float* const in[2], float* const out[2], float* const[2],
                        size_t frames) {
        for (size_t c = 0; c < 2; ++c) std::copy_n(in[c], frames, out[c]);
        taken.insert(taken.end(), in[0], in[0] + frames);
    }
    static uint32_t LatencyFrames() { return 0; }
    static const char* Refused() { return nullptr; }
    static inline std::vector<float> taken;
};
// Returns a tone of half of full scale after both resamplers. It is processed in calls of odd
// lengths.
std::vector<float> Resampled(uint32_t rateHz, double hz) {
    AnyRate<Through> stream(rateHz);
    Through::taken.clear();
    std::vector<float> tone(rateHz / 4), other(tone.size());
    for (size_t n = 0; n < tone.size(); ++n)
        tone[n] = static_cast<float>(
            0.5 * std::sin(2 * std::numbers::pi * hz * static_cast<double>(n) / rateHz));
    for (size_t at = 0, count = 1; at < tone.size(); at += count, count = count * 7 % 1000 + 1) {
        float* const io[2] = {&tone[at], &other[at]};
        stream.Process(io, io, std::min(count, tone.size() - at));
    }
    return tone;
}
// Returns the level of the tone in the second half of `v`, in dB relative to the original tone,
// which is delayed by `late` frames. If `without`, returns the level of everything except the tone.
double LevelDb(const std::vector<float>& v, uint32_t rateHz, double hz, double late, bool without) {
    double own = 0, all = 0;
    const size_t first = v.size() / 2;
    for (size_t n = first; n < v.size(); ++n) {
        const double tone =
            0.5 * std::sin(2 * std::numbers::pi * hz * (static_cast<double>(n) - late) / rateHz);
        own += tone * v[n];
        all += without ? std::pow(v[n] - tone, 2) : 0;
    }
    const double scale = 0.125 * static_cast<double>(v.size() - first);
    return without ? 10 * std::log10(all / scale) : 20 * std::log10(own / scale);
}

TEST(AnyRate, IsFlatTo18KilohertzWithoutAliasesAndAsLateAsItSays) {
    for (const uint32_t rateHz : {88200U, 96000U, 176400U, 192000U, 352800U, 384000U}) {
        const uint32_t factor = AnyRate<Through>::FactorOf(rateHz), inner = rateHz / factor;
        const double late = AnyRate<Through>(rateHz).LatencyFrames();
        EXPECT_LT(late / rateHz, 0.002);
        for (double hz = 40; hz <= 18000; hz += 1796) {  // a whole number of periods
            const std::vector<float> heard = Resampled(rateHz, hz);
            EXPECT_NEAR(LevelDb(heard, rateHz, hz, late, false), 0, 0.1) << rateHz << ' ' << hz;
            EXPECT_LT(LevelDb(heard, rateHz, hz, late, true), -60) << "images and all";
        }
        for (double hz = inner / 2.0 + 100; hz < rateHz / 2.0; hz += rateHz / 40.0) {
            Resampled(rateHz, hz);
            std::vector<float> alias = Through::taken;
            EXPECT_LT(LevelDb(alias, inner, 0, 0, true), -90) << rateHz << ' ' << hz;
        }
    }
    for (const double rateHz : {31999.0, 44100.5, 48001.0, 64000.0, 132300.0, 768000.0})
        EXPECT_EQ(AnyRate<Through>::FactorOf(rateHz), 0U) << rateHz;
}

TEST(Controls, GoToPortsAndBackToWhatTheWireCarries) {
    for (const Control& control : kControls) {
        const Parameter& parameter = *control.parameter;
        for (int32_t wire = parameter.OnWire(parameter.minimum);
             wire <= parameter.OnWire(parameter.maximum); ++wire) {
            const double value = static_cast<double>(wire) / parameter.wireScale;
            if (control.IsDecibels() && value < Control::kLeastGain) continue;
            EXPECT_EQ(parameter.OnWire(control.FromPort(control.ToPort(value))), wire)
                << parameter.key;
        }
        EXPECT_EQ(control.FromPort(control.ToPort(parameter.defaultValue)), parameter.defaultValue);
        if (control.IsDecibels()) {
            EXPECT_EQ(control.FromPort(-40), control.FromPort(-20)) << parameter.key;
        }
        for (const float wild : {kNan, kInfinity, -kInfinity})
            EXPECT_EQ(control.Held(control.FromPort(wild)), control.FromPort(wild));
    }
}

}  // namespace
