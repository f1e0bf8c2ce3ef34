// Peak limiter with look-ahead for one channel, fixed point: the integer sibling of Limiter, on
// Q24 samples (1.0 is 2^24).
//
// Delay: 255 samples. Allocates: never. Thread: no lock of its own; the owner serialises all calls.
#pragma once
#include <cstdint>

#include "dsp/fixed_point.h"
#include "effects/peak_tree.h"
#include "platform/export.h"

class ORVANE_API Limiter_FP {
public:
    // Gate one step below 1.0.
    Limiter_FP();

    // Largest output magnitude, full scale 1.0, stored rounded to Q24; 0 silences. Below 0 or not a
    // number counts as 0, 128 and above as the largest Q24 value.
    void SetGate(float newGate);

    // Forgets the history, as newly made; keeps the gate.
    void Reset();

    // The magnitude of the most negative sample counts as the most positive value.
    int32_t Process(int32_t x);
    // In place: `frames` samples of the channel that lie `stride` apart.
    void Process(int32_t* samples, uint32_t frames, uint32_t stride);

private:
    int32_t gate = kQ24One - 1;
    int32_t gain = kQ24One;            // applied to the delayed sample
    int32_t smoothedTarget = kQ24One;  // smoothed target gain
    int32_t delayLine[kPeakWindow] = {};
    PeakTree<int32_t> peakTree;
    uint32_t writeIndex = 0;
    bool limiting = false;  // the tree is maintained
    // A peak stays for many samples, so it is divided by once: gate / dividedPeak; 0 is none.
    int32_t dividedPeak = 0;
    int32_t peakTarget = kQ24One;
};
