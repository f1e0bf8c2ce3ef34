#include "dsp/samples.h"

#include <bit>
#include <type_traits>

#include "dsp/code_generation.h"
#include "dsp/fixed_point.h"
#include "dsp/lanes.h"
#include "dsp/softfloat/samples.h"

namespace {

constexpr float kFromInt16 = 0x1.0002p-15F;  // the float nearest to 1/32767
constexpr float kToInt16 = 32767.0F;
static_assert(kFromInt16 == static_cast<float>(1.0 / 32767.0));

// One sample, or a run of them, where floats are the processor's own.
struct PlainSamples {
    static float FromInt16(int16_t sample) { return static_cast<float>(sample) * kFromInt16; }
    static int32_t ToInt16(float sample) { return TruncateToInt32(sample * kToInt16); }
    static void Amplify(float* samples, size_t count, float gain) {
        ForLanes<float>(
            count, [=]<typename V>(size_t i) { Store(samples + i, Load<V>(samples + i) * gain); });
    }
};
using Samples = std::conditional_t<kSoftFloat, UnpackedSamples, PlainSamples>;

// Like Samples::ToInt16, but only the low 16 bits are right. From 2^31 on all of them are set, and
// below -2^31 all are clear, as those of the saturated values are.
template <typename Vector>
ORVANE_LANE_INLINE IntLanes ToInt16(Vector samples) {
    const Lanes v = samples * kToInt16;
    const IntLanes high = v >= 2147483648.0F, fits = Absolute(v) < 2147483648.0F;
    return ConvertLanes<IntLanes>(std::bit_cast<Lanes>(std::bit_cast<IntLanes>(v) & fits)) | high;
}

}  // namespace

// Converts from the last sample to the first, so that it may widen in place. From the end it takes
// two vectors at a time:
//
//   0 | 1 | 2 3 4 5  6 7 8 9        with four lanes: 2 to 9, then 1, then 0
ORVANE_ARM_STATE void ShortsToFloats(const int16_t* from, float* to, size_t count) {
    size_t i = count;
    if constexpr (kLanes > 1)
        for (; i >= 2 * kLanes; i -= 2 * kLanes) {
            IntLanes first, second;
            LoadShorts(first, second, from + i - 2 * kLanes);
            Store(to + i - kLanes, ConvertLanes<Lanes>(second) * kFromInt16);
            Store(to + i - 2 * kLanes, ConvertLanes<Lanes>(first) * kFromInt16);
        }
    for (; i > 0; --i) to[i - 1] = Samples::FromInt16(from[i - 1]);
}

void FloatsToShorts(const float* from, int16_t* to, size_t count) {
    size_t i = 0;
    if constexpr (kLanes > 1)
        for (; count - i >= 2 * kLanes; i += 2 * kLanes)
            StoreShorts(to + i, ToInt16(Load(from + i)), ToInt16(Load(from + i + kLanes)));
    for (; i < count; ++i) to[i] = static_cast<int16_t>(Samples::ToInt16(from[i]));
}

void Amplify(float* samples, size_t count, float gain) {
    Samples::Amplify(samples, count, gain);
}
