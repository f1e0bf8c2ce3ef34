#include "render/info_command.h"

#include <array>
#include <cstdio>
#include <cstring>

#include "client/instance.h"
#include "client/settings_text.h"
#include "host/identity.h"
#include "render/audio/whole_write.h"
#include "render/effect_library.h"
#include "render/stderr_silencer.h"

namespace {

template <typename... Values>
std::string Format(const char* format, Values... values) {
    std::array<char, 256> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

std::string UuidText(const effect_uuid_s& uuid) {
    return Format("%08x-%04x-%04x-%04x-%02x%02x%02x%02x%02x%02x", uuid.timeLow, uuid.timeMid,
                  uuid.timeHiAndVersion, uuid.clockSeq, uuid.node[0], uuid.node[1], uuid.node[2],
                  uuid.node[3], uuid.node[4], uuid.node[5]);
}

bool Same(const effect_uuid_s& a, const effect_uuid_s& b) {
    return std::memcmp(&a, &b, sizeof(a)) == 0;
}

const char* TypeText(const effect_uuid_s& type) {
    if (Same(type, kOrvaneType)) return "normal mode";
    if (Same(type, kBassBoostType)) return "safe mode: the platform's bass boost";
    return "unknown type";
}

std::string OptionText(const Parameter& parameter) {
    return *parameter.key == '\0' ? "" : std::string("--") + parameter.key;
}

std::string VersionText(int32_t word) {
    return Format("%d.%d.%d.%d", word >> 24 & 0xFF, word >> 16 & 0xFF, word >> 8 & 0xFF,
                  word & 0xFF);
}

std::string LibraryInfo(const std::string& path, const EffectLibrary& library) {
    const audio_effect_library_t& record = library.Record();
    const effect_descriptor_t descriptor = library.Descriptor();
    std::string text = path + "\n";
    text += Format("  record       tag 0x%08X, interface %u.%u, %u effect(s)\n", record.tag,
                   record.version >> 16, record.version & 0xFFFF, library.EffectCount());
    text += Format("  library      %s, by %s\n", record.name, record.implementor);
    text += Format("  effect       %.64s, by %.64s\n", descriptor.name, descriptor.implementor);
    text +=
        "  type         " + UuidText(descriptor.type) + " (" + TypeText(descriptor.type) + ")\n";
    text += "  uuid         " + UuidText(descriptor.uuid) + "\n";
    text += Format("  control      interface %u.%u, flags 0x%08X%s\n", descriptor.apiVersion >> 16,
                   descriptor.apiVersion & 0xFFFF, descriptor.flags,
                   descriptor.flags == EFFECT_FLAG_INSERT_LAST ? " (insert effect, last)" : "");
    text += Format("  cost         %.1f MIPS, %u KiB, as declared\n", descriptor.cpuLoad / 10.0,
                   descriptor.memoryUsage);

    const StderrSilencer silencer(!library.ShowsLog());
    ClientInstance instance(record);
    Check(instance.CreateStatus(), "create an instance");
    Check(instance.Configure(44100, 2), "take the configuration");
    Check(instance.Enable(), "be enabled");
    const int32_t version = instance.Get(PARAM_GET_VERSION);
    text += "  version      " + (version >= 0 ? VersionText(version) : "not told") + "\n";
    text += "\nParameters, with the values of a new instance at 44100 Hz, stereo, enabled:\n";
    for (const Parameter& parameter : kParameters) {
        std::string value = "default " + DefaultText(parameter);
        if (parameter.kind == ParameterKind::kQuery) {
            const int32_t answer = instance.Get(parameter.id);
            value = answer >= 0 ? "answers " + std::to_string(answer) : "no answer";
        }
        text += Format("  0x%05X  %-26s %-16s %-14s %s\n", static_cast<unsigned>(parameter.id),
                       parameter.name, OptionText(parameter).c_str(),
                       parameter.id == PARAM_GET_VERSION ? "" : RangeText(parameter).c_str(),
                       value.c_str());
    }
    return text;
}

}  // namespace

InfoCommand::InfoCommand(CLI::App& program)
    : Command(program, "info", "what the library says of itself") {
    app.add_option("LIBRARY", library.path, "the effect library");
    app.add_flag("--log", library.log, "show what the library logs");
}

void InfoCommand::Run() {
    PrintToStandardOutput(LibraryInfo(library.Find(), library.Open()));
}

std::string LibraryVersionText() {
    return VersionText(kLibraryVersionWord);
}
