// What a listener turns while sound runs: every row of the parameter table that has a key, in the
// table's order, the equalizer's ten bands one by one. Constant.
//
// Values are the table's. A port of a host is in a listener's units: gains in decibels from -20 dB
// (0.1; below, hundredths are too far apart), band levels in per cent, everything else as it is.
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

    // The command that sets it. wire: an integer as the library takes it.
    ParameterCommand CommandOf(int32_t wire) const {
        return IsBand() ? PackSet(parameter->id, {band, wire}) : PackSet(parameter->id, {wire});
    }
    // Into the table's range; not a number is the default.
    double Held(double value) const {
        if (value != value) return parameter->defaultValue;
        return std::clamp(value, parameter->minimum, parameter->maximum);
    }
    // Whether `value`, as a host's floats hold it, is what a new instance has and no command
    // restores.
    bool IsUnsendable(double value) const {
        return !parameter->CanSendDefault() &&
               static_cast<float>(value) == static_cast<float>(parameter->defaultValue);
    }

    float ToPort(double value) const {
        if (IsSwitch()) return value != 0 ? 1 : 0;
        if (IsBand()) return static_cast<float>(100 * value);
        if (IsDecibels()) return static_cast<float>(20 * std::log10(std::max(value, kLeastGain)));
        return static_cast<float>(value);
    }
    // Any float; the default comes back as it is.
    double FromPort(float port) const {
        if (port == ToPort(parameter->defaultValue)) return parameter->defaultValue;
        if (IsSwitch()) return port > 0 ? 1 : 0;
        if (IsBand()) return Held(port / 100.0);
        if (IsDecibels()) return Held(std::pow(10.0, std::max(port, ToPort(0)) / 20.0));
        return Held(port);
    }

    static constexpr double kLeastGain = 0.1;
};

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

// As a settings file has it, the bands one by one: "output-gain", "eq-3".
inline std::string KeyOf(const Control& control) {
    const std::string key = control.parameter->key;
    return control.IsBand() ? key + '-' + std::to_string(control.band) : key;
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

// What `settings` has for a control, in the table's units.
inline double ValueOf(const Settings& settings, const Control& control) {
    if (control.IsSwitch()) return settings.IsOn(control.parameter->id) ? 1 : 0;
    if (control.IsBand()) return settings.BandLevels()[static_cast<size_t>(control.band)];
    return settings.Get(control.parameter->id);
}
// Held; what no command restores is unset.
inline void SetValue(Settings* settings, const Control& control, double value) {
    if (control.IsUnsendable(value))
        settings->Unset(control.parameter->id);
    else if (control.IsBand())
        settings->SetBand(static_cast<size_t>(control.band), control.Held(value));
    else
        settings->Set(control.parameter->id, control.Held(value));
}
