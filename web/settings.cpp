// The module's exports for the rules of settings (client/settings.h) and the grammar of settings
// files. `values` holds one number for every control, NaN where nothing is set.
#include <cmath>
#include <string>

#include "client/controls.h"
#include "client/settings_text.h"
#include "web/export.h"

namespace {

Settings SettingsAt(const double* values) {
    Settings settings;
    for (size_t n = 0; n < kControls.size(); ++n)
        if (!std::isnan(values[n])) SetValue(&settings, kControls[n], values[n]);
    return settings;
}

}  // namespace

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
