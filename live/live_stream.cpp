#include "live/live_stream.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "client/quantize.h"
#include "client/stream.h"

namespace {

constexpr double kMeterSeconds = 0.3;
constexpr double kSilentSquare = 1e-10;
constexpr double kNearGate = 0.989;  // 0.1 dB

float Decibels(double square) {
    return static_cast<float>(10 * std::log10(std::max(square, kSilentSquare)));
}

}  // namespace

LiveStream::LiveStream(uint32_t rateHz)
    : rate(rateHz), chains(rateHz, kBufferFrames), latencyFrames(chains.LatencyFrames()) {}

void LiveStream::Set(size_t control, double value) {
    int32_t& wire = wanted[control];
    if (wire == ChainPair::kNothing && kControls[control].IsUnsendable(value)) return;
    const int32_t before = wire;
    wire = kControls[control].parameter->OnWire(kControls[control].Held(value));
    if (wire != before && kControls[control].IsSwitch()) WantSwitch();
}

void LiveStream::Apply(const Settings& settings) {
    for (size_t n = 0; n < kControls.size(); ++n) Set(n, ValueOf(settings, kControls[n]));
}

void LiveStream::SetLowLatency(bool isWanted) {
    const uint32_t before = wantedFrames;
    wantedFrames = isWanted ? kLowLatencyFrames : kBufferFrames;
    if (wantedFrames != before) WantSwitch();
}

void LiveStream::SetBypass(bool isWanted) {
    bypassed = isWanted;
    if (now == 0) dry = bypassed ? kFadeFrames : 0;
}

void LiveStream::WantSwitch() {
    if (now == 0) {
        Jump();
        latencyFrames = chains.LatencyFrames();
    } else if (duck == Duck::kOpen || duck == Duck::kFilling) {
        duck = Duck::kClosing;
    }
}

// Takes over all wanted values and switches at once, while nothing is heard.
void LiveStream::Jump() {
    bufferFrames = wantedFrames;
    chains.Jump(wanted, bufferFrames);
}

void LiveStream::Settle() {
    if (now != 0) return;
    Jump();
    latencyFrames = chains.LatencyFrames();
    const uint64_t wantedSilence = FramesToSettle(rate, bufferFrames);
    for (uint64_t done = 0; done < wantedSilence; done += bufferFrames) FillBuffer();
}

void LiveStream::Flush() {
    if (now == 0) return;
    if (bufferAt + kForgetFrames > bufferFrames) FillBuffer();
    FillBuffer();
    Jump();
    // The chain has also returned a buffer that isn't heard yet.
    muted = bufferFrames + chains.Clear();
    latencyFrames = chains.LatencyFrames();
    for (float(&channel)[kHistoryFrames] : history) std::fill_n(channel, kHistoryFrames, 0.0F);
    tapFade = open = kFadeFrames;
    duck = Duck::kOpen;
    dry = bypassed ? kFadeFrames : 0;
    sourceSquares = resultSquares = 0;
    peak = 0;
}

// Completes the present buffer and drops what the chain returns. The buffer is filled with the last
// sound that came in, so that the automatic gain measures about the same level. Its end is silent.
void LiveStream::FillBuffer() {
    while (bufferAt < bufferFrames) {
        const size_t count = std::min(kPieceFrames, size_t{bufferFrames - bufferAt});
        int16_t pcm[2 * kPieceFrames] = {};
        float dropped[2 * kPieceFrames];
        for (size_t n = 0; n < count && bufferAt + n + kForgetFrames < bufferFrames; ++n)
            for (size_t c = 0; c < 2; ++c)
                pcm[2 * n + c] =
                    Quantized(history[c][(now - bufferFrames + bufferAt + n) % kHistoryFrames]);
        chains.Process(pcm, dropped, count);
        bufferAt += static_cast<uint32_t>(count);
    }
    bufferAt = 0;
}

void LiveStream::BeginBuffer() {
    if (now == 0) Jump();
    if (duck == Duck::kClosed) {
        Jump();
        hold = chains.LatencyFrames() + ChainPair::kSettleFrames;
        duck = Duck::kFilling;
    }
    chains.Move(wanted);
}

// Moves on by one frame. Returns the gain of the chain's output in this frame, 0 to 1.
float LiveStream::StepDuck() {
    if (duck == Duck::kClosing) {
        if (open > 0) --open;
        if (open == 0) duck = Duck::kClosed;
    } else if (duck == Duck::kFilling && hold > 0) {
        if (--hold == 0 && latencyFrames != chains.LatencyFrames()) {
            olderLatency = latencyFrames;
            latencyFrames = chains.LatencyFrames();
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

// Mixes one frame of both channels.
void LiveStream::Mix(const float* chain, float* result, float* source) {
    const float gain = StepDuck();
    if (bypassed && dry < kFadeFrames) ++dry;
    if (!bypassed && dry > 0) --dry;
    const float dryPart = FadePart(dry, kFadeFrames);
    const bool isMuted = muted > 0;
    if (isMuted) --muted;
    for (size_t c = 0; c < 2; ++c) {
        if (!isMuted) peak = std::max(peak, std::abs(chain[c]));
        source[c] = Past(c);
        result[c] = isMuted ? 0 : chain[c] * gain;
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
    float chain[2 * kPieceFrames];
    chains.Process(pcm, chain, frames);
    for (size_t n = 0; n < frames; ++n) {
        float heard[2], past[2];
        Mix(chain + 2 * n, heard, past);
        for (size_t c = 0; c < 2; ++c) {
            result[c][n] = heard[c];
            if (source[0] != nullptr) source[c][n] = past[c];
        }
    }
}

void LiveStream::Process(const float* const in[2], float* const result[2], float* const source[2],
                         size_t frames) {
    for (size_t done = 0; done < frames;) {
        if (bufferAt == 0) BeginBuffer();
        const size_t count =
            std::min({frames - done, kPieceFrames, size_t{bufferFrames - bufferAt}});
        const float* const from[2] = {in[0] + done, in[1] + done};
        float* const into[2] = {result[0] + done, result[1] + done};
        float* past[2] = {};
        if (source[0] != nullptr)
            for (size_t c = 0; c < 2; ++c) past[c] = source[c] + done;
        ProcessPiece(from, into, past, count);
        done += count;
        bufferAt += static_cast<uint32_t>(count);
        if (bufferAt == bufferFrames) EndBuffer();
    }
}

void LiveStream::EndBuffer() {
    const double follow = bufferFrames / (kMeterSeconds * rate + bufferFrames);
    const double samples = 2.0 * bufferFrames;
    sourceMean += (sourceSquares / samples - sourceMean) * follow;
    resultMean += (resultSquares / samples - resultMean) * follow;
    sourceSquares = resultSquares = 0;

    limitingFor -= std::min(limitingFor, bufferFrames);
    if (static_cast<double>(peak) >= kNearGate * chains.Gate())
        limitingFor = static_cast<uint32_t>(kMeterSeconds * rate);
    peak = 0;
    bufferAt = 0;
}

LiveStream::Levels LiveStream::Meters() const {
    const float sourceDb = Decibels(sourceMean), resultDb = Decibels(resultMean);
    const bool silent = std::min(sourceMean, resultMean) <= kSilentSquare;
    return {sourceDb, resultDb, silent ? 0 : resultDb - sourceDb, limitingFor > 0};
}
