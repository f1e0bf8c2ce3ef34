#include "client/settings_reader.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace {

constexpr std::string_view kBlank = " \t\r";

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Cuts digits from *text. The first 18 that aren't leading zeros go into *number. Returns how many
// digits there were, and adds to *dropped those that had no room.
int TakeDigits(std::string_view* text, uint64_t* number, int* dropped) {
    constexpr uint64_t kRoom = 100'000'000'000'000'000;  // one more digit fits below it
    int count = 0;
    for (; !text->empty() && IsDigit(text->front()); text->remove_prefix(1), ++count) {
        if (*number < kRoom)
            *number = 10 * *number + static_cast<uint64_t>(text->front() - '0');
        else
            ++*dropped;
    }
    return count;
}

bool TakeSign(std::string_view* text) {
    const bool isNegative = text->starts_with('-');
    if (isNegative || text->starts_with('+')) text->remove_prefix(1);
    return isNegative;
}

bool ReadBand(std::string_view text, size_t* band) {
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, *band);
    return error == std::errc() && stop == end;
}

// Reads a number. For a gain, also reads decibels ("-3dB") and converts them to a linear gain.
bool ReadValue(const Parameter& parameter, std::string_view text, double* value) {
    const bool decibels = parameter.IsGain() && text.ends_with("dB");
    if (decibels) text = Trimmed(text.substr(0, text.size() - 2));
    if (!ReadNumber(text, value)) return false;
    if (decibels) *value = std::pow(10, *value / 20);
    return true;
}

// Splits BAND=LEVEL. Returns false if the item is a level alone.
bool SplitBand(std::string_view item, std::string_view* band, std::string_view* level) {
    const size_t equals = item.find('=');
    if (equals == std::string_view::npos) return false;
    *band = Trimmed(item.substr(0, equals));
    item.remove_prefix(equals + 1);
    *level = Trimmed(item);
    return true;
}

bool SetLevels(const Parameter& parameter, std::string_view text, Settings* settings,
               Fault* fault) {
    const auto refuseForm = [&] {
        fault->Add(parameter.key).Add(" takes ").Add(kBandCount);
        fault->Add(" levels, or BAND=LEVEL, not \"").AddQuoted(text).Add("\"");
        return false;
    };
    const bool isNamed = text.substr(0, text.find(',')).find('=') != std::string_view::npos;
    const auto items = static_cast<size_t>(1 + std::count(text.begin(), text.end(), ','));
    if (!isNamed && items != kBandCount) return refuseForm();
    Settings changed = *settings;
    std::string_view rest = text, item;
    for (size_t i = 0; NextPart(&rest, ',', &item); ++i) {
        size_t band = i;
        std::string_view name, number = item;
        if (SplitBand(item, &name, &number) != isNamed) return refuseForm();
        if (isNamed && !ReadBand(name, &band)) return refuseForm();
        double level = 0;
        if (!ReadNumber(number, &level)) return refuseForm();
        if (band >= kBandCount) {
            fault->Add(parameter.key).Add(" has bands 0 to ").Add(kBandCount - 1);
            return false;
        }
        if (!changed.SetBand(band, level)) {
            fault->Add(parameter.key).Add(" ").AddQuoted(number).AddRangeOf(parameter);
            return false;
        }
    }
    *settings = changed;
    return true;
}

bool ReadLine(std::string_view line, std::array<bool, std::size(kParameters)>* seen,
              Settings* settings, Fault* fault) {
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos) {
        fault->Add("\"").AddQuoted(line).Add("\" is not key = value");
        return false;
    }
    const std::string_view key = Trimmed(line.substr(0, equals));
    if (const Parameter* const parameter = FindByKey(key)) {
        bool& isSeen = (*seen)[static_cast<size_t>(parameter - kParameters)];
        if (isSeen) {
            fault->Add(key).Add(" stands here a second time");
            return false;
        }
        isSeen = true;
    }
    line.remove_prefix(equals + 1);
    return SetFromText(key, Trimmed(line), settings, fault);
}

}  // namespace

Fault& Fault::Add(std::string_view more) {
    const size_t count = std::min(more.size(), kMostBytes - length);
    std::copy_n(more.data(), count, text.data() + length);
    length += count;
    text[length] = '\0';
    return *this;
}

Fault& Fault::AddQuoted(std::string_view more) {
    constexpr size_t kMostQuoted = 60;
    if (more.size() <= kMostQuoted) return Add(more);
    size_t end = kMostQuoted;
    const auto isInside = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; };
    while (end > 0 && isInside(more[end])) --end;  // no half character of UTF-8
    return Add(more.substr(0, end)).Add("...");
}

