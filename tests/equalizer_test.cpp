// Tests the equalizer, the lanes in which it adds, and the levels that fit a curve.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

#include "client/tone.h"
#include "client/tone_file.h"
#include "dsp/lanes.h"
#include "effects/fir_equalizer.h"
#include "signals.h"

// Every lane gets the number that its function promises, also at odd addresses. Memory beyond the
// numbers is not changed.
TEST(Lanes, MoveEveryNumberToItsPlace) {
    constexpr size_t W = kLanes, kSpread = 7;
    std::vector<float> from(kSpread * W + 2), columns(from.size(), -1), pairs(2 * W + 2, -1);
    for (size_t i = 0; i < from.size(); ++i) from[i] = static_cast<float>(i);
    const auto place = [](float* begin) {
        return [begin](size_t lane) { return begin + 1 + kSpread * (W - 1 - lane); };
    };
    Lanes rows[4];
    LoadColumns(rows[0], rows[1], rows[2], rows[3], place(from.data()));
    for (size_t r = 0; r < 4; ++r) {
        float lanes[W];
        Store(lanes, rows[r]);
        for (size_t i = 0; i < W; ++i) EXPECT_EQ(lanes[i], 1 + kSpread * (W - 1 - i) + r);
    }
    StoreColumns(rows[0], rows[1], rows[2], rows[3], place(columns.data()));
    for (size_t i = 0; i < from.size(); ++i)
        EXPECT_EQ(columns[i], i != 0 && (i - 1) % kSpread < 4 && i < kSpread * W ? from[i] : -1);

    Lanes even, odd;
    LoadPairs(even, odd, &from[1]);
    StorePairs(&pairs[1], even, odd);
    float evens[W];
    Store(evens, even);
    for (size_t i = 0; i < W; ++i) EXPECT_EQ(evens[i], 1 + 2 * i);
    EXPECT_TRUE(std::equal(&pairs[1], &pairs[1] + 2 * W, &from[1]));
    EXPECT_TRUE(pairs[0] == -1 && pairs.back() == -1);
    Store(evens, Reversed(odd));
    for (size_t i = 0; i < W; ++i) EXPECT_EQ(evens[i], 2 * (W - i));
    Store(evens, Broadcast(-0.0F));
    for (const float zero : evens) EXPECT_TRUE(std::signbit(zero));
}

namespace {

template <typename Equalizer>
class FirEqualizerTest : public testing::Test {};
using Equalizers = testing::Types<FIREqualizer_R32R32, FIREqualizer_R32R64>;
TYPED_TEST_SUITE(FirEqualizerTest, Equalizers);

template <typename Equalizer>
constexpr bool kIsFloat = std::is_same_v<Equalizer, FIREqualizer_R32R32>;

template <typename Equalizer>
std::vector<float> Play(Equalizer& equalizer, std::vector<float> samples, unsigned frames) {
    for (size_t at = 0; at < samples.size(); at += size_t{frames} * 2)
        equalizer.Process(&samples[at], frames);  // the calls fill `samples` exactly
    return samples;
}

// The plain form of the equalizer: one channel, sample by sample.
template <typename Real>
struct Plain {
    std::vector<Real> past = std::vector<Real>(512), sums = std::vector<Real>(9);

    float Step(float sample, const Real* gains) {
        past.push_back(sample);
        const size_t centre = past.size() - 1 - 256;
        Real finer = past[centre], y = 0;
        for (size_t k = 0; k < 9; ++k) {
            const size_t distance = size_t{1} << k;
            sums[k] += past[centre + distance];
            const Real average = sums[k] / static_cast<Real>(2 * distance);
            const Real band = gains[9 - k] * (finer - average);
            y = k == 0 ? band : y + band;
            finer = average;
            sums[k] -= past[centre - distance];
        }
        return static_cast<float>(gains[0] * finer + y);
    }
};

}  // namespace

