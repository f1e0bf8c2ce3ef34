// The effect on a running stereo stream. It takes any number of frames and returns as many, delayed
// by LatencyFrames(). Settings may change at any time without a click.
//
// The effect always gets buffers of one size, whatever sizes the host uses. While no setting
// changes, the result holds the samples that the library gives for the same 16-bit input. Nothing
// is dithered, and full scale is 1.0.
//
// - A value moves by a cross-fade to a second instance of the effect (live/chain_pair.h). It takes
//   at most 0.15 s at 48000 Hz. The bass resonance may need two of them: 0.3 s at 44100 and 48000
//   Hz and 0.42 s at 32000 Hz. docs/plugin.md says how smooth the movements are.
// - A switch would click. So the result fades out, the switch moves while nothing is heard, the
//   chain fills, and the result fades in. From then on, the latency is the new one.
// - Bypass fades to the source, which is delayed by the same latency.
//
// Only the constructor allocates, and only it can fail. Processing and setting allocate nothing,
// wait for nothing and throw nothing. Instances share nothing. Thread: one at a time.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>

#include "client/controls.h"
#include "client/settings.h"
#include "live/chain_pair.h"

class LiveStream {
public:
    static constexpr uint32_t kBufferFrames = 1024;
    // This is the enhancer's block size. With such buffers the enhancer never returns silence.
    static constexpr uint32_t kLowLatencyFrames = 770;

    // rateHz: 32000 to 48000; the library refuses others. Every processor is off at first.
    explicit LiveStream(uint32_t rateHz);
    LiveStream(const LiveStream&) = delete;
    LiveStream& operator=(const LiveStream&) = delete;

    // Returns what the library refused, or null. A stream that was refused gives silence.
    const char* Refused() const { return chains.Refused(); }

    // Sets one value or switch. control: an index into kControls. value: in the table's units; it
    // is clamped to the table's range. What is set before the first frame holds from the first
    // frame on. Only its switch turns the equalizer on, not its bands.
    void Set(size_t control, double value);
    // Sets all controls. What isn't set in `settings` gets its default.
    void Apply(const Settings& settings);
    void SetBypass(bool wanted);
    // Gives the effect buffers of 770 frames instead of 1024. A change fades the result out,
    // restarts the chain and fades in.
    void SetLowLatency(bool wanted);

    // Processes `frames` frames of planar floats: in[0] points to the left channel and in[1] to the
    // right one. Writes the processed sound to `result`, and the input with the same delay to
    // `source`, unless source[0] is null. `result` and `source` may be the memory of `in`, also
    // with the channels exchanged. Samples that are not finite count as silence.
    void Process(const float* const in[2], float* const result[2], float* const source[2],
                 size_t frames);

    // Processes silence as PieceStream does before a piece, so that the automatic gain has settled
    // when the first frame comes. Call it after the settings and before the first frame. Takes tens
    // of milliseconds.
    void Settle();
    // Drops the sound that has not come out yet, as after a seek. The result is silent until the
    // next frame comes out, LatencyFrames() frames later. Moving values and switches arrive at
    // once. The automatic gain keeps its level: it gets the last sound again instead of silence.
    // Takes as long as processing two buffers.
    void Flush();

    // Returns the present delay in frames, from a frame's input to its output.
    uint32_t LatencyFrames() const { return latencyFrames; }

    // The levels of the result and of the source at the same moment, in dB over about 0.3 s. A
    // full-scale square wave is at 0 dB, and silence is at -100.
    struct Levels {
        float sourceDb, resultDb;
        float gainDb;   // resultDb - sourceDb; 0 if one of them is silent
        bool limiting;  // the chain's peaks reach the gate
    };
    Levels Meters() const;

private:
    static constexpr size_t kFadeFrames = 512;
    static constexpr size_t kPieceFrames = ChainPair::kMostFrames;
    static constexpr size_t kHistoryFrames = 4096;  // a power of two beyond all latencies
    // Silence of this length fills the look-ahead of two limiters in a row, 255 frames each.
    static constexpr uint32_t kForgetFrames = 512;

    enum class Duck { kOpen, kClosing, kClosed, kFilling };

    void WantSwitch();
    void Jump();
    void BeginBuffer();
    float StepDuck();
    void FillBuffer();
    float Past(size_t channel) const;
    void ProcessPiece(const float* const in[2], float* const result[2], float* const source[2],
                      size_t frames);
    void Mix(const float* chain, float* result, float* source);
    void EndBuffer();

    uint32_t rate;
    ChainPair chains;
    ChainPair::Wires wanted = ChainPair::Defaults();
    uint32_t bufferFrames = kBufferFrames, wantedFrames = kBufferFrames;
    uint32_t bufferAt = 0;  // frames of the present buffer that have been processed
    uint64_t now = 0;       // frames that have been processed since the beginning

    uint32_t latencyFrames = 0;
    float history[2][kHistoryFrames] = {};
    // When the latency changes, the source fades from the older latency to the new one.
    uint32_t olderLatency = 0;
    size_t tapFade = kFadeFrames;  // frames of this fade that have passed
    bool bypassed = false;
    size_t dry = 0;  // the source's share of the result, 0 to kFadeFrames
    Duck duck = Duck::kOpen;
    size_t open = kFadeFrames;  // the chain's share of the result, 0 to kFadeFrames
    size_t hold = 0;            // frames until the chain has filled
    size_t muted = 0;           // frames until nothing is left of the sound before a flush

    double sourceSquares = 0, resultSquares = 0;  // sums of squares in the present buffer
    double sourceMean = 0, resultMean = 0;        // smoothed mean squares
    float peak = 0;                               // the chain's peak in the present buffer
    uint32_t limitingFor = 0;                     // frames for which `limiting` stays set
};
