#include "live/chain_pair.h"

#include <algorithm>

#include "client/delay.h"
#include "host/entry_points.h"

namespace {

constexpr size_t kFadeFrames = 2048;

constexpr size_t ControlOf(ParameterId id) {
    size_t control = 0;
    while (kControls[control].parameter->id != id) ++control;
    return control;
}
constexpr size_t kAutomaticGain = ControlOf(PARAM_PLAYBACKGAIN_ENABLE);
constexpr size_t kOutputGain = ControlOf(PARAM_OUTPUT_GAIN);
constexpr size_t kGate = ControlOf(PARAM_LIMITER_GATE);
constexpr size_t kLoContour = ControlOf(PARAM_ENHANCER_LOCONTOUR);
constexpr int32_t kMiddleLoContour = kControls[kLoContour].parameter->OnWire(1);

}  // namespace

ChainPair::Wires ChainPair::Defaults() {
    Wires wires{};
    for (size_t n = 0; n < wires.size(); ++n) {
        const Parameter& parameter = *kControls[n].parameter;
        wires[n] = parameter.CanSendDefault() ? parameter.OnWire(parameter.defaultValue) : kNothing;
    }
    return wires;
}

ChainPair::ChainPair(uint32_t rateHz, uint32_t mostBufferFrames)
    : chains{{{AELI, {rateHz, 2, mostBufferFrames}, Settings{}}, Defaults()},
             {{AELI, {rateHz, 2, mostBufferFrames}, Settings{}}, Defaults()}},
      bufferFrames(mostBufferFrames) {
    for (const Control& control : kControls)
        if (control.IsSwitch()) switches.Set(control.parameter->id, 0);
    Rest(&Other());
}

const char* ChainPair::Refused() const {
    const char* const refused = chains[0].stream.Refused();
    return refused != nullptr ? refused : chains[1].stream.Refused();
}

uint32_t ChainPair::LatencyFrames() const {
    return bufferFrames + DelayFrames(switches, bufferFrames);
}

double ChainPair::Gate() const {
    const Parameter& parameter = *kControls[kGate].parameter;
    const int32_t sent = chains[heard].sent[kGate];
    return sent == kNothing ? parameter.defaultValue
                            : static_cast<double>(sent) / parameter.wireScale;
}

void ChainPair::Send(Chain* chain, size_t control, int32_t wire) {
    if (chain->sent[control] == wire || wire == kNothing) return;
    chain->sent[control] = wire;
    chain->stream.instance.Set(kControls[control].CommandOf(wire));
}

// Sends all values that differ from those that were sent, the switches last.
void ChainPair::Tune(Chain* chain, const Wires& wanted) {
    for (const bool asSwitches : {false, true})
        for (size_t n = 0; n < wanted.size(); ++n)
            if (kControls[n].IsSwitch() == asSwitches) Send(chain, n, wanted[n]);
}

// Switches everything off except the automatic gain. An output gain of 0 gives the limiters
// silence, so that they recover.
void ChainPair::Rest(Chain* chain) {
    Wires wires = chains[heard].sent;
    for (size_t n = 0; n < wires.size(); ++n)
        if (kControls[n].IsSwitch() && n != kAutomaticGain) wires[n] = 0;
    wires[kOutputGain] = 0;
    Tune(chain, wires);
}

void ChainPair::Jump(const Wires& wanted, uint32_t newBufferFrames) {
    state = State::kSteady;
    if (bufferFrames != newBufferFrames) {
        bufferFrames = newBufferFrames;
        for (Chain& chain : chains) chain.stream.Restart(bufferFrames);
    }
    Tune(&Heard(), wanted);
    for (size_t n = 0; n < wanted.size(); ++n)
        if (kControls[n].IsSwitch()) switches.Set(kControls[n].parameter->id, wanted[n]);
    hasAutomaticGain = wanted[kAutomaticGain] != 0;
    Rest(&Other());
}

uint32_t ChainPair::Clear() {
    for (size_t n = 0; n < kControls.size(); ++n) {
        if (!kControls[n].IsSwitch() || n == kAutomaticGain || Heard().sent[n] == 0) continue;
        const int32_t on = Heard().sent[n];
        Send(&Heard(), n, 0);
        Send(&Heard(), n, on);
    }
    return StreamDelayFrames(Settings()) + BufferingFrames(switches, bufferFrames);
}

void ChainPair::Move(const Wires& wanted) {
    if (state == State::kFading && faded == kFadeFrames) End();
    if (state != State::kSteady) return;
    bool isHeard = false;
    for (size_t n = 0; n < wanted.size(); ++n) {
        if (kControls[n].IsSwitch() || wanted[n] == Heard().sent[n]) continue;
        if (switches.Acts(*kControls[n].parameter))
            isHeard = true;
        else
            Send(&Heard(), n, wanted[n]);
    }
    if (isHeard) Begin(wanted);
}

void ChainPair::Begin(const Wires& wanted) {
    Chain& next = Other();
    if (!hasAutomaticGain) next.stream.Restart(bufferFrames);
    Wires wires = wanted;
    for (size_t n = 0; n < wires.size(); ++n)
        if (kControls[n].IsSwitch()) wires[n] = Heard().sent[n];
    const auto [low, high] = std::minmax(Heard().sent[kLoContour], wires[kLoContour]);
    if (low < kMiddleLoContour && kMiddleLoContour < high) wires[kLoContour] = kMiddleLoContour;
    Tune(&next, wires);
    state = State::kFilling;
    left = LatencyFrames() + kSettleFrames;
    faded = 0;
}

void ChainPair::End() {
    state = State::kSteady;
    heard = 1 - heard;
    Rest(&Other());
}

// Moves on by one frame. Returns the share of the other instance in this frame, 0 to 1.
float ChainPair::StepFade() {
    if (left > 0) {
        --left;
        return 0;
    }
    state = State::kFading;
    if (faded < kFadeFrames) ++faded;
    return FadePart(faded, kFadeFrames);
}

void ChainPair::Process(const int16_t* in, float* out, size_t frames) {
    int16_t now[2 * kMostFrames], next[2 * kMostFrames];
    Heard().stream.Process(in, now, frames);
    if (RunsBoth()) Other().stream.Process(in, next, frames);
    for (size_t n = 0; n < frames; ++n) {
        const float part = state == State::kSteady ? 0 : StepFade();
        for (size_t i = 2 * n; i < 2 * n + 2; ++i) {
            out[i] = static_cast<float>(now[i]) / 32768;
            if (part > 0) out[i] = out[i] * (1 - part) + static_cast<float>(next[i]) / 32768 * part;
        }
    }
}
