// Reads tone curves: points in a text, or the files that publish the correction of a headphone.
//
// The files are those of AutoEq, in either of its two forms. CRLF line ends, a byte order mark and
// lines with other commands are allowed; the latter are ignored.
//
//   GraphicEQ: 20 -0.5; 21 -0.5; 22 -0.6; ...      a curve of points: Hz, dB
//
//   Preamp: -6.1 dB                                added to everything else
//   Filter 1: ON LSC Fc 105 Hz Gain 6.1 dB Q 0.70  low shelf, also LS; HSC and HS: high shelf
//   Filter 2: ON PK Fc 2401 Hz Gain -4.7 dB Q 0.65  bell
//   Filter 3: OFF PK Fc 100 Hz Gain 1 dB Q 1       ignored
//
// The filters are the usual biquads, computed at 48000 Hz. Their curve is sampled at 24 points per
// octave. Thread: any but the audio thread.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "client/tone.h"

struct ToneCurve {
    std::vector<TonePoint> points;  // as CurveDb takes them
    // kMiddle for a file, because the curve of a headphone has more details than ten bands can give
    ToneFocus focus = ToneFocus::kEven;
};

// Reads a file's text. Returns "" and stores the curve. Otherwise returns one line that says what
// is wrong, with its number if it is a wrong line; *curve is then unusable. Gains below -60 dB
// count as -60 dB. A curve that rises above 20 dB between 20 Hz and 20 kHz is wrong.
std::string ReadToneFile(std::string_view text, ToneCurve* curve);

// Reads what a listener gave as a curve: the path of a file, or points as ReadTone takes them. What
// names a file that exists, or has a slash, is a path. Returns "" or one line that says what is
// wrong.
std::string ReadToneNamed(const std::string& textOrPath, ToneCurve* curve);
