#include "client/settings_text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

constexpr std::string_view kBlank = " \t\r";

std::string_view Trimmed(std::string_view text) {
    const size_t begin = text.find_first_not_of(kBlank);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(kBlank) + 1 - begin);
}

// Returns the parts between separators, each without the blanks around it. There is always at least
// one part.
std::vector<std::string_view> Split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (;;) {
        const size_t end = text.find(separator);
        parts.push_back(Trimmed(text.substr(0, end)));
        if (end == std::string_view::npos) return parts;
        text.remove_prefix(end + 1);
    }
}

template <typename Number>
bool Parse(std::string_view text, Number* value) {
    if (text.starts_with('+')) text.remove_prefix(1);
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, *value);
    return error == std::errc() && stop == end;
}
#if !defined(__cpp_lib_to_chars)  // std::from_chars reads only integers here
bool Parse(std::string_view text, double* value) {
    if (text.starts_with('+')) text.remove_prefix(1);
    const std::string number(text);
    if (number.empty() || number.find_first_not_of("0123456789.eE+-") != std::string::npos ||
        number[0] == '+')
        return false;
    char* end = nullptr;
    *value = std::strtod(number.c_str(), &end);
    return end == number.c_str() + number.size();
}
#endif

// Reads a number. For a gain, also reads decibels ("-3dB") and converts them to a linear gain.
bool ParseValue(const Parameter& parameter, std::string_view text, double* value) {
    const bool decibels = parameter.IsGain() && text.ends_with("dB");
    if (decibels) text = Trimmed(text.substr(0, text.size() - 2));
    if (!Parse(text, value)) return false;
    if (decibels) *value = std::pow(10, *value / 20);
    return true;
}

std::string Named(std::string_view key, std::string_view value, const std::string& fault) {
    return std::string(key).append(" ").append(value).append(" ").append(fault);
}

std::string SetLevels(const Parameter& parameter, std::string_view text, Settings* settings) {
    std::string form = std::string(parameter.key) + " takes " + std::to_string(kBandCount) +
                       " levels, or BAND=LEVEL, not \"" + std::string(text) + "\"";
    const std::vector<std::string_view> items = Split(text, ',');
    const auto isNamed = [](std::string_view item) {
        return item.find('=') != std::string_view::npos;
    };
    const bool named = isNamed(items.front());
    if (!named && items.size() != kBandCount) return form;
    Settings changed = *settings;
    for (size_t i = 0; i < items.size(); ++i) {
        size_t band = i;
        std::string_view number = items[i];
        if (isNamed(number) != named) return form;
        if (named) {
            const std::vector<std::string_view> sides = Split(number, '=');
            if (sides.size() != 2 || !Parse(sides[0], &band)) return form;
            number = sides[1];
        }
        double level = 0;
        if (!Parse(number, &level)) return form;
        if (band >= kBandCount)
            return std::string(parameter.key) + " has bands 0 to " + std::to_string(kBandCount - 1);
        if (!changed.SetBand(band, level))
            return Named(parameter.key, number, "is outside " + RangeText(parameter));
    }
    *settings = changed;
    return "";
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

const Parameter* FindByKey(std::string_view key) {
    if (key.empty()) return nullptr;
    const auto* const found =
        std::find_if(std::begin(kParameters), std::end(kParameters),
                     [key](const Parameter& parameter) { return key == parameter.key; });
    return found == std::end(kParameters) ? nullptr : found;
}

std::string SetFromText(std::string_view key, std::string_view value, Settings* settings) {
    const Parameter* const parameter = FindByKey(key);
    if (parameter == nullptr) return "no setting is called " + std::string(key);
    if (parameter->kind == ParameterKind::kBandValue) return SetLevels(*parameter, value, settings);
    double number = 0;
    if (parameter->kind == ParameterKind::kSwitch) {
        const bool on = value == "on" || value == "1";
        if (!on && value != "off" && value != "0")
            return Named(key, value, "is neither on nor off");
        number = on ? 1 : 0;
    } else if (!ParseValue(*parameter, value, &number)) {
        return Named(key, value, "is not a number");
    }
    if (number > 0 && parameter->Sendable(number) == 0)
        return Named(key, value,
                     "is too little to be sent, the least is " +
                         ValueText(*parameter, 1.0 / parameter->wireScale));
    if (settings->Set(parameter->id, number)) return "";
    return Named(key, value, "is outside " + RangeText(*parameter));
}

std::string ReadSettings(std::string_view text, Settings* settings) {
    if (text.size() > kMostSettingsBytes) return "1: longer than a settings file can be";
    std::vector<std::string_view> keys;
    size_t number = 0;
    for (const std::string_view line : Split(text, '\n')) {
        ++number;
        const std::string_view content = Trimmed(line.substr(0, line.find('#')));
        if (content.empty()) continue;
        const size_t equals = content.find('=');
        const std::string_view key = Trimmed(content.substr(0, equals));
        std::string fault;
        if (equals == std::string_view::npos)
            fault = "\"" + std::string(content) + "\" is not key = value";
        else if (std::count(keys.begin(), keys.end(), key) != 0)
            fault = std::string(key) + " stands here a second time";
        else
            fault = SetFromText(key, Trimmed(content.substr(equals + 1)), settings);
        if (!fault.empty()) return std::to_string(number) + ": " + fault;
        keys.push_back(key);
    }
    return "";
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
        if (sides.size() != 2 || !Parse(sides[0], &point.hz) || !Parse(sides[1], &point.db))
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
    std::array<char, 96> text{};
    std::snprintf(text.data(), text.size(), "%s %.1f dB (rms), furthest off at %.0f Hz: ",
                  fit.IsNear() ? "within" : "ten bands can't give this curve: off by", fit.rmsDb,
                  fit.worstHz);
    return text.data() + DecibelText(fit.worstDb) + " dB";
}
