// Two instances of the effect on one stereo stream, so that values move without a click.
//
// One instance is heard. When a value moves, the other one starts with the new values and the same
// input. After its chain has filled and settled, a cross-fade leads from one to the other. Both
// have the same delay, so that their sounds add up. All values that have moved meanwhile wait for
// the next cross-fade. One takes about 0.2 s.
//
// As long as nothing moves, the second instance rests. There is one exception: the automatic gain
// takes seconds to adapt, so while it is on, the second instance runs it alone on the same input.
//
// Allocates, and may fail, in the constructor alone. No exceptions. One thread.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>

#include "client/controls.h"
#include "client/settings.h"
#include "client/stream.h"

// Returns the part of a fade, 0 to 1, after `of` of `whole` frames. It has no kink at either end.
inline float FadePart(size_t of, size_t whole) {
    const float t = static_cast<float>(of) / static_cast<float>(whole);
    return t * t * (3 - 2 * t);
}

class ChainPair {
public:
    static constexpr size_t kMostFrames = 128;  // of one call of Process
    // After a chain has filled, its resonance at 55 Hz still has to settle.
    static constexpr size_t kSettleFrames = 1024;

    // A value on the wire for each of kControls, in its order.
    using Wires = std::array<int32_t, kControls.size()>;
    // Stands for a default that no command can restore, so that none is sent.
    static constexpr int32_t kNothing = INT32_MIN;
    // Returns the values of a new instance: every processor is off.
    static Wires Defaults();

    // rateHz: 32000 to 48000; the library refuses others. Blocks have at most `mostBlockFrames`.
    ChainPair(uint32_t rateHz, uint32_t mostBlockFrames);

    // Returns what the library refused, or null. A pair that was refused gives silence.
    const char* Refused() const;

    // Takes over all values and the length of the blocks at once, which may click. Call it only
    // where a block begins. Another length starts the chain anew.
    void Jump(const Wires& wanted, uint32_t blockFrames);
    // Begins a cross-fade to `wanted`, unless one is going on or no value differs. Switches stay
    // as they are. Call it only where a block begins.
    void Move(const Wires& wanted);

    // Clears the equalizer and the enhancer of the heard instance, which start anew with the next
    // block. The automatic gain and the limiters keep their histories. Call it only where a block
    // begins and nothing moves.
    void Clear();

    // Returns the frames from input to output: a block and the chain's delay.
    uint32_t LatencyFrames() const;
    // Returns the limit of the peaks that the heard instance has. The greatest sample is 1.
    double Gate() const;

    // Processes interleaved frames, 1 to kMostFrames, which must not cross the end of a block.
    // Full scale of `out` is 1.
    void Process(const int16_t* in, float* out, size_t frames);

private:
    struct Chain {
        BlockStream stream;
        Wires sent;
    };
    enum class State { kSteady, kFilling, kFading };

    void Send(Chain* chain, size_t control, int32_t wire);
    void Tune(Chain* chain, const Wires& wanted);
    void Rest(Chain* chain);
    void Begin(const Wires& wanted);
    void End();
    bool RunsBoth() const { return state != State::kSteady || hasAutomaticGain; }
    float StepFade();
    Chain& Heard() { return chains[heard]; }
    Chain& Other() { return chains[1 - heard]; }

    Chain chains[2];
    size_t heard = 0;
    Settings switches;  // as the heard instance has them
    bool hasAutomaticGain = false;
    uint32_t blockFrames;
    State state = State::kSteady;
    size_t left = 0;   // frames until the fade begins
    size_t faded = 0;  // frames of the fade that have passed
};
