#include <fmt/core.h>

#include <cstring>
#include <string_view>

#include "client/instance.h"
#include "client/settings_text.h"
#include "client/stderr_silencer.h"
#include "host/identity.h"
#include "render/audio/whole_write.h"
#include "render/commands.h"
#include "render/common_options.h"
#include "render/effect_library.h"

namespace {

// Returns the text of a descriptor's field, which may lack the final NUL.
template <size_t kSize>
std::string_view FieldText(const char (&field)[kSize]) {
    return {field, strnlen(field, kSize)};
}

std::string UuidText(const effect_uuid_s& uuid) {
    std::string text = fmt::format("{:08x}-{:04x}-{:04x}-{:04x}-", uuid.timeLow, uuid.timeMid,
                                   uuid.timeHiAndVersion, uuid.clockSeq);
    for (const uint8_t byte : uuid.node) text += fmt::format("{:02x}", byte);
    return text;
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
    return fmt::format("{}.{}.{}.{}", word >> 24 & 0xFF, word >> 16 & 0xFF, word >> 8 & 0xFF,
                       word & 0xFF);
}

std::string LibraryInfo(const std::string& path, const EffectLibrary& library) {
    const audio_effect_library_t& record = library.Record();
    const effect_descriptor_t descriptor = library.Descriptor();
    std::string text = path + "\n";
    const auto add = [&text]<typename... Values>(fmt::format_string<Values...> format,
                                                 Values&&... values) {
        text += fmt::format(format, std::forward<Values>(values)...);
    };
    add("  record       tag 0x{:08X}, interface {}.{}, {} effect(s)\n", record.tag,
        record.version >> 16, record.version & 0xFFFF, library.EffectCount());
    add("  library      {}, by {}\n", record.name, record.implementor);
    add("  effect       {}, by {}\n", FieldText(descriptor.name),
        FieldText(descriptor.implementor));
    add("  type         {} ({})\n", UuidText(descriptor.type), TypeText(descriptor.type));
    add("  uuid         {}\n", UuidText(descriptor.uuid));
    add("  control      interface {}.{}, flags 0x{:08X}{}\n", descriptor.apiVersion >> 16,
        descriptor.apiVersion & 0xFFFF, descriptor.flags,
        descriptor.flags == EFFECT_FLAG_INSERT_LAST ? " (insert effect, last)" : "");
    add("  cost         {:.1f} MIPS, {} KiB, as declared\n", descriptor.cpuLoad / 10.0,
        descriptor.memoryUsage);

    const StderrSilencer silencer(!library.ShowsLog());
    ClientInstance instance(record);
    Check(instance.CreateStatus(), "create an instance");
    Check(instance.Configure(44100, 2), "take the configuration");
    Check(instance.Enable(), "be enabled");
    const int32_t version = instance.Get(PARAM_GET_VERSION);
    add("  version      {}\n", version >= 0 ? VersionText(version) : "not told");
    text += "\nParameters, with the values of a new instance at 44100 Hz, stereo, enabled:\n";
    for (const Parameter& parameter : kParameters) {
        std::string value = "default " + DefaultText(parameter);
        if (parameter.kind == ParameterKind::kQuery) {
            const int32_t answer = instance.Get(parameter.id);
            value = answer >= 0 ? "answers " + std::to_string(answer) : "no answer";
        }
        add("  0x{:05X}  {:26} {:16} {:14} {}\n", static_cast<unsigned>(parameter.id),
            parameter.name, OptionText(parameter),
            parameter.unit == Unit::kBytes ? "" : RangeText(parameter), value);
    }
    return text;
}

// Prints what the library says about itself: the record, the descriptor and every parameter, with
// the present value of those that can be queried.
class InfoCommand final : public Command {
public:
    explicit InfoCommand(Options& program);
    void Run() override;

private:
    LibraryOptions library;
};

InfoCommand::InfoCommand(Options& program)
    : Command(program, "info", "print what the library says about itself") {
    options.Add("LIBRARY", &library.path, "the effect library");
    options.AddFlag("--log", &library.log, "show the library's log lines");
}

void InfoCommand::Run() {
    PrintToStandardOutput(LibraryInfo(library.Find(), library.Open()));
}

}  // namespace

std::unique_ptr<Command> MakeInfoCommand(Options& program) {
    return std::make_unique<InfoCommand>(program);
}

std::string LibraryVersionText() {
    return VersionText(kLibraryVersionWord);
}
