// Fuzz target: the processing classes by themselves, with any bit pattern in every float setting.
//
// The first byte of an input chooses the class; then come calls, each a byte and its arguments, see
// the `Call` functions. No call may have undefined behaviour. In the end the object is given plain
// settings and is reset, and must then give the same bits as a new object with these settings: no
// infinity, NaN or anything else outlives that. Where a header promises more (a gate or a level
// that isn't finite doesn't reach the samples), it is demanded after every call.
//
// Run it with scripts/fuzz.sh; fuzz/make_corpus.py writes the first inputs.
#include <cfloat>
#include <cmath>
#include <iterator>
#include <limits>
#include <vector>

#include "dsp/band_spliter.h"
#include "dsp/biquad.h"
#include "dsp/biquad_fp.h"
#include "dsp/fir_window.h"
#include "dsp/wave_buffer.h"
#include "effects/cross_fader.h"
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

// What the tests below feed: within full scale, repeatable.
template <typename T>
T PlainSample(uint32_t* noise) {
    const auto random = static_cast<int16_t>(static_cast<uint16_t>(Random(noise)));
    if constexpr (std::is_integral_v<T>)
        return random;
    else
        return static_cast<T>(random) / T(32768);
}

// An exact block of `count` samples: plain ones, or any bits from the input.
template <typename T>
ExactBlock<T> Samples(FuzzInput& input, size_t count, bool anyBits) {
    ExactBlock<T> block(count);
    uint32_t noise = 0x2545F491;
    for (size_t i = 0; i < count; ++i)
        block.data()[i] = anyBits ? input.Take<T>() : PlainSample<T>(&noise);
    return block;
}

// Mostly few, up to 3096.
uint32_t Frames(FuzzInput& input) {
    const uint32_t root = input.Take<uint8_t>();
    return root * root / 21;
}

// A rate that the chain can have, seldom any.
uint32_t Rate(FuzzInput& input) {
    const uint32_t value = input.Take<uint16_t>();
    return value == 0xFFFF ? input.Take<uint32_t>() : 32000 + value % 16001;
}

// Any float: often one that settings go wrong with, else the input's bits.
float AnyFloat(FuzzInput& input) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    constexpr float kSpecial[] = {kInfinity, -kInfinity, NAN,     -NAN,    FLT_MAX,
                                  -FLT_MAX,  FLT_MIN,    1e-45F,  -0.0F,   -1.0F,
                                  1.0F,      2.1e7F,     -2.1e7F, 1.8e38F, 0.5F};
    const uint8_t choice = input.Take<uint8_t>();
    return choice < std::size(kSpecial) ? kSpecial[choice] : input.Take<float>();
}

// Beyond what commands can set; larger factors may overflow a sum of plain samples.
bool IsTame(float setting) {
    return std::fabs(setting) < 1e8F;
}

template <typename T>
void DemandFinite(const T* samples, size_t count) {
    for (size_t i = 0; i < count; ++i)
        Demand(std::isfinite(samples[i]), "plain samples stay finite");
}

// Every class: Call makes one call from the input, MakePlain sets everything a setter can set and
// resets, Render gives the output for plain samples.

template <typename T, typename Processor>
std::vector<T> RenderSamples(Processor& processor) {
    uint32_t noise = 0x2545F491;
    std::vector<T> out(kRenderFrames);
    for (T& sample : out) {
        if constexpr (std::is_integral_v<T>)
            sample = processor.Process(PlainSample<int16_t>(&noise) * 512);
        else
            sample = processor.Process(PlainSample<T>(&noise));
    }
    return out;
}

struct LimiterSubject {
    Limiter limiter;
    void Call(FuzzInput& input) {
        switch (input.Take<uint8_t>() % 4) {
            case 0: {
                limiter.SetGate(AnyFloat(input));
                Limiter probe = limiter;  // as it would go on with plain samples
                probe.Reset();
                const std::vector<float> out = RenderSamples<float>(probe);
                return DemandFinite(out.data(), out.size());
            }
            case 1:
                return limiter.Reset();
            case 2:
                limiter.Process(input.Take<float>());
                return;
            default:
                RenderSamples<float>(limiter);
        }
    }
    void MakePlain() {
        limiter.SetGate(0.5F);
        limiter.Reset();
    }
    std::vector<float> Render() { return RenderSamples<float>(limiter); }
};

