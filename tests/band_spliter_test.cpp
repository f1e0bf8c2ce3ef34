#include "dsp/band_spliter.h"

#include <gtest/gtest.h>

#include "dsp/fir_window.h"
#include "signals.h"

namespace {

template <typename T>
class BandSpliterTest : public testing::Test {};
using RealTypes = testing::Types<float, double>;
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
