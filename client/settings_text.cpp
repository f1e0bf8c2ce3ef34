#include "client/settings_text.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

namespace {

// Returns the parts between separators, each without the blanks around it.
std::vector<std::string_view> Split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    std::string_view part;
    while (NextPart(&text, separator, &part)) parts.push_back(part);
    return parts;
}

std::string LevelsText(const Settings& settings, const char* separator) {
    std::string text;
    for (const double level : settings.BandLevels())
        text += (text.empty() ? "" : separator) + NumberText(level);
    return text;
}

}  // namespace

std::string NumberText(double value) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%g", value);
    return text.data();
}

std::string DecibelText(double decibels) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%+.1f", std::round(decibels * 10) / 10 + 0.0);
    return text.data();
}

std::string ValueText(const Parameter& parameter, double value) {
    std::string text = NumberText(value);
    if (parameter.IsGain() && value > 0 && value != 1)
        text += " (" + DecibelText(20 * std::log10(value)) + " dB)";
    return text;
}

std::string RangeText(const Parameter& parameter) {
    return NumberText(parameter.minimum) + " to " + NumberText(parameter.maximum);
}

std::string DefaultText(const Parameter& parameter) {
    std::string text = NumberText(parameter.defaultValue);
    if (!parameter.CanSendDefault())
        text += ", sent as " + NumberText(parameter.Sendable(parameter.defaultValue));
    return text;
}

std::string HelpText(const Parameter& parameter) {
    std::string text = std::string(parameter.label) + ": " + parameter.law;
    if (parameter.kind == ParameterKind::kSwitch) return text;
    const bool hasUnit = parameter.unit != Unit::kNumber;
    return text + " (" + RangeText(parameter) + (hasUnit ? ", " : "") +
           (hasUnit ? UnitText(parameter.unit) : "") + "; default " + DefaultText(parameter) + ")";
}

std::string SetFromText(std::string_view key, std::string_view value, Settings* settings) {
    Fault fault;
    SetFromText(key, value, settings, &fault);
    return fault.Text();
}

std::string ReadSettings(std::string_view text, Settings* settings) {
    Fault fault;
    ReadSettings(text, settings, &fault);
    return fault.Text();
}

std::string SettingsText(const Settings& settings) {
    std::string text;
    for (const Parameter& parameter : kParameters) {
        if (*parameter.key == '\0' || !settings.IsSet(parameter.id)) continue;
        std::string value = NumberText(settings.Get(parameter.id));
        if (parameter.kind == ParameterKind::kBandValue) value = LevelsText(settings, ",");
        if (parameter.kind == ParameterKind::kSwitch)
            value = settings.IsOn(parameter.id) ? "on" : "off";
        text += std::string(parameter.key) + " = " + value + "\n";
    }
    return text;
}

std::string Describe(const Settings& settings) {
    std::string text;
    const auto add = [&text](const std::string& part) {
        text += (text.empty() ? "" : ", ") + part;
    };
    for (const Parameter& parameter : kParameters) {
        if (*parameter.key == '\0' || parameter.needs != kNoSwitch) continue;
        if (parameter.kind != ParameterKind::kSwitch) {
            if (settings.Get(parameter.id) != parameter.defaultValue)
                add(std::string(parameter.key) + " " +
                    ValueText(parameter, settings.Get(parameter.id)));
            continue;
        }
        if (!settings.IsOn(parameter.id)) continue;
        std::string values;
        for (const Parameter& of : kParameters) {
            if (of.needs != parameter.id || *of.key == '\0') continue;
            values += values.empty() ? "" : ", ";
            values += of.kind == ParameterKind::kBandValue
                          ? LevelsText(settings, " ")
                          : std::string(of.key) + " " + ValueText(of, settings.Get(of.id));
        }
        add(std::string(parameter.group) + " (" + values + ")");
    }
    return text.empty() ? "output limiters only" : text;
}

std::string ReadTone(std::string_view text, std::vector<TonePoint>* points) {
    points->clear();
    for (const std::string_view item : Split(text, ',')) {
        const std::vector<std::string_view> sides = Split(item, ':');
        TonePoint point{};
        if (sides.size() != 2 || !ReadNumber(sides[0], &point.hz) ||
            !ReadNumber(sides[1], &point.db))
            return "takes HZ:DB,HZ:DB,..., not \"" + std::string(text) + "\"";
        if (!(point.hz >= 10 && point.hz <= 24000 && point.db >= -60 && point.db <= 20))
            return std::string(item) + " is outside 10 to 24000 Hz and -60 to 20 dB";
        points->push_back(point);
    }
    const auto lower = [](const TonePoint& a, const TonePoint& b) { return a.hz < b.hz; };
    std::sort(points->begin(), points->end(), lower);
    for (size_t i = 1; i < points->size(); ++i)
        if ((*points)[i].hz == (*points)[i - 1].hz)
            return NumberText((*points)[i].hz) + " Hz stands there twice";
    return "";
}

std::string FitText(const ToneFit& fit) {
    std::array<char, 160> text{};
    std::array<char, 48> middle{};
    if (fit.focus == ToneFocus::kMiddle)
        std::snprintf(middle.data(), middle.size(), "; %.1f dB from 60 Hz to 8 kHz",
                      fit.middleRmsDb);
    std::snprintf(text.data(), text.size(), "%s %.1f dB (rms%s), furthest off at %.0f Hz: ",
                  fit.IsNear() ? "within" : "ten bands can't give this curve: off by", fit.rmsDb,
                  middle.data(), fit.worstHz);
    return text.data() + DecibelText(fit.worstDb) + " dB";
}
