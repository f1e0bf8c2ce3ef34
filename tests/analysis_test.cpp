// Tests the measurements behind the pictures on signals whose measurements are known.
#include "render/pictures/analysis.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <random>
#include <span>
#include <tuple>

#include "render/audio/loudness.h"
#include "render/audio/spectrum.h"
#include "render/ceiling.h"
#include "render/failure.h"
#include "render/pictures/gnuplot.h"

namespace {

constexpr double kRateHz = 44100, kPi = std::numbers::pi;

void AppendSine(std::vector<float>* samples, double levelDb, double seconds) {
    for (int n = 0; n < std::lround(seconds * kRateHz); ++n) {
        const double sine = std::sin(2 * kPi * 1000 * n / kRateHz);
        samples->insert(samples->end(), 2, static_cast<float>(std::pow(10, levelDb / 20) * sine));
    }
}

// Adds the samples in blocks of many sizes, as streams deliver them.
template <typename Meter>
void Feed(Meter* meter, std::span<const float> samples, size_t channels) {
    for (size_t frames = 1; !samples.empty(); frames = frames * 7 % 9973) {
        const size_t count = std::min(frames * channels, samples.size());
        meter->Add(samples.first(count));
        samples = samples.subspan(count);
    }
}

Spectrum SpectrumOf(const std::vector<float>& samples) {
    SpectrumMeter meter(2, kRateHz);
    Feed(&meter, samples, 2);
    return meter.Finish();
}

}  // namespace

TEST(Analysis, TheSpectrumCountsEverySampleAlikeAtItsFrequency) {
    std::vector<float> samples;
    AppendSine(&samples, -20, 10);
    const Spectrum sine = SpectrumOf(samples);
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
        const Spectrum spectrum = SpectrumOf(samples);
        const double below = BandLevelDb(spectrum, -1, 1234.56);
        const double above = BandLevelDb(spectrum, 1234.56, kRateHz);
        EXPECT_NEAR(std::pow(10, below / 10) + std::pow(10, above / 10), power, 1e-9) << frames;
    }
}

TEST(Analysis, LoudnessFollowsAStepWhereItHappens) {
    std::vector<float> samples;
    AppendSine(&samples, -33, 5);
    AppendSine(&samples, -23, 5);
    LoudnessMeter meter(2, 44100, Metering::kOverTime);
    Feed(&meter, samples, 2);
    const std::vector<double> momentary = LoudnessCurve(meter.Tenths(), 4);
    const std::vector<double> shortTerm = LoudnessCurve(meter.Tenths(), 30);
    ASSERT_EQ(momentary.size(), 101U);
    for (const size_t k : {0U, 20U, 47U, 53U, 80U, 100U})  // indices of tenths of a second
        EXPECT_NEAR(momentary[k], k < 50 ? -33 : -23, 0.1) << k;
    for (const auto& curve : {momentary, shortTerm})
        EXPECT_NEAR(curve[50], -23 + 10 * std::log10(0.55), 0.1);
    EXPECT_NEAR(shortTerm[60], -23 + 10 * std::log10((25 + 0.5) / 30), 0.1);
    EXPECT_NEAR(meter.Result().integratedLufs, -23 + 10 * std::log10(0.55), 0.2);
}

// libebur128 measures integrated loudness and range by itself, too. The level changes often, so all
// gates take part. At 11025 Hz a tenth of a second isn't a whole number of frames.
TEST(Analysis, IntegratedLoudnessAndRangeAreThoseOfLibebur128) {
    std::mt19937 random(5);
    int ranges = 0;
    for (const auto& [rateHz, channels] :
         {std::pair(44100U, 2U), {48000U, 1U}, {11025U, 2U}, {kLowestMeteredRateHz, 1U}}) {
        const Ebur128Handle own(ebur128_init(channels, rateHz, EBUR128_MODE_I | EBUR128_MODE_LRA));
        LoudnessMeter meter(channels, rateHz, Metering::kLoudness);
        for (const double seconds : {0.5, 2.9, 40.0, 25.0}) {
            if (seconds == 25) {  // a stream of the same kind follows
                ebur128_change_parameters(own.get(), 6, rateHz);
                ebur128_change_parameters(own.get(), channels, rateHz);
                meter.Continue(channels, rateHz);
            }
            std::vector<float> samples(static_cast<size_t>(seconds * rateHz) * channels);
            float level = 1;
            for (size_t i = 0; i < samples.size(); ++i) {
                if (i % 30000 == 0) level = std::ldexp(1.0F, -static_cast<int>(random() % 15));
                samples[i] = level * (static_cast<float>(random()) / 2147483648.0F - 1);
            }
            Feed(&meter, samples, channels);
            ebur128_add_frames_float(own.get(), samples.data(), samples.size() / channels);
            double integratedLufs = 0, rangeLu = 0;
            ebur128_loudness_global(own.get(), &integratedLufs);
            ebur128_loudness_range(own.get(), &rangeLu);
            const Loudness result = meter.Result();
            EXPECT_NEAR(result.integratedLufs, integratedLufs, 1e-9) << rateHz;
            if (!std::isnan(result.rangeLu)) {
                EXPECT_NEAR(result.rangeLu, rangeLu, 1e-9) << rateHz;
                ++ranges;
            }
        }
    }
    EXPECT_EQ(ranges, 12);
}

