#include "live/live_stream.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "client/quantize.h"
#include "host/entry_points.h"

namespace {

constexpr double kMeterSeconds = 0.3;
constexpr double kSilentSquare = 1e-10;
constexpr double kNearGate = 0.989;  // 0.1 dB

// From 0 to 1, without a kink at either end.
float FadePart(size_t of, size_t whole) {
    const float t = static_cast<float>(of) / static_cast<float>(whole);
    return t * t * (3 - 2 * t);
}

// The next value on the wire, a step away that isn't heard as one.
int32_t Toward(int32_t wanted, int32_t sent, const Control& control) {
    if (control.parameter->isRamped) return wanted;
    const bool isFactor = control.parameter->unit == Unit::kFactor;
    const int32_t step = isFactor ? std::max(2, std::abs(sent) / 50) : 1;
    return sent + std::clamp(wanted - sent, -step, step);
}

float Decibels(double square) {
    return static_cast<float>(10 * std::log10(std::max(square, kSilentSquare)));
}

}  // namespace

LiveStream::LiveStream(uint32_t rateHz)
    : rate(rateHz), stream(AELI, StreamFormat{rateHz, 2, kBlockFrames}, Settings{}) {
    for (size_t n = 0; n < kControlCount; ++n) {
        const Parameter& parameter = *kControls[n].parameter;
        wishes[n].wanted = wishes[n].sent = parameter.OnWire(parameter.defaultValue);
        if (kControls[n].IsSwitch()) switches.Set(parameter.id, 0);
    }
    latencyFrames = NewLatency();
}

void LiveStream::Set(size_t control, double value) {
    Wish& wish = wishes[control];
    if (!wish.isSet && kControls[control].IsUnsendable(value)) return;
    const int32_t before = wish.wanted;
    wish.isSet = true;
    wish.wanted = kControls[control].parameter->OnWire(kControls[control].Held(value));
    if (wish.wanted != before && kControls[control].IsSwitch()) WantSwitch();
}

void LiveStream::Apply(const Settings& settings) {
    for (size_t n = 0; n < kControlCount; ++n) Set(n, ValueOf(settings, kControls[n]));
}

void LiveStream::SetLowLatency(bool wanted) {
    const uint32_t before = wantedFrames;
    wantedFrames = wanted ? kLowLatencyFrames : kBlockFrames;
    if (wantedFrames != before) WantSwitch();
}

void LiveStream::SetBypass(bool wanted) {
    bypassed = wanted;
    if (now == 0) dry = bypassed ? kFadeFrames : 0;
}

void LiveStream::WantSwitch() {
    if (now == 0) {
        MoveSwitches();
        latencyFrames = NewLatency();
    } else if (duck == Duck::kOpen || duck == Duck::kFilling) {
        duck = Duck::kClosing;
    }
}

void LiveStream::Send(size_t control) {
    Wish& wish = wishes[control];
    stream.instance.Set(kControls[control].CommandOf(wish.sent));
    if (kControls[control].IsSwitch())
        switches.Set(kControls[control].parameter->id, static_cast<double>(wish.sent));
}

// The framework's start: settings, then enabled.
void LiveStream::Start() {
    stream.instance.Disable();
    for (const bool asSwitches : {false, true})
        for (size_t n = 0; n < kControlCount; ++n)
            if (wishes[n].isSet && kControls[n].IsSwitch() == asSwitches) {
                wishes[n].sent = wishes[n].wanted;
                Send(n);
            }
    stream.instance.Enable();
}

void LiveStream::BeginBlock() {
    if (now == 0) Start();
    if (duck == Duck::kClosed) {
        MoveSwitches();
        hold = NewLatency();
        duck = Duck::kFilling;
    }
    Slew();
}

void LiveStream::MoveSwitches() {
    if (blockFrames != wantedFrames) {
        blockFrames = wantedFrames;
        stream.Restart(blockFrames);
    }
    for (size_t n = 0; n < kControlCount; ++n) {
        Wish& wish = wishes[n];
        if (!kControls[n].IsSwitch() || wish.sent == wish.wanted) continue;
        wish.sent = wish.wanted;
        Send(n);
    }
}

void LiveStream::Slew() {
    for (size_t n = 0; n < kControlCount; ++n) {
        Wish& wish = wishes[n];
        if (kControls[n].IsSwitch() || wish.sent == wish.wanted) continue;
        const bool steps = IsHeard() && switches.Acts(*kControls[n].parameter);
        wish.sent = steps ? Toward(wish.wanted, wish.sent, kControls[n]) : wish.wanted;
        Send(n);
    }
}