struct LimiterFpSubject {
    Limiter_FP limiter;
    void Call(FuzzInput& input) {
        switch (input.Take<uint8_t>() % 4) {
            case 0:
                return limiter.SetGate(AnyFloat(input));
            case 1:
                return limiter.Reset();
            case 2:
                limiter.Process(input.Take<int32_t>());
                return;
            default:
                RenderSamples<int32_t>(limiter);
        }
    }
    void MakePlain() {
        limiter.SetGate(0.5F);
        limiter.Reset();
    }
    std::vector<int32_t> Render() { return RenderSamples<int32_t>(limiter); }
};

struct PlaybackGainSubject {
    PlaybackGain gain;
    uint32_t channels = 2;
    void Call(FuzzInput& input) {
        const unsigned call = input.Take<uint8_t>() % 9;
        switch (call) {
            case 0:
                return gain.SetRatio(AnyFloat(input));
            case 1:
                return gain.SetVolume(AnyFloat(input));
            case 2:
                return gain.SetMaxGainFactor(AnyFloat(input));
            case 3:
                gain.SetEnable((input.Take<uint8_t>() & 1U) != 0);
                return;
            case 4:
                return gain.SetSamplingRate(Rate(input));
            case 5: {
                const auto count = input.Take<uint8_t>();
                gain.SetChannels(count);
                if (count <= 2) channels = count;
                return;
            }
            case 6:
                return gain.Reset();
            default: {
                const uint32_t frames = Frames(input);
                const size_t count = size_t{frames} * channels;
                const auto in = Samples<int16_t>(input, count, call == 7);
                const auto out = Samples<int16_t>(input, count, false);
                gain.Process(in.data(), out.data(), frames);
            }
        }
    }
    void MakePlain() {
        gain.SetRatio(1);
        gain.SetVolume(1);
        gain.SetMaxGainFactor(4);
        gain.SetSamplingRate(48000);
        gain.SetChannels(2);
        gain.SetEnable(true);
        gain.Reset();
    }
    std::vector<int16_t> Render() {
        uint32_t noise = 0x2545F491;
        std::vector<int16_t> out(size_t{2} * kRenderFrames);
        for (int16_t& sample : out) sample = PlainSample<int16_t>(&noise);
        const std::vector<int16_t> in = out;
        for (uint32_t at = 0; at < 2 * kRenderFrames; at += 200)
            gain.Process(in.data() + at, out.data() + at, 100);
        return out;
    }
};

