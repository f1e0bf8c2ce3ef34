// The settings as a flat list of numbers, as a page counts them: every row of the parameter table
// that a listener can set, in the table's order, the equalizer's ten bands one by one.
#pragma once
#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>

#include "client/parameter_command.h"
#include "client/settings.h"

struct Control {
    const Parameter* parameter = nullptr;
    int32_t band = 0;

    bool IsBand() const { return parameter->kind == ParameterKind::kBandValue; }
    // The command that sets it.
    ParameterCommand Command(double value) const {
        const int32_t wire = parameter->OnWire(value);
        return IsBand() ? PackSet(parameter->id, {band, wire}) : PackSet(parameter->id, {wire});
    }
    // Whether `value`, as a page's floats hold it, is what a new instance has and no command
    // restores.
    bool IsUnsendable(double value) const {
        return !parameter->CanSendDefault() &&
               static_cast<float>(value) == static_cast<float>(parameter->defaultValue);
    }
    // Into the table's range; not a number is the default.
    double Held(double value) const {
        if (value != value) return parameter->defaultValue;
        return std::clamp(value, parameter->minimum, parameter->maximum);
    }
};

constexpr size_t CountOf(const Parameter& parameter) {
    if (parameter.key[0] == '\0') return 0;
    return parameter.kind == ParameterKind::kBandValue ? kBandCount : 1;
}
constexpr size_t ControlCount() {
    size_t count = 0;
    for (const Parameter& parameter : kParameters) count += CountOf(parameter);
    return count;
}

constexpr auto kControls = [] {
    std::array<Control, ControlCount()> controls;
    size_t n = 0;
    for (const Parameter& parameter : kParameters)
        for (size_t band = 0; band < CountOf(parameter); ++band, ++n)
            controls[n] = {&parameter, static_cast<int32_t>(band)};
    return controls;
}();

// Sets control n of `settings`, as Held; a value that no command restores unsets it.
inline void SetControl(size_t n, double value, Settings* settings) {
    const Control& control = kControls[n];
    if (control.IsUnsendable(value))
        settings->Unset(control.parameter->id);
    else if (control.IsBand())
        settings->SetBand(static_cast<size_t>(control.band), control.Held(value));
    else
        settings->Set(control.parameter->id, control.Held(value));
}
