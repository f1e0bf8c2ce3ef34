// The module's exports for a running stream and its levels, and for the loudness of a whole stream.
#include <ebur128.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "live/live_stream.h"
#include "web/export.h"

namespace {

// Measures loudness and peaks of a stream (ITU-R BS.1770, EBU R 128) with libebur128. Full scale of
// the samples is 1.0. A figure is -infinity for silence, and while there are too few samples for
// it.
class LoudnessMeter {
public:
    enum class Kind { kRunning, kWhole };

    LoudnessMeter(uint32_t rateHz, uint32_t channelCount, Kind kind);
    ~LoudnessMeter();
    LoudnessMeter(const LoudnessMeter&) = delete;
    LoudnessMeter& operator=(const LoudnessMeter&) = delete;

    // Adds frames of interleaved, finite samples. Allocates memory only for kWhole.
    void Add(const float* samples, size_t frames);

    double IntegratedLufs() const;  // kWhole
    double ShortTermLufs() const;   // kRunning: over the last 3 s

    // Returns, for kRunning, the RMS level of all channels and the true peak of the louder channel
    // since the last call. Both are in dB over full scale.
    struct Levels {
        double rmsDb, truePeakDb;
    };
    Levels TakeLevels();

private:
    ebur128_state* state;
    uint32_t channels;
    double squares = 0, peak = 0;
    size_t samplesAdded = 0;
};

int ModeOf(LoudnessMeter::Kind kind) {
    return kind == LoudnessMeter::Kind::kWhole ? EBUR128_MODE_I
                                               : EBUR128_MODE_S | EBUR128_MODE_TRUE_PEAK;
}

double Decibels(double gain) {
    return 20 * std::log10(gain);
}

LoudnessMeter::LoudnessMeter(uint32_t rateHz, uint32_t channelCount, Kind kind)
    : state(ebur128_init(channelCount, rateHz, ModeOf(kind))), channels(channelCount) {}

LoudnessMeter::~LoudnessMeter() {
    if (state != nullptr) ebur128_destroy(&state);
}

void LoudnessMeter::Add(const float* samples, size_t frames) {
    if (state == nullptr) return;
    ebur128_add_frames_float(state, samples, frames);
    if ((state->mode & EBUR128_MODE_TRUE_PEAK) != EBUR128_MODE_TRUE_PEAK) return;
    for (size_t n = 0; n < frames * channels; ++n)
        squares += static_cast<double>(samples[n]) * samples[n];
    samplesAdded += frames * channels;
    for (uint32_t channel = 0; channel < channels; ++channel) {
        double latest = 0;
        ebur128_prev_true_peak(state, channel, &latest);
        peak = std::max(peak, latest);
    }
}

double LoudnessMeter::IntegratedLufs() const {
    double lufs = -HUGE_VAL;
    if (state != nullptr) ebur128_loudness_global(state, &lufs);
    return lufs;
}

double LoudnessMeter::ShortTermLufs() const {
    double lufs = -HUGE_VAL;
    if (state != nullptr) ebur128_loudness_shortterm(state, &lufs);
    return lufs;
}

LoudnessMeter::Levels LoudnessMeter::TakeLevels() {
    const double meanSquare = samplesAdded == 0 ? 0 : squares / static_cast<double>(samplesAdded);
    const Levels levels{Decibels(std::sqrt(meanSquare)), Decibels(peak)};
    squares = peak = 0;
    samplesAdded = 0;
    return levels;
}

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

// The loudness of a whole stream.

ORVANE_EXPORT(meter_create) LoudnessMeter* MeterCreate(uint32_t rateHz, uint32_t channels) {
    return new (std::nothrow) LoudnessMeter(rateHz, channels, LoudnessMeter::Kind::kWhole);
}
ORVANE_EXPORT(meter_release) void MeterRelease(LoudnessMeter* meter) {
    delete meter;
}
// Adds `samples` interleaved 16-bit samples, whole frames of `channels` channels.
ORVANE_EXPORT(meter_add)
void MeterAdd(LoudnessMeter* meter, const int16_t* pcm, uint32_t samples, uint32_t channels) {
    constexpr uint32_t kMostSamples = 1024;
    float floats[kMostSamples];
    for (uint32_t done = 0; done < samples;) {
        const uint32_t count = std::min(samples - done, kMostSamples);
        for (uint32_t n = 0; n < count; ++n) floats[n] = static_cast<float>(pcm[done + n]) / 32768;
        meter->Add(floats, count / channels);
        done += count;
    }
}
ORVANE_EXPORT(meter_integrated) double MeterIntegrated(const LoudnessMeter* meter) {
    return meter->IntegratedLufs();
}
