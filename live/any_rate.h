// Plays a stream at a session rate that the effect does not take. Sessions at 2, 4 or 8 times 44100
// or 48000 Hz are resampled to that rate and back. Sessions at 32000 to 48000 Hz pass unchanged.
//
// The resampler is flat to 18 kHz within 0.01 dB, and its aliases and images lie below -95 dB.
// (Measured against libzita-resampler with as little delay: its aliases lie below -94 dB.) It adds
// its delay to the latency, a little below 2 ms.
//
// Only the constructor allocates, and only it can fail. Thread: one at a time.
#pragma once
#include <speex/speex_resampler.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "dsp/samples.h"

// `Stream` is LiveStream, or a class with the same Process, LatencyFrames and Refused.
template <typename Stream>
class AnyRate {
public:
    // Returns the session's rate divided by the stream's rate: 1, 2, 4 or 8. Returns 0 for a rate
    // that is not supported.
    static uint32_t FactorOf(double rateHz) {
        if (rateHz >= kLowestRateHz && rateHz <= kHighestRateHz && rateHz == std::floor(rateHz))
            return 1;
        for (const uint32_t factor : {2U, 4U, 8U})
            if (rateHz == 44100.0 * factor || rateHz == 48000.0 * factor) return factor;
        return 0;
    }

    // FactorOf(rateHz) must not be 0.
    explicit AnyRate(uint32_t rateHz) : factor(FactorOf(rateHz)), stream(rateHz / factor) {
        if (factor == 1) return;
        down.reset(speex_resampler_init(2, rateHz, rateHz / factor, kQuality, nullptr));
        up.reset(speex_resampler_init(2, rateHz / factor, rateHz, kQuality, nullptr));
        if (down == nullptr || up == nullptr) return;
        delayFrames = static_cast<uint32_t>(speex_resampler_get_input_latency(down.get()) +
                                            speex_resampler_get_output_latency(up.get()));
    }

    // Returns what was refused, to complete "the effect refuses to ...", or null.
    const char* Refused() const {
        const bool hasResamplers = factor == 1 || (down != nullptr && up != nullptr);
        return hasResamplers ? stream.Refused() : "allocate its resamplers";
    }
    // Returns the stream, for everything except processing. It counts frames at its own rate.
    Stream& Inner() { return stream; }
    // Returns the present delay from input to output in frames of the session.
    uint32_t LatencyFrames() const { return stream.LatencyFrames() * factor + delayFrames; }

    // Drops the sound that waits. See LiveStream::Flush.
    void Flush() {
        stream.Flush();
        if (factor == 1) return;
        Clear(down.get());
        Clear(up.get());
        waiting = 0;
    }

    // Processes `frames` frames of planar floats, like LiveStream::Process. `out` may be the memory
    // of `in`, also with the channels exchanged. Must not be called if something was refused.
    void Process(const float* const in[2], float* const out[2], size_t frames) {
        if (factor == 1) {
            float* const nowhere[2] = {};
            return stream.Process(in, out, nowhere, frames);
        }
        for (size_t done = 0; done < frames;) {
            const size_t count = std::min(frames - done, kPieceFrames);
            ProcessPiece(in, out, done, count);
            done += count;
        }
    }

private:
    static constexpr int kQuality = 5;
    static constexpr size_t kPieceFrames = 256, kMostFactor = 8;

    struct Destroy {
        void operator()(SpeexResamplerState* state) const { speex_resampler_destroy(state); }
    };
    using Resampler = std::unique_ptr<SpeexResamplerState, Destroy>;

    // Resamples as much silence as the filter is long, and starts anew. (The reset of
    // speexdsp 1.2.1 alone leaves sound in the second channel.)
    static void Clear(SpeexResamplerState* resampler) {
        const float silence[2 * kPieceFrames] = {};
        float dropped[2 * kPieceFrames];
        constexpr int kTaken = kPieceFrames / kMostFactor;  // `dropped` has room for what they give
        for (int left = 2 * speex_resampler_get_input_latency(resampler); left > 0;
             left -= kTaken) {
            spx_uint32_t taken = kTaken, made = kPieceFrames;
            speex_resampler_process_interleaved_float(resampler, silence, &taken, dropped, &made);
        }
        speex_resampler_reset_mem(resampler);
    }

    // Resamples interleaved frames and returns how many frames it wrote. `out` has room for `most`.
    static size_t Resample(const Resampler& resampler, const float* in, size_t frames, float* out,
                           size_t most) {
        auto taken = static_cast<spx_uint32_t>(frames), made = static_cast<spx_uint32_t>(most);
        speex_resampler_process_interleaved_float(resampler.get(), in, &taken, out, &made);
        return made;
    }

    void ProcessPiece(const float* const in[2], float* const out[2], size_t at, size_t frames) {
        float session[2 * kPieceFrames], middle[2 * kPieceFrames];
        for (size_t n = 0; n < frames; ++n)
            for (size_t c = 0; c < 2; ++c) {
                const float sample = in[c][at + n];
                session[2 * n + c] = std::isfinite(sample) ? sample : 0;
            }
        const size_t inner = Resample(down, session, frames, middle, kPieceFrames);
        float planar[2][kPieceFrames];
        float* const io[2] = {planar[0], planar[1]};
        float* const nowhere[2] = {};
        for (size_t n = 0; n < inner; ++n)
            for (size_t c = 0; c < 2; ++c) planar[c][n] = middle[2 * n + c];
        stream.Process(io, io, nowhere, inner);
        for (size_t n = 0; n < inner; ++n)
            for (size_t c = 0; c < 2; ++c) middle[2 * n + c] = planar[c][n];
        // The first frame of each group of `factor` frames makes `down` return the group's inner
        // frame. So there are always as many frames as the session needs.
        waiting += Resample(up, middle, inner, ready + 2 * waiting, kRoom - waiting);
        for (size_t n = 0; n < frames; ++n)
            for (size_t c = 0; c < 2; ++c) out[c][at + n] = ready[2 * n + c];
        waiting -= frames;
        std::copy_n(ready + 2 * frames, 2 * waiting, ready);
    }

    static constexpr size_t kRoom = kPieceFrames + 2 * kMostFactor;

    uint32_t factor;
    Stream stream;
    Resampler down, up;
    uint32_t delayFrames = 0;
    float ready[2 * kRoom] = {};  // interleaved, of which `waiting` frames are valid
    size_t waiting = 0;
};