// The signals are noise in bursts of many levels. Some contain the samples for which an
// interpolated value is largest. Others have one interpolated value, at a quarter, that is the only
// one above an earlier sample.
TEST(TruePeak, IsWhatTheWholeStreamGives) {
    std::mt19937 random(3);
    for (const unsigned rateHz : {8000U, 44100U, 96000U, 192000U})
        for (const unsigned channels : {1U, 2U})
            for (int run = 0; run < 60; ++run) {
                std::vector<float> samples(size_t{8000} * channels);
                const auto sample = [&](size_t frame) -> float& {
                    return samples[frame * channels + static_cast<size_t>(run) % channels];
                };
                const float most = 0.5F + static_cast<float>(run) / 50;
                float level = 1;
                for (size_t i = 0; run % 3 > 0 && i < samples.size(); ++i) {
                    if (random() % 150 == 0)
                        level = std::ldexp(1.0F, -static_cast<int>(random() % 6));
                    samples[i] = level * (static_cast<float>(random()) / 2147483648.0F - 1);
                }
                for (size_t k = 0; run % 3 == 1 && k < 24; ++k)
                    sample(7000 + k) = (k < 12) == (k % 2 == 0) ? most : -most;
                if (run % 3 == 0) sample(2000) = 0.95F * most;
                for (int k = 0; run % 3 == 0 && k < 24; ++k) {
                    const double x = kPi * (k - 11.25 - run % 2 * 0.5);
                    sample(7000 + static_cast<size_t>(k)) =
                        most * static_cast<float>(std::sin(x) / x);
                }
                const Ebur128Handle whole(ebur128_init(channels, rateHz, EBUR128_MODE_TRUE_PEAK));
                ebur128_add_frames_float(whole.get(), samples.data(), samples.size() / channels);
                double peak = 0;
                for (unsigned c = 0; c < channels; ++c) {
                    double channelPeak = 0;
                    ebur128_true_peak(whole.get(), c, &channelPeak);
                    peak = std::max(peak, channelPeak);
                }
                TruePeakMeter meter(channels, rateHz);
                Feed(&meter, samples, channels);
                ASSERT_EQ(meter.Peak(), peak) << rateHz << " Hz, run " << run;
            }
}

// The tested filter clips and truncates to 16 bits, as the effect does.
TEST(Analysis, FindsTheResponseUnlessEveryLevelClips) {
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
        EXPECT_EQ(response.residualDb<-55, most> 10) << response.residualDb;
        for (double hz = 20; hz < 20000 && most > 10; hz *= 1.3) {
            std::complex<double> sum = 0, ramped = 0;
            for (size_t k = 0; k < taps.size(); ++k) {
                const auto ms = 1000 * static_cast<double>(k) / kRateHz;
                sum += taps[k] * std::polar(1.0, -2 * kPi * hz * ms / 1000);
                ramped += ms * taps[k] * std::polar(1.0, -2 * kPi * hz * ms / 1000);
            }
            EXPECT_NEAR(MagnitudeDb(response, hz), 20 * std::log10(std::abs(sum)), 0.02) << hz;
            EXPECT_NEAR(GroupDelayMs(response, hz), (ramped / sum).real(), 0.02) << hz;
        }
    }
    EXPECT_THROW(MeasureResponse([](const auto&) { return std::vector<int16_t>(3); }, 1, kRateHz),
                 Failure);
}

TEST(Gnuplot, TextsContainNoCommandsOrMarkup) {
    EXPECT_EQ(GnuplotText("it's `a`\n\"b\" \xFF\xC3\xA9 \xE2\x82"),
              "'it''s `a` \"b\" ?\xC3\xA9 ?\?'");
}

TEST(Ceiling, IsReachedInFewTriesOrReportedAsMissed) {
    const auto reach = [](std::optional<double> wantedDb,
                          const std::function<double(double)>& peakDb) {
        Ceiling ceiling(wantedDb);
        while (ceiling.NeedsAnother(peakDb(20 * std::log10(ceiling.Gain())))) {
        }
        Report report{};
        ceiling.AddTo(&report);
        return report;
    };
    // Peaks after an encoder change by up to 0.3 dB, either way, with the gain.
    for (int seed = 0; seed < 200; ++seed) {
        std::mt19937 random(static_cast<unsigned>(seed));
        const Report report = reach(-1, [&](double gainDb) {
            return 1.2 + gainDb + std::uniform_real_distribution(-0.3, 0.3)(random);
        });
        EXPECT_LE(report.ceiling->reachedDb, -1);
        EXPECT_GT(report.ceiling->reachedDb, -2.5);
        EXPECT_LE(report.ceiling->outputs, 6);
        EXPECT_TRUE(report.warnings.empty());
    }
    const Report low = reach(-1, [](double gainDb) { return gainDb - 1; });
    EXPECT_EQ(low.ceiling->gainDb, 0);
    EXPECT_EQ(low.ceiling->outputs, 1);
    EXPECT_EQ(reach(-1, [](double gainDb) { return gainDb - 0.5; }).ceiling->outputs, 2);
    const Report missed = reach(-1, [](double) { return -0.5; });
    EXPECT_EQ(missed.ceiling->outputs, 8);
    EXPECT_EQ(missed.warnings.size(), 1);
    EXPECT_FALSE(reach(std::nullopt, [](double) { return NAN; }).ceiling);
    EXPECT_THROW(reach(-1, [](double) { return NAN; }), Failure);
}
