#include "dsp/lanes.h"

#include <gtest/gtest.h>

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
