#include "effects/orvane_sound.h"

#include <gtest/gtest.h>

#include "dsp/fir_window.h"
#include "signals.h"

namespace {

struct Stream {
    uint32_t rate, channels;
    float process, level;
    size_t delays[3];  // high, band, low: frames
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

// All frames that calls of n frames return; returned: by each call.
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

// Direct form of the whole; a level below -0.1 is taken as no contour.
std::vector<double> Model(const Stream& s, const double (&weights)[3],
                          const std::vector<float>& input) {
    std::vector<std::vector<double>> kernels(3, std::vector<double>(255));
    FIRWindow_R64R64::MakeHighpassFIRCoeffs(1, kernels[0].data(), 255, s.rate, 1800);
    FIRWindow_R64R64::MakeBandpassFIRCoeffs(1, kernels[1].data(), 255, s.rate, 150, 1800);
    FIRWindow_R64R64::MakeLowpassFIRCoeffs(1, kernels[2].data(), 255, s.rate, 150);
    std::vector<double> h(size_t{400} * s.channels), output;  // of one channel among `channels`
    for (size_t b = 0; b < 3; ++b)
        for (size_t k = 0; k < 255; ++k)
            h[(k + s.delays[b]) * s.channels] += weights[b] * kernels[b][k];
    output = DirectConvolution(input, h);
    if (s.level < -0.1F) return output;
    Biquad_R64R64 contour;
    contour.SetLowPassParameter(0, 55.0F, static_cast<float>(s.rate), s.level + 0.1F);
    for (size_t n = 0; n < output.size(); n += s.channels) {
        const double y = contour.ProcessSample(output[n] + (s.channels == 2 ? output[n + 1] : 0));
        for (size_t c = 0; c < s.channels; ++c) output[n + c] += y;
    }
    return output;
}

}  // namespace

TYPED_TEST(OrvaneSoundTest, IsTheWeightedSumOfItsDelayedBandsAndTheContour) {
    constexpr bool isFloat = std::is_same_v<TypeParam, OrvaneSound_R32R32>;
    TypeParam enhancer(0);
    // At 35000 Hz, 35000 * 200000 / 1e9 would be 7.
    for (const Stream& s : {kStereo, Stream{35000, 1, 1, 0, {0, 6, 99}},
                            Stream{48000, 2, 0, -5, {0, 9, 136}}, kStereo}) {
        const double weights[] = {s.process, isFloat ? 1.1 : 1, isFloat ? 0.95 : 1};
        SetUp(enhancer, s);
        const auto input = Noise<float>(size_t{4} * 770 * s.channels, 0.9);
        // In single precision the contour's poles at 55 Hz magnify rounding errors.
        EXPECT_LT(
            LargestDifference(Play(enhancer, input, s.channels, 770), Model(s, weights, input)),
            isFloat && s.level > -0.1F ? 2e-4 : 5e-6)
            << s.rate;
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
