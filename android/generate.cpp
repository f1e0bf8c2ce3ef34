// Prints what applications must know of the library's numbers, from unit/parameters.h and the
// library's own descriptor: the regions of the C header, the Java class and the documents that
// scripts/fill_in.py keeps up to date.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <string>
#include <utility>

#include "host/library.h"
#include "unit/parameters.h"

namespace {

// Whole decibels that the level tables hold. Below the first one, 0.01 of gain is more than a
// decibel; above the last one the levels end.
constexpr int kLowestDb = -40;
constexpr int kHighestDb = 9;

[[noreturn]] void Fail(const std::string& what) {
    std::cerr << "generate: " << what << '\n';
    std::exit(EXIT_FAILURE);
}

template <typename... Arguments>
std::string Format(const char* format, Arguments... arguments) {
    char text[512];
    std::snprintf(text, sizeof text, format, arguments...);
    return text;
}

bool IsQuery(const Parameter& parameter) {
    return parameter.kind == ParameterKind::kQuery;
}

// What one identifier's values are, in a few words.
std::string Values(const Parameter& parameter) {
    if (parameter.kind == ParameterKind::kSwitch) return "0 off, 1 on";
    if (IsQuery(parameter)) return std::string("answers ") + parameter.unit;
    std::string text;
    if (parameter.kind == ParameterKind::kBandValue)
        text = Format("band 0 to %d, then ", kBandCount - 1);
    text += Format("%g to %g", parameter.minimum, parameter.maximum);
    if (parameter.wireScale == 1) return text;
    if (std::string(parameter.unit) != "1") text += Format(" (%s)", parameter.unit);
    text += Format(" times %d", parameter.wireScale);
    if (!parameter.CanSendDefault())
        text += Format("; at first %g, which can't be sent: %d is the nearest",
                       parameter.defaultValue, parameter.OnWire(parameter.defaultValue));
    return text;
}

// The equalizer's law: 1 + level up to 0, 1 + 2 level above.
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
        text += Format("    /* %s */\n    ORVANE_%s = 0x%X%s\n", Values(parameter).c_str(),
                       parameter.name, static_cast<unsigned>(parameter.id),
                       &parameter == last ? "" : ",");
    return text + "};\n";
}

std::string JavaIdentifiers() {
    const effect_descriptor_t descriptor = Descriptor();
    std::string text;
    for (const auto& [name, uuid] :
         {std::pair("UUID_TEXT", descriptor.uuid), std::pair("TYPE_TEXT", descriptor.type)})
        text +=
            Format("    public static final String %s = \"%s\";\n", name, UuidText(uuid).c_str());
    for (const Parameter& parameter : kParameters)
        text +=
            Format("\n    /** %s */\n    public static final int %s = 0x%X;\n",
                   Values(parameter).c_str(), parameter.name, static_cast<unsigned>(parameter.id));
    return text;
}

// Lines of ten numbers, for an array in C or Java.
std::string LevelNumbers() {
    std::string text;
    for (int decibels = kLowestDb; decibels <= kHighestDb; ++decibels) {
        const bool last = decibels == kHighestDb;
        const bool lineStart = (decibels - kLowestDb) % 10 == 0;
        text += Format("%s%d%s", lineStart ? "        " : " ", LevelOfDb(decibels),
                       last ? "\n" : ((decibels - kLowestDb) % 10 == 9 ? ",\n" : ","));
    }
    return text;
}

std::string SetTable() {
    std::string text =
        "| identifier | name | values to send | at first | what it does |\n"
        "|---|---|---|---|---|\n";
    for (const Parameter& parameter : kParameters)
        if (!IsQuery(parameter))
            text += Format("| 0x%X | `%s` | %s | %g | %s |\n", static_cast<unsigned>(parameter.id),
                           parameter.name, Values(parameter).c_str(), parameter.defaultValue,
                           parameter.law);
    return text;
}

std::string GetTable() {
    std::string text = "| identifier | name | answer | what it says |\n|---|---|---|---|\n";
    for (const Parameter& parameter : kParameters)
        if (IsQuery(parameter))
            text += Format("| 0x%X | `%s` | %s | %s |\n", static_cast<unsigned>(parameter.id),
                           parameter.name, parameter.unit, parameter.law);
    return text;
}

std::string LevelTable() {
    std::string text = "| dB | send | gives dB |\n|---|---|---|\n";
    for (int decibels = kHighestDb; decibels >= kLowestDb; --decibels) {
        const int level = LevelOfDb(decibels);
        text += Format("| %+d | %d | %+.2f |\n", decibels, level, DbOfLevel(level));
    }
    return text;
}

}  // namespace

int main() {
    std::string text;
    for (const auto& [name, section] :
         {std::pair("c-identifiers", CIdentifiers()),
          std::pair("java-identifiers", JavaIdentifiers()), std::pair("levels", LevelNumbers()),
          std::pair("set-table", SetTable()), std::pair("get-table", GetTable()),
          std::pair("level-table", LevelTable())})
        text += std::string("generated: ") + name + '\n' + section + "end generated\n";
    std::cout << text;
    return std::cout.flush() ? EXIT_SUCCESS : EXIT_FAILURE;
}
