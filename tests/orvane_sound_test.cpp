#include "effects/orvane_sound.h"

#include <gtest/gtest.h>

#include "dsp/band_spliter.h"
#include "signals.h"

namespace {

struct Stream {
    uint32_t rate, channels;
    float process, level;
    size_t delays[3];  // of the high, band and low outputs, in frames
};
constexpr Stream kStereo = {44100, 2, 1.5F, 0.3F, {0, 8, 125}};

template <typename Enhancer>
class OrvaneSoundTest : public testing::Test {};
using Enhancers = testing::Types<OrvaneSound_R32R32, OrvaneSound_R32R64>;
TYPED_TEST_SUITE(OrvaneSoundTest, Enhancers);

template <typename Enhancer>
void SetUp(Enhancer& enhancer, const Stream& s) {
    for (const float ignored : {0.0F, kNan, kInfinity}) {
        enhancer.SetProcess(s.process + ignored);
        enhancer.SetLoContour(s.level + ignored);
    }
    enhancer.SetSamplingRate(s.rate);
    enhancer.SetChannels(s.channels);
    EXPECT_TRUE(enhancer.SetEnable(true) && enhancer.GetPrepared());
}

// Processes the input in calls of n frames and returns all output. `returned` gets the number of
// frames that each call returned.
template <typename Enhancer, typename Sample>
std::vector<Sample> Play(Enhancer& enhancer, const std::vector<Sample>& input, size_t channels,
                         uint32_t n, std::vector<uint32_t>* returned = nullptr) {
    std::vector<Sample> output;
    for (size_t at = 0; at + n * channels <= input.size(); at += n * channels) {
        std::vector<Sample> call(&input[at], &input[at] + n * channels);
        const uint32_t frames = enhancer.Process(call.data(), n);
        output.insert(output.end(), call.begin(), frames != 0 ? call.end() : call.begin());
        if (returned != nullptr) returned->push_back(frames);
    }
    return output;
}

// The plain form of the enhancer, sample by sample. `weights` are those of high, band and low.
template <typename Real>
std::vector<float> PlainForm(const Stream& s, const Real (&weights)[3],
                             const std::vector<float>& input) {
    using Samples = std::vector<Real>;
    std::vector<Samples> bands(3, Samples(input.begin(), input.end()));
    for (uint32_t c = 0; c < s.channels; ++c) {
        BandSpliter<Real> splitter;
        splitter.SetParameter(1, 255, s.rate, 150, 1800);
        for (size_t at = c; at < input.size(); at += 770 * s.channels)
            splitter.ConvolveInterleaved(&bands[0][at], &bands[2][at], &bands[0][at], &bands[1][at],
                                         770, s.channels);
    }
    const auto weighted = [&](size_t b, size_t i) {
        const size_t delay = s.delays[b] * s.channels;
        if (b == 0) return bands[b][i] * weights[b];
        return (i < delay ? 0 : static_cast<Real>(static_cast<float>(bands[b][i - delay]))) *
               weights[b];
    };
    Biquad<Real, Real> contour;
    const Real quality = s.level + static_cast<Real>(0.1F);
    contour.SetLowPassParameter(0, 55.0F, static_cast<float>(s.rate),
                                std::max(1e-5F, static_cast<float>(quality)));
    std::vector<float> output;
    for (size_t i = 0; i < input.size(); i += s.channels) {
        Real sums[2] = {}, all = 0;
        for (uint32_t c = 0; c < s.channels; ++c)
            sums[c] = (weighted(0, i + c) + weighted(1, i + c)) + weighted(2, i + c);
        all = s.channels == 2 ? sums[0] + sums[1] : sums[0];
        const Real y = static_cast<float>(contour.ProcessSample(static_cast<float>(all)));
        for (uint32_t c = 0; c < s.channels; ++c) output.push_back(static_cast<float>(sums[c] + y));
    }
    return output;
}

}  // namespace

