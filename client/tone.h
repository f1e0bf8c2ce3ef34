// The equalizer's tone in hertz and decibels: what a band does alone, what ten do together, and the
// ten levels that come nearest to a wanted curve.
//
// The equalizer (effects/fir_equalizer.h) is symmetric about its delay, so its response is real and
// linear in the bands' gains:
//
//   H(f) = sum over b of gain[b] * term(b, f)      a gain is 1 + level up to 0, 1 + 2 level above
//   A(k, f) = sin((2 D + 1) pi f / rate) / (2 D sin(pi f / rate))   average of half-width D = 2^k
//   term 9 = 1 - A(0), term b = A(8 - b) - A(9 - b), term 0 = A(8)
//
// The terms add up to 1 at every frequency, but no band ends where the next begins: each is
// negative in places, and an average's gain at 0 Hz is 1 + 1 / (2 D), not 1. So one band alone also
// moves what lies an octave off the other way, and band 9 at +1 takes away what lies far below it.
//
// Frequencies and rates in Hz, 0 < f <= rate / 2. Nothing is allocated; any thread.
#pragma once
#include <cstddef>
#include <span>

#include "client/settings.h"

// Band 0 (lowest) to 9.
double BandTerm(size_t band, double hz, double rateHz);

// Magnitude of the ten together; -120 stands for everything below.
double ToneDb(const Settings::Levels& levels, double hz, double rateHz);

// Where a band alone does most: the frequency of its largest term, within 0.1 %.
// Half the rate for band 9; for band 0, which goes down to 0 Hz, the edge where its term ends.
double BandHz(size_t band, double rateHz);

struct TonePoint {
    double hz, db;
};

// The curve through the points, which must ascend in frequency: straight lines on a logarithmic
// frequency axis, flat beyond the outermost. At least one point.
double CurveDb(std::span<const TonePoint> points, double hz);

struct ToneFit {
    Settings::Levels levels;  // as they are sent
    double rmsDb;    // deviation from the curve over 20 Hz to the lower of 20 kHz and 0.45 rate
    double worstDb;  // the largest there, the points included; signed: result less curve
    double worstHz;  // where that is
    double peakDb;   // the result's largest magnitude up to half the rate

    // A curve that changes no faster than the bands are wide comes out as near as this.
    bool IsNear() const { return worstDb > -1.5 && worstDb < 1.5; }
};

// Least squares of the deviation in decibels at 24 frequencies to the octave, levels within -1
// to 1. Points as for CurveDb.
ToneFit FitTone(std::span<const TonePoint> points, double rateHz);

// The fit's levels in place of those of `settings`. With headroom the output gain is lowered, if
// need be, so that the curve's peak times the gain is at most 1.
void ApplyTone(const ToneFit& fit, bool headroom, Settings* settings);
