#include "effects/loudness.h"

#include <algorithm>
#include <type_traits>

#include "dsp/fixed_point.h"
#include "dsp/lanes.h"
#include "dsp/runs.h"

namespace {

constexpr size_t kChunk = 128;  // samples of both channels

int32_t Enlarged(int16_t sample) {
    return sample * (1 << kSampleShift);
}

// A coefficient c = high 2^15 + low, for products with 16-bit samples in 32 bits. The Q24 product
// of c and s * 2^9 is floor(c s / 2^15) = high s + floor(low s / 2^15).
struct Halves {
    explicit Halves(int32_t c)
        : high(static_cast<int16_t>(c >> 15)), low(static_cast<int16_t>(c & 0x7FFF)) {}
    static bool Fit(int32_t c) { return c >= -(1 << 30) && c < 1 << 30; }
    [[gnu::always_inline]] int32_t Times(int16_t s) const { return high * s + (low * s >> 15); }
    int16_t high, low;
};

// The same in one product, for processors without vectors.
struct Doubled {
    explicit Doubled(int32_t c) : twice(2 * c) {}
    [[gnu::always_inline]] int32_t Times(int16_t s) const { return MulHigh16(twice, s); }
    int32_t twice;
};
using Coefficient = std::conditional_t<kLanes == 1, Doubled, Halves>;

// Computes the inputs' part of the outputs. The two previous frames are in front of `in`. Compilers
// make vectors of neighbours, because the arrays don't overlap.
template <bool kHasB1>
void AddInputs(const BiquadCoefficients<int32_t>& c, const int16_t* __restrict samples,
               size_t count, int32_t* __restrict sums) {
    const Coefficient b0(c.b0), b1(c.b1), b2(c.b2);
    for (size_t i = 0; i < count; ++i) {
        const int16_t* const s = samples + i;
        const int32_t both = WrapAdd(b0.Times(*s), b2.Times(*(s - 4)));
        sums[i] = kHasB1 ? WrapAdd(both, b1.Times(*(s - 2))) : both;
    }
}

// A run that adds the part of earlier outputs to one channel's outputs and sums the squares. Factor
// is the type of the registers. The sums are shifted left by kShift.
template <typename Factor, int kShift>
struct OutputRun {
    OutputRun(const int32_t* shares, const BiquadCoefficients<int32_t>& c,
              const BiquadHistory<int32_t>& history, uint64_t sofar)
        : inputs(shares),
          fb1(static_cast<Factor>(c.fb1) * (Factor{1} << (kShift - kQ24Bits))),
          fb2(static_cast<Factor>(c.fb2) * (Factor{1} << (kShift - kQ24Bits))),
          y1(history.y1),
          y2(history.y2),
          energy(sofar) {}
    // Returns the sum of output i without the part of y1.
    [[gnu::always_inline]] uint32_t WithoutNewest(size_t i) const {
        return static_cast<uint32_t>(inputs[2 * i]) +
               static_cast<uint32_t>(Product(fb2, y2) >> kShift);
    }
    [[gnu::always_inline]] void Push(int32_t y) {
        y2 = y1;
        y1 = y;
        energy += Product(y, y);
    }
    [[gnu::always_inline]] static uint64_t Product(int64_t fb, int64_t y) {
        return static_cast<uint64_t>(fb) * static_cast<uint64_t>(y);
    }
    const int32_t* inputs;
    Factor fb1, fb2, y1, y2;
    uint64_t energy;
};
// For 32-bit registers. One instruction multiplies two of them to 64 bits. There are too few to
// interleave both channels.
struct NarrowRun : OutputRun<int32_t, kQ24Bits> {
    using OutputRun::OutputRun;
    [[gnu::always_inline]] void Step(size_t i) {
        const uint32_t older = WithoutNewest(i);
        Push(static_cast<int32_t>(older + static_cast<uint32_t>(Product(fb1, y1) >> kQ24Bits)));
    }
    static void RunBoth(NarrowRun& left, NarrowRun& right, size_t count) {
        RunAlone(left, count);
        RunAlone(right, count);
    }
};
// For 64-bit registers. The factors are shifted up, so that one shift extracts the 32 bits of a sum
// with their sign.
struct WideRun : OutputRun<int64_t, 32> {
    using OutputRun::OutputRun;
    [[gnu::always_inline]] void Step(size_t i) {
        const uint64_t sum = (uint64_t{WithoutNewest(i)} << 32U) + Product(fb1, y1);
        Push(static_cast<int32_t>(static_cast<int64_t>(sum) >> 32));
    }
    static void RunBoth(WideRun& left, WideRun& right, size_t count) {
        RunTogether(left, count, right, count);
    }
};
using ChannelRun = std::conditional_t<kWideRegisters, WideRun, NarrowRun>;

}  // namespace

uint64_t AddEnergy(const int16_t* samples, size_t count, ptrdiff_t stride, Biquad_FP& filter) {
    uint64_t energy = 0;
    for (size_t i = 0; i < count; ++i) {
        const int64_t y =
            filter.ProcessSample(Enlarged(samples[static_cast<ptrdiff_t>(i) * stride]));
        energy += static_cast<uint64_t>(y * y);
    }
    return energy;
}

uint64_t LargerEnergy(const int16_t* frames, size_t count, Biquad_FP* filters) {
    // After the first two frames, every earlier input that is needed lies in this buffer.
    const BiquadCoefficients<int32_t> c = filters[0].Coefficients();
    const bool fit = !filters[0].IsRamping() && !filters[1].IsRamping() &&
                     c == filters[1].Coefficients() && Halves::Fit(c.b0) && Halves::Fit(c.b1) &&
                     Halves::Fit(c.b2);
    const size_t first = fit ? std::min<size_t>(count, 2) : count;
    uint64_t energies[2];
    for (size_t side = 0; side < 2; ++side)
        energies[side] = AddEnergy(frames + side, first, 2, filters[side]);
    if (first < count) {
        BiquadHistory<int32_t>&left = filters[0].History(), &right = filters[1].History();
        int32_t inputs[kChunk];
        ChannelRun l(inputs, c, left, energies[0]), r(inputs + 1, c, right, energies[1]);
        for (size_t at = 2 * first; at < 2 * count;) {
            const size_t size = std::min(2 * count - at, kChunk);
            (c.b1 == 0 ? AddInputs<false> : AddInputs<true>)(c, frames + at, size, inputs);
            ChannelRun::RunBoth(l, r, size / 2);
            at += size;
        }
        const int16_t* const last = frames + 2 * (count - 1);
        left = {Enlarged(last[0]), Enlarged(last[-2]), static_cast<int32_t>(l.y1),
                static_cast<int32_t>(l.y2)};
        right = {Enlarged(last[1]), Enlarged(last[-1]), static_cast<int32_t>(r.y1),
                 static_cast<int32_t>(r.y2)};
        energies[0] = l.energy;
        energies[1] = r.energy;
    }
    return std::max(energies[0], energies[1]);
}
