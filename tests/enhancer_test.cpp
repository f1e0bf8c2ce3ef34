// Tests the enhancer and what it consists of: transforms, band splitters and buffers.
#include <gtest/gtest.h>

#include <cstring>

#include "dsp/band_spliter.h"
#include "dsp/fft_r24.h"
#include "dsp/fir_window.h"
#include "dsp/planar_fft.h"
#include "dsp/wave_buffer.h"
#include "effects/orvane_sound.h"
#include "signals.h"

namespace {

template <typename T>
class FftTest : public testing::Test {};
using RealTypes = testing::Types<float, double>;
TYPED_TEST_SUITE(FftTest, RealTypes);

template <typename T>
std::vector<double> DirectTransform(const std::vector<T>& a) {
    const size_t n = a.size();
    std::vector<double> packed(n);
    for (size_t k = 0; k <= n / 2; ++k) {
        const auto bin = Response(a, static_cast<double>(k) / static_cast<double>(n));
        packed[k == n / 2 ? 1 : 2 * k] = bin.real();
        if (k > 0 && k < n / 2) packed[2 * k + 1] = -bin.imag();
    }
    return packed;
}

}  // namespace

// All lengths use the tables of one object. They are built once, extended for longer transforms and
// kept for shorter ones.
TYPED_TEST(FftTest, IsTheDirectTransformAndItsInverse) {
    FFT_R24<TypeParam> fft(1024);
    for (const int n : {2, 4, 8, 64, 16, 32, 128, 512, 256, 1024, 1024, 2}) {
        const auto input = Noise<TypeParam>(static_cast<size_t>(n), 1.0);
        auto a = input;
        fft.rdft(n, 1, a.data(), fft.ip.data(), fft.w.data());
        const double tolerance =
            static_cast<double>(std::numeric_limits<TypeParam>::epsilon()) * (n + 10);
        EXPECT_LT(LargestDifference(a, DirectTransform(input)), tolerance) << n;
        const std::vector<TypeParam> tables(fft.w.data(), fft.w.data() + 512);
        fft.rdft(n, -1, a.data(), fft.ip.data(), fft.w.data());
        EXPECT_EQ(tables, std::vector<TypeParam>(fft.w.data(), fft.w.data() + 512));
        for (TypeParam& v : a) v /= static_cast<TypeParam>(n) / 2;
        EXPECT_LT(LargestDifference(a, input), tolerance) << n;
    }
}

// The inputs have many magnitudes and zeros of both signs. They are stored in both forms' layouts.
TYPED_TEST(FftTest, PlanarTransformsHaveItsBits) {
    for (const int n : {128, 256, 512, 1024, 2048}) {
        const auto M = static_cast<size_t>(n / 2);
        FFT_R24<TypeParam> fft(static_cast<uint32_t>(n));
        PlanarFft<TypeParam> planar;
        std::vector<TypeParam> a = Noise<TypeParam>(2 * M, 1.0), in(2 * M), out(2 * M), got(2 * M);
        fft.rdft(n, 1, a.data(), fft.ip.data(), fft.w.data());  // builds the tables
        ASSERT_TRUE(planar.Prepare(static_cast<uint32_t>(n), fft.w.data()));
        for (unsigned seed = 0; seed < 40; ++seed) {
            a = SparseNoise<TypeParam>(2 * M, seed);
            for (size_t q = 0; q < M; ++q) in[q] = a[2 * q], in[M + q] = a[2 * q + 1];
            fft.bitrv2(n, fft.ip.data() + 2, a.data());
            const Planar<const TypeParam> from = {in.data(), &in[M]};
            if (seed % 2 == 0) {
                fft.cftfsub(n, a.data(), fft.w.data());
                planar.Forward(from, {out.data(), &out[M]});
            } else {
                fft.cftbsub(n, a.data(), fft.w.data());
                planar.Backward(from, {out.data(), &out[M]});
            }
            for (size_t q = 0; q < M; ++q) got[2 * q] = out[q], got[2 * q + 1] = out[M + q];
            ASSERT_TRUE(HaveTheSameBits(a, got)) << n << " " << seed;
        }
    }
}

namespace {

template <typename T>
class BandSpliterTest : public testing::Test {};
TYPED_TEST_SUITE(BandSpliterTest, RealTypes);

}  // namespace

