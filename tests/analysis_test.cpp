// What the pictures are drawn from: signals whose measures are known beforehand.
#include "render/pictures/analysis.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

#include "render/pictures/gnuplot.h"

namespace {

constexpr double kRateHz = 44100, kPi = std::numbers::pi;

void AppendSine(std::vector<float>* samples, double levelDb, double seconds) {
    for (int n = 0; n < std::lround(seconds * kRateHz); ++n) {
        const double sine = std::sin(2 * kPi * 1000 * n / kRateHz);
        samples->insert(samples->end(), 2, static_cast<float>(std::pow(10, levelDb / 20) * sine));
    }
}

}  // namespace

TEST(Analysis, TheSpectrumCountsEverySampleAlikeAtItsFrequency) {
    std::vector<float> samples;
    AppendSine(&samples, -20, 10);
    const Spectrum sine = AverageSpectrum(samples, 2, kRateHz);
    EXPECT_NEAR(BandLevelDb(sine, 950, 1050), -20, 0.01);
    for (const double hz : {30, 100, 800, 1250, 10000})
        EXPECT_LT(BandLevelDb(sine, 0.9 * hz, 1.1 * hz), -60) << hz;
    std::mt19937 random(1);
    for (const size_t frames : {1U, 777U, 70001U}) {
        samples.resize(2 * frames);
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
    AppendSine(&samples, -33, 5);
    AppendSine(&samples, -23, 5);
    const LoudnessOverTime loudness = MeasureLoudness(samples, 2, kRateHz);
    ASSERT_EQ(loudness.momentaryLufs.size(), 101U);
    for (const size_t k : {2U, 20U, 47U, 53U, 80U, 98U})  // tenths of a second
        EXPECT_NEAR(loudness.momentaryLufs[k], k < 50 ? -33 : -23, 0.1) << k;
    EXPECT_NEAR(loudness.momentaryLufs[50], -23 + 10 * std::log10(0.55), 0.1);
    EXPECT_NEAR(loudness.integratedLufs, -23 + 10 * std::log10(0.55), 0.2);
    EXPECT_NEAR(loudness.truePeakDb, -23, 0.01);
    EXPECT_NEAR(loudness.stepSeconds, 0.1, 1e-9);
}

// Of a filter that clips and cuts off to 16 bits, as the effect does it.
TEST(Analysis, TheResponseComesOutUnlessEveryLevelClips) {
    std::vector<double> taps(40);
    taps.insert(taps.end(), {0.7, -0.2, 0.1, 0, 0, 0.15});
    for (const auto& [channels, most] : {std::pair(1U, 6000), {2U, 32767}, {1U, 10}}) {
        const auto filter = [&, stride = channels, limit = most](const std::vector<int16_t>& in) {
            std::vector<int16_t> out;
            for (size_t i = 0; i < in.size(); ++i) {
                double sum = 0;
                for (size_t k = 40; k < taps.size() && k * stride <= i; ++k)
                    sum += taps[k] * in[i - k * stride];
                out.push_back(static_cast<int16_t>(std::clamp<double>(sum, -limit, limit)));
            }
            return out;
        };
        const auto response = MeasureResponse(filter, static_cast<int>(channels), kRateHz);
        ASSERT_TRUE(response);
        EXPECT_EQ(response->residualDb<-55, most> 10) << response->residualDb;
        for (double hz = 20; hz < 20000 && most > 10; hz *= 1.3) {
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
    EXPECT_FALSE(MeasureResponse([](const auto&) { return std::vector<int16_t>(3); }, 1, kRateHz));
}

TEST(Gnuplot, TextMeansNothing) {
    EXPECT_EQ(GnuplotText("it's `a`\n\"b\" \xFF\xC3\xA9 \xE2\x82"),
              "'it''s `a` \"b\" ?\xC3\xA9 ?\?'");
}