template <typename Equalizer>
struct EqualizerSubject {
    Equalizer equalizer;
    uint32_t channels = 2;
    bool plainHistory = true;  // nothing but plain samples went in since the last Reset
    uint32_t wildBands = 0;    // bit b: band b has a huge gain
    void Call(FuzzInput& input) {
        const unsigned call = input.Take<uint8_t>() % 7;
        switch (call) {
            case 0: {
                const auto band = input.Take<int8_t>();
                const float level = AnyFloat(input);
                const uint32_t bit = band >= 0 && band < 10 ? 1U << static_cast<unsigned>(band) : 0;
                if (level < FLT_MAX / 4)
                    wildBands = IsTame(level) ? wildBands & ~bit : wildBands | bit;
                return equalizer.SetBandLevel(band, level);
            }
            case 1:
                equalizer.SetEnable((input.Take<uint8_t>() & 1U) != 0);
                return;
            case 2:
                return equalizer.SetSamplingRate(Rate(input));
            case 3: {
                channels = input.Take<uint8_t>() % 8;
                return equalizer.SetChannels(channels);
            }
            case 4:
                equalizer.Reset();
                plainHistory = true;
                return;
            default: {
                const uint32_t frames = Frames(input);
                const size_t count = size_t{frames} * (channels <= 2 ? channels : 1);
                const auto samples = Samples<float>(input, count, call == 5);
                if (call == 5) plainHistory = false;
                equalizer.Process(samples.data(), frames);
                if (!plainHistory) return;
                if (wildBands == 0) return DemandFinite(samples.data(), count);
                // Gains as large as floats go may overflow; set back, they have left no trace.
                for (int band = 0; band < 10; ++band) equalizer.SetBandLevel(band, 0);
                wildBands = 0;
                const auto probe = Samples<float>(input, count, false);
                equalizer.Process(probe.data(), frames);
                DemandFinite(probe.data(), count);
            }
        }
    }
    void MakePlain() {
        for (int band = 0; band < 10; ++band)
            equalizer.SetBandLevel(band, static_cast<float>(band) / 10 - 0.5F);
        equalizer.SetSamplingRate(44100);
        equalizer.SetChannels(2);
        equalizer.SetEnable(true);
        equalizer.Reset();
    }
    std::vector<float> Render() {
        uint32_t noise = 0x2545F491;
        std::vector<float> out(size_t{2} * kRenderFrames);
        for (float& sample : out) sample = PlainSample<float>(&noise);
        equalizer.Process(out.data(), kRenderFrames);
        return out;
    }
};

template <typename Enhancer>
struct EnhancerSubject {
    Enhancer enhancer{0};
    uint32_t channels = 2;
    bool plainHistory = true;  // since the last Reset nothing but plain samples, no huge factor
    bool tameProcess = true, tameContour = true;
    template <typename T>
    void ProcessOf(FuzzInput& input, bool anyBits) {
        const uint32_t frames = Frames(input);
        const size_t count = size_t{frames} * channels;
        const auto samples = Samples<T>(input, count, anyBits);
        if (anyBits || !tameProcess || !tameContour) plainHistory = false;
        const uint32_t done = enhancer.Process(samples.data(), frames);
        Demand(done == 0 || done == frames, "all frames or none");
        if constexpr (std::is_floating_point_v<T>)
            if (plainHistory) DemandFinite(samples.data(), count);
    }
    float Setting(FuzzInput& input, bool* tame) {
        const float value = AnyFloat(input);
        if (std::isfinite(value)) *tame = IsTame(value);
        return value;
    }
    void Call(FuzzInput& input) {
        switch (input.Take<uint8_t>() % 12) {
            case 0:
                return enhancer.SetProcess(Setting(input, &tameProcess));
            case 1:
                return enhancer.SetLoContour(Setting(input, &tameContour));
            case 2:
                enhancer.SetEnable((input.Take<uint8_t>() & 1U) != 0);
                return;
            case 3:
                return enhancer.SetSamplingRate(32000 + input.Take<uint16_t>() % 16001U);
            case 4: {
                const auto count = input.Take<uint8_t>();
                enhancer.SetChannels(count);
                if (count == 1 || count == 2) channels = count;
                return;
            }
            case 5:
                enhancer.Reset();
                plainHistory = true;
                return;
            case 6: {
                const auto frames = input.Take<uint32_t>();
                enhancer.Reserve(frames);
                return;
            }
            case 7:
                enhancer.ProcessBuffer();
                return;
            case 8:
                return ProcessOf<int16_t>(input, true);
            case 9:
                return ProcessOf<float>(input, true);
            case 10:
                return ProcessOf<double>(input, true);
            default:
                return ProcessOf<float>(input, false);
        }
    }
    void MakePlain() {
        enhancer.SetProcess(1.5F);
        enhancer.SetLoContour(0.7F);
        enhancer.SetSamplingRate(44100);
        enhancer.SetChannels(2);
        enhancer.SetEnable(true);
        enhancer.Reset();
    }
    std::vector<float> Render() {
        if (!enhancer.GetPrepared()) return {};
        uint32_t noise = 0x2545F491;
        std::vector<float> out(size_t{2} * kRenderFrames);
        for (float& sample : out) sample = PlainSample<float>(&noise);
        enhancer.Process(out.data(), kRenderFrames / 2);
        enhancer.Process(out.data() + kRenderFrames, kRenderFrames / 2);
        return out;
    }
};

