// The hand-written loops against their texts: values, memory around them, registers.
#include <gtest/gtest.h>

#include <array>

#include "dsp/softfloat/twiddled_groups.h"
#include "signals.h"

extern "C" uint32_t ChangedRegisters(const void* routine, const uint32_t* arguments,
                                     uint32_t* result);

namespace {

// Values, not words: a zero's exponent counts only as what lies around the loop's numbers.
bool Same(SoftFloat a, SoftFloat b) {
    return a.m == b.m && (a.m == 0 || a.e == b.e);
}

class Numbers {
public:
    explicit Numbers(unsigned seed) : random(seed) {}

    // Near each other and far apart, ties, the ends of the significand, zeros; now and then one
    // that is too small for a product.
    SoftFloat Next(int32_t centre) {
        const uint32_t bits = Bits();
        const uint32_t masks[] = {0x3f, 0xff, 0xfffff, 0x3fffffff};
        const auto m =
            static_cast<int32_t>(0x20000000 + (Bits() & 0x20000000U & ~masks[bits % 4])) +
            static_cast<int32_t>(Bits() & 0x1fffffffU & ~masks[bits / 4 % 2]);
        const bool zero = bits / 8 % 16 == 0;
        const auto spread = static_cast<int32_t>(bits / 128 % 8 == 0 ? Bits() % 64 : Bits() % 6);
        if (zero) return {0, static_cast<int32_t>(Bits() % 500) - 250};
        const int32_t rounded = m & ~63;
        return {bits >> 31U != 0 ? -rounded : rounded, centre + spread};
    }
    SoftFactor Factor() {
        const SoftFloat a = Next(0);
        return {a.m == 0x40000000 ? INT32_MIN : 2 * a.m, a.m == 0 ? 0 : a.e % 8 - 4};
    }
    Complex<SoftFloat> NextComplex(int32_t centre) { return {Next(centre), Next(centre)}; }
    Complex<SoftFactor> ComplexFactor() { return {Factor(), Factor()}; }
    uint32_t Bits() { return static_cast<uint32_t>(random()); }

private:
    std::mt19937 random;
};

// Numbers with 8 more on either side, which must stay.
class Surrounded {
public:
    Surrounded(Numbers& numbers, size_t count, int32_t centre) {
        for (size_t i = 0; i < count + 16; ++i) all.push_back(numbers.NextComplex(centre));
    }
    Complex<SoftFloat>* begin() { return all.data() + 8; }
    // The first place that differs, or the number of places.
    size_t Compare(const Surrounded& other) const {
        size_t i = 0;
        while (i < all.size() && Same(all[i].re, other.all[i].re) &&
               Same(all[i].im, other.all[i].im))
            ++i;
        return i;
    }
    size_t size() const { return all.size(); }

private:
    std::vector<Complex<SoftFloat>> all;
};

template <typename... Arguments>
uint32_t Call(uint32_t* changed, const void* routine, Arguments... arguments) {
    const std::array<uint32_t, 6> words = {
        static_cast<uint32_t>(reinterpret_cast<uintptr_t>(arguments))...};
    uint32_t result = 0;
    *changed = ChangedRegisters(routine, words.data(), &result);
    return result;
}

}  // namespace

TEST(SoftFloatLoops, TwiddledGroupsGiveTheValuesOfTheirText) {
    Numbers numbers(1);
    int refused = 0;
    for (int n = 0; n < 3000; ++n) {
        const size_t span = n % 3 == 0 ? 1 : 4, groups = 1 + numbers.Bits() % 3;
        const int32_t centre = n % 10 == 0 ? -2 : 10 + static_cast<int32_t>(numbers.Bits() % 100);
        std::vector<Twiddles<SoftFactor>> w;
        for (size_t g = 0; g < groups; ++g)
            w.push_back(
                {numbers.ComplexFactor(), numbers.ComplexFactor(), numbers.ComplexFactor()});
        Surrounded expected(numbers, 4 * span * groups, centre);
        Surrounded got = expected;
        uint32_t changed = 0;
        const bool settled = TwiddledGroupsText(expected.begin(), span, w.data(), groups);
        const uint32_t result =
            Call(&changed, reinterpret_cast<const void*>(&SoftTwiddledGroups), got.begin(),
                 reinterpret_cast<void*>(span), w.data(), reinterpret_cast<void*>(groups));
        ASSERT_EQ(changed, 0U) << n;
        ASSERT_EQ(result, settled) << n;
        refused += settled ? 0 : 1;
        ASSERT_TRUE(!settled || got.Compare(expected) == got.size()) << n;
    }
    EXPECT_GT(refused, 50);
    EXPECT_LT(refused, 1500);
}
