#include "dsp/wave_buffer.h"

#include <gtest/gtest.h>

#include <cstring>

#include "signals.h"

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
