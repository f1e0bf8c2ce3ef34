// The text of Limiter and Limiter_FP; what it does stands there.
#pragma once
#include <algorithm>
#include <cstdint>
#include <iterator>

#include "effects/limiter_arithmetic.h"
#include "effects/peak_tree.h"

template <typename Arithmetic>
class LimiterCore {
public:
    using Sample = typename Arithmetic::Sample;

    void SetGate(float newGate) {
        gate = Arithmetic::Gate(newGate);
        dividedPeak = 0;
    }

    void Reset() {
        const Sample keptGate = gate;
        *this = LimiterCore();
        gate = keptGate;
    }

    Sample Process(Sample x) {
        const Sample target = TargetFor(Arithmetic::Magnitude(x));
        delayLine[writeIndex] = x;
        writeIndex = (writeIndex + 1) % kPeakWindow;
        const Sample delayed = delayLine[writeIndex];

        smoothedTarget = Arithmetic::Smooth(smoothedTarget, target);
        const Sample recovered = Arithmetic::Recover(gain);
        gain = smoothedTarget < recovered ? smoothedTarget : recovered;
        const Sample y = Arithmetic::Apply(delayed, gain);
        if (!(Arithmetic::Magnitude(y) > gate)) return y;
        gain = Arithmetic::Target(gate, Arithmetic::Magnitude(delayed));
        return Arithmetic::Apply(delayed, gain);
    }

    void Process(Sample* samples, uint32_t frames, uint32_t stride) {
        for (uint32_t n = 0; n < frames; ++n, samples += stride) *samples = Process(*samples);
    }

private:
    // The gain that the largest of the newest samples needs; moves the peak's window on.
    Sample TargetFor(Sample magnitude) {
        if (magnitude > gate && !limiting) {
            peakTree.Clear();
            limiting = true;
        }
        if (!limiting) return Arithmetic::kUnity;
        const Sample peak = peakTree.Insert(writeIndex, magnitude);
        if (gate >= peak) {
            limiting = false;
            return Arithmetic::kUnity;
        }
        if (peak != dividedPeak) {
            dividedPeak = peak;
            peakTarget = Arithmetic::Target(gate, peak);
        }
        return peakTarget;
    }

    Sample gate = Arithmetic::kInitialGate;
    Sample gain = Arithmetic::kUnity;  // applied to the delayed sample
    Sample smoothedTarget = Arithmetic::kUnity;
    Sample delayLine[kPeakWindow] = {};
    PeakTree<Sample> peakTree;
    uint32_t writeIndex = 0;
    bool limiting = false;  // the tree is maintained
    // A peak stays for many samples, so it is divided by once: gate / dividedPeak; 0 is none.
    Sample dividedPeak = 0;
    Sample peakTarget = Arithmetic::kUnity;
};
