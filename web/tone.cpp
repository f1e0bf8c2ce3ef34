// The module's exports for the equalizer's tone, client/tone.h by numbers.
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
// levels: ten. hz: `count` frequencies, in whose place the decibels come.
ORVANE_EXPORT(tone_db)
void ToneDecibels(const double* levels, double* hz, uint32_t count, double rateHz) {
    const Settings::Levels copy = LevelsAt(levels);
    for (uint32_t n = 0; n < count; ++n) hz[n] = ToneDb(copy, hz[n], rateHz);
}
// points: `count` pairs of hertz and decibels, ascending. fit: ten levels, then rmsDb, worstDb,
// worstHz, peakDb.
ORVANE_EXPORT(tone_fit)
void ToneFitLevels(const TonePoint* points, uint32_t count, double rateHz, double* fit) {
    const ToneFit found = FitTone({points, count}, rateHz);
    fit = std::copy(found.levels.begin(), found.levels.end(), fit);
    for (const double figure : {found.rmsDb, found.worstDb, found.worstHz, found.peakDb})
        *fit++ = figure;
}
