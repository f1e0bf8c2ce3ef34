// What tests/prove_chain.py proves about whole calls: that the chain cuts them into chunks that
// keep to its buffers, for any number of frames. The functions `instead_...` stand in for the
// processors. They check that the frames they are told lie within the buffers, and leave unknown
// content there.
#include "tests/proof.h"
#include "unit/chain.cpp"

namespace {

using Equalizer = FIREqualizer_R32R32;
using Enhancer = OrvaneSound_R32R32;
template <uint32_t channels>
using Core = LimiterCore<PlainLimiting, channels>;

// A chunk that waits for the limiters is at most as long as they have room.
template <uint32_t channels>
uint32_t RoomOf(const void* core) {
    return static_cast<const Core<channels>*>(core)->Room();
}
template <typename Processor, typename Sample>
void Reads(const Processor* processor, const Sample* samples, size_t frames) {
    proof_read(samples, frames * processor->channels * sizeof *samples);
}
template <typename Processor, typename Sample>
void Writes(const Processor* processor, Sample* samples, size_t frames) {
    proof_write(samples, frames * processor->channels * sizeof *samples);
}
template <uint32_t channels>
void Limit(Core<channels>* core, float* samples, uint32_t count, int16_t* out) {
    proof_check(count <= core->Room());
    proof_write(samples, size_t{count} * channels * sizeof *samples);
    proof_write(out, size_t{count} * channels * sizeof *out);
    const uint32_t next = (core->next + count) % Core<channels>::kWindow;
    proof_write(core, sizeof *core);
    core->next = next;
}
template <typename Place, typename Processor>
Processor* Put(Place& place, Processor* processor) {
    reinterpret_cast<Processor*&>(std::get<0>(place.slots)) = processor;
    return processor;
}

}  // namespace

extern "C" {

uint32_t instead_reserve(WaveBuffer_R32* buffer, uint32_t frames) {
    auto* const storage = Data<float>("the storage", size_t{frames} * buffer->channels);
    *reinterpret_cast<float**>(&buffer->samples) = storage;
    return *Object<uint32_t>("whether there is memory");
}
void instead_alone(PlaybackGain* gain, const int16_t* in, int16_t* out, uint32_t frames) {
    Reads(gain, in, frames);
    Writes(gain, out, frames);
}
void instead_measuring(PlaybackGain* gain, const int16_t* in, uint32_t frames) {
    Reads(gain, in, frames);
}
void instead_levelling(PlaybackGain* gain, const int16_t* in, int16_t* out, uint32_t count) {
    proof_check(count <= gain->Room());
    Reads(gain, in, count);
    Writes(gain, out, count);
    proof_write(&gain->limiter, sizeof gain->limiter);
}
void instead_sums(Equalizer* equalizer, Equalizer::Chunk*, const int16_t* in, float* samples,
                  uint32_t count) {
    proof_check(count <= kChunkFrames);
    Reads(equalizer, in, count);
    Writes(equalizer, samples, count);
}
bool instead_room(Enhancer* enhancer, uint32_t frames) {
    auto* const input = Data<float>("the enhancer's input", size_t{frames} * enhancer->channels);
    reinterpret_cast<float*&>(enhancer->inputBuffer) = input;
    return *Object<uint32_t>("whether there is memory") != 0;
}
float* instead_input(Enhancer* enhancer, float*) {
    return reinterpret_cast<float*&>(enhancer->inputBuffer);
}
float* instead_bands(Enhancer* enhancer, float* samples, uint32_t frames) {
    Writes(enhancer, samples, frames);
    auto* const output = Data<float>("the enhancer's output", size_t{frames} * enhancer->channels);
    return *Object<uint32_t>("whether they are ready") != 0 ? output : nullptr;
}
void instead_resonance(Enhancer* enhancer, Enhancer::Chunk* chunk, const float* frames,
                       size_t count) {
    proof_check(count <= kChunkFrames);
    Reads(enhancer, frames, count);
    chunk->done = 0;
    chunk->count = count;
}
void instead_addition(Enhancer* enhancer, const Enhancer::Chunk* chunk, float* frames) {
    Writes(enhancer, frames, chunk->count);
}
void instead_amplify(float* samples, size_t count) {
    proof_write(samples, count * sizeof *samples);
}
void instead_chunk_Plain_1_Beside(Core<1>* core, float* samples, uint32_t count, int16_t* out) {
    Limit(core, samples, count, out);
}
void instead_chunk_Plain_2_Beside(Core<2>* core, float* samples, uint32_t count, int16_t* out) {
    Limit(core, samples, count, out);
}

#define CALL(number, core)                                                                   \
    void prove_call_##number(uint32_t frames) {                                              \
        auto* const chain = Object<Chain>("the chain");                                      \
        auto* const buffer = Put(chain->waveBuffer, Object<WaveBuffer_R32>("the buffer"));   \
        auto* const gain = Put(chain->playbackGain, Object<PlaybackGain>("the gain"));       \
        auto* const equalizer = Put(chain->equalizer, Object<Equalizer>("the equalizer"));   \
        auto* const enhancer = Put(chain->enhancer, Object<Enhancer>("the enhancer"));       \
        auto* const limiters = Put(chain->limiters, Object<OutputLimiters>("the limiters")); \
        chain->channels = buffer->channels = gain->channels = equalizer->channels = number;  \
        enhancer->channels = limiters->channels = number;                                    \
        proof_number(&limiters->limiter.core, RoomOf<number>);                               \
        const size_t size = size_t{frames} * number;                                         \
        chain->Process(Data<int16_t>("the input", size), Data<int16_t>("the output", size),  \
                       frames);                                                              \
    }
CALL(1, mono)
CALL(2, stereo)
}
