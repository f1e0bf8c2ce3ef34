#include "web/stream.h"

#include <algorithm>
#include <cmath>

#include "client/delay.h"
#include "host/entry_points.h"
#include "web/export.h"

namespace {

bool IsSwitch(size_t control) {
    return kControls[control].parameter->kind == ParameterKind::kSwitch;
}

// Round(32768 x), held within 16 bits.
int16_t Quantized(float x) {
    if (!std::isfinite(x)) return 0;
    return static_cast<int16_t>(std::clamp(std::floor(32768.0 * x + 0.5), -32768.0, 32767.0));
}

float Part(size_t of, size_t whole) {
    return static_cast<float>(of) / static_cast<float>(whole);
}

}  // namespace

uint32_t RunningStream::LatencyOf(const Settings& all) const {
    return kBlockFrames + DelayFrames(all, kBlockFrames);
}

void RunningStream::Set(size_t control, double value) {
    const double held = kControls[control].Held(value);
    if (wasSet[control] && wanted[control] == held) return;
    if (!wasSet[control] && kControls[control].IsUnsendable(value)) return;
    wasSet[control] = true;
    wanted[control] = held;
    if (now == 0) SetControl(control, held, &settings);
    if (!IsRunning()) return;
    if (!IsSwitch(control) || now == 0)
        Send(control, held);
    else if (duck == Duck::kOpen || duck == Duck::kFilling)
        duck = Duck::kClosing;
}

void RunningStream::Send(size_t control, double value) {
    sent[control] = value;
    stream->instance.Set(kControls[control].Command(value));
    latencyFrames = now == 0 ? LatencyOf(settings) : latencyFrames;
}

bool RunningStream::Start(uint32_t rateHz) {
    sent = wanted;
    stream.emplace(AELI, StreamFormat{rateHz, 2, kBlockFrames}, settings);
    for (auto& meter : meters) meter.emplace(rateHz, 2, LoudnessMeter::Kind::kRunning);
    latencyFrames = LatencyOf(settings);
    return IsRunning();
}

// At a block's first frame, while nothing of the chain is heard.
void RunningStream::MoveSwitches() {
    for (size_t n = 0; n < kControls.size(); ++n) {
        if (!IsSwitch(n) || sent[n] == wanted[n]) continue;
        SetControl(n, wanted[n], &settings);
        Send(n, wanted[n]);
    }
    hold = LatencyOf(settings);
    duck = Duck::kFilling;
}

float RunningStream::DuckGain() {
    if (duck == Duck::kClosing && open > 0) --open;
    if (duck == Duck::kClosing && open == 0) duck = Duck::kClosed;
    if (duck == Duck::kClosed && now % kBlockFrames == 0) MoveSwitches();
    if (duck == Duck::kFilling && hold > 0 && --hold == 0 && latencyFrames != LatencyOf(settings)) {
        olderLatency = latencyFrames;
        latencyFrames = LatencyOf(settings);
        tapFade = 0;
    }
    if (duck == Duck::kFilling && hold == 0 && ++open == kFadeFrames) duck = Duck::kOpen;
    return Part(open, kFadeFrames);
}

float RunningStream::Past(size_t channel, uint32_t frames) const {
    return history[channel][(now - frames) % kHistoryFrames];
}

void RunningStream::Process(size_t frames) {
    float heardFrames[2 * kMostFrames], pastFrames[2 * kMostFrames];
    for (size_t n = 0; n < frames; ++n) {
        const float gain = DuckGain();
        if (bypassed && dry < kFadeFrames) ++dry;
        if (!bypassed && dry > 0) --dry;
        const float dryPart = Part(dry, kFadeFrames);
        const float tapPart = Part(tapFade, kFadeFrames);
        int16_t frame[2];
        for (size_t c = 0; c < 2; ++c) {
            const float sample = std::isfinite(in[c][n]) ? in[c][n] : 0;
            history[c][now % kHistoryFrames] = sample;
            frame[c] = Quantized(sample);
        }
        stream->Process(frame, frame, 1);
        for (size_t c = 0; c < 2; ++c) {
            float past = Past(c, latencyFrames);
            if (tapFade < kFadeFrames)
                past = past * tapPart + Past(c, olderLatency) * (1 - tapPart);
            float heard = static_cast<float>(frame[c]) / 32768;
            if (gain < 1) heard *= gain;
            if (dry > 0) heard = heard * (1 - dryPart) + past * dryPart;
            source[c][n] = pastFrames[2 * n + c] = past;
            result[c][n] = heardFrames[2 * n + c] = heard;
        }
        if (tapFade < kFadeFrames) ++tapFade;
        ++now;
    }
    meters[0]->Add(heardFrames, frames);
    meters[1]->Add(pastFrames, frames);
}

ORVANE_EXPORT(stream_create) RunningStream* StreamCreate() {
    return new (std::nothrow) RunningStream;
}
ORVANE_EXPORT(stream_release) void StreamRelease(RunningStream* stream) {
    delete stream;
}
ORVANE_EXPORT(stream_set) void StreamSet(RunningStream* stream, uint32_t control, double value) {
    stream->Set(control, value);
}
ORVANE_EXPORT(stream_bypass) void StreamBypass(RunningStream* stream, bool wanted) {
    stream->SetBypass(wanted);
}
ORVANE_EXPORT(stream_start) bool StreamStart(RunningStream* stream, uint32_t rateHz) {
    return stream->Start(rateHz);
}
// Where `in`, `result` and `source` lie, one behind the other, 128 samples a channel.
ORVANE_EXPORT(stream_samples) float* StreamSamples(RunningStream* stream) {
    return stream->in[0];
}
ORVANE_EXPORT(stream_process) void StreamProcess(RunningStream* stream, uint32_t frames) {
    stream->Process(frames);
}
ORVANE_EXPORT(stream_latency) uint32_t StreamLatency(const RunningStream* stream) {
    return stream->LatencyFrames();
}
// Of the result, or of the source: rmsDb and truePeakDb since last asked, shortTermLufs.
ORVANE_EXPORT(stream_levels)
void StreamLevels(RunningStream* stream, bool ofSource, double* levels) {
    LoudnessMeter& meter = stream->Meter(ofSource);
    const LoudnessMeter::Levels taken = meter.TakeLevels();
    levels[0] = taken.rmsDb;
    levels[1] = taken.truePeakDb;
    levels[2] = meter.ShortTermLufs();
}
