// Tests the sound of the renderer's output: beginnings, tone curves, loudness, presets.
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "tests/renderer_fixture.h"
#include "tests/signals.h"

namespace {

constexpr int kRateHz = 44100;
constexpr size_t kHalfSecond = kRateHz / 2;

double LevelDb(const Floats& samples, size_t from, size_t count) {
    double power = 1e-12;
    for (size_t n = from; n < std::min(from + count, samples.size()); ++n)
        power += std::pow(samples[n], 2) / static_cast<double>(count);
    return 10 * std::log10(power);
}

// Returns two seconds each of the kinds of sound that presets are made for. Each is noise,
// multiplied by a level over time and clipped.
std::map<std::string, Floats> Kinds() {
    std::map<std::string, Floats> kinds;
    const Floats noise = Noise<float>(4 * kHalfSecond, 1);
    const auto add = [&](const char* name, auto level) {
        Floats& kind = kinds[name];
        for (size_t n = 0; n < noise.size(); ++n)
            kind.push_back(
                std::clamp(noise[n] * static_cast<float>(level(static_cast<double>(n) / kRateHz)),
                           -0.99F, 0.99F));
    };
    add("steady noise", [](double) { return 0.17; });
    add("loud master", [](double t) { return 2 + std::sin(9 * t); });
    add("quiet music", [](double t) { return 0.05 * std::exp(-3 * std::fmod(t, 0.7)); });
    add("dense music", [](double t) { return 0.4 * std::exp(-std::fmod(t, 0.3)); });
    add("speech", [](double t) { return 0.005 + 0.2 * std::pow(std::sin(5 * t), 2); });
    add("silent start", [](double t) { return t < 0.7 ? 0 : 0.2; });
    add("shorter than the settling", [](double) { return 0.2; });
    kinds["shorter than the settling"].resize(3000);
    kinds["impulse"] = Floats(3000);
    kinds["impulse"][0] = 0.37F;
    return kinds;
}

TEST_F(Renderer, KeepsTheBeginningOfTheSound) {
    const size_t pause = size_t{3} * kRateHz;
    for (const auto& [kind, piece] : Kinds())
        for (const std::string preset : {"steady", "night", "voice", "loud"}) {
            const std::string options = std::string("--preset ").append(preset).append(" ");
            const std::string name = options + kind;
            Floats later(pause);
            later.insert(later.end(), piece.begin(), piece.end());
            Write("in.wav", piece, kRateHz, 1);
            Write("later.wav", later, kRateHz, 1);
            const Json report = Report("in.wav out.wav", options);
            EXPECT_GE(report["settlingFrames"], 100 * 1024);
            Report("later.wav later.out.wav", options);
            const Floats result = Read("out.wav"), wanted = Read("later.out.wav");
            ASSERT_EQ(result.size(), piece.size()) << name;
            for (size_t from = 0; from < piece.size(); from += kHalfSecond)
                EXPECT_NEAR(LevelDb(result, from, kHalfSecond),
                            LevelDb(wanted, pause + from, kHalfSecond), 1.5)
                    << name << " at " << from;
            const double gate = report["settings"]["gate"];
            for (size_t n = 0; n < result.size(); ++n) {
                ASSERT_LE(std::abs(result[n]), gate) << name << " at " << n;
                const double off = kind == "impulse" ? result[n] - wanted[pause + n] : 0;
                ASSERT_NEAR(off, 0, 1e-4) << name << " at " << n;
            }
            if (kind != "dense music") continue;
            EXPECT_EQ(Report("in.wav out.wav --cold-start", options)["settlingFrames"], 0);
            EXPECT_LT(LevelDb(Read("out.wav"), 0, kHalfSecond),
                      LevelDb(result, 0, kHalfSecond) - 4);
        }
}

TEST_F(Renderer, PresetsKeepTheirRecordedLoudness) {
    Floats piece = Kinds()["dense music"];
    const Floats quiet = Kinds()["quiet music"];
    piece.insert(piece.end(), quiet.begin(), quiet.end());
    Write("in.wav", piece, kRateHz, 1);
    const std::pair<const char*, double> presets[] = {{"", -10.1},
                                                      {"--preset music ", -10.1},
                                                      {"--preset bass ", -14.3},
                                                      {"--preset steady ", -13.9},
                                                      {"--preset night ", -22.0},
                                                      {"--preset voice ", -12.4},
                                                      {"--preset loud ", -8.8},
                                                      {"--preset off ", -11.2}};
    for (const auto& [preset, lufs] : presets)
        EXPECT_NEAR(Report("in.wav out.wav", preset)["loudnessLufs"]["after"], lufs, 0.3) << preset;
}

TEST_F(Renderer, AToneCurveIsReachedWithItsPeakAtFullScale) {
    const std::vector<std::pair<double, double>> curves[] = {// hertz, decibels
                                                             {{60, 6}, {200, 0}, {8000, 3}},
                                                             {{40, 4}, {700, -4}, {12000, 5}},
                                                             {{100, 0}, {10000, -8}}};
    Floats impulse(8192);
    impulse[4000] = 0.5F;
    for (const int rateHz : {32000, 44100, 48000})
        for (const auto& curve : curves) {
            std::string tone;
            for (const auto& [hz, db] : curve)
                tone += std::to_string(hz) + ":" + std::to_string(db) + ",";
            tone.pop_back();
            Write("in.wav", impulse, rateHz, 1);
            const Json report = Report("in.wav out.wav --tone " + tone);
            const Floats result = Read("out.wav");
            const auto gainDb = [&](double hz) {
                return 20 * std::log10(std::abs(Response(result, hz / rateHz)) / 0.5);
            };
            const double outputGain = report["settings"]["output-gain"];
            double peakDb = -100;
            for (double hz = 2; hz < rateHz / 2.0; hz *= 1.02)
                peakDb = std::max(peakDb, gainDb(hz));
            EXPECT_NEAR(peakDb, 0, 0.25) << tone << " at " << rateHz;
            for (const auto& [hz, db] : curve)
                EXPECT_NEAR(gainDb(hz) - 20 * std::log10(outputGain), db, 1.5) << tone;
            EXPECT_LT(report["tone"]["rmsDb"], 0.5);
            // The records that an application would send have the same levels.
            EXPECT_EQ(Shell("$ORVANE tone --records --rate " + std::to_string(rateHz) + " " + tone),
                      0);
            std::istringstream lines(Slurp("out"));
            std::string name;
            long band = 0, level = 0;
            for (const double wanted : report["settings"]["eq"].Elements()) {
                std::string rest;
                std::getline(lines >> name >> band >> level, rest);
                EXPECT_EQ(level, std::lround(100 * wanted)) << rest;
                EXPECT_EQ(rest.substr(rest.find('0')),
                          "0 4 8 0x20007 " + std::to_string(band) + " " + std::to_string(level));
            }
        }
}

// 21 kHz is below half the chain's rate, 30 kHz is above it. 30 kHz would alias to 18 kHz.
TEST_F(Renderer, ResamplesWithoutLossAndWithoutImages) {
    Floats both = Sine(0.4, 21000, 96000, 1, 0.5);
    const Floats beyond = Sine(0.4, 30000, 96000, 1, 0.5);
    std::transform(both.begin(), both.end(), beyond.begin(), both.begin(), std::plus<>());
    Write("in.wav", both, 96000, 1);
    Report("in.wav out.wav");
    const Floats result = Read("out.wav");
    // contains whole periods of each tone
    const Floats middle(result.begin() + 19200, result.begin() + 28800);
    const auto levelDb = [&](double hz) {
        return 20 * std::log10(std::abs(Response(middle, hz / 96000)) / 4800 / 0.4);
    };
    EXPECT_NEAR(levelDb(21000), 0, 0.1);
    for (const double hz : {18000, 27000, 30000}) EXPECT_LT(levelDb(hz), -100) << hz;
}

TEST_F(Renderer, MatchesALoudnessAndSaysWhereItCannot) {
    Floats piece = Kinds()["dense music"];
    Write("in.wav", piece, kRateHz, 1);
    Write("silent.wav", Floats(kRateHz), kRateHz, 1);
    ASSERT_EQ(Shell("mkfifo pipe"), 0);
    const double source = Report("in.wav out.wav")["loudnessLufs"]["before"];
    const std::string slightlySofter = "in.wav out.wav --match=" + std::to_string(source - 1);
    struct Case {
        const char* arguments;
        double lufs;
        const char* note = "";
        const char* preset = "--preset off ";
    };
    const Case cases[] = {
        {"in.wav out.wav --match", source, "", "--preset night "},
        {"in.wav out.wav --match=-30", -30},
        {slightlySofter.c_str(), source - 1},
        {"in.wav out.wav --output-gain -6dB", source - 6},
        {"in.wav out.wav --match=-9 --tone 1000:6", -9},
        {"- out.wav --match=-20 <in.wav", -20, "", "--preset steady "},
        {"pipe out.wav --match=-20 & cat in.wav >pipe; wait $!", -20},
        {"in.wav out.wav --match=-1 --gate 0.5", -8, "cannot exceed 16"},
        {"in.wav out.wav --match=-50", -50, "no step"},
        {"silent.wav out.wav --match", 0, "the loudness was not matched, because "},
    };
    for (const auto& [arguments, lufs, note, preset] : cases) {
        const Json report = Report(arguments, preset);
        const double after = report["loudnessLufs"]["after"];
        EXPECT_NEAR(std::isnan(after) ? 0 : after, lufs, *note != '\0' ? 2 : 0.3) << arguments;
        ASSERT_EQ(report["notes"].Size(), *note == '\0' ? 0 : 1) << arguments;
        EXPECT_NE(report["notes"].Text().find(note), std::string::npos) << arguments;
    }
}

}  // namespace
