// Measures loudness and peaks of a stream (ITU-R BS.1770, EBU R 128) with libebur128.
#pragma once
#include <ebur128.h>

#include <cstddef>
#include <cstdint>

// Measures one stream whose full scale is 1.0. A figure is -infinity for silence, and while there
// are too few samples for it.
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
