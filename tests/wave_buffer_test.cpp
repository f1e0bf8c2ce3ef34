#include "dsp/wave_buffer.h"

#include <gtest/gtest.h>

#include "signals.h"

TEST(WaveBuffer, SixteenBitValuesComeBackOrOneStepNearerToZero) {
    WaveBuffer_R32 buffer(1, 1);
    for (int v = INT16_MIN; v <= INT16_MAX; ++v) {
        const auto in = static_cast<int16_t>(v);
        int16_t out = 0;
        ASSERT_EQ(buffer.PushSamples(&in, 1), 1U);
        ASSERT_EQ(buffer.PopSamples(&out, 1, false), 1U);
        ASSERT_TRUE(out == in || out == (in > 0 ? in - 1 : in + 1)) << v;
    }
    const std::pair<float, int> others[] = {{0.5F, 16383}, {-0.5F, -16383}, {1.5F, -16386},
                                            {kNan, 0},     {kInfinity, -1}, {-kInfinity, 0}};
    for (const auto& [in, expected] : others) {
        int16_t out = 1;
        buffer.Float2Short(&in, &out, 1);
        EXPECT_EQ(out, expected) << in;
    }
}

// Pushes and pops at random against a plain queue.
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
