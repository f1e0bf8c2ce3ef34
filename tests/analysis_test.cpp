// What the pictures are drawn from: signals whose measures are known beforehand.
#include "tools/analysis.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>
#include <random>

#include "tools/gnuplot.h"

namespace {

constexpr double kRateHz = 44100, kPi = std::numbers::pi;

void AppendSine(std::vector<float>* samples, double hz, double levelDb, double seconds) {
    for (int n = 0; n < std::lround(seconds * kRateHz); ++n) {
        const double sine = std::sin(2 * kPi * hz * n / kRateHz);
        samples->insert(samples->end(), 2, static_cast<float>(std::pow(10, levelDb / 20) * sine));
    }
}

// The response of a filter that clips and cuts off to 16 bit, as the effect does it.
std::optional<Response> MeasureFilter(size_t channels, const std::vector<double>& taps,
                                      double largest) {
    const auto filter = [&](const std::vector<int16_t>& in) {
        std::vector<int16_t> out;
        for (size_t i = 0; i < in.size(); ++i) {
            double sum = 0;
            for (size_t k = 0; k < taps.size() && k * channels <= i; ++k)
                if (taps[k] != 0) sum += taps[k] * in[i - k * channels];
            out.push_back(static_cast<int16_t>(std::clamp(sum, -largest, largest)));
        }
        return out;
    };
    return MeasureResponse(filter, static_cast<int>(channels), kRateHz);
}

}  // namespace

TEST(Analysis, ASineReadsItsLevelInItsBandAndNowhereElse) {
    std::vector<float> samples;
    AppendSine(&samples, 1000, -20, 10);
    const Spectrum spectrum = AverageSpectrum(samples, 2, kRateHz);
    EXPECT_NEAR(BandLevelDb(spectrum, 950, 1050), -20, 0.01);
    for (const double hz : {30, 100, 800, 1250, 10000})
        EXPECT_LT(BandLevelDb(spectrum, 0.9 * hz, 1.1 * hz), -60) << hz;
}

TEST(Analysis, EverySampleCountsTheSameInTheSpectrum) {
    std::mt19937 random(1);
    for (const size_t frames : {1U, 777U, 70001U}) {
        std::vector<float> samples(2 * frames);
        double power = 0;
        for (float& x : samples) {
            x = static_cast<float>(random()) / 4294967296.0F - 0.4F;
            power += 2.0 * x * x / static_cast<double>(samples.size());
        }
        const Spectrum spectrum = AverageSpectrum(samples, 2, kRateHz);
        const double below = BandLevelDb(spectrum, -1, 1234.56);
        const double above = BandLevelDb(spectrum, 1234.56, kRateHz);
        EXPECT_NEAR(std::pow(10, below / 10) + std::pow(10, above / 10), power, 1e-9) << frames;
    }
}

TEST(Analysis, LoudnessFollowsAStepWhereItHappens) {
    std::vector<float> samples;
    AppendSine(&samples, 1000, -33, 5);
    AppendSine(&samples, 1000, -23, 5);
    const LoudnessOverTime loudness = MeasureLoudness(samples, 2, kRateHz);
    ASSERT_EQ(loudness.momentaryLufs.size(), 101U);
    for (size_t k = 2; k < 99; ++k) {
        const double seconds = static_cast<double>(k) * loudness.stepSeconds;
        if (std::fabs(seconds - 5) < 0.25) continue;
        EXPECT_NEAR(loudness.momentaryLufs[k], seconds < 5 ? -33 : -23, 0.1) << seconds;
    }
    EXPECT_NEAR(loudness.momentaryLufs[50], -23 + 10 * std::log10(0.55), 0.1);
    EXPECT_NEAR(loudness.truePeakDb, -23, 0.01);
    EXPECT_NEAR(loudness.integratedLufs, -23 + 10 * std::log10(0.55), 0.2);
    EXPECT_TRUE(std::isinf(MeasureLoudness(std::vector<float>(1000), 2, kRateHz).integratedLufs));
}

TEST(Analysis, TheResponseOfAKnownFilterComesOut) {
    std::vector<double> taps(40);
    taps.insert(taps.end(), {0.7, -0.2, 0.1, 0, 0, 0.15});
    for (const size_t channels : {1U, 2U}) {
        const auto response = MeasureFilter(channels, taps, 32767);
        ASSERT_TRUE(response && response->residualDb < -60);
        for (double hz = 20; hz < 20000; hz *= 1.3) {
            std::complex<double> sum = 0, ramped = 0;
            for (size_t k = 0; k < taps.size(); ++k) {
                const auto ms = 1000 * static_cast<double>(k) / kRateHz;
                sum += taps[k] * std::polar(1.0, -2 * kPi * hz * ms / 1000);
                ramped += ms * taps[k] * std::polar(1.0, -2 * kPi * hz * ms / 1000);
            }
            EXPECT_NEAR(MagnitudeDb(*response, hz), 20 * std::log10(std::abs(sum)), 0.02) << hz;
            EXPECT_NEAR(GroupDelayMs(*response, hz), (ramped / sum).real(), 0.02) << hz;
        }
    }
}

TEST(Analysis, ALimiterIsMeasuredBelowItsReach) {
    const auto gentle = MeasureFilter(1, {2.0}, 10000), never = MeasureFilter(1, {2.0}, 10);
    ASSERT_TRUE(gentle && never);
    EXPECT_LT(gentle->residualDb, -50);
    EXPECT_NEAR(MagnitudeDb(*gentle, 1000), 20 * std::log10(2), 0.02);
    EXPECT_GT(never->residualDb, -20);
    EXPECT_FALSE(MeasureResponse([](const auto&) { return std::vector<int16_t>(3); }, 1, kRateHz));
}

TEST(Gnuplot, TextMeansNothingAndFailureSaysWhy) {
    EXPECT_EQ(GnuplotText("it's `a`\n\"b\" \xFF\xC3\xA9 \xE2\x82"),
              "'it''s `a` \"b\" ?\xC3\xA9 ?\?'");
    const std::string path = getenv("PATH");
    setenv("PATH", "/nowhere", 1);
    std::string error;
    EXPECT_FALSE(RunGnuplot("plot 1\n", testing::TempDir() + "gnuplot_test.png", &error));
    setenv("PATH", path.c_str(), 1);
    EXPECT_NE(error.find("gnuplot is not installed"), std::string::npos) << error;
}
