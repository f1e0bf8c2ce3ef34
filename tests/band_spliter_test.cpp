#include "dsp/band_spliter.h"

#include <gtest/gtest.h>

#include "dsp/fir_window.h"
#include "signals.h"

namespace {

template <typename T>
class BandSpliterTest : public testing::Test {};
using RealTypes = testing::Types<float, double>;
TYPED_TEST_SUITE(BandSpliterTest, RealTypes);

// low, high and band of the second channel of interleaved stereo, whole blocks; the outputs start
// as the input, and one of them, if told, is the input's own memory.
template <typename T>
std::vector<std::vector<T>> Split(BandSpliter<T>& splitter, std::vector<T> input, int own = -1) {
    std::vector<std::vector<T>> out(3, input);
    const uint32_t L = splitter.GetProceedBufferSize();
    for (size_t at = 1; at < input.size(); at += size_t{2} * L) {
        T* to[3];
        for (int b = 0; b < 3; ++b)
            to[b] = b == own ? &input[at] : &out[static_cast<size_t>(b)][at];
        EXPECT_EQ(splitter.ConvolveInterleaved(&input[at], to[0], to[1], to[2], L, 2), L);
    }
    if (own >= 0) out[static_cast<size_t>(own)] = input;
    return out;
}

}  // namespace

TYPED_TEST(BandSpliterTest, IsTheDirectConvolutionInPlaceAndAfterReset) {
    using Window = FIRWindow<TypeParam>;
    for (const auto& [K, L] : {std::pair(3U, 126U), {31U, 226U}, {127U, 386U}, {255U, 770U}}) {
        BandSpliter<TypeParam> splitter;
        ASSERT_TRUE(splitter.SetParameter(10, K, 44100, 700, 5000));
        ASSERT_EQ(splitter.GetProceedBufferSize(), L);
        EXPECT_EQ(splitter.GetFFTSize(), L + K - 1);
        std::vector<std::vector<TypeParam>> kernels(3, std::vector<TypeParam>(K));
        Window::MakeLowpassFIRCoeffs(10, kernels[0].data(), K, 44100, 700);
        Window::MakeHighpassFIRCoeffs(10, kernels[1].data(), K, 44100, 5000);
        Window::MakeBandpassFIRCoeffs(10, kernels[2].data(), K, 44100, 700, 5000);
        const auto input = Noise<TypeParam>(size_t{2} * 3 * L, 1.0);
        const auto bands = Split(splitter, input);
        for (size_t b = 0; b < 3; ++b) {
            std::vector<TypeParam> spread(2 * K - 1);  // the kernel, at every second sample
            for (size_t k = 0; k < K; ++k) spread[2 * k] = kernels[b][k];
            auto expected = DirectConvolution(input, spread);
            for (size_t i = 0; i < input.size(); i += 2) expected[i] = input[i];
            EXPECT_LT(LargestDifference(bands[b], expected), sizeof(TypeParam) == 4 ? 3e-6 : 1e-13);
        }
        for (int own = 0; own < 3; ++own) {
            splitter.Reset();
            EXPECT_EQ(Split(splitter, input, own), bands);
        }
    }
}

TYPED_TEST(BandSpliterTest, KeepsItsSetUpWhenItRefusesANewOne) {
    BandSpliter<TypeParam> splitter;
    std::vector<TypeParam> x(770, 1), y(770, 9);
    EXPECT_EQ(splitter.Convolve(x.data(), y.data(), y.data(), y.data(), 770), 770U);
    ASSERT_TRUE(splitter.SetParameter(1, 255, 44100, 150, 1800));
    for (const unsigned K : {0U, 1U, 4U, 254U, 0x7FFFFFFFU, UINT32_MAX})
        EXPECT_FALSE(splitter.SetParameter(1, K, 44100, 150, 1800)) << K;
    EXPECT_FALSE(splitter.SetParameter(1, 255, 0, 150, 1800));
    EXPECT_FALSE(splitter.SetParameter(1, 255, 44100, TypeParam(kNan), 1800));
    EXPECT_FALSE(splitter.SetParameter(1, 255, 44100, 150, TypeParam(kInfinity)));
    EXPECT_EQ(splitter.Convolve(x.data(), y.data(), y.data(), y.data(), 769), 769U);
    EXPECT_EQ(y, std::vector<TypeParam>(770, 9));
    EXPECT_TRUE(splitter.InstanceUsable());
    EXPECT_EQ(splitter.GetProceedBufferSize(), 770U);
}
