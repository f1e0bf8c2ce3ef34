// Fuzz target: the processing classes that have float settings, by themselves, with any bit pattern
// in every setting.
//
// The first byte of an input chooses the class; then come calls: a byte that chooses from the
// class's list below, and its arguments. No call may have undefined behaviour. In the end a reset
// must make plain samples come out finite, whatever the settings (unless finite ones were so large
// that samples may overflow); and plain settings and a reset must give the bits of a new object
// with these settings.
//
// Run it with scripts/fuzz.sh.
#include <cfloat>
#include <cmath>
#include <iterator>
#include <limits>
#include <vector>

#include "dsp/band_spliter.h"
#include "dsp/biquad.h"
#include "dsp/biquad_fp.h"
#include "effects/fir_equalizer.h"
#include "effects/limiter.h"
#include "effects/limiter_fp.h"
#include "effects/orvane_sound.h"
#include "effects/playback_gain.h"
#include "fuzz/allocation.h"
#include "fuzz/fuzz_input.h"

namespace {

constexpr int kCallsPerInput = 40;
constexpr uint32_t kRenderFrames = 1700;  // two blocks of the enhancer and more
constexpr uint32_t kRenderCalls = 17;

// Plain samples: noise within full scale, Q24 for int32_t.
template <typename T>
std::vector<T> PlainSamples(size_t count) {
    std::vector<T> samples(count);
    uint32_t noise = 0x2545F491;
    for (T& sample : samples) {
        const auto random = static_cast<int16_t>(static_cast<uint16_t>(Random(&noise)));
        if constexpr (std::is_floating_point_v<T>)
            sample = static_cast<T>(random) / T(32768);
        else
            sample = static_cast<T>(random * (sizeof(T) == 4 ? 512 : 1));
    }
    return samples;
}

// Arguments from the input.
class Arguments : public FuzzInput {
public:
    using FuzzInput::FuzzInput;

    // Any float: often one that settings go wrong with, else the input's bits.
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
    bool Flag() { return (Take<uint8_t>() & 1U) != 0; }
    // Mostly few, up to 3096.
    uint32_t Frames() {
        const uint32_t root = Take<uint8_t>();
        return root * root / 21;
    }
    // Hz, one that the chain can have.
    uint32_t Rate() { return 32000 + Take<uint16_t>() % 16001U; }
    // An exact block, any bits or plain samples.
    template <typename T>
    ExactBlock<T> Samples(size_t count, bool anyBits) {
        ExactBlock<T> block(count);
        const std::vector<T> plain = PlainSamples<T>(anyBits ? 0 : count);
        for (size_t i = 0; i < count; ++i) block.data()[i] = anyBits ? Take<T>() : plain[i];
        return block;
    }