Fault& Fault::Add(double number) {
    std::array<char, 32> digits{};
    std::snprintf(digits.data(), digits.size(), "%g", number);
    std::replace(digits.begin(), digits.end(), ',', '.');
    return Add(digits.data());
}

Fault& Fault::AddRangeOf(const Parameter& parameter) {
    return Add(" is outside ").Add(parameter.minimum).Add(" to ").Add(parameter.maximum);
}

std::string_view Trimmed(std::string_view text) {
    const size_t begin = text.find_first_not_of(kBlank);
    if (begin == std::string_view::npos) return {};
    text.remove_prefix(begin);
    text.remove_suffix(text.size() - 1 - text.find_last_not_of(kBlank));
    return text;
}

bool NextPart(std::string_view* rest, char separator, std::string_view* part) {
    if (rest->data() == nullptr) return false;
    const size_t end = std::min(rest->find(separator), rest->size());
    std::string_view whole = *rest;
    if (end == rest->size())
        *rest = {};
    else
        rest->remove_prefix(end + 1);
    whole.remove_suffix(whole.size() - end);
    *part = Trimmed(whole);
    return true;
}

bool ReadNumber(std::string_view text, double* value) {
    constexpr int kMostExponent = 400;  // beyond it, every number is 0 or infinite
    const bool isNegative = TakeSign(&text);
    uint64_t number = 0, power = 0;
    int exponent = 0;  // of the last digit in `number`
    int digits = TakeDigits(&text, &number, &exponent);
    if (text.starts_with('.')) {
        text.remove_prefix(1);
        int dropped = 0;
        const int places = TakeDigits(&text, &number, &dropped);
        digits += places;
        exponent -= places - dropped;
    }
    if (digits == 0) return false;
    if (text.starts_with('e') || text.starts_with('E')) {
        text.remove_prefix(1);
        const bool isSmall = TakeSign(&text);
        int ignored = 0;
        if (TakeDigits(&text, &power, &ignored) == 0) return false;
        const auto shift = static_cast<int>(std::min<uint64_t>(power, kMostExponent));
        exponent += isSmall ? -shift : shift;
    }
    if (!text.empty()) return false;
    double scale = 1;
    for (int n = std::min(std::abs(exponent), kMostExponent); n > 0; --n) scale *= 10;
    const auto whole = static_cast<double>(number);
    const double size = exponent < 0 ? whole / scale : number != 0 ? whole * scale : 0;
    *value = isNegative ? -size : size;
    return true;
}

const Parameter* FindByKey(std::string_view key) {
    if (key.empty()) return nullptr;
    const auto* const found =
        std::find_if(std::begin(kParameters), std::end(kParameters),
                     [key](const Parameter& parameter) { return key == parameter.key; });
    return found == std::end(kParameters) ? nullptr : found;
}

bool SetFromText(std::string_view key, std::string_view value, Settings* settings, Fault* fault) {
    const Parameter* const parameter = FindByKey(key);
    if (parameter == nullptr) {
        fault->Add("no setting is called ").AddQuoted(key);
        return false;
    }
    if (parameter->kind == ParameterKind::kBandValue)
        return SetLevels(*parameter, value, settings, fault);
    const auto refuse = [&](std::string_view reason) -> Fault& {
        return fault->Add(key).Add(" ").AddQuoted(value).Add(reason);
    };
    double number = 0;
    if (parameter->kind == ParameterKind::kSwitch) {
        const bool isOn = value == "on" || value == "1";
        if (!isOn && value != "off" && value != "0") {
            refuse(" is neither on nor off");
            return false;
        }
        number = isOn ? 1 : 0;
    } else if (!ReadValue(*parameter, value, &number)) {
        refuse(" is not a number");
        return false;
    }
    if (number > 0 && number <= parameter->maximum && parameter->Sendable(number) == 0) {
        refuse(" is too little to be sent, the least is ").Add(1.0 / parameter->wireScale);
        return false;
    }
    if (settings->Set(parameter->id, number)) return true;
    refuse("").AddRangeOf(*parameter);
    return false;
}

bool ReadSettings(std::string_view text, Settings* settings, Fault* fault) {
    if (text.size() > kMostSettingsBytes) {
        fault->Add("1: longer than a settings file can be");
        return false;
    }
    std::array<bool, std::size(kParameters)> seen{};
    std::string_view rest = text, line;
    for (int number = 1; NextPart(&rest, '\n', &line); ++number) {
        const std::string_view content = Trimmed(line.substr(0, line.find('#')));
        Fault found;
        if (content.empty() || ReadLine(content, &seen, settings, &found)) continue;
        fault->Add(number).Add(": ").Add(found.Text());
        return false;
    }
    return true;
}
