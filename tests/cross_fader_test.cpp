#include "effects/cross_fader.h"

#include <gtest/gtest.h>

#include "signals.h"

// Fades from -2001 to 1001 within five stereo frames, with one call and with one call for each
// frame. `expected` has one value for each frame.
TEST(CrossFader, MixesInAStraightLineAndLeavesWhatFollows) {
    using Samples = std::vector<int16_t>;
    const Samples source(10, -2001);
    const std::pair<int, Samples> fades[] = {{-1, {1001, 1001, 1001, 1001, 1001}},
                                             {0, {-2001, 1001, 1001, 1001, 1001}},
                                             {4, {-2001, -1250, -500, 250, 1001}}};
    for (const auto& [length, expected] : fades)
        for (const int frames : {1, 5}) {
            CrossFader fader;
            if (length >= 0) fader.BeginFader(length);
            Samples target(10, 1001);
            fader.FadeStream(target.data(), target.data(), 5, 2);
            fader.FadeStream(target.data(), source.data(), 0, 2);
            fader.FadeStream(target.data(), source.data(), 5, 0);
            EXPECT_EQ(target, Samples(10, 1001));
            for (size_t at = 0; at < 10; at += 2 * static_cast<size_t>(frames))
                fader.FadeStream(&target[at], &source[at], frames, 2);
            for (size_t i = 0; i < 10; ++i) EXPECT_EQ(target[i], expected[i / 2]) << length;
        }
}
