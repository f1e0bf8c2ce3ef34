#include "client/tone.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

#include "client/tone_file.h"
#include "effects/fir_equalizer.h"
#include "signals.h"

namespace {

constexpr double kRatesHz[] = {32000, 44100, 48000};
constexpr size_t kBands = kBandCount;

std::vector<float> EqualizedImpulse(const Settings::Levels& levels) {
    FIREqualizer_R32R32 equalizer;
    equalizer.SetChannels(1);
    for (int band = 0; band < 10; ++band)
        equalizer.SetBandLevel(band, static_cast<float>(levels.at(static_cast<size_t>(band))));
    equalizer.SetEnable(true);
    std::vector<float> impulse(1024);
    impulse[0] = 1;
    equalizer.Process(impulse.data(), 1024);
    return impulse;
}

// Returns the response without the delay of 256 samples, which is real.
double RealResponse(const std::vector<float>& impulse, double turns) {
    return (Response(impulse, turns) * std::polar(1.0, 2 * std::numbers::pi * turns * 256)).real();
}

}  // namespace

TEST(Tone, TermsAreTheEqualizersResponseAndCentresTheStatedOnes) {
    Settings::Levels all{};
    for (size_t band = 0; band < kBands; ++band) {
        Settings::Levels alone;
        alone.fill(-1);
        alone.at(band) = 0;
        all.at(band) = 0.1 * static_cast<double>(band) - 0.3;
        const std::vector<float> impulse = EqualizedImpulse(alone);
        for (const double rateHz : kRatesHz)
            for (double hz = 20; hz < rateHz / 2; hz *= 1.07)
                ASSERT_NEAR(BandTerm(band, hz, rateHz), RealResponse(impulse, hz / rateHz), 2e-6)
                    << hz;
    }
    const std::vector<float> impulse = EqualizedImpulse(all);
    for (double hz = 20; hz < 22050; hz *= 1.07)
        ASSERT_NEAR(ToneDb(all, hz, 44100), 20 * std::log10(RealResponse(impulse, hz / 44100)),
                    1e-4);
    const double centresHz[] = {86, 99, 197, 391, 773, 1510, 2892, 5333, 9252, 22050};
    for (size_t band = 0; band < kBands; ++band)
        for (const double rateHz : kRatesHz)
            EXPECT_NEAR(BandHz(band, rateHz) / (centresHz[band] * rateHz / 44100), 1, 0.008)
                << band;
}

TEST(Tone, LevelsComeAsCloseToACurveAsTenBandsCan) {
    struct Case {
        std::vector<TonePoint> points;
        double mostRmsDb, mostAtPointsDb;
    };
    const Case cases[] = {
        {{{1000, -40}}, 0.001, 0.001},
        {{{60, 6}, {200, 0}, {8000, 3}}, 0.5, 1.5},  // two shelves
        {{{80, -9}, {250, 0}, {5000, 0}, {12000, 4}}, 0.5, 1.5},
        {{{60, 4}, {200, 0}, {1000, 0}, {2500, -3}, {6000, -3}, {10000, 2}}, 0.5, 1.5},
        {{{40, 6}, {800, -3}, {14000, 6}}, 0.5, 1.5},  // raised bass and treble
        {{{20, 6}, {20000, -6}}, 0.5, 1.5},            // a tilt
        {{{50, -4}, {15000, 4}}, 0.5, 1.5},
        {{{1000, 0}, {1200, 9}, {1500, 0}}, 1.2, 9},  // a peak narrower than a band
        {{{100, -40}, {120, 9}}, 7, 30},              // a slope steeper than a band's
        {{{30, 18}, {60, 0}}, 3, 12},                 // more gain than the highest level
    };
    for (const Case& c : cases)
        for (const double rateHz : kRatesHz) {
            const ToneFit fit = FitTone(c.points, rateHz);
            const auto deviationDb = [&](const Settings::Levels& levels, double hz) {
                return std::abs(ToneDb(levels, hz, rateHz) - CurveDb(c.points, hz));
            };
            const auto rmsDb = [&](const Settings::Levels& levels) {
                double sum = 0, count = 0;
                for (double hz = 20; hz < std::min(20000.0, 0.45 * rateHz); hz *= 1.02, ++count)
                    sum += std::pow(deviationDb(levels, hz), 2);
                return std::sqrt(sum / count);
            };
            const std::string name = testing::PrintToString(c.points.front().hz) + " Hz at " +
                                     testing::PrintToString(rateHz) + " Hz";
            EXPECT_LT(fit.rmsDb, c.mostRmsDb) << name;
            EXPECT_NEAR(fit.rmsDb, rmsDb(fit.levels), 0.02 + 0.02 * fit.rmsDb) << name;
            EXPECT_NEAR(ToneDb(fit.levels, fit.worstHz, rateHz) - CurveDb(c.points, fit.worstHz),
                        fit.worstDb, 1e-9)
                << name;
            Settings settings, soft;
            soft.Set(PARAM_OUTPUT_GAIN, 0.05);
            for (Settings* const each : {&settings, &soft}) ApplyTone(fit, true, each);
            EXPECT_EQ(soft.Get(PARAM_OUTPUT_GAIN), 0.05) << name;
            const double headroom = std::min(1.0, std::pow(10, -fit.peakDb / 20));
            EXPECT_LE(settings.Get(PARAM_OUTPUT_GAIN), headroom) << name;
            EXPECT_GT(settings.Get(PARAM_OUTPUT_GAIN), headroom - 0.0101) << name;
            EXPECT_GE(fit.peakDb, ToneDb(fit.levels, 500, rateHz)) << name;
            for (const TonePoint& point : c.points) {
                if (point.hz > 0.45 * rateHz) continue;
                EXPECT_LT(deviationDb(fit.levels, point.hz), c.mostAtPointsDb) << name;
                EXPECT_LE(deviationDb(fit.levels, point.hz), std::abs(fit.worstDb)) << name;
            }
            // no smaller or larger level of a band is better
            for (size_t band = 0; band < kBands; ++band)
                for (const double step : {-0.01, 0.01}) {
                    Settings::Levels other = fit.levels;
                    other[band] = std::clamp(other[band] + step, -1.0, 1.0);
                    EXPECT_GT(rmsDb(other), 0.99 * fit.rmsDb - 0.001) << name << ' ' << band;
                }
        }
}

