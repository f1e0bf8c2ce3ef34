// Compares the parameter table with the library, and tests the framework's side: settings and
// streams.
#include <gtest/gtest.h>

#include <algorithm>
#include <numbers>
#include <optional>

#include "client/presets.h"
#include "client/settings_text.h"
#include "client/stderr_silencer.h"
#include "client/stream.h"
#include "library_under_test.h"
#include "table/stages.h"

namespace {

using Samples = std::vector<int16_t>;

// Plays `in` twice and returns both outputs. The second time all stages are on, so every value has
// an effect.
Samples Play(Instance& instance, const Samples& in) {
    instance.Configure(44100, 2);
    instance.Enable();
    Samples out = instance.Run(in, 256, 2);
    for (const ParameterId id : kStageSwitches) instance.Set(id, {1});
    const Samples second = instance.Run(in, 256, 2);
    out.insert(out.end(), second.begin(), second.end());
    return out;
}

TEST(Table, DefaultsAreThoseOfANewInstance) {
    const StderrSilencer muted;
    const Samples in = NoiseSamples(60000, 32767);
    Instance untouched, set;
    for (const Parameter& p : kParameters) {
        if (p.kind == ParameterKind::kQuery) {
            EXPECT_EQ(untouched.Get(p.id), p.defaultValue) << p.name;
        } else if (p.kind == ParameterKind::kBandValue) {
            for (int32_t band = 0; band < kBandCount; ++band)
                set.Set(p.id, {band, p.OnWire(p.defaultValue)});
        } else if (p.CanSendDefault()) {
            set.Set(p.id, {p.OnWire(p.defaultValue)});
        } else {
            EXPECT_EQ(p.id, PARAM_LIMITER_GATE) << p.name;
        }
    }
    EXPECT_EQ(set.Get(PARAM_GET_MODE), 0);
    const Samples expected = Play(untouched, in);
    EXPECT_TRUE(Play(set, in) == expected);
    // The gate shows in the level to which the limiters reduce a signal far above it.
    Instance loud;
    loud.Set(PARAM_OUTPUT_GAIN, {1600});
    loud.Configure(44100, 2);
    loud.Enable();
    const Samples held = loud.Run(Samples(40000, 20000), 256, 2);
    EXPECT_EQ(held.back(), std::floor(0.998 * 0.9999 * 32767));
}

// Returns the amplitude of a sine after the chain, relative to before.
double GainOf(const Settings& settings, double frequencyHz, double amplitude) {
    constexpr double kRateHz = 48000;
    // The measured frames are whole periods of all multiples of 5 Hz.
    constexpr size_t kFrames = 192000, kMeasured = 9600;
    BlockStream stream(LoadedLibrary(), {48000, 1, 240}, settings);
    EXPECT_EQ(stream.Refused(), nullptr);
    Samples samples(kFrames);
    for (size_t n = 0; n < kFrames; ++n)
        samples[n] = static_cast<int16_t>(
            std::lround(amplitude * std::sin(2 * std::numbers::pi * frequencyHz *
                                             static_cast<double>(n) / kRateHz)));
    stream.Process(samples.data(), samples.data(), kFrames);
    const std::vector<double> end(samples.end() - kMeasured, samples.end());
    return std::abs(Response(end, frequencyHz / kRateHz)) * 2 / kMeasured / amplitude / 0.998;
}

TEST(Table, DefaultsAndTheEndsOfEveryRangeFollowTheirFormula) {
    const StderrSilencer muted;
    using Values = std::vector<std::pair<ParameterId, double>>;
    const Values gain = {{PARAM_PLAYBACKGAIN_ENABLE, 1}, {PARAM_PLAYBACKGAIN_MAXGAIN, 127}};
    const Values most = {{PARAM_PLAYBACKGAIN_ENABLE, 1}, {PARAM_PLAYBACKGAIN_VOLUME, 127}};
    const Values enhancer = {{PARAM_ENHANCER_ENABLE, 1}};
    const Values factor = {{PARAM_PLAYBACKGAIN_ENABLE, 1},
                           {PARAM_PLAYBACKGAIN_RATIO, 0},
                           {PARAM_PLAYBACKGAIN_MAXGAIN, 127},
                           {PARAM_PLAYBACKGAIN_VOLUME, 127}};
    const struct {
        ParameterId id;
        Values with;
        double frequencyHz, amplitude, atMinimum, atDefault, atMaximum, tolerance;
    } rows[] = {
        // The level is 27.2 dB below the reference. The gains 13.6 and 24.7 dB are shaped to 12.7
        // and 21.7 dB.
        {PARAM_PLAYBACKGAIN_RATIO, gain, 1000, 500, 1, 4.315, 12.15, 0.006},
        // The gains are smaller by what truncation to whole samples removes.
        {PARAM_PLAYBACKGAIN_VOLUME, factor, 1000, 250, 0, 0.9945, 126.75, 0.002},
        {PARAM_PLAYBACKGAIN_MAXGAIN, most, 1000, 250, 0, 0.9945, 126.75, 0.002},
        {PARAM_EQUALIZER_BANDLEVEL, {{PARAM_EQUALIZER_ENABLE, 1}}, 1000, 1000, 0, 1, 3, 0.005},
        {PARAM_ENHANCER_PROCESS, enhancer, 8000, 1000, 0, 1, 4, 0.015},
        // The low band's weight is 0.95, and the resonance lags it by a quarter of a period.
        {PARAM_ENHANCER_LOCONTOUR, enhancer, 55, 1000, 0.961, 0.961, 4.043, 0.002},
        {PARAM_OUTPUT_GAIN, {}, 1000, 500, 0, 1, 16, 0.005},
        {PARAM_LIMITER_GATE, {{PARAM_OUTPUT_GAIN, 16}}, 1000, 20000, 0, 1.6383, 1.6383, 0.005},
    };
    for (const auto& row : rows) {
        const Parameter& p = ParameterOf(row.id);
        const std::pair<std::optional<double>, double> points[] = {
            {p.minimum, row.atMinimum}, {{}, row.atDefault}, {p.maximum, row.atMaximum}};
        for (const auto& [value, expected] : points) {
            Settings settings;
            for (const auto& [id, other] : row.with)
                if (id != row.id) settings.Set(id, other);
            if (value && p.kind == ParameterKind::kBandValue)
                for (size_t band = 0; band < kBandCount; ++band) settings.SetBand(band, *value);
            else if (value)
                settings.Set(row.id, *value);
            EXPECT_NEAR(GainOf(settings, row.frequencyHz, row.amplitude), expected,
                        row.tolerance * std::max(expected, 1.0))
                << p.name << " = " << value.value_or(p.defaultValue);
        }
    }
    EXPECT_EQ(std::size(rows),
              std::count_if(std::begin(kParameters), std::end(kParameters), [](const Parameter& p) {
                  return *p.key != '\0' && p.kind != ParameterKind::kSwitch;
              }));
}

TEST(Settings, AreReadAsTheyWereWrittenOrRefusedWithTheLine) {
    for (const Preset& preset : Presets()) {
        Settings back;
        EXPECT_EQ(ReadSettings(SettingsText(SettingsOf(preset)), &back), "") << preset.name;
        EXPECT_EQ(back, SettingsOf(preset)) << preset.name;
    }
    Settings settings, flat;
    EXPECT_EQ(ReadSettings("# by hand\r\n\n eq=3=0.5, 9 = -1  # two bands\r\nequalizer = off\n"
                           "\tprocess = +0.126\ngate=1.00000000000000000000",
                           &settings),
              "");
    EXPECT_EQ(SettingsText(settings),
              "equalizer = off\neq = 0,0,0,0.5,0,0,0,0,0,-1\nprocess = 0.13\ngate = 1\n");
    EXPECT_EQ(Describe(settings), "gate 1");
    EXPECT_EQ(DecibelText(-0.04), "+0.0");
    const ParameterCommands commands = settings.Commands();
    EXPECT_EQ(commands.end() - commands.begin(), 2 + kBandCount + 1);
    for (const auto& [text, fault] : {
             std::pair("\nratio 2", "2: \"ratio 2\" is not key = value"),
             {"rato = 2", "1: no setting is called rato"},
             {"= 2", "1: no setting is called "},
             {"ratio = 1\nvolume = 2\nratio = 1", "3: ratio stands here a second time"},
             {"ratio = 10.01", "1: ratio 10.01 is outside 0 to 10"},
             {"ratio = nan", "1: ratio nan is not a number"},
             {"ratio = 1e999999999999", "1: ratio 1e999999999999 is outside 0 to 10"},
             {"ratio = 1 2", "1: ratio 1 2 is not a number"},
             {"enhancer = 2", "1: enhancer 2 is neither on nor off"},
             {"eq = 10=0.5", "1: eq has bands 0 to 9"},
             {"eq = 3=1.1", "1: eq 1.1 is outside -1 to 1"},
             {"eq = 0,0,0", "1: eq takes 10 levels, or BAND=LEVEL, not \"0,0,0\""},
             {"eq = 1=0,0", "1: eq takes 10 levels, or BAND=LEVEL, not \"1=0,0\""},
         })
        EXPECT_EQ(ReadSettings(text, &flat), fault) << text;
    Settings untouched;
    EXPECT_NE(SetFromText("eq", "1,1,1,1,1,1,1,1,1,2", &untouched), "");
    EXPECT_EQ(untouched, Settings());
    EXPECT_EQ(ReadSettings(std::string(kMostSettingsBytes, '\n'), &flat), "");
    EXPECT_EQ(ReadSettings(std::string(kMostSettingsBytes + 1, '\n'), &flat),
              "1: longer than a settings file can be");
}

TEST(BlockStream, IsOneStreamWhateverPiecesItArrivesInOrSilentWhereRefused) {
    const StderrSilencer muted;
    constexpr uint32_t kBuffer = 300;
    const Samples in = NoiseSamples(size_t{2} * 30 * kBuffer, 20000);
    const Settings loud = SettingsOf(*FindPreset("loud"));
    Instance instance;
    instance.Configure(44100, 2);
    for (const ParameterCommand& command : loud.Commands()) EXPECT_EQ(instance.Set(command), 0);
    instance.Enable();
    Samples expected(size_t{2} * kBuffer);  // The output is delayed by one buffer.
    const Samples played = instance.Run(in, kBuffer, 2);
    expected.insert(expected.end(), played.begin(), played.end() - ptrdiff_t{2} * kBuffer);
    for (const std::vector<size_t>& pieces :
         {std::vector<size_t>{1}, {kBuffer}, {7000}, {299, 1, 301, 64, 3, 1000}}) {
        BlockStream stream(LoadedLibrary(), {44100, 2, kBuffer}, loud);
        Samples out = in;
        for (size_t at = 0, i = 0; at < in.size() / 2; ++i) {
            const size_t frames = std::min(pieces[i % pieces.size()], in.size() / 2 - at);
            stream.Process(&out[2 * at], &out[2 * at], frames);
            at += frames;
        }
        EXPECT_EQ(stream.Refused(), nullptr);
        EXPECT_TRUE(out == expected) << pieces[0];
        stream.Restart(kBuffer);
        Samples rest(size_t{2} * 2 * kBuffer);
        stream.Process(rest.data(), rest.data(), rest.size() / 2);
        EXPECT_EQ(rest, Samples(rest.size())) << "nothing is left after a restart";
    }
    BlockStream refused(LoadedLibrary(), {22050, 2, kBuffer}, loud);
    EXPECT_STREQ(refused.Refused(), "take the configuration");
    EXPECT_EQ(refused.Status(), -22);
    Samples out = in;
    refused.Process(out.data(), out.data(), out.size() / 2);
    EXPECT_EQ(out, Samples(in.size()));
}

TEST(PieceStream, HasSettledBeforeThePieceWhateverItsBuffersAndTellsARefusalInTheMiddle) {
    const StderrSilencer muted;
    const Settings steady = SettingsOf(*FindPreset("steady"));
    const Samples piece = NoiseSamples(40000, 500);
    const auto play = [&](const Samples& in, uint32_t buffer) {
        PieceStream stream(LoadedLibrary(), steady, {44100, 2, buffer}, {});
        Samples out;
        stream.Process(in, &out);
        stream.Finish(&out);
        EXPECT_EQ(out.size(), in.size());
        double sum = 0;
        for (size_t i = in.size() - piece.size(); i < out.size(); ++i) sum += std::abs(out[i]);
        return sum;
    };
    for (const uint32_t buffer : {128U, 16384U}) {
        Samples later(size_t{200} * buffer);
        later.insert(later.end(), piece.begin(), piece.end());
        EXPECT_NEAR(play(later, buffer) / play(piece, buffer), 1, 0.01) << buffer;
    }
    BlockStream ended(LoadedLibrary(), {44100, 2, 300}, steady);
    ended.instance.Disable();
    Samples out = piece;
    ended.Process(out.data(), out.data(), out.size() / 2);
    EXPECT_STREQ(ended.Refused(), "process");
    EXPECT_EQ(out, Samples(out.size()));
}

}  // namespace
