#include "desktop/filter_chain.h"

#include <fmt/core.h>

#include "lv2/ports.h"

namespace {

// Formats `line` once for every port, with the port's symbol and value.
std::string ForEachPort(const Settings& settings, fmt::format_string<std::string, float> line) {
    std::string text;
    for (const Control& control : kControls)
        text += fmt::format(line, SymbolOf(control), control.ToPort(ValueOf(settings, control)));
    return text;
}

}  // namespace

std::string ConfigurationText(const Settings& settings) {
    // The rate is 48000 Hz, whatever the graph's rate is. Outside 32000 to 48000 Hz the plug-in
    // would refuse to start; so the sound server resamples.
    return fmt::format(
        R"(context.properties = {{ log.level = 1 }}
context.spa-libs = {{
  audio.convert.* = audioconvert/libspa-audioconvert
  support.* = support/libspa-support
}}
context.modules = [
  {{ name = libpipewire-module-rt args = {{ nice.level = -11 }} flags = [ ifexists nofail ] }}
  {{ name = libpipewire-module-protocol-native }}
  {{ name = libpipewire-module-client-node }}
  {{ name = libpipewire-module-adapter }}
  {{ name = libpipewire-module-filter-chain
    args = {{
      node.description = "Orvane"
      media.name = "Orvane"
      audio.rate = 48000
      audio.channels = 2
      audio.position = [ FL FR ]
      filter.graph = {{
        nodes = [ {{
          type = lv2
          name = orvane
          plugin = "{}"
          control = {{
            "low_latency" = 1.0
{}          }}
        }} ]
        inputs = [ "orvane:left_in" "orvane:right_in" ]
        outputs = [ "orvane:left_out" "orvane:right_out" ]
      }}
      capture.props = {{ node.name = "orvane" media.class = Audio/Sink }}
      playback.props = {{ node.name = "orvane.out" node.passive = true }}
    }}
  }}
]
)",
        kPluginUri, ForEachPort(settings, "            \"{}\" = {:.9f}\n"));
}

std::string PropertyText(const Settings& settings) {
    return "{ params = [" + ForEachPort(settings, " \"orvane:{}\" {:.9f}") + " ] }";
}