TEST(Tone, CurvesOfHeadphonesAreReadFromBothFormsOfFile) {
    ToneCurve curve;
    ASSERT_EQ(ReadToneFile("\xEF\xBB\xBF"
                           "Preamp: -6.5 dB\r\n# a comment\r\nChannel: all\r\n"
                           "Filter 1: ON LSC Fc 105 Hz Gain 8 dB Q 0.70\r\n"
                           "Filter 2: ON PK Fc 1000 Hz Gain -5.5 dB Q 6\r\n"
                           "Filter 3: OFF PK Fc 3000 Hz Gain 9 dB Q 1\r\n"
                           "Filter 4: ON HS Fc 9000 Hz Gain 4 dB\r\n",
                           &curve),
              "");
    const std::pair<double, double> wanted[] = {{20, 1.5},    {105, -2.5},  {400, -6.5},
                                                {1000, -12},  {3000, -6.5}, {9000, -4.5},
                                                {20000, -2.5}};
    for (const auto& [hz, db] : wanted) EXPECT_NEAR(CurveDb(curve.points, hz), db, 0.2) << hz;

    std::string graph = "GraphicEQ: 10 -84; ";
    for (int i = 0; i < 127; ++i)
        graph += std::to_string(20 + i * i) + " " + std::to_string(0.1 * i - 6) + "; ";
    ASSERT_EQ(ReadToneFile(graph, &curve), "");
    ASSERT_EQ(curve.points.size(), 128U);
    EXPECT_EQ(curve.points.front().db, -60);
    EXPECT_NEAR(CurveDb(curve.points, 20 + 100 * 100), 4, 1e-6);

    // The bands can't follow this dip, and must not try at the expense of the middle.
    ASSERT_EQ(ReadToneFile("GraphicEQ: 20 0; 8000 0; 11000 -20; 14000 0", &curve), "");
    EXPECT_LT(FitTone(curve.points, 44100, curve.focus).middleRmsDb,
              0.9 * FitTone(curve.points, 44100).middleRmsDb);

    for (const char* const wrong :
         {"", "60:6", "Preamp: -3 dB\nFilter 1: OFF PK Fc 9 Hz Gain 1 dB Q 1", "GraphicEQ: 20",
          "GraphicEQ:", "GraphicEQ: 20 0; 20 1", "GraphicEQ: 20 0 1", "GraphicEQ: 50 21",
          "Filter 1: ON NO Fc 60 Hz", "Filter 1: ON PK Fc 60 Hz Gain 3 dB",
          "Filter 1: ON PK Fc 60 Hz Gain x dB Q 1", "Filter 1: ON PK Fc 60 Hz Gain 30 dB Q 1",
          "Filter 1: ON PK Fc 24000 Hz Gain 3 dB Q 1", "Preamp: loud\nGraphicEQ: 20 0"})
        EXPECT_NE(ReadToneFile(wrong, &curve), "") << wrong;
}
