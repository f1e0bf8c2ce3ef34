// The equalizer's response in Hz and dB. The functions say what a band does alone and what ten do
// together, and find the ten levels that come nearest to a wanted curve.
//
// The equalizer is the symmetric FIR filter of effects/fir_equalizer.h. Apart from its delay, its
// response is therefore real, and it is linear in the bands' gains:
//
//   H(f) = sum over b of gain[b] * term(b, f)      a gain is 1 + level up to 0, 1 + 2 level above
//   A(k, f) = sin((2 D + 1) pi f / rate) / (2 D sin(pi f / rate))   average of half-width D = 2^k
//   term 9 = 1 - A(0), term b = A(8 - b) - A(9 - b), term 0 = A(8)
//
// A(k) is the response of the moving average of half-width D. The terms add up to 1 at every
// frequency, but no band ends where the next begins. Each term is negative in places, and A(k) is
// 1 + 1 / (2 D) at 0 Hz instead of 1. So one band alone moves the frequencies an octave away in the
// opposite direction. Band 9 at level +1 removes the frequencies far below it.
//
// Frequencies and rates are in Hz, with 0 < hz <= rateHz / 2. Thread: any; nothing allocates.
#pragma once
#include <cstddef>
#include <span>

#include "client/settings.h"

// Returns term(band, hz): what a band, 0 (lowest) to 9, adds to the linear gain for a band gain of
// 1. May be negative.
double BandTerm(size_t band, double hz, double rateHz);

// Returns the magnitude |H(hz)| of all ten bands in dB, but at least -120.
double ToneDb(const Settings::Levels& levels, double hz, double rateHz);

// Returns the frequency at which a band's term is largest, within 0.1 %. For band 9 that is half
// the rate. Band 0 reaches down to 0 Hz; for it, returns the lowest frequency found where its term
// is no longer positive.
double BandHz(size_t band, double rateHz);

struct TonePoint {
    double hz, db;
};

// Returns the gain in dB at `hz` of the curve through the points. The curve is straight between
// points on a logarithmic frequency axis and flat beyond the outermost points. There must be at
// least one point, and the points must ascend in frequency.
double CurveDb(std::span<const TonePoint> points, double hz);

// Says where a fit has to come near to its curve.
enum class ToneFocus {
    kEven,    // everywhere alike
    kMiddle,  // most of all from 60 Hz to 8 kHz: a deviation outside counts a quarter of one inside
};

struct ToneFit {
    Settings::Levels levels;  // rounded to what can be sent
    // The root mean square of the deviation from the curve in dB, over 20 Hz to the lower of 20 kHz
    // and 0.45 times the rate.
    double rmsDb;
    double worstDb;      // the largest deviation there or at a point: result minus curve, signed
    double worstHz;      // the frequency of worstDb
    double middleRmsDb;  // as rmsDb, but from 60 Hz to 8 kHz
    ToneFocus focus;
    double peakDb;  // the result's largest magnitude up to half the rate

    // Returns true if every deviation is below 1.5 dB. Curves that change no faster than the bands
    // are wide are fitted that well.
    bool IsNear() const { return worstDb > -1.5 && worstDb < 1.5; }
};

// Finds the levels, -1 to 1, with the least squares of the deviation in dB from the curve, at 24
// frequencies per octave. The points are those of CurveDb.
ToneFit FitTone(std::span<const TonePoint> points, double rateHz,
                ToneFocus focus = ToneFocus::kEven);

// Replaces the band levels of `settings` by those of the fit. With `headroom`, lowers the output
// gain if its product with the curve's peak exceeds 1.
void ApplyTone(const ToneFit& fit, bool headroom, Settings* settings);
