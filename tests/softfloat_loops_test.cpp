// Compares the assembly versions with their portable versions: values, the memory around the
// arrays, and registers.
#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "dsp/softfloat/average.h"
#include "dsp/softfloat/block_ends.h"
#include "dsp/softfloat/butterfly_groups.h"
#include "dsp/softfloat/contour_mix.h"
#include "dsp/softfloat/equalizer_ends.h"
#include "dsp/softfloat/spectrum_product.h"
#include "routine_call.h"
#include "signals.h"

namespace {

// Returns whether two unpacked floats have the same value. Their words may differ: any exponent
// goes with zero, and 2^30 can also be 2^29 with an exponent larger by one.
bool Same(SoftFloat a, SoftFloat b) {
    for (SoftFloat* each : {&a, &b})
        for (; each->m != 0 && each->m % 2 == 0; ++each->e) each->m /= 2;
    return a.m == b.m && (a.m == 0 || a.e == b.e);
}

class Numbers {
public:
    explicit Numbers(unsigned seed) : random(seed) {}

    // Returns an unpacked float with an exponent around `centre`. Successive results are near each
    // other or far apart. They include ties, both ends of the significand's range and zeros.
    SoftFloat Next(int32_t centre) {
        const uint32_t bits = Bits();
        const uint32_t masks[] = {0x3f, 0xff, 0xfffff, 0x3fffffff};
        const uint32_t fraction = Bits() & 0x1fffffffU & ~masks[bits % 4];
        // 2^30 is an allowed significand, too.
        const auto m =
            static_cast<int32_t>(bits / 4 % 32 == 0 ? 0x40000000 : 0x20000000 + fraction);
        const bool zero = bits / 1024 % 16 == 0;
        const auto spread = static_cast<int32_t>(bits / 16384 % 8 == 0 ? Bits() % 64 : Bits() % 6);
        if (zero) return {0, static_cast<int32_t>(Bits() % 500) - 250};
        const int32_t rounded = m & ~63;
        return {bits >> 31U != 0 ? -rounded : rounded, centre + spread};
    }
    SoftFactor Factor() {
        const SoftFloat a = Next(0);
        const bool power = a.m == 0x40000000 || a.m == -0x40000000;  // too large for a factor
        return {power ? a.m : 2 * a.m, a.m == 0 ? 0 : a.e % 8 - 4};
    }
    Complex<SoftFloat> NextComplex(int32_t centre) { return {Next(centre), Next(centre)}; }
    SoftTurn ComplexFactor() { return {Packed(Factor()), Packed(Factor())}; }
    uint32_t Bits() { return static_cast<uint32_t>(random()); }

private:
    std::mt19937 random;
};

// An array of values with 8 more on either side. These must not change.
template <typename Value>
class Surrounded {
public:
    template <typename Next>
    Surrounded(size_t count, Next next) {
        for (size_t i = 0; i < count + 16; ++i) all.push_back(next());
    }
    Value* begin() { return all.data() + 8; }
    // Returns the index of the first number that differs, or -1.
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

// Returns a possible sum of samples with `bits` bits, at most 40.
SampleSum SumOfBits(Numbers& numbers, int32_t bits, int32_t raised) {
    const int32_t m = numbers.Next(0).m;
    return SumOf({m, m == 0 ? -30 : bits - 30}, raised);
}

std::vector<uint32_t> BitsOf(const std::vector<float>& floats) {
    std::vector<uint32_t> bits(floats.size());
    std::memcpy(bits.data(), floats.data(), floats.size() * sizeof(float));
    return bits;
}

int32_t Centre(Numbers& numbers, int n) {
    return n % 3 == 0 ? n / 3 % 8 - 5 : 10 + static_cast<int32_t>(numbers.Bits() % 100);
}

}  // namespace

TEST(SoftFloatLoops, ButterfliesGiveTheValuesOfTheirPortableVersions) {
    Numbers numbers(1);
    RoutineInput factors;
    int refused = 0;
    for (int n = 0; n < 10000; ++n) {
        const size_t span = n % 5 == 0 ? 1 : 4, groups = 1 + numbers.Bits() % 3;
        const int32_t centre = Centre(numbers, n);
        std::vector<SoftTwiddles> w;
        for (size_t g = 0; g < groups; ++g)
            w.push_back(
                {numbers.ComplexFactor(), numbers.ComplexFactor(), numbers.ComplexFactor()});
        Surrounded<Complex<SoftFloat>> expected(4 * span * groups,
                                                [&] { return numbers.NextComplex(centre); });
        auto got = expected;
        Complex<SoftFloat>*const a = got.begin(), *const b = expected.begin();
        bool same = true, settled = true;
        switch (n % 4) {
            case 0:
                Call(SoftUntwiddledGroup, a, span);
                UntwiddledGroupPortable(b, span);
                break;
            case 1: {
                const SoftFactor u = numbers.Factor();
                settled = EighthGroupPortable(b, span, u);
                same = Call(SoftEighthGroup, a, span, u.m, u.e) == settled;
                break;
            }
            case 2:
                Call(SoftLastStage, &a->re, 4 * span);
                LastStagePortable(&b->re, 4 * span);
                break;
            default: {
                settled = TwiddledGroupsPortable(b, span, w.data(), groups);
                const SoftTwiddles* const given = factors.Put(w);
                same = (span == 1 ? Call(SoftTwiddledButterflies, a, given, groups)
                                  : Call(SoftTwiddledGroups, a, span, given, groups)) == settled;
                break;
            }
        }
        ASSERT_TRUE(same) << n;
        refused += settled ? 0 : 1;
        ASSERT_EQ(settled ? got.Difference(expected) : -1, -1) << n;
    }
    EXPECT_GT(refused, 50);
    EXPECT_LT(refused, 5000);
}

TEST(SoftFloatLoops, SpectraGiveTheValuesOfTheirPortableVersions) {
    Numbers numbers(2);
    RoutineInput values, factors, where;
    int refused = 0;
    for (int n = 0; n < 3000; ++n) {
        const size_t half = 8;
        const int32_t centre = Centre(numbers, n);
        std::vector<Complex<SoftFloat>> spectrum;
        std::vector<SoftTurn> w;
        std::vector<MirroredTurns> kernel;
        for (size_t k = 0; k < half; ++k) {
            spectrum.push_back(numbers.NextComplex(centre));
            if (!softfloat::Settles(spectrum[k].re, spectrum[k].im)) spectrum[k] = {};
            kernel.push_back({numbers.ComplexFactor(), numbers.ComplexFactor()});
            w.push_back(numbers.ComplexFactor());
        }
        Surrounded<Complex<SoftFloat>> expected(half, [&] { return numbers.NextComplex(centre); });
        auto got = expected;
        const auto placesIn = [&](Surrounded<Complex<SoftFloat>>& out) {
            std::vector<MirroredPlaces> places;
            for (size_t k = 0; k < half / 2; ++k)
                places.push_back({w[k], out.begin() + half - 1 - k,
                                  static_cast<int8_t>(static_cast<int>(k) * 6 - 9), 0,
                                  static_cast<int16_t>(2 * k + 1 - half)});
            return places;
        };
        const auto places = placesIn(got), placesPortable = placesIn(expected);
        const bool settled =
            SpectrumProductPortable(spectrum.data(), kernel.data(), placesPortable.data(), half);
        const MirroredPlaces* const given = where.Put(places);
        ASSERT_EQ(Call(SoftSpectrumProduct, values.Put(spectrum), factors.Put(kernel), given, half),
                  settled)
            << n;
        ASSERT_EQ(settled ? got.Difference(expected) : -1, -1) << n;
        auto real = expected, realPortable = expected;
        const bool realSettled = RealStepPortable(realPortable.begin(), places.data(), half);
        ASSERT_EQ(Call(SoftRealStep, real.begin(), given, half), realSettled) << n;
        ASSERT_EQ(realSettled ? real.Difference(realPortable) : -1, -1) << n;
        refused += settled && realSettled ? 0 : 1;
    }
    EXPECT_GT(refused, 50);
    EXPECT_LT(refused, 1500);
}

TEST(SoftFloatLoops, AveragesGiveTheValuesOfTheirPortableVersion) {
    Numbers numbers(3);
    RoutineInput joining, parting;
    for (int n = 0; n < 6000; ++n) {
        const size_t frames = 1 + numbers.Bits() % 9;
        // The bits are often such that a sum is just below 2^25.
        const int32_t bits = n % 7 == 0 ? 22 : static_cast<int32_t>(numbers.Bits() % 38);
        const bool first = n % 3 == 0;
        const int32_t raised = first ? 0 : n % 5;
        const auto nextSum = [&](int32_t by) {
            const uint32_t beside = numbers.Bits() % 16 == 0 ? numbers.Bits() % 38 : 3;
            return SumOfBits(numbers, (bits + static_cast<int32_t>(beside)) % 41, by);
        };
        // Returns samples with all of 24 bits, with few bits, ties next to the sum, the largest,
        // and zeros.
        const auto sample = [&] {
            const int32_t masks[] = {0x1fffff, 0x3f00, 1 << (6 + n % 12), 0x7f};
            const uint32_t random = numbers.Bits();
            const int32_t x = static_cast<int32_t>(random / 16) & masks[random % 4];
            const int32_t scaled = random / 4 % 4 == 0 ? x << 9 : x;
            const int32_t signedSample = n % 2 == 0 ? scaled : -scaled;
            return numbers.Bits() % 16 == 0 ? -(1 << 30) - (1 << 15) : signedSample;
        };
        Surrounded<AverageRow> expected(frames, [&] {
            return AverageRow{nextSum(raised - kRaised), numbers.Next(bits - 30 + raised)};
        });
        auto got = expected;
        std::vector<int32_t> entering(frames + 1), leaving(first ? frames + 1 : frames);
        std::generate(entering.begin(), entering.end(), sample);
        std::generate(leaving.begin(), leaving.end(), sample);
        // In every fourth turn, the sum becomes 0.
        if (n % 4 == 0) std::copy_n(entering.begin(), frames, leaving.begin());
        SampleSum sum = n % 4 == 0 ? SampleSum{0, raised} : nextSum(raised);
        // This sum falls to 2^25 - 1, which is rounded up.
        if (n % 64 == 1) sum = {0x800001, 2 + raised}, entering[0] = -5;
        RunningAverage before = {sum, numbers.Factor(), raised}, after = before;
        (first ? RunAveragePortable<true>
               : RunAveragePortable<false>)(expected.begin(), entering.data(), leaving.data(),
                                            &before, frames);
        Call(first ? SoftFirstAverage : SoftAverage, got.begin(), joining.Put(entering),
             parting.Put(leaving), &after, frames);
        ASSERT_EQ(got.Difference(expected), -1) << n;
        ASSERT_TRUE(Same({before.sum.m, before.sum.e}, {after.sum.m, after.sum.e})) << n;
    }
}

// Tests every 16-bit value in either channel, and all kinds of band outputs. Both end next to
// memory that must not change.
TEST(SoftFloatLoops, EqualizerEndsGiveTheValuesOfTheirPortableVersions) {
    Numbers numbers(6);
    RoutineInput input, bands;
    for (int n = 0; n < 3000; ++n) {
        const size_t channels = 1 + numbers.Bits() % 2,
                     frames = n == 0 ? 65536 : 1 + numbers.Bits() % 9;
        std::vector<int16_t> shorts;
        for (size_t i = 0; i < frames * channels; ++i)
            shorts.push_back(static_cast<int16_t>(n == 0 ? i / channels : numbers.Bits() % 3));
        std::vector<int32_t> units(frames + 2, 5), unitsPortable = units;
        // points to the last channel's first sample
        const int16_t* const last = input.Put(shorts) + channels - 1;
        const int32_t any = TakeShortsPortable(last, &unitsPortable[1], frames, channels);
        ASSERT_EQ(Call(SoftTakeShorts, last, &units[1], frames, channels),
                  static_cast<uint32_t>(any));
        ASSERT_EQ(units, unitsPortable);

        const auto next = [&] { return numbers.Next(Centre(numbers, n) + 50); };
        std::vector<AverageRow> rows;
        for (size_t i = 0; i < frames; ++i) rows.push_back({SumOfBits(numbers, 24, 60), next()});
        if (n % 8 == 0) rows[0] = {{0, 0}, {0, 0}};
        const SoftFactor gain = numbers.Factor();
        std::vector<float> out(frames * channels + 1, 5), portable = out;
        FinishRowsPortable(rows.data(), &gain, portable.data(), frames, channels);
        Call(SoftFinishRows, bands.Put(rows), &gain, out.data(), frames, channels);
        ASSERT_EQ(out, portable) << n;
    }
}

// The samples are floats with zeros of both signs. Some are outside the range.
TEST(SoftFloatLoops, ContourMixGivesTheValuesOfItsPortableVersion) {
    Numbers numbers(4);
    RoutineInput input;
    size_t refused = 0;
    for (int n = 0; n < 3000; ++n) {
        const size_t channels = 1 + numbers.Bits() % 2, frames = 1 + numbers.Bits() % 9;
        const int32_t centre = n % 5 == 0 ? 1 : 30 + static_cast<int32_t>(numbers.Bits() % 80);
        const auto next = [&] { return numbers.Next(centre); };
        const auto sample = [&] {
            const uint32_t bits = numbers.Bits();
            if (bits % 1024 == 0) return bits;
            return softfloat::Pack(next()) | (bits & 0x80000000U);
        };
        std::vector<float> samples;
        for (size_t i = 0; i < 3 * channels * frames; ++i)
            samples.push_back(std::bit_cast<float>(sample()));
        ContourMix expected = {};
        const float* array = input.Put(samples);
        for (size_t i = 0; i < 6 * channels; ++i) {
            expected.from[i] = array;
            array += i < 3 * channels ? frames - frames / 2 : frames / 2;
        }
        for (SoftFactor& weight : expected.weights) weight = numbers.Factor();
        UnpackedBiquad& f = expected.filter;
        for (SoftFactor* each : {&f.b0, &f.b1, &f.b2, &f.fb1, &f.fb2}) *each = numbers.Factor();
        for (SoftFloat* each : {&f.x1, &f.x2, &f.y1, &f.y2}) *each = next();
        ContourMix got = expected;
        Surrounded<SoftFloat> out(frames, next), portable = out;
        const auto floats = [](Surrounded<SoftFloat>& from) {
            return reinterpret_cast<float*>(from.begin());
        };
        const size_t done = RunContourMixPortable(&expected, floats(portable), frames, channels);
        ASSERT_EQ(Call(SoftContourMix, &got, floats(out), frames, channels), done) << n;
        refused += done < frames ? 1 : 0;
        // Frames that were not finished may leave different values.
        ASSERT_EQ(done == frames ? out.Difference(portable) : -1, -1) << n;
        for (auto each :
             {&UnpackedBiquad::x1, &UnpackedBiquad::x2, &UnpackedBiquad::y1, &UnpackedBiquad::y2})
            ASSERT_TRUE(Same(got.filter.*each, f.*each)) << n;
    }
    EXPECT_GT(refused, 50U);
    EXPECT_LT(refused, 1500U);
}

// The block's samples include zeros and some that the routine must refuse. All kinds of tails are
// added to all kinds of sums.
TEST(SoftFloatLoops, BlockEndsGiveTheValuesOfTheirPortableVersions) {
    Numbers numbers(5);
    RoutineInput reals, imaginaries, where, values, tails;
    int results[3] = {};
    for (int n = 0; n < 3000; ++n) {
        const size_t count = 1 + numbers.Bits() % 9;
        const int32_t centre = n % 3 == 0 ? -40 : 20 + static_cast<int32_t>(numbers.Bits() % 80);
        const auto next = [&] { return numbers.Next(centre); };
        const auto sample = [&] {
            const uint32_t bits = numbers.Bits();
            const bool wild = n % 3 == 2 && bits % 16 == 0, zero = n % 8 == 0 || bits % 4 == 1;
            const uint32_t packed = zero ? 0 : softfloat::Pack(next());
            return std::bit_cast<float>(wild ? numbers.Bits() : packed | (bits & 0x80000000U));
        };
        std::vector<float> re(count), im(count);
        std::generate(re.begin(), re.end(), sample);
        std::generate(im.begin(), im.end(), sample);
        std::vector<TransformPlace> places;
        for (size_t q = 0; q < count; ++q)
            places.push_back({static_cast<uint16_t>(count - 1 - q), static_cast<uint16_t>(3 * q)});
        Surrounded<Complex<SoftFloat>> expected(count, [&] { return numbers.NextComplex(centre); });
        auto got = expected;
        const LoadedBlock loaded =
            LoadBlockPortable(re.data(), im.data(), places.data(), expected.begin(), count);
        ASSERT_EQ(Call(SoftLoadBlock, reals.Put(re), imaginaries.Put(im), where.Put(places),
                       got.begin(), count),
                  static_cast<uint32_t>(loaded))
            << n;
        ASSERT_EQ(loaded != LoadedBlock::kRefused ? got.Difference(expected) : -1, -1) << n;
        ++results[static_cast<size_t>(loaded)];

        std::vector<SoftFloat> parts(4 * count - 1);
        std::generate(parts.begin(), parts.end(), next);
        std::vector<float> tail(count), low(count + 2, 1), high = low, lowPortable = low,
                                                           highPortable = low;
        std::generate(tail.begin(), tail.end(), sample);
        const bool overlapping = n % 2 == 0;
        (overlapping ? LastInverseStagePortable<true>
                     : LastInverseStagePortable<false>)(parts.data(), count, count, &lowPortable[1],
                                                        &highPortable[1], tail.data());
        if (overlapping)
            Call(SoftLastInverseOverlap, values.Put(parts), count, count, &low[1], &high[1],
                 tails.Put(tail));
        else
            Call(SoftLastInverseStage, values.Put(parts), count, count, &low[1], &high[1]);
        ASSERT_EQ(BitsOf(low), BitsOf(lowPortable)) << n;
        ASSERT_EQ(BitsOf(high), BitsOf(highPortable)) << n;
    }
    for (const int result : results) EXPECT_GT(result, 50);
}
