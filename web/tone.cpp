// The module's exports for the equalizer's tone (client/tone.h).
#include "client/tone.h"

#include "web/export.h"

namespace {

Settings::Levels LevelsAt(const double* levels) {
    Settings::Levels copy;
    std::copy_n(levels, copy.size(), copy.begin());
    return copy;
}

}  // namespace

ORVANE_EXPORT(tone_band_hz) double ToneBandHz(uint32_t band, double rateHz) {
    return BandHz(band, rateHz);
}
// Replaces `count` frequencies at `hz` by the gain there in decibels. `levels` holds ten numbers.
ORVANE_EXPORT(tone_db)
void ToneDecibels(const double* levels, double* hz, uint32_t count, double rateHz) {
    const Settings::Levels copy = LevelsAt(levels);
    for (uint32_t n = 0; n < count; ++n) hz[n] = ToneDb(copy, hz[n], rateHz);
}
// Fits ten levels to `count` points, pairs of hertz and decibels with ascending frequencies. Writes
// 14 numbers to `fit`: the levels, rmsDb, worstDb, worstHz and peakDb.
ORVANE_EXPORT(tone_fit)
void ToneFitLevels(const TonePoint* points, uint32_t count, double rateHz, double* fit) {
    const ToneFit found = FitTone({points, count}, rateHz);
    fit = std::copy(found.levels.begin(), found.levels.end(), fit);
    for (const double figure : {found.rmsDb, found.worstDb, found.worstHz, found.peakDb})
        *fit++ = figure;
}
