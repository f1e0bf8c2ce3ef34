// The hand-written loops against their texts: values, memory around them, registers.
#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "dsp/softfloat/average.h"
#include "dsp/softfloat/butterfly_groups.h"
#include "dsp/softfloat/spectrum_product.h"
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

// Values with 8 more on either side, which must stay.
template <typename Value>
class Surrounded {
public:
    template <typename Next>
    Surrounded(size_t count, Next next) {
        for (size_t i = 0; i < count + 16; ++i) all.push_back(next());
    }
    Value* begin() { return all.data() + 8; }
    // The first number that differs, or -1.
    long Difference(const Surrounded& other) const {
        constexpr size_t kNumbers = sizeof(Value) / sizeof(SoftFloat);
        const auto at = [](const Surrounded& from, size_t i) {
            SoftFloat number;
            const char* const bytes = reinterpret_cast<const char*>(from.all.data());
            std::memcpy(&number, bytes + i * sizeof number, sizeof number);
            return number;
        };
        for (size_t i = 0; i < all.size() * kNumbers; ++i)
            if (!Same(at(*this, i), at(other, i))) return static_cast<long>(i);
        return -1;
    }

private:
    std::vector<Value> all;
};

// A word of each argument.
template <typename Argument>
uint32_t Word(Argument argument) {
    uint32_t word = 0;
    static_assert(sizeof argument <= sizeof word);
    std::memcpy(&word, &argument, sizeof argument);
    return word;
}

// The routine's result; fails if a register or the stack pointer came back changed.
template <typename Result, typename... Parameters, typename... Arguments>
uint32_t Call(Result (*routine)(Parameters...), Arguments... arguments) {
    const std::array<uint32_t, 6> words = {Word<Parameters>(arguments)...};
    uint32_t result = 0;
    EXPECT_EQ(ChangedRegisters(reinterpret_cast<const void*>(routine), words.data(), &result), 0U);
    return result;
}

// A sum that samples can have.
SoftFloat WholeUnits(SoftFloat sum) {
    if (sum.m == 0) return {0, -32};
    return sum.e >= 0 ? sum : SoftFloat{sum.m >> -sum.e << -sum.e, sum.e};
}

int32_t Centre(Numbers& numbers, int n) {
    return n % 10 == 0 ? -2 : 10 + static_cast<int32_t>(numbers.Bits() % 100);
}

}  // namespace

TEST(SoftFloatLoops, ButterfliesGiveTheValuesOfTheirTexts) {
    Numbers numbers(1);
    int refused = 0;
    for (int n = 0; n < 6000; ++n) {
        const size_t span = n % 4 == 0 ? 1 : 4, groups = 1 + numbers.Bits() % 3;
        const int32_t centre = Centre(numbers, n);
        std::vector<Twiddles<SoftFactor>> w;
        for (size_t g = 0; g < groups; ++g)
            w.push_back(
                {numbers.ComplexFactor(), numbers.ComplexFactor(), numbers.ComplexFactor()});
        Surrounded<Complex<SoftFloat>> expected(4 * span * groups,
                                                [&] { return numbers.NextComplex(centre); });
        auto got = expected;
        Complex<SoftFloat>*const a = got.begin(), *const b = expected.begin();
        bool same = true, settled = true;
        switch (n % 3) {
            case 0:
                Call(SoftUntwiddledGroup, a, span);
                UntwiddledGroupText(b, span);
                break;
            case 1: {
                const SoftFactor u = numbers.Factor();
                settled = EighthGroupText(b, span, u);
                same = Call(SoftEighthGroup, a, span, u.m, u.e) == settled;
                break;
            }
            default:
                settled = TwiddledGroupsText(b, span, w.data(), groups);
                same = Call(SoftTwiddledGroups, a, span, w.data(), groups) == settled;
                break;
        }
        ASSERT_TRUE(same) << n;
        refused += settled ? 0 : 1;
        ASSERT_EQ(settled ? got.Difference(expected) : -1, -1) << n;
    }
    EXPECT_GT(refused, 50);
    EXPECT_LT(refused, 3000);
}

TEST(SoftFloatLoops, SpectrumProductGivesTheValuesOfItsText) {
    Numbers numbers(2);
    int refused = 0;
    for (int n = 0; n < 3000; ++n) {
        const size_t half = 8;
        const int32_t centre = Centre(numbers, n);
        const uint16_t reversed[] = {0, 4, 2, 6, 1, 5, 3, 7};
        std::vector<Complex<SoftFloat>> spectrum;
        std::vector<Complex<SoftFactor>> kernel, w;
        for (size_t k = 0; k < half; ++k) {
            spectrum.push_back(numbers.NextComplex(centre));
            if (!softfloat::Settles(spectrum[k].re, spectrum[k].im)) spectrum[k] = {};
            kernel.push_back(numbers.ComplexFactor());
            w.push_back(numbers.ComplexFactor());
        }
        Surrounded<Complex<SoftFloat>> expected(half, [&] { return numbers.NextComplex(centre); });
        auto got = expected;
        const bool settled = SpectrumProductText(spectrum.data(), kernel.data(), w.data(), reversed,
                                                 expected.begin(), half);
        ASSERT_EQ(Call(SoftSpectrumProduct, spectrum.data(), kernel.data(), w.data(), reversed,
                       got.begin(), half),
                  settled)
            << n;
        refused += settled ? 0 : 1;
        ASSERT_EQ(settled ? got.Difference(expected) : -1, -1) << n;
    }
    EXPECT_GT(refused, 50);
    EXPECT_LT(refused, 1500);
}

TEST(SoftFloatLoops, AveragesGiveTheValuesOfTheirText) {
    Numbers numbers(3);
    for (int n = 0; n < 3000; ++n) {
        const size_t frames = 1 + numbers.Bits() % 9;
        const auto exponent = static_cast<int32_t>(numbers.Bits() % 20) - 22;
        const auto next = [&] { return numbers.Next(exponent); };
        // 24 bits, few of them, ties beside the sum, the largest, zeros.
        const auto sample = [&] {
            const int32_t masks[] = {0x1fffff, 0x3f00, 1 << (6 + n % 12), 0x7f};
            const uint32_t bits = numbers.Bits();
            const int32_t x = static_cast<int32_t>(bits / 16) & masks[bits % 4];
            const int32_t scaled = bits / 4 % 4 == 0 ? x << 9 : x;
            const int32_t signedSample = n % 2 == 0 ? scaled : -scaled;
            return numbers.Bits() % 16 == 0 ? -(1 << 30) - (1 << 15) : signedSample;
        };
        Surrounded<AverageRow> expected(frames, [&] { return AverageRow{next(), next()}; });
        auto got = expected;
        std::vector<int32_t> entering(frames), leaving(frames);
        std::generate(entering.begin(), entering.end(), sample);
        std::generate(leaving.begin(), leaving.end(), sample);
        // Now and then the sum becomes 0.
        if (n % 4 == 0) leaving = entering;
        const SoftFloat sum = n % 4 == 0 ? SoftFloat{0, -32} : WholeUnits(next());
        RunningAverage before = {sum, numbers.Factor()}, after = before;
        const bool first = n % 3 == 0;
        (first ? RunAverageText<true> : RunAverageText<false>)(expected.begin(), entering.data(),
                                                               leaving.data(), &before, frames);
        Call(first ? SoftFirstAverage : SoftAverage, got.begin(), entering.data(), leaving.data(),
             &after, frames);
        ASSERT_EQ(got.Difference(expected), -1) << n;
        ASSERT_TRUE(Same(before.sum, after.sum)) << n;
    }
}
