// The effect on a running stream, in blocks of 1024 frames whatever pieces it comes in, and beside
// it the stream as it was, as late as the result.
//
// Values act from the block on that holds the next frame. A switch, once something was processed,
// would click in the library: so the result fades out, the switch moves while it is silent, and the
// result fades in when the chain has filled anew. Then the latency is the new one.
//
// Stereo, planar, full scale 1.0. Allocates in Start() alone. One thread.
#pragma once
#include <array>
#include <optional>

#include "client/stream.h"
#include "web/controls.h"
#include "web/loudness.h"

class RunningStream {
public:
    static constexpr uint32_t kBlockFrames = 1024;
    static constexpr size_t kMostFrames = 128;  // a call

    // Before Start(), or while it runs. control: a place in kControls.
    void Set(size_t control, double value);
    void SetBypass(bool wish) { bypassed = wish; }
    // Whether the library took rate and settings.
    bool Start(uint32_t rateHz);
    bool IsRunning() const { return stream.has_value() && stream->Refused() == nullptr; }

    float in[2][kMostFrames] = {};
    float result[2][kMostFrames] = {}, source[2][kMostFrames] = {};
    // `in` to `result` and `source`. A sample that is no number or infinite counts as silence.
    void Process(size_t frames);

    uint32_t LatencyFrames() const { return latencyFrames; }
    LoudnessMeter& Meter(bool ofSource) { return *meters[ofSource ? 1 : 0]; }

private:
    static constexpr size_t kFadeFrames = 512;
    static constexpr size_t kHistoryFrames = 4096;  // a power of two beyond all latencies

    enum class Duck { kOpen, kClosing, kClosed, kFilling };

    uint32_t LatencyOf(const Settings& all) const;
    void Send(size_t control, double value);
    void MoveSwitches();
    float DuckGain();
    float Past(size_t channel, uint32_t frames) const;

    Settings settings;  // of the library, but for values while it runs
    std::array<double, kControls.size()> wanted{}, sent{};
    std::array<bool, kControls.size()> wasSet{};
    std::optional<BlockStream> stream;
    std::optional<LoudnessMeter> meters[2];

    uint32_t latencyFrames = 0;
    float history[2][kHistoryFrames] = {};
    size_t now = 0;             // the frame being processed, in all
    uint32_t olderLatency = 0;  // of the tap that `source` fades from
    size_t tapFade = kFadeFrames;
    bool bypassed = false;
    size_t dry = 0;  // of kFadeFrames: how much of `result` is `source`
    Duck duck = Duck::kOpen;
    size_t open = kFadeFrames;  // of kFadeFrames: how much of the chain is heard
    size_t hold = 0;            // frames until the chain has filled
};
