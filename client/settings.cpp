#include "client/settings.h"

#include <algorithm>

namespace {

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
    const Parameter& parameter = ParameterOf(PARAM_EQUALIZER_BANDLEVEL);
    if (band >= levels.size() || !InRange(parameter, level)) return false;
    levels[band] = parameter.Sendable(level);
    rows[RowOf(parameter.id)].isSet = true;
    return true;
}

void Settings::Unset(ParameterId id) {
    rows[RowOf(id)] = {};
    if (id == PARAM_EQUALIZER_BANDLEVEL) levels.fill(0);
}

double Settings::Get(ParameterId id) const {
    const Row& row = rows[RowOf(id)];
    return row.isSet ? row.value : ParameterOf(id).defaultValue;
}

bool Settings::IsOn(ParameterId id) const {
    if (id == PARAM_EQUALIZER_ENABLE && !IsSet(id))
        return std::any_of(levels.begin(), levels.end(), [](double level) { return level != 0; });
    return Get(id) != 0;
}

bool Settings::Acts(const Parameter& parameter) const {
    if (parameter.id == PARAM_EQUALIZER_BANDLEVEL && !IsSet(parameter.needs)) return true;
    return parameter.needs == kNoSwitch || IsOn(parameter.needs);
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
