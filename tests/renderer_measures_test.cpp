// Tests what the renderer measures and draws against pieces with known measurements.
#include <gtest/gtest.h>
#include <regex.h>

#include <array>
#include <sstream>
#include <string_view>

#include "client/tone.h"
#include "tests/library_under_test.h"
#include "tests/renderer_fixture.h"

namespace {

// Returns a sine of 1 kHz. With -23 dB on both channels its loudness is -23 LUFS (EBU Tech 3341,
// test 1).
Floats Calibrated(double db, double rightDb, int rateHz, double seconds) {
    Floats samples = Sine(std::pow(10, db / 20), 1000, rateHz, 2, seconds);
    for (size_t n = 1; n < samples.size(); n += 2)
        samples[n] *= static_cast<float>(std::pow(10, (rightDb - db) / 20));
    return samples;
}

// Puts a plotter in front of the real one that keeps the script.
void KeepScripts() {
    fs::create_directory("bin");
    std::ofstream("bin/gnuplot") << "#!/bin/sh\ntee script | PATH=${PATH#bin:} gnuplot \"$@\"\n";
    fs::permissions("bin/gnuplot", fs::perms::owner_all);
}

// Returns the columns of a named data block of the script.
std::vector<std::vector<double>> Data(const std::string& script, const std::string& name) {
    std::vector<std::vector<double>> columns(11);
    std::istringstream lines(script.substr(script.find(name + " << EOD")));
    std::string line;
    for (std::getline(lines, line); std::getline(lines, line) && line != "EOD";) {
        std::istringstream values(line);
        size_t column = 0;
        for (std::string value; values >> value;) columns[column++].push_back(std::stod(value));
    }
    return columns;
}

// Returns the two numbers that the first match of the pattern captures, NaN if there is no match.
// The pattern is a POSIX extended regular expression, because std::regex takes seconds to compile.
std::pair<double, double> Numbers(const std::string& text, const std::string& pattern) {
    regex_t compiled;
    if (regcomp(&compiled, pattern.c_str(), REG_EXTENDED | REG_NEWLINE) != 0) return {NAN, NAN};
    std::array<regmatch_t, 3> found{};
    const bool matches = regexec(&compiled, text.c_str(), found.size(), found.data(), 0) == 0;
    regfree(&compiled);
    if (!matches) return {NAN, NAN};
    return {std::stod(text.substr(static_cast<size_t>(found[1].rm_so))),
            std::stod(text.substr(static_cast<size_t>(found[2].rm_so)))};
}

struct KnownPiece {
    std::string name;
    int rateHz;
    Floats samples;
    double beforeLufs, afterLufs, beforePeakDb, afterPeakDb, beforeRangeLu,
        afterRangeLu;  // NaN if not measured
};

TEST_F(Renderer, MeasuresAndDrawsKnownPiecesCorrectly) {
    KeepScripts();
    const auto steps = [](double softDb, double loudDb) {
        Floats both = Calibrated(softDb, softDb, 44100, 20);
        const Floats loud = Calibrated(loudDb, loudDb, 44100, 20);
        both.insert(both.end(), loud.begin(), loud.end());
        return both;
    };
    // A gain of 0.5 is -6.02 dB.
    const KnownPiece pieces[] = {
        {"44.1 kHz", 44100, Calibrated(-23, -23, 44100, 4), -23, -29, -23, -29, 0, 0},
        {"32 kHz", 32000, Calibrated(-23, -23, 32000, 4), -23, -29, -23, -29, 0, 0},
        {"22.05 kHz", 22050, Calibrated(-23, -23, 22050, 4), -23, -29, -23, -29, 0, 0},
        {"96 kHz", 96000, Calibrated(-23, -23, 96000, 4), -23, -29, -23, -29, 0, 0},
        {"right side", 48000, Calibrated(-40, -10, 48000, 4), -13, -19, -10, -16, 0, 0},
        {"two levels", 44100, steps(-30, -20), -22.5, -28.5, -20, -26, 10,
         10},  // from EBU Tech 3342, test 1
        {"overs", 44100, steps(-12, 6), 6, -3.9, 6, -5.9, 18, 14.1},
        {"2 s", 44100, Calibrated(-23, -23, 44100, 2), -23, -29, -23, -29, NAN, NAN},
        {"0.2 s", 44100, Calibrated(-23, -23, 44100, 0.2), NAN, NAN, -23, -29, NAN, NAN},
        {"silence", 44100, Floats(800000), NAN, NAN, NAN, NAN, NAN, NAN},
    };
    const auto near = [](double value, double wanted) {
        return std::isnan(wanted) ? std::isnan(value) : std::abs(value - wanted) < 0.35;
    };
    for (const KnownPiece& piece : pieces) {
        SCOPED_TRACE(piece.name);
        Write("in.wav", piece.samples, piece.rateHz, 2, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
        const std::string options = "--no-dither --output-gain 0.5 in.wav out.wav";
        const Json report = Report(options + " --picture keep.png");
        EXPECT_EQ(
            Shell("PATH=bin:$PATH $ORVANE picture -f --preset off --no-dither --output-gain "
                  "0.5 in.wav a.png && cmp a.png keep.png && $ORVANE render -f --preset off " +
                  options + " 2>text"),
            0);
        const std::string script = Slurp("script"), text = Slurp("text");
        const struct {
            const char *key, *inText, *inPicture;
            double before, after;
        } levels[] = {{"loudnessLufs", "loudness (\\S+) LUFS before, (\\S+) after",
                       "Loudness (\\S+) → (\\S+) LUFS", piece.beforeLufs, piece.afterLufs},
                      {"truePeakDb", "true peak (\\S+) dB before, (\\S+) after",
                       "True peak (\\S+) → (\\S+) dBTP", piece.beforePeakDb, piece.afterPeakDb},
                      {"loudnessRangeLu", "range +(\\S+) LU before, (\\S+) after.*3 s, every 1 s",
                       "range \\(3 s, every 1 s\\) (\\S+) → (\\S+) LU", piece.beforeRangeLu,
                       piece.afterRangeLu}};
        for (const auto& level : levels) {
            const auto told = [&](const char* when) -> double { return report[level.key][when]; };
            EXPECT_PRED2(near, told("before"), level.before) << level.key;
            EXPECT_PRED2(near, told("after"), level.after) << level.key;
            if (std::isnan(level.before)) continue;
            for (const auto& [source, pattern] :
                 {std::pair(text, level.inText), {script, level.inPicture}}) {
                const auto [before, after] = Numbers(source, pattern);
                EXPECT_NEAR(before, told("before"), 0.051) << pattern;
                EXPECT_NEAR(after, told("after"), 0.051) << pattern;
            }
        }
        const bool hasLoudness = !std::isnan(piece.beforeLufs);
        EXPECT_EQ(script.find("center front") == std::string::npos, hasLoudness);
        EXPECT_EQ(script.find(" none "), std::string::npos);
        EXPECT_EQ(script.find("silent'") != std::string::npos, piece.name == "silence");
        if (!hasLoudness) continue;
        // The curves must end at the loudness of the piece's end. All outputs are softer by the
        // gain.
        const auto loudness = Data(script, "$loudness"), gain = Data(script, "$gain");
        const auto spectrum = Data(script, "$spectrum"), response = Data(script, "$response");
        const size_t last = loudness[0].size() - 10;
        EXPECT_NEAR(loudness[0].back(),
                    static_cast<double>(piece.samples.size()) / 2 / piece.rateHz, 0.11);
        EXPECT_NEAR(loudness[1][last], piece.name == "two levels" ? -20 : piece.beforeLufs, 0.3);
        EXPECT_NEAR(loudness[2][last] - loudness[1][last], piece.afterLufs - piece.beforeLufs, 0.3);
        EXPECT_NEAR(gain[1][last], piece.afterLufs - piece.beforeLufs, 0.3);
        const auto loudest = std::max_element(spectrum[1].begin(), spectrum[1].end());
        EXPECT_NEAR(spectrum[0][static_cast<size_t>(loudest - spectrum[1].begin())], 1000, 120);
        double middle = 0, count = 0;
        for (size_t i = 0; i < response[0].size(); ++i)
            if (response[0][i] >= 300 && response[0][i] <= 3000) middle += response[1][i], ++count;
        EXPECT_NEAR(middle / count, 0, 0.01);
        EXPECT_NEAR(Numbers(script, "from (300) to 3000 Hz, (\\S+) dB").second, -6.0, 0.051);
    }
}

TEST_F(Renderer, MarksWhereTheBandsCancelAndSummarisesLongPieces) {
    KeepScripts();
    Write("in.wav", Calibrated(-20, -20, 32000, 150), 32000, 2);
    const std::string options =
        " --preset off --enhancer --process 1 --playback-gain --buffer 4096 in.wav ";
    EXPECT_EQ(Shell("export PATH=bin:$PATH; $ORVANE render --keep-delay --picture a.png" + options +
                    "out.wav && mv script late && $ORVANE picture" + options + "b.png"),
              0);
    const std::string script = Slurp("script");
    EXPECT_NEAR(Data(Slurp("late"), "$loudness")[2][0], Data(script, "$loudness")[2][0], 0.02);
    const auto response = Data(script, "$response"), loudness = Data(script, "$loudness");
    for (const double hz : {150, 1800}) {
        EXPECT_NE(script.find("first " + std::to_string(int(hz)) + ", graph 0"), std::string::npos);
        double lowest = 99, around = 0;
        for (size_t i = 0; i < response[0].size(); ++i) {
            const double octaves = std::abs(std::log2(response[0][i] / hz));
            if (octaves < 0.1) lowest = std::min(lowest, response[1][i]);
            if (std::abs(octaves - 0.8) < 0.02) around += response[1][i] / 4;
        }
        EXPECT_LT(lowest, around - 3) << hz;
    }
    EXPECT_GT(loudness[0].size(), 350);  // each column covers a few tenths of a second
    EXPECT_LE(loudness[0].size(), 700);
    for (size_t i = 0; i < loudness[0].size(); ++i) {
        EXPECT_LE(loudness[3][i], loudness[1][i] + 1e-6);
        EXPECT_GE(loudness[4][i], loudness[1][i] - 1e-6);
        EXPECT_NEAR(loudness[4][i], -20, 0.3);
    }
}

TEST_F(Renderer, LeavesPausesAndDitherOutOfThePicture) {
    KeepScripts();
    const auto lowestOf = [](const std::string& script, const std::string& panel) {
        constexpr std::string_view kRange = "set yrange [";
        const size_t at = script.find(kRange, script.find("'" + panel));
        return at == std::string::npos ? NAN : std::stod(script.substr(at + kRange.size()));
    };
    const std::vector<int16_t> noise = NoiseSamples(size_t{12} * 32000, 2);
    Floats dither(noise.begin(), noise.end()), piece = Calibrated(-20, -20, 32000, 30);
    for (float& sample : dither) sample /= 2 * 32768.0F;
    const Floats soft = Calibrated(-40, -40, 32000, 66);
    piece.insert(piece.end(), dither.begin(), dither.end());  // from 30 s to 36 s
    piece.insert(piece.end(), soft.begin(), soft.end());
    for (const int seconds : {60, 102}) {  // both momentary and short-term loudness
        Write("in.wav", Floats(piece.begin(), piece.begin() + ptrdiff_t{64000} * seconds), 32000,
              2);
        ASSERT_EQ(Shell("PATH=bin:$PATH $ORVANE picture -f --preset night in.wav a.png"), 0);
        const std::string script = Slurp("script");
        EXPECT_EQ(lowestOf(script, "Loudness over time"), -40) << seconds;
        const auto gain = Data(script, "$gain"), spectrum = Data(script, "$spectrum");
        for (size_t i = 0; i < gain[0].size(); ++i) {
            const double fromPause = std::max(30 - gain[0][i], gain[0][i] - 36);
            if (std::abs(fromPause) > 0.15) {
                EXPECT_EQ(std::isnan(gain[1][i]), fromPause < 0) << gain[0][i];
            }
        }
        EXPECT_FALSE(std::isnan(spectrum[1][spectrum[1].size() / 2])) << seconds;
    }
    Write("in.wav", dither, 32000, 2);
    for (const char* preset : {"bass", "steady"}) {
        ASSERT_EQ(
            Shell(std::string("PATH=bin:$PATH $ORVANE picture -f in.wav a.png --preset ") + preset),
            0);
        const auto spectrum = Data(Slurp("script"), "$spectrum");
        for (size_t i = 0; i < spectrum[0].size(); ++i)
            EXPECT_FALSE(spectrum[2][i] < spectrum[1][i]) << preset << spectrum[0][i];
    }
}

TEST_F(Renderer, DrawsWhatEveryBandDoesAlone) {
    KeepScripts();
    ASSERT_EQ(Shell("PATH=bin:$PATH $ORVANE response --bands --rate 32000 a.png"), 0);
    const std::string script = Slurp("script");
    for (const auto& [name, level] : {std::pair("$bands0", 0.5), {"$bands1", 1.0}}) {
        const auto columns = Data(script, name);
        for (size_t band = 0; band < kBandCount; ++band) {
            Settings::Levels levels{};
            levels.at(band) = level;
            for (size_t i = 0; i < columns[0].size(); ++i) {
                const double db = ToneDb(levels, columns[0][i], 32000);
                if (db < -12) continue;
                EXPECT_NEAR(columns[band + 1][i], db, 0.3) << name << " " << band;
            }
        }
    }
}

TEST_F(Renderer, LossyFilesDecodeToWhatWasEncoded) {
    for (const size_t channels : {1U, 2U}) {
        Floats piece = Sine(0.2, 440, 48000, channels, 3);
        for (size_t n = 1; n < piece.size(); n += 2) piece[n] *= channels == 2 ? 0.5F : 1;
        Write("in.wav", piece, 48000, static_cast<int>(channels));
        for (const std::string name : {"out.opus", "out.ogg", "out.mp3"}) {
            ASSERT_EQ(Shell("$ORVANE render -f -q --preset off in.wav " + name), 0);
            const Floats decoded = Read(name);
            double error = 0, power = 0;
            for (size_t n = 20000; n < 120000; ++n) {
                error += std::pow(decoded[n] - piece[n], 2);
                power += std::pow(piece[n], 2);
            }
            EXPECT_LT(10 * std::log10(error / power), -20) << name << channels;
        }
    }
}

TEST_F(Renderer, HoldsTheWholeOutputBelowACeiling) {
    // All samples of this sine are 3.0 dB below its true peak.
    Floats sine = Sine(1.39, 11025, 44100, 2, 2);
    for (size_t n = 0; n < sine.size(); ++n) sine[n] = n / 2 % 4 < 2 ? 0.98F : -0.98F;
    Write("in.wav", sine, 44100, 2);
    EXPECT_NEAR(Report("in.wav whole.wav")["truePeakDb"]["after"], 2.9, 0.1);
    const auto whole = Read<int16_t>("whole.wav");
    for (const char* ceiling : {"-1", "-1dB", "-1dBTP --no-dither"}) {
        const Json report =
            Report(std::string("- out.wav <in.wav --ceiling ") + ceiling)["ceiling"];
        EXPECT_LE(report["reachedDb"], -1) << ceiling;
        EXPECT_GT(report["reachedDb"], -1.1) << ceiling;
        EXPECT_EQ(report["outputs"], 2) << ceiling;
        const double gain = std::pow(10, report["gainDb"] / 20);
        const auto lowered = Read<int16_t>("out.wav");
        ASSERT_EQ(lowered.size(), whole.size());
        for (size_t n = 0; n < whole.size(); ++n)
            ASSERT_NEAR(lowered[n], gain * whole[n], 1.6) << ceiling << n;
    }
    EXPECT_EQ(Report("in.wav out.wav")["ceiling"].Text(), "null");
    EXPECT_EQ(Shell("$ORVANE render in.wav a.wav -q && $ORVANE render in.wav b.wav --output-gain "
                    "0.1 -q && $ORVANE render in.wav c.wav --output-gain 0.1 --ceiling=0dB -q && "
                    "cmp b.wav c.wav && ! cmp a.wav b.wav"),
              0);
    // An encoder raises the peaks of noise at full scale.
    Floats loud;
    for (const int16_t sample : NoiseSamples(size_t{4} * 44100, 32767))
        loud.push_back(sample > 0 ? 0.99F : -0.99F);
    Write("in.wav", loud, 44100, 2);
    for (const std::string name : {"out.opus", "out.ogg", "out.mp3"}) {
        const Json before = Report("in.wav " + name);
        const double decoded = before["truePeakDb"]["decoded"];
        double most = 0;
        for (const float x : Read(name)) most = std::max<double>(most, std::abs(x));
        EXPECT_GE(decoded, 20 * std::log10(most) - 1e-4) << name;
        EXPECT_GT(most, 1) << name;
        EXPECT_NE(before["notes"].Text().find("exceeds full scale"), std::string::npos) << name;
        const Json report = Report("in.wav --ceiling=-1dB --match=0 " + name);
        EXPECT_EQ(report["ceiling"]["reachedDb"], report["truePeakDb"]["decoded"]) << name;
        EXPECT_LE(report["ceiling"]["reachedDb"], -1) << name;
        EXPECT_GT(report["ceiling"]["reachedDb"], -2) << name;
        for (const float x : Read(name)) ASSERT_LE(std::abs(x), 0.892) << name;
        EXPECT_NE(report["notes"].Text().find("because the ceiling lowered the output"),
                  std::string::npos);
        EXPECT_EQ(Shell("$ORVANE render -f in.wav --ceiling=-1dB " + name +
                        " 2>&1 | grep 'ceiling  -1.0 dBTP: lowered by'"),
                  0)
            << name;
    }
    EXPECT_EQ(FilesHere(), 11);  // no file of the attempts is left
}

TEST_F(Renderer, WritesToTheEndOrSaysThatItCannot) {
    Write("long.wav", Sine(0.1, 440, 44100, 2, 15), 44100, 2);
    EXPECT_EQ(Shell("trap '' XFSZ; ulimit -f 100; timeout 60 $ORVANE render long.wav out.wav"), 1);
#ifdef ORVANE_MISREAD_FILE
    for (const std::string wrong : {"frames", "rate", "channels", "file"}) {
        EXPECT_EQ(Shell("LD_PRELOAD=" ORVANE_MISREAD_FILE " ORVANE_MISREAD=" + wrong +
                        " $ORVANE render -q long.wav out.wav"),
                  1);
        EXPECT_NE(Slurp("err").find("out.wav is not written: "), std::string::npos) << wrong;
        EXPECT_FALSE(fs::exists("out.wav")) << wrong;
    }
    EXPECT_EQ(Shell("LD_PRELOAD=" ORVANE_MISREAD_FILE
                    " ORVANE_MISREAD=later $ORVANE render long.wav out.flac"),
              1);
    EXPECT_NE(Slurp("err").find("its gain tags damaged it"), std::string::npos) << Slurp("err");
    EXPECT_FALSE(fs::exists("out.flac"));
#endif
}

}  // namespace
