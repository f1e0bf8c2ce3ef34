// Loudness and peaks (ITU-R BS.1770, EBU R 128) of a stream, through libebur128.
#pragma once
#include <ebur128.h>

#include <cstddef>
#include <cstdint>

// Full scale 1.0. What is asked is -infinity while there is nothing, or too little.
class LoudnessMeter {
public:
    enum class Kind { kRunning, kWhole };

    LoudnessMeter(uint32_t rateHz, uint32_t channelCount, Kind kind);
    ~LoudnessMeter();
    LoudnessMeter(const LoudnessMeter&) = delete;
    LoudnessMeter& operator=(const LoudnessMeter&) = delete;

    // Interleaved, finite. Allocates only if the whole is measured.
    void Add(const float* samples, size_t frames);

    double IntegratedLufs() const;  // kWhole
    double ShortTermLufs() const;   // kRunning: of the last 3 s

    // kRunning: of all channels, and of the louder, since this was last asked.
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