TYPED_TEST(OrvaneSoundTest, IsTheWeightedSumOfItsDelayedBandsAndTheContourToTheBit) {
    constexpr bool isFloat = std::is_same_v<TypeParam, OrvaneSound_R32R32>;
    using Real = std::conditional_t<isFloat, float, double>;
    TypeParam enhancer(0);
    // At 35000 Hz, the delay 35000 / 1e9 * 200000 truncates to 6 frames. In another order, 35000 *
    // 200000 / 1e9 would be 7.
    for (const Stream& s : {kStereo, Stream{35000, 1, 1, 0, {0, 6, 99}},
                            Stream{48000, 2, 0, -5, {0, 9, 136}}, kStereo}) {
        SetUp(enhancer, s);
        for (const unsigned seed : {3U, 0U}) {
            auto input = SparseNoise<float>(size_t{5} * 770 * s.channels, seed);
            const auto output = Play(enhancer, input, s.channels, 770);
            EXPECT_TRUE(HaveTheSameBits(
                output,
                PlainForm<Real>(s, {s.process, isFloat ? 1.1F : 1, isFloat ? 0.95F : 1}, input)))
                << s.rate << " " << seed;
            enhancer.Reset();
        }
        enhancer.SetEnable(false);
    }
}

TYPED_TEST(OrvaneSoundTest, ReturnsWholeCallsOfOneStreamWhateverTheirSizeAndType) {
    const auto input = Noise<float>(size_t{2} * 20 * 770, 0.9);
    TypeParam reference(0), doubles(0);
    SetUp(reference, kStereo);
    const auto whole = Play(reference, input, 2, 770);
    for (uint32_t n = 5; n < 2100; n += 145) {
        std::vector<uint32_t> returned, expected;
        for (uint32_t in = n, out = 0; in <= 20 * 770; in += n, out += expected.back())
            expected.push_back(in / 770 * 770 - out >= n ? n : 0);
        TypeParam enhancer(0);
        SetUp(enhancer, kStereo);
        const auto output = Play(enhancer, input, 2, n, &returned);
        EXPECT_EQ(returned, expected) << n;
        EXPECT_TRUE(std::equal(output.begin(), output.end(), whole.begin())) << n;
    }
    SetUp(doubles, kStereo);
    EXPECT_EQ(Play(doubles, std::vector<double>(input.begin(), input.end()), 2, 770),
              std::vector<double>(whole.begin(), whole.end()));
    EXPECT_TRUE(doubles.SetEnable(false));
    EXPECT_EQ(Play(doubles, input, 2, 100), input);
}

TYPED_TEST(OrvaneSoundTest, ANewContourCountsFromTheNextBlockOn) {
    const auto input = Noise<float>(size_t{2} * 8 * 770, 0.9);
    // Changes the contour after each of the given numbers of frames. Both sides see the same number
    // of whole blocks.
    const auto changed = [&](uint32_t n, std::initializer_list<size_t> ends) {
        TypeParam enhancer(0);
        SetUp(enhancer, kStereo);
        std::vector<float> output;
        auto from = input.begin();
        float level = 0;
        for (const size_t end : ends) {
            const auto to = input.begin() + static_cast<ptrdiff_t>(2 * end);
            const auto part = Play(enhancer, std::vector<float>(from, to), 2, n);
            output.insert(output.end(), part.begin(), part.end());
            enhancer.SetLoContour(level += 0.4F);
            from = to;
        }
        output.resize(size_t{2} * 4900);
        return output;
    };
    EXPECT_EQ(changed(100, {1500, 3000, 3100, 3200, 6100}),
              changed(770, {770, 2310, 3080, 3080, 6160}));
}

TYPED_TEST(OrvaneSoundTest, IsAsNewAfterResetAndAfterChangesOfTheStream) {
    TypeParam e(0);
    SetUp(e, kStereo);
    const auto input = Noise<float>(size_t{2} * 4000, 0.9);
    const auto expected = Play(e, input, 2, 256);
    const auto isAsNewAfter = [&](auto act) { return act(), Play(e, input, 2, 256) == expected; };
    EXPECT_TRUE(isAsNewAfter([&] { e.Reset(); }));
    EXPECT_TRUE(isAsNewAfter([&] { e.SetSamplingRate(48000), e.SetSamplingRate(44100); }));
    EXPECT_TRUE(isAsNewAfter([&] { e.SetChannels(1), e.SetChannels(2); }));
    EXPECT_EQ(isAsNewAfter([&] { e.SetEnable(false), e.SetEnable(true); }),
              (std::is_same_v<TypeParam, OrvaneSound_R32R32>));
    EXPECT_FALSE(isAsNewAfter([&] { e.SetSamplingRate(44100), e.SetLoContour(kStereo.level); }));
    EXPECT_FALSE(isAsNewAfter([&] { e.SetChannels(2), e.SetChannels(3), e.SetChannels(0); }));
}
