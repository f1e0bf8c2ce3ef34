// The module's exports, except those of a running stream and its levels (stream.cpp).
#include <cmath>
#include <string>

#include "client/controls.h"
#include "client/instance.h"
#include "client/settings_text.h"
#include "client/stream.h"
#include "client/tone.h"
#include "host/entry_points.h"
#include "web/export.h"

namespace {

constexpr uint32_t kBufferFrames = 1024;

struct Piece {
    Settings settings;
    std::unique_ptr<PieceStream> stream;
    std::vector<int16_t> out;
};

Settings SettingsAt(const double* values) {
    Settings settings;
    for (size_t n = 0; n < kControls.size(); ++n)
        if (!std::isnan(values[n])) SetValue(&settings, kControls[n], values[n]);
    return settings;
}

Settings::Levels LevelsAt(const double* levels) {
    Settings::Levels copy;
    std::copy_n(levels, copy.size(), copy.begin());
    return copy;
}

}  // namespace

// One instance of the effect, which is called as the framework calls it. Results are those of
// ClientInstance.

ORVANE_EXPORT(create) ClientInstance* Create() {
    auto* const instance = new (std::nothrow) ClientInstance(AELI);
    if (instance == nullptr || instance->handle != nullptr) return instance;
    delete instance;
    return nullptr;
}
ORVANE_EXPORT(release) void Release(ClientInstance* instance) {
    delete instance;
}
ORVANE_EXPORT(configure)
int32_t Configure(ClientInstance* instance, uint32_t rateHz, uint32_t channels) {
    return instance->Configure(rateHz, channels);
}
// Sends a command without data.
ORVANE_EXPORT(command) int32_t Command(ClientInstance* instance, uint32_t code) {
    return instance->Command(code);
}
// Sets a parameter. `values` holds `count` numbers of 32 bits, 1 to 4.
ORVANE_EXPORT(set)
int32_t Set(ClientInstance* instance, int32_t id, const int32_t* values, uint32_t count) {
    return instance->Set(PackSet(id, values, count));
}
ORVANE_EXPORT(get) int32_t Get(ClientInstance* instance, int32_t id) {
    return instance->Get(id);
}
// Processes frames of interleaved 16-bit samples. `in` and `out` may be equal.
ORVANE_EXPORT(process)
int32_t Process(ClientInstance* instance, const int16_t* in, int16_t* out, uint32_t frames) {
    return instance->Process(in, out, frames);
}

// A whole piece, which gets the same samples as in the renderer.

ORVANE_EXPORT(piece_create) Piece* PieceCreate() {
    return new (std::nothrow) Piece;
}
ORVANE_EXPORT(piece_release) void PieceRelease(Piece* piece) {
    delete piece;
}
// Sets a value before the piece starts. `control` is a place in the list of controls; `value` is in
// the units of the table.
ORVANE_EXPORT(piece_set) void PieceSet(Piece* piece, uint32_t control, double value) {
    SetValue(&piece->settings, kControls[control], value);
}
// Starts the piece. Returns whether the library accepted the format and all values.
ORVANE_EXPORT(piece_start) bool PieceStart(Piece* piece, uint32_t rateHz, uint32_t channels) {
    piece->stream = std::make_unique<PieceStream>(
        AELI, piece->settings, StreamFormat{rateHz, channels, kBufferFrames}, Alignment{});
    return piece->stream->Refused() == nullptr;
}
// Processes interleaved samples. Returns how many samples came out. They are at piece_out until the
// next call.
ORVANE_EXPORT(piece_process)
uint32_t PieceProcess(Piece* piece, const int16_t* in, uint32_t samples) {
    piece->out.clear();
    piece->stream->Process({in, samples}, &piece->out);
    return piece->out.size();
}
ORVANE_EXPORT(piece_finish) uint32_t PieceFinish(Piece* piece) {
    piece->out.clear();
    piece->stream->Finish(&piece->out);
    return piece->out.size();
}
ORVANE_EXPORT(piece_out) const int16_t* PieceOut(const Piece* piece) {
    return piece->out.data();
}

// The rules of settings (client/settings.h) and the grammar of settings files. `values` holds one
// number for every control, NaN where nothing is set.

// Sets switches that nobody set to 1 where their values turn them on.
ORVANE_EXPORT(settings_follow) void SettingsFollow(double* values) {
    const Settings settings = SettingsAt(values);
    for (size_t n = 0; n < kControls.size(); ++n)
        if (kControls[n].IsSwitch() && std::isnan(values[n]) &&
            settings.IsOn(kControls[n].parameter->id))
            values[n] = 1;
}
// Reads a settings file into `values`. Returns what is wrong with the file, or "". The text is
// valid until the next call.
ORVANE_EXPORT(settings_read)
const char* SettingsRead(const char* text, uint32_t bytes, double* values) {
    static std::string fault;
    Settings settings;
    fault = ReadSettings({text, bytes}, &settings);
    for (size_t n = 0; n < kControls.size(); ++n)
        values[n] =
            settings.IsSet(kControls[n].parameter->id) ? ValueOf(settings, kControls[n]) : NAN;
    return fault.c_str();
}
// Returns the lines of a settings file. The text is valid until the next call.
ORVANE_EXPORT(settings_text) const char* SettingsLines(const double* values) {
    static std::string text;
    text = SettingsText(SettingsAt(values));
    return text.c_str();
}

// The equalizer's tone (client/tone.h).

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
