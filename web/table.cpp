// Prints parameters and presets as the module table.js. The text is an export of this program.
#include <cstdio>
#include <string>

#include "client/controls.h"
#include "client/presets.h"
#include "web/export.h"

namespace {

std::string Quoted(const std::string& text) {
    return '"' + text + '"';
}
std::string Number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}
std::string Row(const Control& control) {
    const Parameter& p = *control.parameter;
    std::string text =
        "  { key: " + Quoted(KeyOf(control)) + ", label: " + Quoted(NameOf(control)) +
        ", group: " + Quoted(p.group) +
        ", kind: " + Quoted(control.IsSwitch() ? "switch" : "value") +
        ", unit: " + Quoted(UnitText(p.unit)) + ", isGain: " + (p.IsGain() ? "true" : "false") +
        ", min: " + Number(p.minimum) + ", max: " + Number(p.maximum) +
        ", step: " + Number(1.0 / p.wireScale) + ", default: " + Number(p.defaultValue) +
        ",\n    needs: " + (p.needs == kNoSwitch ? "null" : Quoted(ParameterOf(p.needs).key));
    if (control.IsBand()) text += ", band: " + std::to_string(control.band);
    return text + ",\n    law: " + Quoted(p.law) + " },\n";
}

std::string Values(const Settings& settings) {
    std::string text;
    for (const Control& control : kControls) {
        const Parameter& p = *control.parameter;
        if (!settings.IsSet(p.id)) continue;
        text += (text.empty() ? "" : ", ") + Quoted(KeyOf(control)) + ": " +
                Number(ValueOf(settings, control));
    }
    return text;
}

}  // namespace

// Returns the text, which is the same at every call.
ORVANE_EXPORT(table) const char* Table() {
    static std::string text;
    text = "export const parameters = [\n";
    for (const Control& control : kControls) text += Row(control);
    text += "];\nexport const presets = [\n";
    for (const Preset& preset : Presets())
        text += "  { name: " + Quoted(preset.name) + ", purpose: " + Quoted(preset.purpose) +
                ",\n    description: " + Quoted(preset.description) + ",\n    values: { " +
                Values(SettingsOf(preset)) + " } },\n";
    text += "];\n";
    return text.c_str();
}
