// States what tests/prove_chain.py proves about the processors. Each one keeps to its objects, for
// any number of frames and any content. This file is never run; the prover executes it with unknown
// inputs.
//
// A function whose name begins with `prove` makes objects in any state that the invariant allows,
// calls one step, and checks the invariant. Elsewhere a function `instead_...` stands for that
// step: it checks what the step needs, and leaves anything that the invariant allows.
#include "dsp/planar_delay.h"
#include "dsp/samples.cpp"
#include "dsp/wave_buffer.cpp"
#include "effects/fir_equalizer.cpp"
#include "effects/limiter_core.cpp"
#include "effects/loudness.cpp"
#include "effects/orvane_sound.cpp"
#include "effects/playback_gain.cpp"
#include "tests/proof.h"
// This file has names of its own for what others have, too.
#define Load FftLoad
#define Store FftStore
#include "dsp/fft_r24.cpp"
#undef Load
#undef Store
#define kTwoPi kTwoPiOfFloats
#define Angle AngleOfFloats
#define CornerAngle CornerAngleOfFloats
#include "dsp/biquad_fp.cpp"

namespace {

// The limiters' rings.
template <typename Core>
bool Holds(const Core& core) {
    return (core.next < Core::kWindow) & (core.framesSinceGate <= Core::kWindow);
}
template <typename Core>
bool CoreHolds(const void* core) {
    return Holds(*static_cast<const Core*>(core));
}
// The place in the ring; 2^32 is a turn.
template <typename Core>
uint32_t Turn(const void* core) {
    return static_cast<const Core*>(core)->next << 24U;
}
template <typename Core>
Core* AnyCore() {
    auto* const core = Object<Core>("the limiter");
    proof_assume(Holds(*core));
    proof_keep(core, CoreHolds<Core>);
    proof_number(core, Turn<Core>);
    return core;
}
template <typename Core>
void AnyContent(Core* core, uint32_t next) {
    proof_write(core, sizeof *core);
    core->next = next;
    proof_assume(Holds(*core));
}
void Needs(Alone) {}
template <typename Number>
void Needs(const Beside<BiquadRun<Number>>& runner) {
    proof_write(runner.other.samples, runner.otherCount * sizeof(Number));
    proof_write(&runner.other.history, sizeof runner.other.history);
}
template <typename Core, typename Runner>
void InsteadOfGains(Core* core, const typename Core::Sample* samples, uint32_t count,
                    typename Core::Sample* gains, Runner runner) {
    proof_check(Holds(*core) & (count >= 1) & (count <= core->Room()));
    const size_t bytes = size_t{count} * sizeof core->state.gain;
    proof_read(samples, bytes);
    proof_write(gains, bytes);
    Needs(runner);
    AnyContent(core, core->next);
}
template <typename Core>
void InsteadOfWindow(Core* core) {
    proof_check(Holds(*core));
    AnyContent(core, core->next);
}
template <typename Core>
void ProveWindow() {
    Core* const core = AnyCore<Core>();
    const uint32_t next = core->next;
    core->MakeWindow();
    proof_check(Holds(*core) & (core->next == next));
}
template <typename Core, typename Runner>
void ProveGains(uint32_t count, Runner runner) {
    Core* const core = AnyCore<Core>();
    proof_assume((count >= 1) & (count <= core->Room()));
    const size_t size = count * std::size(core->state.gain);
    const uint32_t next = core->next;
    using Sample = typename Core::Sample;
    core->MakeGains(Data<Sample>("samples", size), count, Data<Sample>("gains", size), runner);
    proof_check(Holds(*core) & (core->next == next));
}
template <typename Core, typename Runner>
void ProveChunk(uint32_t count, Runner runner) {
    Core* const core = AnyCore<Core>();
    proof_assume(count <= core->Room());
    const size_t size = count * std::size(core->state.gain);
    const uint32_t next = core->next;
    core->ProcessChunkToShort(Data<typename Core::Sample>("samples", size), count,
                              Data<int16_t>("the output", size), runner);
    proof_check(Holds(*core) & (core->next == (next + count) % Core::kWindow));
}
Beside<BiquadRun<float>> AnyContour(size_t count) {
    auto* const run = Object<BiquadRun<float>>("the contour");
    run->samples = Data<float>("the contour's samples", count);
    return {*run, count};
}

// The playback gain with one channel.
bool Holds(const PlaybackGain& gain) {
    return Holds(gain.limiter.mono);
}
bool GainHolds(const void* gain) {
    return Holds(*static_cast<const PlaybackGain*>(gain));
}
PlaybackGain* AnyGain() {
    auto* const gain = Object<PlaybackGain>("the playback gain");
    gain->channels = 1;
    proof_assume(Holds(*gain));
    proof_keep(gain, GainHolds);
    return gain;
}
// The equalizer.
using Equalizer = FIREqualizer<float, float>;
bool Holds(const Equalizer::State& state) {
    using State = Equalizer::State;
    return (state.next >= State::kReach) & (state.next <= State::kReach + State::kMove);
}
bool StateHolds(const void* state) {
    return Holds(*static_cast<const Equalizer::State*>(state));
}
Equalizer* AnyEqualizer(uint32_t channels) {
    auto* const equalizer = Object<Equalizer>("the equalizer");
    auto* const state = Object<Equalizer::State>("the equalizer's history");
    *reinterpret_cast<const void**>(&equalizer->state) = state;
    equalizer->channels = channels;
    proof_assume(Holds(*state));
    proof_keep(state, StateHolds);
    return equalizer;
}

// The enhancer's buffers.
bool Holds(const WaveBuffer_R32& buffer, uint32_t channels) {
    return (buffer.channels == channels) & (buffer.count <= buffer.capacity) &
           (buffer.capacity != 0) & (buffer.count % channels == 0) &
           (buffer.capacity % channels == 0);
}
WaveBuffer_R32* AnyBuffer(uint32_t channels) {
    auto* const buffer = Object<WaveBuffer_R32>("the buffer");
    buffer->channels = channels;
    *reinterpret_cast<float**>(&buffer->samples) = Data<float>("the storage", buffer->capacity);
    proof_assume(Holds(*buffer, channels));
    return buffer;
}

}  // namespace

