// Fuzz target: calls the processing classes that settings commands reach directly, with any bit
// pattern in every setting. Commands can only send hundredths.
//
// The first byte of an input chooses the class. Then come calls, each with one byte and its
// arguments: a reset, samples of any bits, plain samples, or a setting. At the end, two things must
// hold. After a reset, plain samples give finite output, whatever the settings, unless finite
// settings were so large that samples may overflow. After plain settings and a reset, the output
// has the bits of a new object with these settings.
//
// Run it with scripts/fuzz.sh.
#include <cfloat>
#include <cmath>
#include <iterator>
#include <limits>
#include <type_traits>
#include <vector>

#include "dsp/samples.h"
#include "effects/fir_equalizer.h"
#include "effects/limiter.h"
#include "effects/orvane_sound.h"
#include "effects/playback_gain.h"
#include "fuzz/fuzz_input.h"

namespace {

constexpr int kCallsPerInput = 40;
// together more than two blocks of the enhancer
constexpr uint32_t kRenderFrames = 100, kRenderCalls = 17;

// Returns noise within full scale.
template <typename T>
std::vector<T> PlainSamples(size_t count) {
    std::vector<T> samples(count);
    uint32_t noise = 0x2545F491;
    for (T& sample : samples) {
        const auto random = static_cast<int16_t>(static_cast<uint16_t>(Random(&noise)));
        sample = static_cast<T>(random) / T(std::is_floating_point_v<T> ? 32768 : 1);
    }
    return samples;
}

struct Arguments : FuzzInput {
    using FuzzInput::FuzzInput;
    // Returns a float that is often a troublesome setting, or else has the bits of the input.
    float AnyFloat() {
        constexpr float kInfinity = std::numeric_limits<float>::infinity();
        constexpr float kSpecial[] = {kInfinity, -kInfinity, NAN,     -NAN,    FLT_MAX,
                                      -FLT_MAX,  FLT_MIN,    1e-45F,  -0.0F,   -1.0F,
                                      1.0F,      2.1e7F,     -2.1e7F, 1.8e38F, 0.5F};
        const uint8_t choice = Take<uint8_t>();
        const float value = choice < std::size(kSpecial) ? kSpecial[choice] : Take<float>();
        if (std::isfinite(value) && std::fabs(value) > 1e8F) gaveHugeFloat = true;
        return value;
    }
    // Returns a sampling rate in Hz that a configuration can have.
    uint32_t Rate() {
        return kLowestRateHz + Take<uint16_t>() % (kHighestRateHz - kLowestRateHz + 1);
    }
    bool gaveHugeFloat = false;
};

// For each class, Set changes the float setting `which`, which may be any number, and Play makes
// one call in place. The constants below them are plain values.

void Set(Limiter& o, int, float value) {
    o.SetGate(value);
}
void Play(Limiter& o, float* samples, uint32_t frames) {
    for (uint32_t i = 0; i < frames; ++i) samples[i] = o.Process(samples[i]);
}

void Set(PlaybackGain& o, int which, float value) {
    if (which == 0) o.SetRatio(value);
    if (which == 1) o.SetVolume(value);
    if (which == 2) o.SetMaxGainFactor(value);
}
void Play(PlaybackGain& o, int16_t* samples, uint32_t frames) {
    o.Process(samples, samples, frames);
}

void Set(FIREqualizer_R32R32& o, int which, float value) {
    o.SetBandLevel(which, value);
}
void Play(FIREqualizer_R32R32& o, float* samples, uint32_t frames) {
    o.Process(samples, frames);
}

struct Enhancer : OrvaneSound_R32R32 {
    Enhancer() : OrvaneSound_R32R32(0) {}
};
void Set(Enhancer& o, int which, float value) {
    if (which == 0) o.SetProcess(value);
    if (which == 1) o.SetLoContour(value);
}
void Play(Enhancer& o, float* samples, uint32_t frames) {
    const uint32_t done = o.Process(samples, frames);
    Demand(done == 0 || done == frames, "all frames or none");
}

constexpr float kPlainLevels[] = {-0.5F, -0.4F, -0.3F, -0.2F, -0.1F, 0.1F, 0.2F, 0.3F, 0.4F, 0.5F};
constexpr float kPlainGate[] = {0.5F};
constexpr float kPlainFactors[] = {1.5F, 0.7F, 4.0F};

template <typename Object>
constexpr bool kIsStream = requires(Object o) {
    o.SetChannels(2);
};

// Makes one setting or call that the input describes. `channels` is the number that the object was
// told.
template <typename Object, typename Sample>
void Call(Object& o, uint32_t& channels, Arguments& in) {
    const unsigned choice = in.Take<uint8_t>();
    if (choice % 8 == 0) return o.Reset();
    if (choice % 8 <= 2) {
        const uint32_t root = in.Take<uint8_t>(), frames = root * root / 21;  // usually few
        const auto plain = PlainSamples<Sample>(size_t{frames} * channels);
        const ExactBlock<Sample> block(plain.size());
        for (size_t n = 0; n < plain.size(); ++n)
            block.data()[n] = choice % 8 == 1 ? in.Take<Sample>() : plain[n];
        return Play(o, block.data(), frames);
    }
    if constexpr (kIsStream<Object>) {
        if (choice == 3) return o.SetSamplingRate(in.Rate());
        if (choice == 4) return o.SetChannels(channels = 1 + in.Take<uint8_t>() % 2U);
        if (choice <= 6) return static_cast<void>(o.SetEnable(choice == 5));
    }
    const int which = in.Take<uint8_t>() % 12 - 1;  // the ten bands and one beyond each end
    Set(o, which, in.AnyFloat());
}

// Returns the output for plain samples in kRenderCalls calls.
template <typename Sample, typename Object>
std::vector<Sample> Render(Object& o, uint32_t channels) {
    const size_t step = size_t{kRenderFrames} * channels;
    auto samples = PlainSamples<Sample>(kRenderCalls * step);
    for (size_t at = 0; at < samples.size(); at += step) Play(o, &samples[at], kRenderFrames);
    return samples;
}

template <typename Object, typename Sample, const auto& kPlain>
void Run(Arguments& in) {
    Object used, fresh;
    uint32_t channels = kIsStream<Object> ? 2 : 1;
    for (int i = 0; i < kCallsPerInput && !in.Empty(); ++i)
        Call<Object, Sample>(used, channels, in);
    if constexpr (kIsStream<Object>) used.SetEnable(true);
    used.Reset();
    for (const Sample sample : Render<Sample>(used, channels))
        Demand(in.gaveHugeFloat || std::isfinite(static_cast<float>(sample)),
               "plain samples stay finite");
    for (Object* o : {&used, &fresh}) {
        for (size_t i = 0; i < std::size(kPlain); ++i) Set(*o, static_cast<int>(i), kPlain[i]);
        if constexpr (kIsStream<Object>) {
            o->SetSamplingRate(48000);
            o->SetChannels(2);
            o->SetEnable(true);
        }
        o->Reset();
    }
    channels = kIsStream<Object> ? 2 : 1;
    const auto got = Render<Sample>(used, channels), expected = Render<Sample>(fresh, channels);
    Demand(std::memcmp(got.data(), expected.data(), got.size() * sizeof got[0]) == 0,
           "plain settings and a reset equal a new object");
}

constexpr void (*kClasses[])(Arguments&) = {
    Run<Limiter, float, kPlainGate>, Run<PlaybackGain, int16_t, kPlainFactors>,
    Run<FIREqualizer_R32R32, float, kPlainLevels>, Run<Enhancer, float, kPlainFactors>};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Arguments in(data, size);
    kClasses[in.Take<uint8_t>() % std::size(kClasses)](in);
    return 0;
}
