// The module's exports for a running stream and its levels.
#include "live/live_stream.h"
#include "web/export.h"
#include "web/loudness.h"

namespace {

// A stream with planar samples in the module's own memory, where scripts read and write them. Full
// scale is 1.0.
struct RunningStream {
    static constexpr size_t kMostFrames = 128;  // in one call

    explicit RunningStream(uint32_t rateHz)
        : live(rateHz),
          sourceMeter(rateHz, 2, LoudnessMeter::Kind::kRunning),
          resultMeter(rateHz, 2, LoudnessMeter::Kind::kRunning) {}

    float in[2][kMostFrames] = {};
    float result[2][kMostFrames] = {}, source[2][kMostFrames] = {};
    LiveStream live;
    LoudnessMeter sourceMeter, resultMeter;
};

void Measure(LoudnessMeter* meter, const float (&channels)[2][RunningStream::kMostFrames],
             size_t frames) {
    float samples[2 * RunningStream::kMostFrames];
    for (size_t n = 0; n < frames; ++n)
        for (size_t c = 0; c < 2; ++c) samples[2 * n + c] = channels[c][n];
    meter->Add(samples, frames);
}

}  // namespace

ORVANE_EXPORT(stream_create) RunningStream* StreamCreate(uint32_t rateHz) {
    return new (std::nothrow) RunningStream(rateHz);
}
ORVANE_EXPORT(stream_release) void StreamRelease(RunningStream* stream) {
    delete stream;
}
// Returns whether the library accepts the rate.
ORVANE_EXPORT(stream_runs) bool StreamRuns(const RunningStream* stream) {
    return stream->live.Refused() == nullptr;
}
// Sets a value. `control` is a place in the list of controls; `value` is in the units of the table.
ORVANE_EXPORT(stream_set) void StreamSet(RunningStream* stream, uint32_t control, double value) {
    stream->live.Set(control, value);
}
ORVANE_EXPORT(stream_bypass) void StreamBypass(RunningStream* stream, bool wanted) {
    stream->live.SetBypass(wanted);
}
// Returns the address of `in`. `result` and `source` follow it. Each has two channels of 128
// samples.
ORVANE_EXPORT(stream_samples) float* StreamSamples(RunningStream* stream) {
    return stream->in[0];
}
ORVANE_EXPORT(stream_process) void StreamProcess(RunningStream* stream, uint32_t frames) {
    const float* const in[2] = {stream->in[0], stream->in[1]};
    float* const result[2] = {stream->result[0], stream->result[1]};
    float* const source[2] = {stream->source[0], stream->source[1]};
    stream->live.Process(in, result, source, frames);
    Measure(&stream->sourceMeter, stream->source, frames);
    Measure(&stream->resultMeter, stream->result, frames);
}
ORVANE_EXPORT(stream_latency) uint32_t StreamLatency(const RunningStream* stream) {
    return stream->live.LatencyFrames();
}
// Writes three levels of the source or of the result: rmsDb and truePeakDb since the last call, and
// shortTermLufs of the last 3 s.
ORVANE_EXPORT(stream_levels)
void StreamLevels(RunningStream* stream, bool ofSource, double* levels) {
    LoudnessMeter& meter = ofSource ? stream->sourceMeter : stream->resultMeter;
    const LoudnessMeter::Levels taken = meter.TakeLevels();
    levels[0] = taken.rmsDb;
    levels[1] = taken.truePeakDb;
    levels[2] = meter.ShortTermLufs();
}