extern "C" {

#define WINDOW(Name, Channels)                                                             \
    void instead_window_##Name##_##Channels(LimiterCore<Name##Limiting, Channels>* core) { \
        InsteadOfWindow(core);                                                             \
    }                                                                                      \
    void prove_window_##Name##_##Channels() {                                              \
        ProveWindow<LimiterCore<Name##Limiting, Channels>>();                              \
    }
#define GAINS(Name, Channels, Way, ...)                                            \
    void prove_gains_##Name##_##Channels##_##Way(uint32_t count, uint32_t other) { \
        ProveGains<LimiterCore<Name##Limiting, Channels>>(count, __VA_ARGS__);     \
    }
#define CHUNK(Name, Channels, Way, Runner, ...)                                             \
    void instead_gains_##Name##_##Channels##_##Way(                                         \
        LimiterCore<Name##Limiting, Channels>* core, const Name##Limiting::Sample* samples, \
        uint32_t count, Name##Limiting::Sample* gains, Runner runner) {                     \
        InsteadOfGains(core, samples, count, gains, runner);                                \
    }                                                                                       \
    void prove_chunk_##Name##_##Channels##_##Way(uint32_t count, uint32_t other) {          \
        ProveChunk<LimiterCore<Name##Limiting, Channels>>(count, __VA_ARGS__);              \
    }
WINDOW(Plain, 1)
WINDOW(Plain, 2)
WINDOW(Q24, 1)
GAINS(Plain, 1, Alone, Alone())
GAINS(Plain, 1, Beside, AnyContour(other))
GAINS(Plain, 2, Alone, Alone())
GAINS(Q24, 1, Alone, Alone())
CHUNK(Plain, 1, Alone, Alone, Alone())
CHUNK(Plain, 1, Beside, Beside<BiquadRun<float>>, AnyContour(other))
CHUNK(Plain, 2, Alone, Alone, Alone())
CHUNK(Plain, 2, Beside, Beside<BiquadRun<float>>, AnyContour(other))
CHUNK(Q24, 1, Alone, Alone, Alone())
CHUNK(Q24, 2, Alone, Alone, Alone())

