// The module's exports for a running stream (live/live_stream.h), and what it sounds like.
#include "live/live_stream.h"
#include "web/export.h"
#include "web/loudness.h"

namespace {

constexpr size_t kMostFrames = 128;

struct Sound {
    explicit Sound(uint32_t rateHz)
        : stream(rateHz),
          ofResult(rateHz, 2, LoudnessMeter::Kind::kRunning),
          ofSource(rateHz, 2, LoudnessMeter::Kind::kRunning) {}

    float in[2][kMostFrames] = {}, result[2][kMostFrames] = {}, source[2][kMostFrames] = {};
    LiveStream stream;
    LoudnessMeter ofResult, ofSource;
};

void Measure(const float (&planar)[2][kMostFrames], size_t frames, LoudnessMeter* meter) {
    float interleaved[2 * kMostFrames];
    for (size_t n = 0; n < frames; ++n)
        for (size_t c = 0; c < 2; ++c) interleaved[2 * n + c] = planar[c][n];
    meter->Add(interleaved, frames);
}

}  // namespace

ORVANE_EXPORT(stream_create) Sound* StreamCreate(uint32_t rateHz) {
    return new (std::nothrow) Sound(rateHz);
}
ORVANE_EXPORT(stream_release) void StreamRelease(Sound* sound) {
    delete sound;
}
// Whether the library took rate and settings.
ORVANE_EXPORT(stream_runs) bool StreamRuns(const Sound* sound) {
    return sound->stream.Refused() == nullptr;
}
ORVANE_EXPORT(stream_set) void StreamSet(Sound* sound, uint32_t control, double value) {
    sound->stream.Set(control, value);
}
ORVANE_EXPORT(stream_bypass) void StreamBypass(Sound* sound, bool wanted) {
    sound->stream.SetBypass(wanted);
}
// Where `in`, `result` and `source` lie, one behind the other, 128 samples a channel.
ORVANE_EXPORT(stream_samples) float* StreamSamples(Sound* sound) {
    return sound->in[0];
}
// frames: at most 128.
ORVANE_EXPORT(stream_process) void StreamProcess(Sound* sound, uint32_t frames) {
    const float* const in[] = {sound->in[0], sound->in[1]};
    float* const result[] = {sound->result[0], sound->result[1]};
    float* const source[] = {sound->source[0], sound->source[1]};
    sound->stream.Process(in, result, source, frames);
    Measure(sound->result, frames, &sound->ofResult);
    Measure(sound->source, frames, &sound->ofSource);
}
ORVANE_EXPORT(stream_latency) uint32_t StreamLatency(const Sound* sound) {
    return sound->stream.LatencyFrames();
}
// Of the result, or of the source: rmsDb and truePeakDb since last asked, shortTermLufs.
ORVANE_EXPORT(stream_levels) void StreamLevels(Sound* sound, bool ofSource, double* levels) {
    LoudnessMeter& meter = ofSource ? sound->ofSource : sound->ofResult;
    const LoudnessMeter::Levels taken = meter.TakeLevels();
    levels[0] = taken.rmsDb;
    levels[1] = taken.truePeakDb;
    levels[2] = meter.ShortTermLufs();
}
