// Integrated loudness and true peak of a stream (ITU-R BS.1770, EBU R 128), through libebur128.
#pragma once
#include <ebur128.h>

#include <cstdint>
#include <memory>
#include <span>

struct Loudness {           // NaN: not measured
    double integratedLufs;  // -infinity if silent or shorter than 0.4 s
    double truePeakDb;      // dB over full scale, of the louder channel; -infinity if silent
};

class LoudnessMeter {
public:
    // on: false measures nothing (the true peak costs as much as the chain). Nor is anything
    // measured at a rate that the meter doesn't take.
    LoudnessMeter(uint32_t channelCount, uint32_t rateHz, bool on);

    // Interleaved samples, whole frames.
    void Add(std::span<const float> samples);
    void Add(std::span<const int16_t> samples);
    // NaN where nothing was measured.
    Loudness Result() const;

private:
    struct Deleter {
        void operator()(ebur128_state* handle) const { ebur128_destroy(&handle); }
    };
    std::unique_ptr<ebur128_state, Deleter> state;
    uint32_t channels;
};
