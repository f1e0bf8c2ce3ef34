// Prints the generated regions of the C header, the Java class and the documents, which
// scripts/fill_in.py puts there. They come from table/parameters.h and the library's descriptor.
#include <fmt/core.h>

#include <cmath>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "client/delay.h"
#include "client/presets.h"
#include "client/settings_text.h"
#include "client/tone.h"
#include "host/entry_points.h"
#include "lv2/ports.h"
#include "table/parameters.h"

namespace {

// The range of the level tables in whole dB. Below the first one, a step of 0.01 in gain is more
// than 1 dB. Above the last one, no level is left.
constexpr int kLowestDb = -40;
constexpr int kHighestDb = 9;

[[noreturn]] void Fail(const std::string& what) {
    std::cerr << "generate: " << what << '\n';
    std::exit(EXIT_FAILURE);
}

bool IsQuery(const Parameter& parameter) {
    return parameter.kind == ParameterKind::kQuery;
}

// Describes the values of one identifier in a few words.
std::string Values(const Parameter& parameter) {
    if (parameter.kind == ParameterKind::kSwitch) return "0 off, 1 on";
    if (IsQuery(parameter)) return std::string("answers ") + UnitText(parameter.unit);
    std::string text;
    if (parameter.kind == ParameterKind::kBandValue)
        text = fmt::format("band 0 to {}, then ", kBandCount - 1);
    text += fmt::format("{:g} to {:g}", parameter.minimum, parameter.maximum);
    if (parameter.wireScale == 1) return text;
    if (parameter.unit != Unit::kNumber) text += fmt::format(" ({})", UnitText(parameter.unit));
    text += fmt::format(" times {}", parameter.wireScale);
    if (!parameter.CanSendDefault())
        text += fmt::format("; the default {:g} can't be sent, and {} is nearest",
                            parameter.defaultValue, parameter.OnWire(parameter.defaultValue));
    return text;
}

// Converts a gain in dB to hundredths of a level. The gain is 1 + level up to level 0 and 1 + 2
// level above.
int LevelOfDb(int decibels) {
    const double gain = std::pow(10.0, decibels / 20.0);
    const double level = gain <= 1.0 ? gain - 1.0 : (gain - 1.0) / 2.0;
    return static_cast<int>(std::lround(level * 100.0));
}
double DbOfLevel(int hundredths) {
    const double level = hundredths / 100.0;
    return 20.0 * std::log10(level <= 0.0 ? 1.0 + level : 1.0 + 2.0 * level);
}

std::string UuidText(const effect_uuid_s& uuid) {
    char text[kUuidTextSize];
    uuidToString(&uuid, text);
    return text;
}

effect_descriptor_t Descriptor() {
    effect_descriptor_t descriptor = {};
    if (checkSignal("qth_ov_safemode.sig") != 0) Fail("this machine is in safe mode");
    AELI.query_effect(0, &descriptor);
    return descriptor;
}

std::string CIdentifiers() {
    const effect_descriptor_t descriptor = Descriptor();
    std::string text = "#define ORVANE_UUID \"" + UuidText(descriptor.uuid) + "\"\n" +
                       "#define ORVANE_TYPE \"" + UuidText(descriptor.type) + "\"\n\n" +
                       "enum OrvaneParameter {\n";
    const Parameter* const last = std::end(kParameters) - 1;
    for (const Parameter& parameter : kParameters)
        text += fmt::format("    /* {} */\n    ORVANE_{} = 0x{:X}{}\n", Values(parameter),
                            parameter.name, static_cast<unsigned>(parameter.id),
                            &parameter == last ? "" : ",");
    return text + "};\n";
}

std::string JavaIdentifiers() {
    const effect_descriptor_t descriptor = Descriptor();
    std::string text;
    for (const auto& [name, uuid, what] :
         {std::tuple("UUID_TEXT", descriptor.uuid, "effect"),
          std::tuple("TYPE_TEXT", descriptor.type, "effect's type outside safe mode")})
        text += fmt::format(
            "{}    /** Identifies the {}. */\n    public static final String {} = \"{}\";\n",
            text.empty() ? "" : "\n", what, name, UuidText(uuid));
    for (const Parameter& parameter : kParameters)
        text += fmt::format("\n    /** {} */\n    public static final int {} = 0x{:X};\n",
                            Values(parameter), parameter.name, static_cast<unsigned>(parameter.id));
    return text;
}

// Returns the levels for whole dB in lines of ten numbers, for an array in C or Java.
std::string LevelNumbers() {
    std::string text;
    for (int decibels = kLowestDb; decibels <= kHighestDb; ++decibels) {
        const bool last = decibels == kHighestDb;
        const bool lineStart = (decibels - kLowestDb) % 10 == 0;
        text += fmt::format("{}{}{}", lineStart ? "        " : " ", LevelOfDb(decibels),
                            last ? "\n" : ((decibels - kLowestDb) % 10 == 9 ? ",\n" : ","));
    }
    return text;
}

// The commands of a preset's list, values first and switches last, and the band or -1. Every list
// has the same commands, so that nothing of another list remains.
struct ListedCommand {
    const Parameter* parameter;
    int32_t band;
};
std::vector<ListedCommand> ListedCommands() {
    std::vector<ListedCommand> commands;
    for (const bool switches : {false, true})
        for (const Parameter& parameter : kParameters) {
            if (*parameter.key == '\0') continue;
            if ((parameter.kind == ParameterKind::kSwitch) != switches) continue;
            const bool isBand = parameter.kind == ParameterKind::kBandValue;
            for (int32_t band = isBand ? 0 : -1; band < (isBand ? kBandCount : 0); ++band)
                commands.push_back({&parameter, band});
        }
    return commands;
}

std::string PresetNames() {
    std::string text;
    for (const Preset& preset : Presets()) text += fmt::format("        \"{}\",\n", preset.name);
    return text.erase(text.rfind(',')) + '\n';
}

std::string PresetCommands() {
    std::string text;
    for (const ListedCommand& command : ListedCommands())
        text += fmt::format("        {{0x{:X}, {}}},\n",
                            static_cast<unsigned>(command.parameter->id), command.band);
    return text.erase(text.rfind(',')) + '\n';
}

std::string PresetValues() {
    std::string text;
    for (const Preset& preset : Presets()) {
        const Settings settings = SettingsOf(preset);
        std::string row;
        for (const auto& [parameter, band] : ListedCommands()) {
            const double value = band >= 0 ? settings.BandLevels().at(static_cast<size_t>(band))
                                 : parameter->kind == ParameterKind::kSwitch
                                     ? (settings.IsOn(parameter->id) ? 1 : 0)
                                     : settings.Get(parameter->id);
            row += fmt::format("{}{}", row.empty() ? "" : ", ", parameter->OnWire(value));
        }
        text += "        {" + row + "},\n";
    }
    return text.erase(text.rfind(',')) + '\n';
}

std::string SetTable() {
    std::string text =
        "| identifier | name | what listeners call it | values to send | default | what it does |\n"
        "|---|---|---|---|---|---|\n";
    for (const Parameter& parameter : kParameters)
        if (!IsQuery(parameter))
            text +=
                fmt::format("| 0x{:X} | `{}` | {} | {} | {:g} | {} |\n",
                            static_cast<unsigned>(parameter.id), parameter.name, parameter.label,
                            Values(parameter), parameter.defaultValue, parameter.law);
    return text;
}

// Returns one row for each control of the plug-in. The ten bands share a row.
std::string PortTable() {
    std::string text = "| port | name | values | what it does |\n|---|---|---|---|\n";
    for (const Control& control : kControls) {
        const Parameter& parameter = *control.parameter;
        if (control.band != 0) continue;
        const std::string symbol = SymbolOf(control);
        const char* const unit = control.IsDecibels() ? " dB" : control.IsBand() ? " per cent" : "";
        text += fmt::format(
            "| {} | {} | {} | {} |\n",
            control.IsBand()
                ? fmt::format("`{}` to `{}_{}`", symbol, Symbol(parameter.key), kBandCount - 1)
                : fmt::format("`{}`", symbol),
            control.IsBand() ? fmt::format("{} and so on", NameOf(control)) : NameOf(control),
            control.IsSwitch()
                ? "0 off, 1 on"
                : fmt::format("{:.3g} to {:.3g}{}", control.ToPort(parameter.minimum),
                              control.ToPort(parameter.maximum), unit),
            parameter.law);
    }
    return text;
}

std::string GetTable() {
    std::string text = "| identifier | name | answer | what it says |\n|---|---|---|---|\n";
    for (const Parameter& parameter : kParameters)
        if (IsQuery(parameter))
            text +=
                fmt::format("| 0x{:X} | `{}` | {} | {} |\n", static_cast<unsigned>(parameter.id),
                            parameter.name, UnitText(parameter.unit), parameter.law);
    return text;
}

std::string LevelTable() {
    std::string text = "| dB | send | gives dB |\n|---|---|---|\n";
    for (int decibels = kHighestDb; decibels >= kLowestDb; --decibels) {
        const int level = LevelOfDb(decibels);
        text += fmt::format("| {:+} | {} | {:+.2f} |\n", decibels, level, DbOfLevel(level));
    }
    return text;
}

constexpr double kTableRateHz = 44100;
// The usual nominal frequencies of thirds of an octave.
constexpr double kThirdsHz[] = {25,   31.5, 40,   50,   63,   80,   100,   125,   160,   200,
                                250,  315,  400,  500,  630,  800,  1000,  1250,  1600,  2000,
                                2500, 3150, 4000, 5000, 6300, 8000, 10000, 12500, 16000, 20000};

// Describes what a band at `level` does alone: the gain at its own frequency, and the largest gain
// of opposite sign with its frequency.
std::string AloneText(size_t band, double level) {
    Settings::Levels levels{};
    levels.at(band) = level;
    const double ownHz = band == 0 ? 20 : BandHz(band, kTableRateHz);
    const double ownDb = ToneDb(levels, ownHz, kTableRateHz);
    double otherDb = 0, otherHz = 0;
    for (double hz = 20; hz < 20000; hz *= 1.005) {
        const double db = ToneDb(levels, hz, kTableRateHz);
        if (level > 0 ? db < otherDb : db > otherDb) {
            otherDb = db;
            otherHz = hz;
        }
    }
    return fmt::format("{:+.1f}, {:+.1f} at {:.0f} Hz", ownDb, otherDb, otherHz);
}

std::string BandTable() {
    std::string text =
        "| band | its frequency at 32000, 44100, 48000 Hz | alone at +1 | at +0.5 | at -0.5 | at "
        "-1 "
        "|\n|---|---|---|---|---|---|\n";
    for (size_t band = 0; band < kBandCount; ++band) {
        text += fmt::format("| {} | {}", band, band == 0 ? "below " : "");
        for (const double rateHz : {32000.0, 44100.0, 48000.0})
            text += fmt::format("{:.0f}{}", BandHz(band, rateHz), rateHz < 48000 ? ", " : " Hz");
        for (const double level : {1.0, 0.5, -0.5, -1.0}) text += " | " + AloneText(band, level);
        text += " |\n";
    }
    return text;
}

// Returns the terms in thousandths for an array in C or Java. Each third of an octave has a line
// with ten numbers, one for each band.
std::string TermNumbers() {
    std::string text;
    for (const double hz : kThirdsHz) {
        text += "        {";
        for (size_t band = 0; band < kBandCount; ++band)
            text += fmt::format("{}{}", band == 0 ? "" : ", ",
                                std::lround(1000 * BandTerm(band, hz, kTableRateHz)));
        text += hz == std::end(kThirdsHz)[-1] ? "}\n" : "},\n";
    }
    return text;
}

std::string TermTable() {
    std::string text = "| Hz |";
    for (size_t band = 0; band < kBandCount; ++band) text += fmt::format(" {} |", band);
    text += "\n|---|---|---|---|---|---|---|---|---|---|---|\n";
    for (const double hz : kThirdsHz) {
        text += fmt::format("| {:g} |", hz);
        for (size_t band = 0; band < kBandCount; ++band)
            text += fmt::format(" {:+.3f} |", BandTerm(band, hz, kTableRateHz));
        text += "\n";
    }
    return text;
}

// Returns, for some buffer sizes, how many frames the enhancer's silent buffers hold, and the whole
// chain's delay.
std::string BufferingTable() {
    Settings everything;
    for (const Parameter& parameter : kParameters)
        if (parameter.kind == ParameterKind::kSwitch) everything.Set(parameter.id, 1);
    std::string text =
        "| frames a call | frames that the enhancer adds | whole delay with everything on |\n"
        "|---:|---:|---:|\n";
    for (const uint32_t frames :
         {64U, 128U, 240U, 256U, 480U, 512U, 770U, 960U, 1024U, 1540U, 2048U})
        text += fmt::format("| {} | {} | {} |\n", frames, BufferingFrames(everything, frames),
                            DelayFrames(everything, frames));
    return text;
}

std::string PresetTable() {
    std::string text = "| preset | what it does | its settings |\n|---|---|---|\n";
    for (const Preset& preset : Presets())
        text += std::string("| ") + preset.name + " | " + preset.description + " | " +
                Describe(SettingsOf(preset)) + " |\n";
    return text;
}

}  // namespace

int main() {
    std::string text;
    for (const auto& [name, section] :
         {std::pair("c-identifiers", CIdentifiers()),
          std::pair("java-identifiers", JavaIdentifiers()), std::pair("levels", LevelNumbers()),
          std::pair("set-table", SetTable()), std::pair("get-table", GetTable()),
          std::pair("level-table", LevelTable()), std::pair("terms", TermNumbers()),
          std::pair("band-table", BandTable()), std::pair("term-table", TermTable()),
          std::pair("preset-names", PresetNames()), std::pair("preset-commands", PresetCommands()),
          std::pair("preset-values", PresetValues()), std::pair("preset-table", PresetTable()),
          std::pair("buffering", BufferingTable()), std::pair("plugin-ports", PortTable())})
        text += std::string("generated: ") + name + '\n' + section + "end generated\n";
    std::cout << text;
    return std::cout.flush() ? EXIT_SUCCESS : EXIT_FAILURE;
}