// The part of the chain that is heard in the next frame.
float LiveStream::StepDuck() {
    if (duck == Duck::kClosing) {
        if (open > 0) --open;
        if (open == 0) duck = Duck::kClosed;
    } else if (duck == Duck::kFilling && hold > 0) {
        if (--hold == 0 && latencyFrames != NewLatency()) {
            olderLatency = latencyFrames;
            latencyFrames = NewLatency();
            tapFade = 0;
        }
    } else if (duck == Duck::kFilling && ++open == kFadeFrames) {
        duck = Duck::kOpen;
    }
    return FadePart(open, kFadeFrames);
}

float LiveStream::Past(size_t channel) const {
    const auto at = [&](uint32_t latency) {
        return history[channel][(now - latency) % kHistoryFrames];
    };
    if (tapFade == kFadeFrames) return at(latencyFrames);
    const float part = FadePart(tapFade, kFadeFrames);
    return at(latencyFrames) * part + at(olderLatency) * (1 - part);
}

// One frame, both channels.
void LiveStream::Mix(const int16_t* chain, float* result, float* source) {
    const float gain = StepDuck();
    if (bypassed && dry < kFadeFrames) ++dry;
    if (!bypassed && dry > 0) --dry;
    const float dryPart = FadePart(dry, kFadeFrames);
    for (size_t c = 0; c < 2; ++c) {
        peak = std::max(peak, std::abs(int32_t{chain[c]}));
        source[c] = Past(c);
        result[c] = static_cast<float>(chain[c]) / 32768 * gain;
        if (dry > 0) result[c] = result[c] * (1 - dryPart) + source[c] * dryPart;
        sourceSquares += double{source[c]} * source[c];
        resultSquares += double{result[c]} * result[c];
    }
    if (tapFade < kFadeFrames) ++tapFade;
    ++now;
}

void LiveStream::ProcessPiece(const float* const in[2], float* const result[2],
                              float* const source[2], size_t frames) {
    int16_t pcm[2 * kPieceFrames] = {};
    for (size_t c = 0; c < 2; ++c)
        for (size_t n = 0; n < frames; ++n) {
            const float sample = std::isfinite(in[c][n]) ? in[c][n] : 0;
            history[c][(now + n) % kHistoryFrames] = sample;
            pcm[2 * n + c] = Quantized(sample);
        }
    stream.Process(pcm, pcm, frames);
    for (size_t n = 0; n < frames; ++n) {
        float heard[2], past[2];
        Mix(pcm + 2 * n, heard, past);
        for (size_t c = 0; c < 2; ++c) {
            result[c][n] = heard[c];
            if (source[0] != nullptr) source[c][n] = past[c];
        }
    }
}

void LiveStream::Process(const float* const in[2], float* const result[2], float* const source[2],
                         size_t frames) {
    for (size_t done = 0; done < frames;) {
        if (blockAt == 0) BeginBlock();
        const size_t count = std::min({frames - done, kPieceFrames, size_t{blockFrames - blockAt}});
        const float* const from[2] = {in[0] + done, in[1] + done};
        float* const into[2] = {result[0] + done, result[1] + done};
        float* past[2] = {};
        if (source[0] != nullptr)
            for (size_t c = 0; c < 2; ++c) past[c] = source[c] + done;
        ProcessPiece(from, into, past, count);
        done += count;
        blockAt += static_cast<uint32_t>(count);
        if (blockAt == blockFrames) EndBlock();
    }
}

void LiveStream::EndBlock() {
    const double follow = blockFrames / (kMeterSeconds * rate + blockFrames);
    const double samples = 2.0 * blockFrames;
    sourceMean += (sourceSquares / samples - sourceMean) * follow;
    resultMean += (resultSquares / samples - resultMean) * follow;
    sourceSquares = resultSquares = 0;

    constexpr auto kGate = std::find_if(kControls.begin(), kControls.end(), [](const Control& c) {
        return c.parameter->unit == Unit::kFullScale;
    });
    const double ceiling = wishes[static_cast<size_t>(kGate - kControls.begin())].sent /
                           static_cast<double>(kGate->parameter->wireScale);
    limitingFor -= std::min(limitingFor, blockFrames);
    if (peak >= kNearGate * 32768 * ceiling)
        limitingFor = static_cast<uint32_t>(kMeterSeconds * rate);
    peak = 0;
    blockAt = 0;
}

LiveStream::Levels LiveStream::Meters() const {
    const float sourceDb = Decibels(sourceMean), resultDb = Decibels(resultMean);
    const bool silent = std::min(sourceMean, resultMean) <= kSilentSquare;
    return {sourceDb, resultDb, silent ? 0 : resultDb - sourceDb, limitingFor > 0};
}