template <typename Filter, typename Sample, typename Coefficient>
struct BiquadSubject {
    Filter filter;
    void Call(FuzzInput& input) {
        const unsigned call = input.Take<uint8_t>() % 6;
        switch (call) {
            case 0: {
                const auto ramp = input.Take<int32_t>();
                Coefficient c[6];
                for (Coefficient& coefficient : c) coefficient = input.Take<Coefficient>();
                return filter.SetCoeffs(ramp, c[0], c[1], c[2], c[3], c[4], c[5]);
            }
            case 1:
            case 2:
            case 3: {
                const auto ramp = static_cast<int32_t>(input.Take<int16_t>());
                float f[5];
                for (float& value : f) value = AnyFloat(input);
                if (call == 1) return filter.SetLowPassParameter(ramp, f[0], f[1], f[2]);
                if (call == 2) return filter.SetBandPassParameter(ramp, f[0], f[1], f[2]);
                return filter.SetHighPassParameter(ramp, f[0], f[1], f[2], f[3], f[4]);
            }
            case 4:
                return filter.Reset();
            default:
                for (unsigned n = input.Take<uint8_t>(); n > 0; --n)
                    filter.ProcessSample(input.Take<Sample>());
        }
    }
    void MakePlain() {
        filter.Reset();
        filter.SetLowPassParameter(0, 1000, 44100, 0.7F);
    }
    std::vector<Sample> Render() {
        uint32_t noise = 0x2545F491;
        std::vector<Sample> out(kRenderFrames);
        for (Sample& sample : out) sample = filter.ProcessSample(PlainSample<Sample>(&noise));
        return out;
    }
};

struct CrossFaderSubject {
    CrossFader fader;
    void Call(FuzzInput& input) {
        if (input.Take<uint8_t>() % 2 == 0) return fader.BeginFader(input.Take<int32_t>());
        const auto frames = static_cast<int>(Frames(input)),
                   channels = input.Take<uint8_t>() % 4 - 1;
        const size_t count = channels > 0 ? static_cast<size_t>(frames * channels) : 0;
        const auto target = Samples<int16_t>(input, count, true);
        const auto source = Samples<int16_t>(input, count, false);
        fader.FadeStream(target.data(), source.data(), frames, channels);
    }
    void MakePlain() { fader.BeginFader(700); }
    std::vector<int16_t> Render() {
        uint32_t noise = 0x2545F491;
        std::vector<int16_t> out(kRenderFrames), source(kRenderFrames, 1000);
        for (int16_t& sample : out) sample = PlainSample<int16_t>(&noise);
        fader.FadeStream(out.data(), source.data(), kRenderFrames / 2, 2);
        return out;
    }
};

struct WaveBufferSubject {
    static constexpr uint32_t kChannels = 2;
    WaveBuffer_R32 buffer{kChannels, 100};
    template <typename T>
    void Pass(FuzzInput& input, bool pop) {
        const uint32_t frames = Frames(input);
        const uint32_t held = buffer.GetBufferOffset();
        const auto samples = Samples<T>(input, size_t{frames} * kChannels, true);
        if (pop) {
            const bool partial = (input.Take<uint8_t>() & 1U) != 0;
            const uint32_t popped = buffer.PopSamples(samples.data(), frames, partial);
            Demand(popped == (frames <= held ? frames : partial ? held : 0), "frames popped");
            Demand(buffer.GetBufferOffset() == held - popped, "frames left");
        } else if (buffer.PushSamples(samples.data(), frames) == 1) {
            Demand(buffer.GetBufferOffset() == held + frames, "frames held");
        }
    }
    void Call(FuzzInput& input) {
        switch (input.Take<uint8_t>() % 10) {
            case 0:
                return Pass<int16_t>(input, false);
            case 1:
                return Pass<float>(input, false);
            case 2:
                return Pass<double>(input, false);
            case 3:
                return Pass<int16_t>(input, true);
            case 4:
                return Pass<float>(input, true);
            case 5:
                return Pass<double>(input, true);
            case 6:
                buffer.PushZero(input.Take<uint32_t>());
                return;
            case 7:
                buffer.Reserve(input.Take<uint32_t>());
                return;
            case 8:
                buffer.SetBufferOffset(input.Take<uint32_t>());
                return;
            default:
                return buffer.Reset();
        }
    }
    void MakePlain() { buffer.Reset(); }
    std::vector<int16_t> Render() {
        uint32_t noise = 0x2545F491;
        std::vector<int16_t> out(size_t{kChannels} * 100);
        for (int16_t& sample : out) sample = PlainSample<int16_t>(&noise);
        buffer.PushSamples(out.data(), 100);
        buffer.PopSamples(out.data(), 100, false);
        return out;
    }
};