// Levels change between calls of many lengths. The inputs are noise, sparse samples and zeros of
// both signs.
TYPED_TEST(FirEqualizerTest, AddsItsBandsInOneOrderInBothChannelsAndAnyBuffers) {
    using Real = std::conditional_t<kIsFloat<TypeParam>, float, double>;
    const struct {
        float level, floatGain, doubleGain;
    } laws[] = {{2, 5, 2}, {-1, 0, 0}, {0.5F, 2, 1.5F},      {-0.5F, 0.5F, 0.5F},
                {0, 1, 1}, {1, 3, 2},  {0.25F, 1.5F, 1.25F}, {-0.75F, 0.25F, 0.25F},
                {-2, 0, 0}};
    std::mt19937 random(5);
    for (const size_t channels : {1U, 2U}) {
        TypeParam equalizer;
        equalizer.SetChannels(static_cast<unsigned>(channels));
        equalizer.SetEnable(true);
        Plain<Real> plain[2];
        Real gains[10] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
        for (unsigned turn = 0; turn < 60; ++turn) {
            const auto& law = laws[random() % std::size(laws)];
            const int band = static_cast<int>(random() % 10);
            equalizer.SetBandLevel(band, law.level);
            gains[band] = kIsFloat<TypeParam> ? law.floatGain : law.doubleGain;
            equalizer.SetBandLevel(turn % 2 == 0 ? -1 : 10, 0.5F);
            equalizer.SetBandLevel(band, kIsFloat<TypeParam> ? kInfinity : kNan);
            auto run = Noise<float>((1 + random() % 700) * channels,
                                    std::ldexp(1.0, static_cast<int>(turn) * 4 - 120), turn);
            for (float& x : run) x *= turn % 3 == 0 || random() % 16 == 0 ? 1.0F : 0.0F;
            auto expected = run;
            for (size_t i = 0; i < run.size(); ++i)
                expected[i] = plain[i % channels].Step(run[i], gains);
            equalizer.Process(run.data(), static_cast<unsigned>(run.size() / channels));
            ASSERT_EQ(Bits(run), Bits(expected)) << "turn " << turn << ", channels " << channels;
        }
    }
}

// Tests every call that must or must not clear the history, and every reason not to process.
TYPED_TEST(FirEqualizerTest, ForgetsItsHistoryAndStopsWhenItsHeaderSays) {
    const auto input = Noise<float>(1200, 1.0);
    TypeParam e;
    const auto play = [&] { return Play(e, input, 300); };
    EXPECT_EQ(play(), input);
    e.SetEnable(true);
    const auto expected = play();
    e.Reset();
    EXPECT_EQ(play(), expected);
    e.SetChannels(1), e.SetChannels(2);
    EXPECT_EQ(play(), expected);
    e.SetChannels(2), e.SetSamplingRate(48000);
    EXPECT_FALSE(e.SetEnable(true));
    EXPECT_NE(play(), expected);
    e.SetEnable(false), e.SetEnable(true);
    EXPECT_EQ(play() == expected, kIsFloat<TypeParam>);
    for (const unsigned rate : {31999U, 32000U, 48000U, 48001U, UINT32_MAX})
        for (const unsigned channels : {0U, 1U, 2U, 3U}) {
            e.SetSamplingRate(rate);
            e.SetChannels(channels);
            EXPECT_EQ(play() != input, rate % 16000 == 0 && (channels == 1 || channels == 2))
                << rate << ' ' << channels;
        }
}

// In builds with unpacked floats, compares the equalizer with one that uses plain floats. The
// histories are multiples of 2^-30 and include full scale and long silence. In call 55, one sample
// is not such a multiple. The plain equalizer first got a gain that unpacked floats cannot hold.
TEST(FirEqualizer, GivesTheSameValuesOnUnpackedNumbers) {
    std::mt19937 random(5);
    FIREqualizer_R32R32 unpacked, plain;
    for (FIREqualizer_R32R32* e : {&unpacked, &plain}) e->SetEnable(true);
    float silence[2] = {};
    plain.SetBandLevel(0, 1e30F);
    plain.Process(silence, 1);
    plain.SetBandLevel(0, 0);
    for (int call = 0; call < 60; ++call) {
        const auto frames = static_cast<unsigned>(random() % 300);
        const int scale = call == 0 ? -25 : -static_cast<int>(random() % 26);
        const auto band = static_cast<int>(random() % 10);
        const float level = static_cast<float>(random() % 400) / 100 - 1.5F;
        std::vector<float> samples = Noise<float>(size_t{2} * frames, std::ldexp(1.0, scale));
        for (float& x : samples) {
            x = std::ldexp(std::round(std::ldexp(x, 30)), -30);
            if ((call % 5 == 2 && random() % 100 != 0) || (call > 20 && call < 28)) x = 0;
            if (call % 7 == 3 && random() % 8 == 0) x = x > 0 ? 1.0F : -1.0000305F;
        }
        if (call == 55) samples[samples.size() / 2] = 0x1p-31F;
        std::vector<float> expected = samples;
        for (FIREqualizer_R32R32* e : {&unpacked, &plain}) e->SetBandLevel(band, level);
        unpacked.Process(samples.data(), frames);
        plain.Process(expected.data(), frames);
        ASSERT_EQ(samples, expected) << call;
    }
}

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
