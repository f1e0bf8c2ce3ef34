#include "client/settings.h"

#include <algorithm>

namespace {

constexpr const Parameter& kBandRow = ParameterOf(PARAM_EQUALIZER_BANDLEVEL);

bool InRange(const Parameter& parameter, double value) {
    return value >= parameter.minimum && value <= parameter.maximum;
}

}  // namespace

bool Settings::Set(ParameterId id, double value) {
    const Parameter& parameter = ParameterOf(id);
    if (!InRange(parameter, value)) return false;
    rows[RowOf(id)] = {true, parameter.Sendable(value)};
    return true;
}

bool Settings::SetBand(size_t band, double level) {
    if (band >= levels.size() || !InRange(kBandRow, level)) return false;
    levels[band] = kBandRow.Sendable(level);
    rows[RowOf(kBandRow.id)].isSet = true;
    return true;
}

void Settings::Unset(ParameterId id) {
    rows[RowOf(id)] = {};
    if (id == kBandRow.id) levels.fill(kBandRow.defaultValue);
}

double Settings::Get(ParameterId id) const {
    const Row& row = rows[RowOf(id)];
    return row.isSet ? row.value : ParameterOf(id).defaultValue;
}

bool Settings::IsOn(ParameterId id) const {
    if (!FollowsNow(id)) return Get(id) != 0;
    return std::any_of(
        std::begin(kParameters), std::end(kParameters),
        [this, id](const Parameter& row) { return row.needs == id && !IsDefault(row); });
}

// Returns true for a switch that nobody has set and that therefore follows its values.
bool Settings::FollowsNow(ParameterId id) const {
    return ParameterOf(id).followsItsValues && !IsSet(id);
}

bool Settings::IsDefault(const Parameter& parameter) const {
    const auto isDefault = [&parameter](double value) { return value == parameter.defaultValue; };
    if (parameter.kind == ParameterKind::kBandValue)
        return std::all_of(levels.begin(), levels.end(), isDefault);
    return isDefault(Get(parameter.id));
}

bool Settings::Acts(const Parameter& parameter) const {
    return parameter.needs == kNoSwitch || FollowsNow(parameter.needs) || IsOn(parameter.needs);
}

ParameterCommands Settings::Commands() const {
    ParameterCommands commands;
    for (const Parameter& parameter : kParameters) {
        if (!IsSet(parameter.id)) continue;
        if (parameter.kind == ParameterKind::kValue)
            commands.Add(PackSet(parameter.id, {parameter.OnWire(Get(parameter.id))}));
        if (parameter.kind == ParameterKind::kBandValue)
            for (int32_t band = 0; band < kBandCount; ++band)
                commands.Add(PackSet(parameter.id,
                                     {band, parameter.OnWire(levels[static_cast<size_t>(band)])}));
    }
    for (const Parameter& parameter : kParameters)
        if (parameter.kind == ParameterKind::kSwitch)
            if (const bool on = IsOn(parameter.id); on || IsSet(parameter.id))
                commands.Add(PackSet(parameter.id, {on ? 1 : 0}));
    return commands;
}