template <typename T>
struct BandSpliterSubject {
    BandSpliter<T> splitter;
    void Call(FuzzInput& input) {
        switch (input.Take<uint8_t>() % 4) {
            case 0: {
                // Long kernels take seconds to design; the sizes beyond 2^30 are refused.
                uint32_t length = input.Take<uint16_t>() % 2048U;
                if (length == 2047) length = input.Take<uint32_t>() | 0xC0000000U;
                const auto window = input.Take<uint8_t>();
                const auto rate = input.Take<uint32_t>();
                const T low = input.Take<T>(), high = input.Take<T>();
                splitter.SetParameter(window, length, rate, low, high);
                return;
            }
            case 1:
                return splitter.Reset();
            default: {
                const uint32_t frames = splitter.GetProceedBufferSize();
                const auto in = Samples<T>(input, frames, input.Take<uint8_t>() == 0);
                const ExactBlock<T> low(frames), high(frames), band(frames);
                splitter.Convolve(in.data(), low.data(), high.data(), band.data(), frames);
            }
        }
    }
    void MakePlain() { splitter.SetParameter(1, 255, 44100, 150, 1800); }
    std::vector<T> Render() {
        const uint32_t frames = splitter.GetProceedBufferSize();
        uint32_t noise = 0x2545F491;
        std::vector<T> out(size_t{4} * frames);
        for (uint32_t i = 0; i < frames; ++i) out[i] = PlainSample<T>(&noise);
        splitter.Convolve(out.data(), out.data() + frames, out.data() + 2 * frames,
                          out.data() + 3 * frames, frames);
        return out;
    }
};

template <typename Subject>
void Run(FuzzInput& input) {
    Subject used;
    for (int i = 0; i < kCallsPerInput && !input.Empty(); ++i) used.Call(input);
    RefuseAllocation(0);
    Subject fresh;
    used.MakePlain();
    fresh.MakePlain();
    const auto expected = fresh.Render(), got = used.Render();
    Demand(got.size() == expected.size() &&
               std::memcmp(got.data(), expected.data(), got.size() * sizeof got[0]) == 0,
           "plain settings and a reset equal a new object");
}

constexpr void (*kSubjects[])(FuzzInput&) = {
    Run<LimiterSubject>,
    Run<LimiterFpSubject>,
    Run<PlaybackGainSubject>,
    Run<EqualizerSubject<FIREqualizer_R32R32>>,
    Run<EqualizerSubject<FIREqualizer_R32R64>>,
    Run<EnhancerSubject<OrvaneSound_R32R32>>,
    Run<EnhancerSubject<OrvaneSound_R32R64>>,
    Run<BiquadSubject<Biquad_R32R32, float, double>>,
    Run<BiquadSubject<Biquad_R32R64, float, double>>,
    Run<BiquadSubject<Biquad_R64R64, double, double>>,
    Run<BiquadSubject<Biquad_FP, int32_t, float>>,
    Run<CrossFaderSubject>,
    Run<WaveBufferSubject>,
    Run<BandSpliterSubject<float>>,
    Run<BandSpliterSubject<double>>,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    kSubjects[input.Take<uint8_t>() % std::size(kSubjects)](input);
    return 0;
}
