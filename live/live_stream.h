// The effect on a running stereo stream: any number of frames in, as many out, always as late as
// LatencyFrames() says, and no click whatever a listener turns.
//
// Inside it plays blocks of one size, whatever a host hands out. As long as nothing moves, the
// result holds the samples that the library gives for the same 16 bits: no dither, full scale 1.0.
//
//   values     move by a cross-fade to a second instance of the effect (live/chain_pair.h), within
//              0.3 s
//   switches   would click: the result fades out, the switch moves unheard, the chain fills, the
//              result fades in; then the latency is the new one
//   bypass     fades to the source, delayed by the same latency
//
// Allocates, and may fail, in the constructor alone. Processing and setting allocate nothing, wait
// for nothing and throw nothing. Instances share nothing. One thread.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>

#include "client/controls.h"
#include "client/settings.h"
#include "live/chain_pair.h"

class LiveStream {
public:
    static constexpr uint32_t kBlockFrames = 1024;
    static constexpr uint32_t kLowLatencyFrames = 770;  // the enhancer holds no buffers back

    // rateHz: 32000 to 48000, else it is refused. It starts with every processor off.
    explicit LiveStream(uint32_t rateHz);
    LiveStream(const LiveStream&) = delete;
    LiveStream& operator=(const LiveStream&) = delete;

    // What the library refused, null if nothing. What a stream that was refused gives is silence.
    const char* Refused() const { return chains.Refused(); }

    // control: a place in kControls; value: in the table's units, held within its range. What was
    // set before the first frame is there from the first frame on. The equalizer is on when its
    // switch is, whatever the bands are.
    void Set(size_t control, double value);
    // All controls; what isn't set in `settings` has its default.
    void Apply(const Settings& settings);
    void SetBypass(bool wanted);
    // Blocks of 770 frames instead of 1024. Changing that restarts the chain, unheard.
    void SetLowLatency(bool wanted);

    // result, source: `frames` frames each, the source as late as the result; either may be `in`,
    // channels crossed or not, source[0] null if nobody wants it. What isn't finite is silence.
    void Process(const float* const in[2], float* const result[2], float* const source[2],
                 size_t frames);

    // From a frame's input to its output, now.
    uint32_t LatencyFrames() const { return latencyFrames; }

    // Of what is heard and of the source at the same moment, over about 0.3 s. dB; full scale, as a
    // square, is 0 and silence is -100.
    struct Levels {
        float sourceDb, resultDb;
        float gainDb;   // between the two, 0 where either is silent
        bool limiting;  // the chain's peaks stand at the gate
    };
    Levels Meters() const;

private:
    static constexpr size_t kFadeFrames = 512;
    static constexpr size_t kPieceFrames = ChainPair::kMostFrames;
    static constexpr size_t kHistoryFrames = 4096;  // a power of two beyond all latencies

    enum class Duck { kOpen, kClosing, kClosed, kFilling };

    void WantSwitch();
    void Jump();
    void BeginBlock();
    float StepDuck();
    float Past(size_t channel) const;
    void ProcessPiece(const float* const in[2], float* const result[2], float* const source[2],
                      size_t frames);
    void Mix(const float* chain, float* result, float* source);
    void EndBlock();

    uint32_t rate;
    ChainPair chains;
    ChainPair::Wires wanted = ChainPair::Defaults();
    uint32_t blockFrames = kBlockFrames, wantedFrames = kBlockFrames;
    uint32_t blockAt = 0;  // frames of the present block
    uint64_t now = 0;      // frames in all

    uint32_t latencyFrames = 0;
    float history[2][kHistoryFrames] = {};
    uint32_t olderLatency = 0;  // of the tap that the source fades from
    size_t tapFade = kFadeFrames;
    bool bypassed = false;
    size_t dry = 0;  // of kFadeFrames: how much of the result is the source
    Duck duck = Duck::kOpen;
    size_t open = kFadeFrames;  // of kFadeFrames: how much of the chain is heard
    size_t hold = 0;            // frames until the chain has filled

    double sourceSquares = 0, resultSquares = 0;  // of the present block
    double sourceMean = 0, resultMean = 0;        // smoothed
    float peak = 0;                               // of the chain in the present block
    uint32_t limitingFor = 0;                     // frames from now
};
