// The LV2 plug-in: connects the ports of lv2/ports.h to a LiveStream.
#include <lv2/core/lv2.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <memory>
#include <new>
#include <optional>

#include "live/any_rate.h"
#include "live/live_stream.h"
#include "lv2/ports.h"

namespace {

struct Plugin {
    explicit Plugin(uint32_t rateHz) : rate(rateHz) {
        for (size_t n = 0; n < kControls.size(); ++n)
            unconnected[kFirstControl + n] =
                kControls[n].ToPort(kControls[n].parameter->defaultValue);
        unconnected[kEnabled] = 1;
        for (uint32_t port = 0; port < kPortCount; ++port) Connect(port, nullptr);
    }
    void Connect(uint32_t port, float* at) {
        isConnected[port] = at != nullptr;
        ports[port] = at != nullptr ? at : &unconnected[port];
    }
    // Starts a new stream. If it is refused, the plug-in is silent; logs that in one line and
    // returns false.
    bool Begin() {
        stream.emplace(rate);
        seen.fill(NAN);
        const char* const refused = stream->Refused();
        if (refused != nullptr)
            std::fprintf(stderr, "orvane: no sound: the effect refuses to %s\n", refused);
        return refused == nullptr;
    }
    bool HasAudio() const {
        return isConnected[kLeftIn] && isConnected[kRightIn] && isConnected[kLeftOut] &&
               isConnected[kRightOut];
    }

    uint32_t rate;
    std::optional<AnyRate<LiveStream>> stream;
    // What ports use while the host has connected nothing: inputs read their default here, and
    // outputs write here.
    std::array<float, kPortCount> unconnected{};
    std::array<float*, kPortCount> ports{};
    std::array<bool, kPortCount> isConnected{};
    std::array<float, kControls.size()> seen{};  // port values that the stream has; NaN: none yet
};

Plugin& PluginOf(LV2_Handle handle) {
    return *static_cast<Plugin*>(handle);
}

LV2_Handle Instantiate(const LV2_Descriptor* /*descriptor*/, double rateHz, const char* /*bundle*/,
                       const LV2_Feature* const* /*features*/) {
    if (AnyRate<LiveStream>::FactorOf(rateHz) == 0) {
        std::fprintf(stderr,
                     "orvane: the effect plays at 32000 to 48000 Hz in whole Hz and at 2, 4 or 8 "
                     "times 44100 or 48000 Hz, not %.10g\n",
                     rateHz);
        return nullptr;
    }
    std::unique_ptr<Plugin> plugin(new (std::nothrow) Plugin(static_cast<uint32_t>(rateHz)));
    if (plugin == nullptr) {
        std::fprintf(stderr, "orvane: not enough memory\n");
        return nullptr;
    }
    return plugin->Begin() ? plugin.release() : nullptr;
}

void ConnectPort(LV2_Handle handle, uint32_t port, void* data) {
    if (port < kPortCount) PluginOf(handle).Connect(port, static_cast<float*>(data));
}

void Activate(LV2_Handle handle) {
    PluginOf(handle).Begin();
}

// Audio thread. An output may be the same memory as an input. `frames` is any number.
void Run(LV2_Handle handle, uint32_t frames) {
    Plugin& plugin = PluginOf(handle);
    LiveStream& stream = plugin.stream->Inner();
    const auto& ports = plugin.ports;
    for (size_t n = 0; n < kControls.size(); ++n) {
        const float value = *ports[kFirstControl + n];
        if (value == plugin.seen[n]) continue;
        plugin.seen[n] = value;
        stream.Set(n, kControls[n].FromPort(value));
    }
    stream.SetBypass(!(*ports[kEnabled] > 0));
    stream.SetLowLatency(*ports[kLowLatency] > 0);
    const float* const in[2] = {ports[kLeftIn], ports[kRightIn]};
    float* const out[2] = {ports[kLeftOut], ports[kRightOut]};
    if (plugin.HasAudio()) plugin.stream->Process(in, out, frames);

    const LiveStream::Levels levels = stream.Meters();
    *ports[kLatency] = static_cast<float>(plugin.stream->LatencyFrames());
    *ports[kSourceLevel] = levels.sourceDb;
    *ports[kResultLevel] = levels.resultDb;
    *ports[kGain] = levels.gainDb;
    *ports[kLimiting] = levels.limiting ? 1 : 0;
}

void Cleanup(LV2_Handle handle) {
    delete &PluginOf(handle);
}

constexpr LV2_Descriptor kDescriptor = {kPluginUri, Instantiate, ConnectPort, Activate,
                                        Run,        nullptr,     Cleanup,     nullptr};

}  // namespace

LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(uint32_t index) {
    return index == 0 ? &kDescriptor : nullptr;
}