    bool gaveHugeFloat = false;
};

template <typename Object>
using Call = void (*)(Object&, Arguments&);

// What comes out for plain samples, one by one or a stereo stream in place.
template <typename T, typename Process>
std::vector<T> RenderEach(Process process) {
    std::vector<T> samples = PlainSamples<T>(kRenderFrames);
    for (T& sample : samples) sample = process(sample);
    return samples;
}
template <typename T, typename Process>
std::vector<T> RenderStream(Process process) {
    constexpr uint32_t kFrames = kRenderFrames / kRenderCalls;
    std::vector<T> samples = PlainSamples<T>(size_t{2} * kRenderFrames);
    for (uint32_t at = 0; at < 2 * kRenderFrames; at += 2 * kFrames)
        process(samples.data() + at, kFrames);
    return samples;
}

template <typename Object>
std::vector<float> RenderFloats(Object& o) {
    return RenderStream<float>([&](float* s, uint32_t n) { o.Process(s, n); });
}

// Stereo at a rate that a new object hasn't, without history.
template <typename Object>
void Start(Object& o) {
    o.SetSamplingRate(48000);
    o.SetChannels(2);
    o.SetEnable(true);
    o.Reset();
}

// Of every class: the calls, plain settings with a reset, and the output for plain samples.
// kStaysFinite: no setting makes plain samples infinite or not a number.

template <typename Object>
struct LimiterCalls {
    using Sample = decltype(Object().Process(0));
    static constexpr bool kStaysFinite = true;
    static auto Render(Object& o) {
        return RenderEach<Sample>([&](Sample x) { return o.Process(x); });
    }
    static constexpr Call<Object> kCalls[] = {
        [](Object& o, Arguments& in) { o.SetGate(in.AnyFloat()); },
        [](Object& o, Arguments&) { o.Reset(); },
        [](Object& o, Arguments& in) { o.Process(in.Take<Sample>()); },
        [](Object& o, Arguments&) { Render(o); },
    };
    static void MakePlain(Object& o) {
        o.SetGate(0.5F);
        o.Reset();
    }
};

struct PlaybackGainCalls {
    static constexpr bool kStaysFinite = true;
    static void Process(PlaybackGain& o, Arguments& in, bool anyBits) {
        const uint32_t channels = in.Take<uint8_t>() % 3U, frames = in.Frames();
        o.SetChannels(channels);
        const auto samples = in.Samples<int16_t>(size_t{frames} * channels, anyBits);
        const auto out = in.Samples<int16_t>(size_t{frames} * channels, false);
        o.Process(samples.data(), out.data(), frames);
    }
    static constexpr Call<PlaybackGain> kCalls[] = {
        [](PlaybackGain& o, Arguments& in) { o.SetRatio(in.AnyFloat()); },
        [](PlaybackGain& o, Arguments& in) { o.SetVolume(in.AnyFloat()); },
        [](PlaybackGain& o, Arguments& in) { o.SetMaxGainFactor(in.AnyFloat()); },
        [](PlaybackGain& o, Arguments& in) { o.SetEnable(in.Flag()); },
        [](PlaybackGain& o, Arguments& in) { o.SetSamplingRate(in.Take<uint32_t>()); },
        [](PlaybackGain& o, Arguments& in) { o.SetChannels(in.Take<uint8_t>()), o.Reset(); },
        [](PlaybackGain& o, Arguments& in) { Process(o, in, true); },
        [](PlaybackGain& o, Arguments& in) { Process(o, in, false); },
    };
    static void MakePlain(PlaybackGain& o) {
        o.SetRatio(1);
        o.SetVolume(1);
        o.SetMaxGainFactor(4);
        Start(o);
    }
    static auto Render(PlaybackGain& o) {
        return RenderStream<int16_t>([&](int16_t* s, uint32_t n) { o.Process(s, s, n); });
    }
};

template <typename Object>
struct EqualizerCalls {
    static constexpr bool kStaysFinite = true;
    static void Process(Object& o, Arguments& in, bool anyBits) {
        const uint32_t channels = in.Take<uint8_t>() % 8U, frames = in.Frames();
        o.SetChannels(channels);
        o.Process(
            in.Samples<float>(size_t{frames} * (channels <= 2 ? channels : 0), anyBits).data(),
            frames);
    }
    static constexpr Call<Object> kCalls[] = {
        [](Object& o, Arguments& in) {
            const auto band = in.Take<int8_t>();
            o.SetBandLevel(band, in.AnyFloat());
        },
        [](Object& o, Arguments& in) { o.SetEnable(in.Flag()); },
        [](Object& o, Arguments& in) { o.SetSamplingRate(in.Rate()); },
        [](Object& o, Arguments& in) { o.SetSamplingRate(in.Take<uint32_t>()); },
        [](Object& o, Arguments&) { o.Reset(); },
        [](Object& o, Arguments& in) { Process(o, in, true); },
        [](Object& o, Arguments& in) { Process(o, in, false); },
    };
    static void MakePlain(Object& o) {
        for (int band = 0; band < 10; ++band)
            o.SetBandLevel(band, static_cast<float>(band) / 10 - 0.5F);
        Start(o);
    }
    static auto Render(Object& o) { return RenderFloats(o); }
};

// With the room it asks for, less than its least.
template <typename Sample, typename Real>
struct Enhancer : OrvaneSound<Sample, Real> {
    Enhancer() : OrvaneSound<Sample, Real>(0) {}
};

template <typename Object>
struct EnhancerCalls {
    static constexpr bool kStaysFinite = true;
    template <typename T>
    static void Process(Object& o, Arguments& in, bool anyBits) {
        const uint32_t channels = 1 + in.Take<uint8_t>() % 2U, frames = in.Frames();
        o.SetChannels(channels);
        const uint32_t done =
            o.Process(in.Samples<T>(size_t{frames} * channels, anyBits).data(), frames);
        Demand(done == 0 || done == frames, "all frames or none");
    }
    static constexpr Call<Object> kCalls[] = {
        [](Object& o, Arguments& in) { o.SetProcess(in.AnyFloat()); },
        [](Object& o, Arguments& in) { o.SetLoContour(in.AnyFloat()); },
        [](Object& o, Arguments& in) { o.SetEnable(in.Flag()); },
        [](Object& o, Arguments& in) { o.SetSamplingRate(in.Rate()); },
        [](Object& o, Arguments& in) { o.SetChannels(in.Take<uint8_t>()), o.SetChannels(2); },
        [](Object& o, Arguments&) { o.Reset(); },
        [](Object& o, Arguments& in) { o.Reserve(in.Take<uint32_t>()); },
        [](Object& o, Arguments&) { o.ProcessBuffer(); },
        [](Object& o, Arguments& in) { Process<int16_t>(o, in, true); },
        [](Object& o, Arguments& in) { Process<float>(o, in, true); },
        [](Object& o, Arguments& in) { Process<double>(o, in, true); },
        [](Object& o, Arguments& in) { Process<float>(o, in, false); },
    };
    static void MakePlain(Object& o) {
        o.SetProcess(1.5F);
        o.SetLoContour(0.7F);
        Start(o);
    }
    static auto Render(Object& o) { return RenderFloats(o); }
};

template <typename Object>
struct BiquadCalls {
    using Sample = decltype(Object().ProcessSample(0));
    using Coefficient = std::conditional_t<std::is_same_v<Object, Biquad_FP>, float, double>;
    static constexpr bool kStaysFinite = false;  // not every filter is stable
    static constexpr Call<Object> kCalls[] = {
        [](Object& o, Arguments& in) {
            Coefficient c[6];
            for (Coefficient& coefficient : c) coefficient = in.Take<Coefficient>();
            o.SetCoeffs(in.Take<int32_t>(), c[0], c[1], c[2], c[3], c[4], c[5]);
        },
        [](Object& o, Arguments& in) {
            const float f[] = {in.AnyFloat(), in.AnyFloat(), in.AnyFloat()};
            o.SetLowPassParameter(in.Take<int16_t>(), f[0], f[1], f[2]);
        },
        [](Object& o, Arguments& in) {
            const float f[] = {in.AnyFloat(), in.AnyFloat(), in.AnyFloat()};
            o.SetBandPassParameter(in.Take<int16_t>(), f[0], f[1], f[2]);
        },
        [](Object& o, Arguments& in) {
            const float f[] = {in.AnyFloat(), in.AnyFloat(), in.AnyFloat(), in.AnyFloat(),
                               in.AnyFloat()};
            o.SetHighPassParameter(in.Take<int16_t>(), f[0], f[1], f[2], f[3], f[4]);
        },
        [](Object& o, Arguments&) { o.Reset(); },
        [](Object& o, Arguments& in) {
            for (unsigned n = in.Take<uint8_t>(); n > 0; --n) o.ProcessSample(in.Take<Sample>());
        },
    };
    static void MakePlain(Object& o) {
        o.Reset();
        o.SetLowPassParameter(0, 1000, 44100, 0.7F);
    }
    static auto Render(Object& o) {
        return RenderEach<Sample>([&](Sample x) { return o.ProcessSample(x); });
    }
};

template <typename T>
struct SplitterCalls {
    using Object = BandSpliter<T>;
    static constexpr bool kStaysFinite = false;
    static constexpr Call<Object> kCalls[] = {
        [](Object& o, Arguments& in) {
            // Long kernels take seconds to design; the sizes beyond 2^30 are refused.
            uint32_t length = in.Take<uint16_t>() % 2048U;
            if (length == 2047) length = in.Take<uint32_t>() | 0xC0000000U;
            const auto window = in.Take<uint8_t>();
            const auto rate = in.Take<uint32_t>();
            const T low = in.Take<T>(), high = in.Take<T>();
            o.SetParameter(window, length, rate, low, high);
        },
        [](Object& o, Arguments&) { o.Reset(); },
        [](Object& o, Arguments& in) {
            const uint32_t n = o.GetProceedBufferSize();
            const ExactBlock<T> low(n), high(n), band(n);
            o.Convolve(in.Samples<T>(n, in.Flag()).data(), low.data(), high.data(), band.data(), n);
        },
    };
    static void MakePlain(Object& o) { o.SetParameter(1, 255, 44100, 150, 1800); }
    static auto Render(Object& o) {
        const uint32_t n = o.GetProceedBufferSize();
        std::vector<T> out = PlainSamples<T>(size_t{4} * n);
        o.Convolve(out.data(), out.data() + n, out.data() + 2 * n, out.data() + 3 * n, n);
        return out;
    }
};

template <typename Object, typename Calls>
void Run(Arguments& in) {
    Object used;
    for (int i = 0; i < kCallsPerInput && !in.Empty(); ++i)
        Calls::kCalls[in.Take<uint8_t>() % std::size(Calls::kCalls)](used, in);
    RefuseAllocation(0);
    if constexpr (Calls::kStaysFinite) {
        used.Reset();
        if (!in.gaveHugeFloat)
            for (const auto sample : Calls::Render(used))
                Demand(std::isfinite(static_cast<double>(sample)), "plain samples stay finite");
    }
    Object fresh;
    Calls::MakePlain(used);
    Calls::MakePlain(fresh);
    const auto expected = Calls::Render(fresh), got = Calls::Render(used);
    Demand(got.size() == expected.size() &&
               std::memcmp(got.data(), expected.data(), got.size() * sizeof got[0]) == 0,
           "plain settings and a reset equal a new object");
}

constexpr void (*kClasses[])(Arguments&) = {
    Run<Limiter, LimiterCalls<Limiter>>,
    Run<Limiter_FP, LimiterCalls<Limiter_FP>>,
    Run<PlaybackGain, PlaybackGainCalls>,
    Run<FIREqualizer_R32R32, EqualizerCalls<FIREqualizer_R32R32>>,
    Run<FIREqualizer_R32R64, EqualizerCalls<FIREqualizer_R32R64>>,
    Run<Enhancer<float, float>, EnhancerCalls<Enhancer<float, float>>>,
    Run<Enhancer<float, double>, EnhancerCalls<Enhancer<float, double>>>,
    Run<Biquad_R32R32, BiquadCalls<Biquad_R32R32>>,
    Run<Biquad_R32R64, BiquadCalls<Biquad_R32R64>>,
    Run<Biquad_R64R64, BiquadCalls<Biquad_R64R64>>,
    Run<Biquad_FP, BiquadCalls<Biquad_FP>>,
    Run<BandSpliter_R32R32, SplitterCalls<float>>,
    Run<BandSpliter_R64R64, SplitterCalls<double>>,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Arguments in(data, size);
    kClasses[in.Take<uint8_t>() % std::size(kClasses)](in);
    return 0;
}