void instead_chunk_Q24_1_Alone(LimiterCore<Q24Limiting, 1>* core, int32_t* samples, uint32_t count,
                               int16_t* out, Alone) {
    proof_check(Holds(*core) & (count <= core->Room()));
    proof_write(samples, size_t{count} * sizeof *samples);
    proof_write(out, size_t{count} * sizeof *out);
    AnyContent(core, (core->next + count) % core->kWindow);
}
void prove_gain_begin_1(uint32_t frames) {
    PlaybackGain* const gain = AnyGain();
    gain->Begin(Data<int16_t>("the input", frames), frames);
    proof_check(Holds(*gain));
}
void prove_gain_chunk_1(uint32_t count) {
    PlaybackGain* const gain = AnyGain();
    proof_assume(count <= gain->Room());
    gain->ProcessChunk(Data<int16_t>("the input", count), Data<int16_t>("the output", count), count,
                       Alone());
    proof_check(Holds(*gain));
}
void prove_reversal() {
    FFT_R24<float>::bitrv2(1024, static_cast<int*>(proof_object("the work area", 32 * 4)),
                           Data<float>("the values", 1024));
}
#define EQUALIZER(channels)                                                                      \
    void prove_equalizer_begin_##channels(uint32_t count) {                                      \
        Equalizer* const equalizer = AnyEqualizer(channels);                                     \
        proof_assume(count <= kChunkFrames);                                                     \
        const size_t size = size_t{count} * channels;                                            \
        auto* const chunk = Object<Equalizer::Chunk>("the chunk");                               \
        equalizer->Begin(*chunk, Data<int16_t>("the input", size), Data<float>("samples", size), \
                         count);                                                                 \
        proof_check(Holds(*equalizer->state) & (chunk->count == 0));                             \
    }
EQUALIZER(1)
EQUALIZER(2)
// The storage may be a new one then, so all of it is written to.
#define BUFFER(channels)                                                         \
    void prove_buffer_##channels(uint32_t frames, uint32_t step) {               \
        WaveBuffer_R32* const buffer = AnyBuffer(channels);                      \
        auto* const samples = Data<float>("samples", size_t{frames} * channels); \
        if (step == 0)                                                           \
            buffer->PushSamples(samples, frames);                                \
        else if (step == 1)                                                      \
            buffer->SetBufferOffset(frames);                                     \
        else                                                                     \
            buffer->PopSamples(samples, frames, step == 2);                      \
        proof_check(Holds(*buffer, channels));                                   \
        proof_write(buffer->samples.data(), buffer->capacity * sizeof(float));   \
    }
BUFFER(1)
BUFFER(2)
void prove_delay(uint32_t held, uint32_t block, uint32_t room) {
    proof_assume((held < 1000) & (block <= room) & (room < 1000));
    PlanarDelay<float> delay;
    delay.pairs.count = 2 * (size_t{held} + room);
    *reinterpret_cast<float**>(&delay.pairs) = Data<float>("the delay", delay.pairs.count);
    delay.heldPairs = held;
    delay.block = block;
    proof_write(delay.Next().re, room * sizeof(float));
    proof_write(delay.Next().im, room * sizeof(float));
    delay.Advance();
}
#define CONTOUR(number)                                                           \
    void prove_contour_##number(uint32_t frames) {                                \
        proof_assume(frames <= kChunkFrames);                                     \
        auto* const enhancer = Object<OrvaneSound_R32R32>("the enhancer");        \
        auto* const chunk = Object<OrvaneSound_R32R32::Chunk>("the chunk");       \
        auto* const samples = Data<float>("the frames", size_t{frames} * number); \
        enhancer->channels = number;                                              \
        enhancer->Begin(*chunk, samples, frames);                                 \
        RunAlone(chunk->run, chunk->count);                                       \
        enhancer->Finish(*chunk, samples);                                        \
    }
CONTOUR(1)
CONTOUR(2)
}
