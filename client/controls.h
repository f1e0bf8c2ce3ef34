// The controls that a listener moves while sound runs. Each row of the parameter table that has a
// key is one control, in the table's order. Each of the ten equalizer bands is one.
//
// Functions without "port" in their names take and give values in the table's units. A port of a
// host has a listener's units instead: gains are in dB, band levels in per cent. Switches are 0 or
// 1, and all other values are those of the table. The lowest gain that a port tells is -20 dB
// (0.1). Below it, a hundredth, which is the step on the wire, is too large a step in dB.
//
// Thread: any. The table is constant. Only KeyOf and NameOf allocate.
#pragma once
#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstddef>
#include <string>

#include "client/parameter_command.h"
#include "client/settings.h"

struct Control {
    const Parameter* parameter = nullptr;
    int32_t band = 0;

    bool IsSwitch() const { return parameter->kind == ParameterKind::kSwitch; }
    bool IsBand() const { return parameter->kind == ParameterKind::kBandValue; }
    bool IsDecibels() const { return parameter->IsGain(); }

    // Returns the command that sets the control. `wire` is the integer to send (Parameter::OnWire).
    ParameterCommand CommandOf(int32_t wire) const {
        return IsBand() ? PackSet(parameter->id, {band, wire}) : PackSet(parameter->id, {wire});
    }
    // Clamps `value` to the table's range. Returns the default for NaN.
    double Held(double value) const {
        if (value != value) return parameter->defaultValue;
        return std::clamp(value, parameter->minimum, parameter->maximum);
    }
    // Returns true if `value`, rounded to float as hosts hold it, is a default that no command can
    // restore. Only the gate's default, 0.9999, is such a value.
    bool IsUnsendable(double value) const {
        return !parameter->CanSendDefault() &&
               static_cast<float>(value) == static_cast<float>(parameter->defaultValue);
    }

    // Converts from the table's units to the port's.
    float ToPort(double value) const {
        if (IsSwitch()) return value != 0 ? 1 : 0;
        if (IsBand()) return static_cast<float>(100 * value);
        if (IsDecibels()) return static_cast<float>(20 * std::log10(std::max(value, kLeastGain)));
        return static_cast<float>(value);
    }
    // Converts from the port's units to the table's and clamps to the table's range. Takes any
    // float. The port's default gives exactly the table's default.
    double FromPort(float port) const {
        if (port == ToPort(parameter->defaultValue)) return parameter->defaultValue;
        if (IsSwitch()) return port > 0 ? 1 : 0;
        if (IsBand()) return Held(port / 100.0);
        if (IsDecibels()) return Held(std::pow(10.0, std::max(port, ToPort(0)) / 20.0));
        return Held(port);
    }

    static constexpr double kLeastGain = 0.1;  // -20 dB
};

// Returns how many controls a row has: 0 without a key, 10 for the row of bands, else 1.
constexpr size_t ControlsOf(const Parameter& parameter) {
    if (parameter.key[0] == '\0') return 0;
    return parameter.kind == ParameterKind::kBandValue ? kBandCount : 1;
}
constexpr size_t ControlCount() {
    size_t count = 0;
    for (const Parameter& parameter : kParameters) count += ControlsOf(parameter);
    return count;
}

constexpr auto kControls = [] {
    std::array<Control, ControlCount()> controls;
    size_t n = 0;
    for (const Parameter& parameter : kParameters)
        for (size_t band = 0; band < ControlsOf(parameter); ++band, ++n)
            controls[n] = {&parameter, static_cast<int32_t>(band)};
    return controls;
}();

// The keys of the controls, in their order: the table's key, with the band's number if the control
// is a band: "output-gain", "eq-3".
struct ControlKey {
    std::array<char, 32> text{};
};
constexpr auto kControlKeys = [] {
    static_assert(kBandCount <= 10, "a band's number is one digit");
    std::array<ControlKey, kControls.size()> keys;
    for (size_t n = 0; n < keys.size(); ++n) {
        size_t at = 0;
        for (const char* c = kControls[n].parameter->key; *c != '\0'; ++c) keys[n].text[at++] = *c;
        if (kControls[n].parameter->kind != ParameterKind::kBandValue) continue;
        keys[n].text[at++] = '-';
        keys[n].text[at] = static_cast<char>('0' + kControls[n].band);
    }
    return keys;
}();
// `control` must be an element of kControls.
inline std::string KeyOf(const Control& control) {
    return kControlKeys[static_cast<size_t>(&control - kControls.data())].text.data();
}

// Returns the name that a listener reads: the table's words, then the parameter's name if it
// differs. "Treble (process)", "Output gain", "Band 3 (eq 3)".
inline std::string NameOf(const Control& control) {
    std::string label = control.parameter->label, key = KeyOf(control);
    if (control.IsBand()) label += ' ' + std::to_string(control.band);
    std::replace(key.begin(), key.end(), '-', ' ');
    const bool isSame = std::equal(
        label.begin(), label.end(), key.begin(), key.end(),
        [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
    return isSame ? label : label + " (" + key + ')';
}

// Returns the value that `settings` holds for a control, in the table's units.
inline double ValueOf(const Settings& settings, const Control& control) {
    if (control.IsSwitch()) return settings.IsOn(control.parameter->id) ? 1 : 0;
    if (control.IsBand()) return settings.BandLevels()[static_cast<size_t>(control.band)];
    return settings.Get(control.parameter->id);
}
// Clamps `value` to the control's range and stores it. A value that no command can restore (the
// gate's default) is unset instead, so that nothing is sent for it.
inline void SetValue(Settings* settings, const Control& control, double value) {
    if (control.IsUnsendable(value))
        settings->Unset(control.parameter->id);
    else if (control.IsBand())
        settings->SetBand(static_cast<size_t>(control.band), control.Held(value));
    else
        settings->Set(control.parameter->id, control.Held(value));
}
