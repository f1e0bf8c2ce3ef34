// The module's exports for settings: client/settings.h's rules and the grammar of settings files.
// `values`: a number for every control, NaN for what isn't set.
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

// Switches that nobody set become 1 where their values turn them on.
ORVANE_EXPORT(settings_follow) void SettingsFollow(double* values) {
    const Settings settings = SettingsAt(values);
    for (size_t n = 0; n < kControls.size(); ++n)
        if (kControls[n].IsSwitch() && std::isnan(values[n]) &&
            settings.IsOn(kControls[n].parameter->id))
            values[n] = 1;
}
// What is wrong with a settings file, or "" and its values. The text is valid until the next call.
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
// The lines of a settings file, valid until the next call.
ORVANE_EXPORT(settings_text) const char* SettingsLines(const double* values) {
    static std::string text;
    text = SettingsText(SettingsAt(values));
    return text.c_str();
}