// Processes the second channel of stereo in whole blocks. Each output in turn shares the input's
// memory.
TYPED_TEST(BandSpliterTest, IsTheDirectConvolutionInPlaceAndAfterReset) {
    using Window = FIRWindow<TypeParam>;
    using Samples = std::vector<TypeParam>;
    for (const auto& [K, L] : {std::pair(3U, 126U), {31U, 226U}, {127U, 386U}, {255U, 770U}}) {
        BandSpliter<TypeParam> splitter;
        ASSERT_TRUE(splitter.SetParameter(10, K, 44100, 700, 5000));
        ASSERT_EQ(splitter.GetProceedBufferSize(), L);
        std::vector<Samples> kernels(3, Samples(K));
        Window::MakeLowpassFIRCoeffs(10, kernels[0].data(), K, 44100, 700);
        Window::MakeHighpassFIRCoeffs(10, kernels[1].data(), K, 44100, 5000);
        Window::MakeBandpassFIRCoeffs(10, kernels[2].data(), K, 44100, 700, 5000);
        const auto stereo = Noise<TypeParam>(size_t{2} * 3 * L, 1.0);
        for (const size_t input : {3U, 0U, 1U, 2U}) {
            std::vector<Samples> memory(4, stereo);
            for (size_t at = 1; at < stereo.size(); at += size_t{2} * L)
                splitter.ConvolveInterleaved(&memory[input][at], &memory[0][at], &memory[1][at],
                                             &memory[2][at], L, 2);
            for (size_t b = 0; b < 3; ++b) {
                Samples spread(2 * K - 1);  // the kernel with a zero between its samples
                for (size_t k = 0; k < K; ++k) spread[2 * k] = kernels[b][k];
                auto expected = DirectConvolution(stereo, spread);
                for (size_t i = 0; i < stereo.size(); i += 2) expected[i] = stereo[i];
                EXPECT_LT(LargestDifference(memory[b], expected),
                          sizeof(TypeParam) == 4 ? 3e-6 : 1e-13);
            }
            splitter.Reset();
        }
    }
}

TYPED_TEST(BandSpliterTest, EqualsItsStepsBitForBit) {
    using Samples = std::vector<TypeParam>;
    for (const unsigned K : {3U, 63U, 127U, 255U, 511U}) {
        BandSpliter<TypeParam> splitter;
        splitter.SetParameter(1, K, 44100, 150, 1800);
        const uint32_t L = splitter.GetProceedBufferSize(), N = splitter.GetFFTSize();
        std::vector<Samples> kernels(3, Samples(N)), tails(3, Samples(K - 1)), got(3, Samples(L));
        for (size_t b = 0; b < 3; ++b) {  // three random kernels
            kernels[b] = Noise<TypeParam>(K, 1.0, 5 + static_cast<unsigned>(b));
            kernels[b].resize(N);
        }
        splitter.ProcessKernel(kernels[0].data(), kernels[1].data(), kernels[2].data(), K, N);
        for (Samples& kernel : kernels) {
            for (TypeParam& tap : kernel) tap = static_cast<TypeParam>(tap * (2.0 / N));
            splitter.CvFFTRealTime(kernel.data(), N, false, false);
        }
        for (unsigned block = 0; block < 8; ++block) {
            Samples input = SparseNoise<TypeParam>(L, 4 + block);
            splitter.Convolve(input.data(), got[0].data(), got[1].data(), got[2].data(), L);
            input.resize(N);
            splitter.CvFFTCreated(input.data(), N, false, false);
            for (size_t b = 0; b < 3; ++b) {
                Samples band = input;
                splitter.ConvSignal(band.data(), L, kernels[b].data(), N, tails[b].data(),
                                    block > 0);
                band.resize(L);
                // Unpacked floats do not keep the sign of a zero.
                ASSERT_TRUE(kSoftFloat ? got[b] == band : HaveTheSameBits(got[b], band))
                    << K << " " << block << " " << b;
            }
        }
    }
}

TYPED_TEST(BandSpliterTest, KeepsItsSetUpWhenItRefusesANewOne) {
    BandSpliter<TypeParam> splitter;
    std::vector<TypeParam> x(770, 9), y = x;
    ASSERT_TRUE(splitter.SetParameter(1, 255, 44100, 150, 1800));
    for (const unsigned K : {0U, 1U, 4U, UINT32_MAX})
        EXPECT_FALSE(splitter.SetParameter(1, K, 44100, 150, 1800)) << K;
    EXPECT_FALSE(splitter.SetParameter(1, 127, 44100, TypeParam(kNan), 1800));
    splitter.Convolve(x.data(), y.data(), y.data(), y.data(), 769);
    EXPECT_EQ(x, y);
    splitter.Convolve(x.data(), y.data(), y.data(), y.data(), 770);
    EXPECT_NE(x, y);
}

