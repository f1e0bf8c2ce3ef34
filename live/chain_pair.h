// Two instances of the effect on one stereo stream, so that values change without a click.
//
// One instance is heard. When a value changes, the other instance starts with the new values and
// the same input. When its chain has filled and settled, a cross-fade leads to its sound. Both
// instances have the same delay, so their sounds are in phase. Values that change meanwhile wait
// for the next cross-fade. All of this takes at most 0.15 s at 48000 Hz.
//
// The bass resonance (lo contour) is the exception: it shifts the phase of low tones. Between weak
// and strong, the two sounds would partly cancel each other: a tone of 80 Hz would sink by 7 dB. So
// a move past the level 1 takes two cross-fades, and the first one leads to the level 1.
//
// While no value changes, the second instance doesn't run. There is one exception: the automatic
// gain takes seconds to adapt. So while it is on, the second instance runs nothing but the
// automatic gain on the same input.
//
// Only the constructor allocates, and only it can fail. Nothing throws. Thread: one at a time.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>

#include "client/controls.h"
#include "client/settings.h"
#include "client/stream.h"

// Returns the position of a fade, 0 to 1, after `of` of its `whole` frames. Its slope is 0 at both
// ends.
inline float FadePart(size_t of, size_t whole) {
    const float t = static_cast<float>(of) / static_cast<float>(whole);
    return t * t * (3 - 2 * t);
}

class ChainPair {
public:
    static constexpr size_t kMostFrames = 128;  // the most frames of one call of Process
    // After a chain has filled, its resonance at 55 Hz still has to settle.
    static constexpr size_t kSettleFrames = 1024;

    // The integers that are sent for kControls, in the same order.
    using Wires = std::array<int32_t, kControls.size()>;
    // Stands for a default that no command can restore. Nothing is sent for it.
    static constexpr int32_t kNothing = INT32_MIN;
    // Returns the values of a new instance: every processor is off.
    static Wires Defaults();

    // rateHz: 32000 to 48000; the library refuses others. mostBufferFrames: the largest size of a
    // buffer.
    ChainPair(uint32_t rateHz, uint32_t mostBufferFrames);

    // Returns what the library refused, or null. A pair that was refused gives silence.
    const char* Refused() const;

    // Takes over all values and the size of the buffers at once, which may click. Call it only
    // where a buffer begins. Another size restarts the chain.
    void Jump(const Wires& wanted, uint32_t bufferFrames);
    // Begins a cross-fade to `wanted`, or to the level 1 of the bass resonance on the way there.
    // Does nothing if one is in progress or no value differs. Doesn't change switches. Call it only
    // where a buffer begins.
    void Move(const Wires& wanted);

    // Clears the equalizer and the enhancer of the heard instance, which start anew with the next
    // buffer. The automatic gain and the limiters keep their histories. Call it only where a buffer
    // begins and no cross-fade is in progress. Returns how many frames of the next ones can still
    // hold earlier sound: the output limiters keep it until the enhancer returns frames.
    uint32_t Clear();

    // Returns the frames from input to output: one buffer and the chain's delay.
    uint32_t LatencyFrames() const;
    // Returns the gate of the heard instance. Full scale is 1.
    double Gate() const;

    // Processes 1 to kMostFrames interleaved frames, which must not cross the end of a buffer. Full
    // scale of `out` is 1.
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
    Settings switches;  // the switches of the heard instance
    bool hasAutomaticGain = false;
    uint32_t bufferFrames;
    State state = State::kSteady;
    size_t left = 0;   // frames until the fade begins
    size_t faded = 0;  // frames of the fade that have passed
};
