#include "dsp/biquad_fp.h"

#include <gtest/gtest.h>

#include "dsp/fixed_point.h"

TEST(BiquadFp, RoundsCoefficientsUpAndProductsDown) {
    constexpr float kStep = 0x1p-24F;
    const struct {
        float a1, b0, b1;
        int32_t x, y0, y1;  // the outputs for the inputs x and 0
    } cases[] = {
        {0, 1, 0, INT32_MIN, INT32_MIN, 0},
        {0, 1.6F * kStep, -1.6F * kStep, kQ24One, 2, -1},
        {-1.6F * kStep, 1, 0, kQ24One, kQ24One, 1},
        {1.6F * kStep, 1, 0, kQ24One, kQ24One, -2},
        {0, 0.5F, 0, -1, -1, 0},
        {0, 0.5F, 0, 1, 0, 0},
        {0, 200, -200, kQ24One, INT32_MAX, INT32_MIN},       // coefficients beyond 128 saturate
        {-1, 64, 65, kQ24One, 64 << 24, -(127 << 24) - 64},  // 65 + 64 wraps around
    };
    for (const auto& c : cases) {
        Biquad_FP filter;
        filter.SetCoeffs(0, 1, c.a1, 0, c.b0, c.b1, 0);
        EXPECT_EQ(filter.ProcessSample(c.x), c.y0) << c.a1 << ' ' << c.b0;
        EXPECT_EQ(filter.ProcessSample(0), c.y1) << c.a1 << ' ' << c.b0;
    }
    Biquad_FP ramp;
    ramp.SetCoeffs(0, 1, 0, 0, 0, 0, 0);
    ramp.SetCoeffs(3, 1, 0, 0, 10 * kStep, 0, 0);
    for (const int32_t y : {0, 3, 6, 9, 9}) EXPECT_EQ(ramp.ProcessSample(kQ24One), y);
}