// Converts every value, in runs of many lengths, also widened in place.
TEST(WaveBuffer, SixteenBitValuesComeBackOrOneStepNearerToZero) {
    const std::pair<float, int> others[] = {
        {0.5F, 16383}, {-0.5F, -16383}, {1.5F, -16386},   {65537, -32768}, {65538, -1},
        {kNan, 0},     {kInfinity, -1}, {-65537, -32768}, {-65540, 0},     {-kInfinity, 0}};
    int next = INT16_MIN;
    for (uint32_t frames = 1; next <= INT16_MAX; frames = frames % 40 + 1) {
        WaveBuffer_R32 buffer(1, frames);
        std::vector<int16_t> in(frames), out(frames);
        for (int16_t& v : in) v = static_cast<int16_t>(next++);
        buffer.PushSamples(in.data(), frames);
        std::vector<float> inPlace(frames);
        std::memcpy(inPlace.data(), in.data(), frames * sizeof in[0]);
        buffer.Short2Float(reinterpret_cast<const int16_t*>(inPlace.data()), inPlace.data(),
                           frames);
        ASSERT_TRUE(std::equal(inPlace.begin(), inPlace.end(), buffer.GetCurrentBufferR32Ptr()));
        ASSERT_EQ(buffer.PopSamples(out.data(), frames, false), frames);
        for (uint32_t i = 0; i < frames; ++i)
            ASSERT_TRUE(out[i] == in[i] || out[i] == (in[i] > 0 ? in[i] - 1 : in[i] + 1)) << in[i];
        for (const auto& [sample, expected] : others) {
            inPlace[static_cast<size_t>(next) % frames] = sample;
            buffer.Float2Short(inPlace.data(), out.data(), frames);
            EXPECT_EQ(out[static_cast<size_t>(next) % frames], expected) << sample;
        }
    }
}

// Compares random pushes and pops with a plain queue.
TEST(WaveBuffer, IsAQueueOfFramesThatGrowsToWhatItNeeds) {
    WaveBuffer_R32 buffer(2, 8);
    std::vector<float> model;
    size_t size = 8;
    std::mt19937 random(7);
    for (unsigned turn = 0; turn < 3000; ++turn) {
        const auto frames = static_cast<uint32_t>(random() % 14);
        const auto action = random() % 6;
        auto values = Noise<double>(2UL * frames, action == 2 ? 0 : 1, turn);
        std::vector<float> floats(values.begin(), values.end());
        const size_t held = model.size() / 2, partial = std::min<size_t>(frames, held);
        const size_t popped = action < 3 || (action == 3 && frames > held) ? 0 : partial;
        const uint32_t result = action == 0   ? buffer.PushSamples(floats.data(), frames)
                                : action == 1 ? buffer.PushSamples(values.data(), frames)
                                : action == 2 ? buffer.PushZero(frames)
                                : action == 3 ? buffer.PopSamples(floats.data(), frames, false)
                                              : buffer.PopSamples(values.data(), frames, true);
        ASSERT_EQ(result, action < 3 ? 1 : popped);
        for (size_t i = 0; i < 2 * popped; ++i)
            ASSERT_EQ(action == 3 ? floats[i] : static_cast<float>(values[i]), model[i]);
        model.erase(model.begin(), model.begin() + static_cast<ptrdiff_t>(2 * popped));
        if (action < 3) model.insert(model.end(), floats.begin(), floats.end());
        size = std::max(size, model.size() / 2);
        ASSERT_EQ(buffer.GetBufferOffset(), model.size() / 2);
        ASSERT_EQ(buffer.SetBufferOffset(UINT32_MAX), size);
    }
    EXPECT_EQ(buffer.SetBufferOffset(static_cast<uint32_t>(size)), size);
    for (const uint32_t frames : {UINT32_MAX, 0x80000000U}) EXPECT_EQ(buffer.PushZero(frames), 0U);
    EXPECT_EQ(buffer.GetBufferOffset(), size);
    for (const auto& [channels, frames] : {std::pair(2U, 0x80000001U), {0U, 5U}, {2U, 0U}}) {
        WaveBuffer_R32 none(channels, frames);
        float sample[2] = {};
        EXPECT_EQ(none.PushSamples(sample, 1), 0U);
        EXPECT_EQ(none.PopSamples(sample, 1, true), 0U);
        EXPECT_EQ(none.SetBufferOffset(1) + none.GetBufferOffset(), 0U);
    }
}

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
        for (size_t at = c; at < input.size(); at += size_t{770} * s.channels)
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
