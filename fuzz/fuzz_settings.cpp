// Fuzz target: reads texts that people write: settings, settings files, tone curves, curves of
// headphones and numbers.
//
// The first byte of an input chooses which. The other bytes are the text.
//
// Run it with scripts/fuzz.sh.
#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "client/settings_file.h"
#include "client/settings_text.h"
#include "client/tone_file.h"
#include "fuzz/fuzz_input.h"

namespace {

void DemandUsable(const Settings& settings) {
    for (const Parameter& row : kParameters)
        if (settings.IsSet(row.id) && row.kind != ParameterKind::kBandValue)
            Demand(settings.Get(row.id) >= row.minimum && settings.Get(row.id) <= row.maximum,
                   "values in their ranges");
    for (const double level : settings.BandLevels())
        Demand(level >= -1 && level <= 1, "levels in their range");
    Settings again;
    Demand(ReadSettings(SettingsText(settings), &again).empty() && again == settings,
           "written and read, the same settings");
    Demand(!Describe(settings).empty(), "a description");
}

void ReadText(std::string_view text) {
    Settings settings;
    Fault fault;
    const bool isWhole = ReadSettings(text, &settings, &fault);
    Demand(isWhole == fault.IsEmpty(), "a message exactly for a wrong text");
    Demand(std::strlen(fault.Text()) <= Fault::kMostBytes, "a message that ends");
    DemandUsable(settings);
}

// Takes the text as the name of a preset, or else as the content of a settings file.
void ReadByName(std::string_view text) {
    Settings settings;
    const std::string name(text);
    if (name.find('/') == std::string::npos && name.find('\0') == std::string::npos)
        SettingsNamed(name, &settings);
    SettingsNamed(MemoryFile(text).Path(), &settings);
    DemandUsable(settings);
}

void FitCurve(const std::string& fault, const ToneCurve& curve) {
    if (!fault.empty() || curve.points.empty()) return;
    for (size_t i = 1; i < curve.points.size(); ++i)
        Demand(curve.points[i - 1].hz < curve.points[i].hz, "ascending frequencies");
    const ToneFit fit = FitTone(curve.points, 48000, curve.focus);
    Demand(std::isfinite(fit.rmsDb) && !FitText(fit).empty(), "a finite fit");
    Settings settings;
    ApplyTone(fit, true, &settings);
    DemandUsable(settings);
}

// Takes the text as points, and as the content of a file for headphones.
void ReadCurve(std::string_view text) {
    ToneCurve points, file;
    FitCurve(ReadTone(text, &points.points), points);
    FitCurve(ReadToneNamed(MemoryFile(text).Path(), &file), file);
}

// Compares with the standard library, which reads the nearest double.
void ReadOneNumber(std::string_view text) {
    double value = 0;
    if (!ReadNumber(text, &value)) return;
    const std::string whole(text);
    const double nearest = std::strtod(whole.c_str(), nullptr);
    if (whole.size() <= 15 && whole.find_first_of("eE") == std::string::npos)
        Demand(value == nearest, "the nearest number");
    else if (whole.size() < 40 && std::fabs(nearest) > 1e-280 && std::fabs(nearest) < 1e280)
        Demand(std::fabs(value / nearest - 1) < 1e-12, "about the number");
    Demand(!std::isnan(value), "a number");
    for (const Parameter& row : kParameters)
        Demand(!ValueText(row, value).empty() && !HelpText(row).empty(), "texts of a value");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    constexpr void (*kReaders[])(std::string_view) = {ReadText, ReadByName, ReadCurve,
                                                      ReadOneNumber};
    const size_t reader = input.Take<uint8_t>() % std::size(kReaders);
    const std::string_view rest = input.Rest();
    const ExactBlock<char> block(rest.size());
    std::copy(rest.begin(), rest.end(), block.data());
    kReaders[reader]({block.data(), rest.size()});
    return 0;
}
