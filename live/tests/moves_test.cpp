// Tests that a moving control makes no click and no hole, and that the new sound is soon there.
//
// A tone of -12 dB plays. After a while, one control or a whole preset moves, and the tone goes on.
// A click is a large second difference. It is compared with the larger of the second differences in
// the steady sound before and after the move. If both are smaller, it is compared with 16 steps of
// 16 bits, which nobody hears.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <string>
#include <vector>

#include "client/presets.h"
#include "live/live_stream.h"

namespace {

constexpr uint32_t kRateHz = 48000;
constexpr size_t kPiece = 480;  // 10 ms
constexpr size_t kDrag = size_t{2} * kRateHz;
constexpr size_t kSteady = kRateHz / 2;  // frames of steady sound that are measured at each end
constexpr double kUnheard = 16 / 32768.0;

// The output. The control moves from frame `moved` to frame `moved + duration`.
struct Heard {
    std::vector<float> samples, source;
    size_t moved, duration;
};

// Plays the tone. Calls set(0) before the first frame, and set(part) with parts up to 1 during the
// move. `adapts` is the number of frames that the automatic gain needs to adapt.
Heard Play(LiveStream& stream, double hz, size_t duration, size_t adapts,
           const std::function<void(double)>& set) {
    const size_t moved = kRateHz + adapts;
    const std::vector<float> silence(2 * moved + duration);
    Heard heard{silence, silence, moved, duration};
    float channels[2][kPiece], other[kPiece];
    float* const io[2] = {channels[0], channels[1]};
    set(0);
    for (size_t at = 0; at < heard.samples.size(); at += kPiece) {
        if (at >= moved && at <= moved + duration)
            set(duration == 0 ? 1
                              : static_cast<double>(at - moved) / static_cast<double>(duration));
        for (size_t n = 0; n < kPiece; ++n)
            channels[0][n] = channels[1][n] = static_cast<float>(
                0.25 * std::sin(2 * std::numbers::pi * hz * static_cast<double>(at + n) / kRateHz));
        float* const source[2] = {&heard.source[at], other};
        stream.Process(io, io, source, kPiece);
        std::copy_n(channels[0], kPiece, heard.samples.begin() + static_cast<ptrdiff_t>(at));
    }
    return heard;
}

double LargestSecondDifference(const Heard& heard, size_t first, size_t last) {
    const std::vector<float>& v = heard.samples;
    double largest = 0;
    for (size_t n = first; n < last; ++n)
        largest = std::max(largest, std::abs(double{v[n]} - 2.0 * v[n - 1] + v[n - 2]));
    return largest;
}
// Returns the largest second difference during the move, divided by the larger steady one.
double Click(const Heard& heard) {
    const size_t size = heard.samples.size();
    const double own = std::max({LargestSecondDifference(heard, heard.moved - kSteady, heard.moved),
                                 LargestSecondDifference(heard, size - kSteady, size), kUnheard});
    return LargestSecondDifference(heard, heard.moved, size) / own;
}

double Level(const Heard& heard, size_t first, size_t frames) {
    double squares = 0;
    for (size_t n = first; n < first + frames; ++n)
        squares += double{heard.samples[n]} * heard.samples[n];
    return std::sqrt(squares / static_cast<double>(frames));
}
double SoftestPiece(const Heard& heard, size_t first, size_t last) {
    double softest = 1;
    for (size_t at = first; at + kPiece <= last; at += kPiece / 4)
        softest = std::min(softest, Level(heard, at, kPiece));
    return softest;
}
// Returns how far the softest 10 ms lie below the softer steady level, in dB.
double Hole(const Heard& heard) {
    const size_t size = heard.samples.size();
    const double steady = std::min(SoftestPiece(heard, heard.moved - kSteady, heard.moved),
                                   SoftestPiece(heard, size - kSteady, size));
    if (steady < kUnheard) return 0;
    return 20 * std::log10(steady / std::max(SoftestPiece(heard, heard.moved, size), 1e-6));
}
// Returns how much of the change of level is missing 0.3 s after the last movement, 0 to 1.
double Rest(const Heard& heard) {
    constexpr size_t kPeriods = kRateHz / 20;  // of both tones, a whole number
    const double before = Level(heard, heard.moved - kPeriods, kPeriods),
                 after = Level(heard, heard.samples.size() - kPeriods, kPeriods);
    const double then = Level(heard, heard.moved + heard.duration + kRateHz * 3 / 10, kPeriods);
    return std::abs(before - after) < kUnheard ? 0
                                               : std::abs(then - after) / std::abs(before - after);
}

struct Bounds {
    double click, hole, rest;
};
void ExpectSmooth(const Heard& heard, const Bounds& most, const std::string& name) {
    EXPECT_LT(Click(heard), most.click) << name;
    EXPECT_LT(Hole(heard), most.hole) << name;
    EXPECT_LT(Rest(heard), most.rest) << name;
}

void MoveControl(size_t n, bool down, size_t duration, double hz, bool lowLatency,
                 const std::string& name) {
    const Control& control = kControls[n];
    const bool adapts = control.parameter->needs == PARAM_PLAYBACKGAIN_ENABLE;
    LiveStream stream(kRateHz);
    stream.SetLowLatency(lowLatency);
    for (size_t s = 0; s < kControls.size(); ++s)
        if (kControls[s].parameter->id == control.parameter->needs) stream.Set(s, 1);
    const float least = control.ToPort(control.parameter->minimum),
                most = control.ToPort(control.parameter->maximum);
    const auto set = [&](double part) {
        const double at = down ? 1 - part : part;
        stream.Set(n, control.FromPort(static_cast<float>(least + (most - least) * at)));
    };
    const Heard heard = Play(stream, hz, duration, adapts ? 4 * kRateHz : 0, set);
    // With an output gain of 23.8 dB, the limiters make a steady tone of 60 Hz 1.9 times as rough
    // as with 24.1 dB. A slow movement rests there. The automatic gain may take longer.
    const bool passesRougher = duration > 0 && control.parameter->id == PARAM_OUTPUT_GAIN;
    ExpectSmooth(heard, {passesRougher ? 2.0 : 1.5, 1, adapts ? HUGE_VAL : 0.05}, name);
}

TEST(Moves, OfEveryControlHaveNoClickAndNoHoleAndSoonEnd) {
    for (size_t n = 0; n < kControls.size(); ++n)
        for (const double hz : {440.0, 60.0})
            for (const size_t duration : {size_t{0}, kDrag})
                for (const bool down : {false, true})
                    for (const bool lowLatency : {false, true})
                        if (!kControls[n].IsSwitch())
                            MoveControl(n, down, duration, hz, lowLatency,
                                        KeyOf(kControls[n]) + (down ? " down" : " up") +
                                            (duration > 0 ? " drag " : " ") + std::to_string(hz) +
                                            (lowLatency ? " low latency" : ""));
}

// The largest second difference of the source is that of the tone, and at most twice that where its
// delay changes.
TEST(Moves, OfEverySwitchHaveNoClick) {
    const size_t bypass = kControls.size(), lowLatency = bypass + 1;
    for (size_t n = 0; n <= lowLatency; ++n)
        for (const bool on : {false, true}) {
            if (n < bypass && !kControls[n].IsSwitch()) continue;
            LiveStream stream(kRateHz);
            for (size_t other = 0; other < bypass; ++other)
                if (kControls[other].IsSwitch()) stream.Set(other, 1);
            Heard heard = Play(stream, 440, 0, kRateHz, [&](double part) {
                const bool value = (part == 0) != on;
                if (n < bypass) stream.Set(n, value ? 1 : 0);
                if (n == bypass) stream.SetBypass(value);
                if (n == lowLatency) stream.SetLowLatency(value);
            });
            EXPECT_LT(Click(heard), 1.5) << n << (on ? " on" : " off");
            heard.samples = heard.source;
            EXPECT_LT(LargestSecondDifference(heard, kRateHz, heard.samples.size()), 2 * 0.00083)
                << "the source at " << n;
        }
}

// Both instances run with the automatic gain. The third sound is played by the first one again,
// whose limiters have long forgotten that they were at work.
TEST(Moves, FindTheLimitersAtRest) {
    LiveStream stream(kRateHz);
    stream.Apply(SettingsOf(*FindPreset("steady")));
    size_t gain = 0;
    while (kControls[gain].parameter->id != PARAM_OUTPUT_GAIN) ++gain;
    const Heard heard = Play(stream, 440, kDrag, size_t{4} * kRateHz, [&](double part) {
        stream.Set(gain, part < 0.5 ? 16 : part < 1 ? 0.9 : 0.8);
    });
    EXPECT_LT(Hole(heard), 1);
}

bool SwitchesAlike(const Settings& a, const Settings& b) {
    return std::all_of(kControls.begin(), kControls.end(), [&](const Control& control) {
        return !control.IsSwitch() || ValueOf(a, control) == ValueOf(b, control);
    });
}

TEST(Moves, FromEveryPresetToEveryOtherHaveNoClickAndNoHoleButThatOfASwitch) {
    for (const Preset& from : Presets())
        for (const Preset& to : Presets()) {
            const Settings before = SettingsOf(from), after = SettingsOf(to);
            for (const double hz : {440.0, 60.0}) {
                if (&from == &to) continue;
                LiveStream stream(kRateHz);
                const auto set = [&](double part) { stream.Apply(part == 0 ? before : after); };
                const bool adapts =
                    before.IsOn(PARAM_PLAYBACKGAIN_ENABLE) || after.IsOn(PARAM_PLAYBACKGAIN_ENABLE);
                ExpectSmooth(
                    Play(stream, hz, 0, size_t{3} * kRateHz, set),
                    {1.5, SwitchesAlike(before, after) ? 1 : HUGE_VAL, adapts ? HUGE_VAL : 0.05},
                    std::string(from.name) + " to " + to.name + ' ' + std::to_string(hz));
            }
        }
}

}  // namespace
