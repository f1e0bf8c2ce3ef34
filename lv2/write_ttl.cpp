// Writes the files that hosts read before they load the plug-in. `write_ttl FOLDER` makes
// manifest.ttl, orvane.ttl and presets.ttl in the folder, from the parameter table and the presets.
#include <fmt/core.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>

#include "client/presets.h"
#include "lv2/ports.h"

namespace {

constexpr char kPrefixes[] =
    "@prefix doap: <http://usefulinc.com/ns/doap#> .\n"
    "@prefix foaf: <http://xmlns.com/foaf/0.1/> .\n"
    "@prefix lv2: <http://lv2plug.in/ns/lv2core#> .\n"
    "@prefix pg: <http://lv2plug.in/ns/ext/port-groups#> .\n"
    "@prefix pprops: <http://lv2plug.in/ns/ext/port-props#> .\n"
    "@prefix pset: <http://lv2plug.in/ns/ext/presets#> .\n"
    "@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .\n"
    "@prefix unit: <http://lv2plug.in/ns/extensions/units#> .\n\n";

std::string PresetUri(const Preset& preset) {
    return fmt::format("<{}#{}>", kPluginUri, preset.name);
}

// Returns a decimal number. It always has a point or an exponent, because hosts take a number
// without either for an integer.
std::string Number(double value) {
    const std::string text = fmt::format("{:.9g}", value);
    return text.find_first_of(".e") == std::string::npos ? text + ".0" : text;
}

// Returns one port. Each statement of `more` must end with a semicolon.
std::string PortText(uint32_t index, const std::string& type, const std::string& symbol,
                     const std::string& name, const std::string& more) {
    return fmt::format(
        "  lv2:port [\n    a {} ;\n    lv2:index {} ;\n    lv2:symbol \"{}\" ;\n"
        "    lv2:name \"{}\" ;\n{}  ] ;\n",
        type, index, symbol, name, more);
}

std::string AudioPorts() {
    const auto port = [](uint32_t index, const char* direction, const char* side,
                         const char* name) {
        return PortText(index, fmt::format("lv2:{}Port , lv2:AudioPort", direction),
                        fmt::format("{}_{}", side, index < kLeftOut ? "in" : "out"), name,
                        fmt::format("    pg:group <{}#{}> ;\n    lv2:designation pg:{} ;\n",
                                    kPluginUri, index < kLeftOut ? "input" : "output", side));
    };
    return port(kLeftIn, "Input", "left", "Left in") +
           port(kRightIn, "Input", "right", "Right in") +
           port(kLeftOut, "Output", "left", "Left out") +
           port(kRightOut, "Output", "right", "Right out");
}

std::string Range(double least, double most) {
    return fmt::format("    lv2:minimum {} ;\n    lv2:maximum {} ;\n", Number(least), Number(most));
}
std::string Range(double least, double most, double normal) {
    return Range(least, most) + fmt::format("    lv2:default {} ;\n", Number(normal));
}

std::string ControlPort(uint32_t index) {
    const Control& control = kControls[index - kFirstControl];
    const Parameter& parameter = *control.parameter;
    const double least = control.ToPort(parameter.minimum),
                 most = control.ToPort(parameter.maximum);
    std::string more = Range(least, most, control.ToPort(parameter.defaultValue));
    if (control.IsSwitch()) {
        more += "    lv2:portProperty lv2:toggled ;\n";
    } else {
        const double step = control.IsDecibels() ? 0.1 : control.IsBand() ? 1 : 0.01;
        more += fmt::format("    pprops:rangeSteps {:.0f} ;\n", (most - least) / step + 1);
    }
    if (control.IsDecibels()) more += "    unit:unit unit:db ;\n";
    if (control.IsBand()) more += "    unit:unit unit:pc ;\n";
    // A group would make GStreamer take the port for a channel of audio.
    more += fmt::format("    rdfs:comment \"{}\" ;\n", parameter.law);
    return PortText(index, "lv2:InputPort , lv2:ControlPort", SymbolOf(control), NameOf(control),
                    more);
}

std::string Meter(uint32_t index, const std::string& symbol, const std::string& name, double least,
                  double most, const std::string& more) {
    return PortText(index, "lv2:OutputPort , lv2:ControlPort", symbol, name,
                    Range(least, most) + more);
}

std::string PluginText() {
    std::string text = kPrefixes;
    text += fmt::format(
        "<{0}#project> a doap:Project ;\n  doap:name \"Quenthra Orvane\" ;\n  doap:maintainer [\n"
        "    foaf:name \"Quenthra Orvane project\" ;\n"
        "    foaf:mbox <mailto:orvane@quenthra.invalid>\n  ] .\n\n"
        "<{0}#input> a pg:StereoGroup , pg:InputGroup ;\n"
        "  lv2:symbol \"input\" ;\n  lv2:name \"Input\" .\n\n"
        "<{0}#output> a pg:StereoGroup , pg:OutputGroup ;\n  lv2:symbol \"output\" ;\n"
        "  lv2:name \"Output\" ;\n  pg:source <{0}#input> .\n\n",
        kPluginUri);
    text += fmt::format(
        "<{0}>\n  a lv2:Plugin , lv2:DynamicsPlugin ;\n  lv2:project <{0}#project> ;\n"
        "  doap:name \"Quenthra Orvane\" ;\n  lv2:minorVersion {1} ;\n  lv2:microVersion 4 ;\n"
        "  lv2:optionalFeature lv2:hardRTCapable ;\n"
        "  pg:mainInput <{0}#input> ;\n  pg:mainOutput <{0}#output> ;\n"
        "  rdfs:comment \"Levels, equalises, enhances and limits, as the effect library does on a "
        "device.\" ;\n",
        kPluginUri, kMinorVersion);
    text += AudioPorts();
    text += PortText(kEnabled, "lv2:InputPort , lv2:ControlPort", "enabled", "Enabled",
                     Range(0, 1, 1) +
                         "    lv2:portProperty lv2:toggled ;\n"
                         "    lv2:designation lv2:enabled ;\n");
    text += PortText(kLowLatency, "lv2:InputPort , lv2:ControlPort", "low_latency", "Low latency",
                     Range(0, 1, 0) +
                         "    lv2:portProperty lv2:toggled ;\n    rdfs:comment \"buffers of "
                         "770 frames instead of 1024\" ;\n");
    for (uint32_t index = kFirstControl; index < kLatency; ++index) text += ControlPort(index);
    text += Meter(kLatency, "latency", "Latency", 0, 32768,
                  "    lv2:portProperty lv2:reportsLatency , lv2:integer ;\n"
                  "    lv2:designation lv2:latency ;\n    unit:unit unit:frame ;\n");
    const std::string decibels = "    unit:unit unit:db ;\n";
    text += Meter(kSourceLevel, "source_level", "Level before", -100, 0, decibels);
    text += Meter(kResultLevel, "result_level", "Level after", -100, 0, decibels);
    text += Meter(kGain, "gain", "Gain applied", -100, 100, decibels);
    text += Meter(kLimiting, "limiting", "Limiters at work", 0, 1,
                  "    lv2:portProperty lv2:toggled ;\n");
    text.replace(text.rfind(" ;"), 2, " .");
    return text;
}

std::string ManifestText() {
    std::string text = kPrefixes;
    text += fmt::format(
        "<{}>\n  a lv2:Plugin ;\n  lv2:binary <orvane.so> ;\n  rdfs:seeAlso <orvane.ttl> .\n",
        kPluginUri);
    for (const Preset& preset : Presets())
        text += fmt::format(
            "\n{}\n  a pset:Preset ;\n  lv2:appliesTo <{}> ;\n  rdfs:label \"{}\" ;\n"
            "  rdfs:seeAlso <presets.ttl> .\n",
            PresetUri(preset), kPluginUri, preset.name);
    return text;
}

std::string PresetsText() {
    std::string text = kPrefixes;
    for (const Preset& preset : Presets()) {
        text += fmt::format(
            "{}\n  a pset:Preset ;\n  lv2:appliesTo <{}> ;\n  rdfs:label \"{}\" ;\n"
            "  rdfs:comment \"{}\" ;\n  lv2:port\n",
            PresetUri(preset), kPluginUri, preset.name, preset.description);
        const Settings settings = SettingsOf(preset);
        for (const Control& control : kControls)
            text += fmt::format("    [ lv2:symbol \"{}\" ; pset:value {} ]{}\n", SymbolOf(control),
                                Number(control.ToPort(ValueOf(settings, control))),
                                &control == &kControls.back() ? " ." : " ,");
        text += '\n';
    }
    return text;
}

bool Write(const std::string& path, const std::string& text) {
    std::ofstream file(path);
    file << text;
    file.close();
    if (!file) std::fprintf(stderr, "write_ttl: cannot write %s\n", path.c_str());
    return !file.fail();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    const std::string folder = std::string(argv[1]) + '/';
    const bool written = Write(folder + "manifest.ttl", ManifestText()) &&
                         Write(folder + "orvane.ttl", PluginText()) &&
                         Write(folder + "presets.ttl", PresetsText());
    return written ? 0 : 1;
}
