#include "desktop/audio_pair.h"

#include <spa/param/audio/format-utils.h>
#include <spa/param/latency-utils.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <stdexcept>

namespace {

constexpr uint32_t kChannels = 2;
constexpr size_t kPodBytes = 1024;
constexpr uint64_t kNsPerSecond = 1'000'000'000;
constexpr float kGainStep = 1.0F / 128;  // of the way, in each frame
constexpr float kGainIsThere = 1e-4F, kSmallestPeak = 1e-3F;

// Offers the graph's own rate if the chain can take it. Otherwise the sound server resamples.
const spa_pod* OfferedFormat(spa_pod_builder* builder) {
    const std::array<uint32_t, kChannels> places = {SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR};
    return static_cast<const spa_pod*>(spa_pod_builder_add_object(
        builder, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat, SPA_FORMAT_mediaType,
        SPA_POD_Id(SPA_MEDIA_TYPE_audio), SPA_FORMAT_mediaSubtype,
        SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), SPA_FORMAT_AUDIO_format,
        SPA_POD_Id(SPA_AUDIO_FORMAT_F32P), SPA_FORMAT_AUDIO_rate,
        SPA_POD_CHOICE_RANGE_Int(48000, 32000, 48000), SPA_FORMAT_AUDIO_channels,
        SPA_POD_Int(kChannels), SPA_FORMAT_AUDIO_position,
        SPA_POD_Array(sizeof(uint32_t), SPA_TYPE_Id, kChannels, places.data())));
}

}  // namespace

const pw_stream_events AudioPair::kInputEvents = [] {
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    events.param_changed = [](void* side, uint32_t id, const spa_pod* param) {
        AudioPair* const pair = static_cast<Side*>(side)->pair;
        if (id == SPA_PARAM_Format && param != nullptr) pair->SetFormat(param);
        if (id == SPA_PARAM_Latency && param != nullptr)
            pair->TakeLatency(static_cast<Side*>(side), param);
    };
    // The output runs within the input's cycle, so that the pair adds no more than one quantum.
    events.process = [](void* side) {
        AudioPair* const pair = static_cast<Side*>(side)->pair;
        if (!pair->isEnding) pw_stream_trigger_process(pair->output.stream);
    };
    return events;
}();

const pw_stream_events AudioPair::kOutputEvents = [] {
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    events.param_changed = [](void* side, uint32_t id, const spa_pod* param) {
        if (id == SPA_PARAM_Latency && param != nullptr)
            static_cast<Side*>(side)->pair->TakeLatency(static_cast<Side*>(side), param);
    };
    events.process = [](void* side) {
        AudioPair* const pair = static_cast<Side*>(side)->pair;
        if (!pair->isEnding) pair->Process();
    };
    return events;
}();

AudioPair::AudioPair(pw_context* context, pw_core* serverCore, const Settings& firstSettings)
    : core(serverCore),
      loop(pw_context_get_main_loop(context)),
      dataLoop(pw_context_get_data_loop(context)),
      settings(firstSettings) {
    latencyMoved = pw_loop_add_event(
        loop, [](void* pair, uint64_t) { static_cast<AudioPair*>(pair)->TellLatency(); }, this);
    if (latencyMoved == nullptr) throw std::runtime_error("cannot make an event");
    try {
        Connect(&input, kInputName, "Audio/Sink/Internal", PW_DIRECTION_INPUT);
        Connect(&output, kOutputName, nullptr, PW_DIRECTION_OUTPUT);
    } catch (...) {
        Disconnect();
        throw;
    }
}

AudioPair::~AudioPair() {
    Disconnect();
}

void AudioPair::Disconnect() {
    // When this returns, the data thread has done all that was sent to it before.
    pw_data_loop_invoke(
        dataLoop,
        [](spa_loop*, bool, uint32_t, const void*, size_t, void* pair) {
            static_cast<AudioPair*>(pair)->isEnding = true;
            return 0;
        },
        0, nullptr, 0, true, this);
    for (Side* side : {&input, &output})
        if (side->stream != nullptr) pw_stream_destroy(side->stream);
    pw_loop_destroy_source(loop, latencyMoved);
}

// mediaClass: null for an ordinary playback stream, which follows the listener's default output.
// An internal sink can be linked to by its name, and never becomes the default output itself.
void AudioPair::Connect(Side* side, const char* name, const char* mediaClass,
                        spa_direction direction) {
    pw_properties* const properties = pw_properties_new(
        PW_KEY_NODE_NAME, name, PW_KEY_NODE_DESCRIPTION, "Orvane", PW_KEY_APP_NAME, "Orvane",
        PW_KEY_MEDIA_NAME, "Orvane", PW_KEY_NODE_GROUP, kInputName, PW_KEY_NODE_LINK_GROUP,
        kInputName, "resample.prefill", "true", nullptr);
    int flags = PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS;
    if (mediaClass != nullptr) {
        pw_properties_set(properties, PW_KEY_MEDIA_CLASS, mediaClass);
    } else {
        pw_properties_set(properties, PW_KEY_NODE_PASSIVE, "true");
        // The session manager must not bring back the output of an earlier day.
        pw_properties_set(properties, "state.restore-target", "false");
        flags |= PW_STREAM_FLAG_TRIGGER;
    }
    side->pair = this;
    side->stream = pw_stream_new(core, name, properties);
    if (side->stream == nullptr) throw std::runtime_error("cannot make a stream");
    pw_stream_add_listener(side->stream, &side->listener,
                           mediaClass != nullptr ? &kInputEvents : &kOutputEvents, side);
    std::array<uint8_t, kPodBytes> bytes{};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, bytes.data(), bytes.size());
    const spa_pod* params[] = {OfferedFormat(&builder)};
    if (pw_stream_connect(side->stream, direction, PW_ID_ANY, static_cast<pw_stream_flags>(flags),
                          params, 1) < 0)
        throw std::runtime_error("cannot connect a stream to the sound server");
}

// Runs `function` on the data thread with a copy of `value`. Doesn't wait for it.
template <typename Value>
void AudioPair::Send(const Value& value, spa_invoke_func_t function) {
    pw_data_loop_invoke(dataLoop, function, 0, &value, sizeof value, false, this);
}

void AudioPair::Apply(const Settings& wanted) {
    static_assert(std::is_trivially_copyable_v<Settings>);
    settings = wanted;
    Send(settings, [](spa_loop*, bool, uint32_t, const void* data, size_t, void* pair) {
        Settings copy;
        std::memcpy(&copy, data, sizeof copy);
        if (auto* const self = static_cast<AudioPair*>(pair); self->live) self->live->Apply(copy);
        return 0;
    });
}

void AudioPair::SetBypass(bool wanted, float inputGain) {
    bypass = {wanted, wanted ? inputGain : 1};
    Send(bypass, [](spa_loop*, bool, uint32_t, const void* data, size_t, void* pair) {
        const auto* const copy = static_cast<const Bypass*>(data);
        auto* const self = static_cast<AudioPair*>(pair);
        self->wantedGain = self->room = copy->gain;
        if (self->live) self->live->SetBypass(copy->isOn);
        return 0;
    });
}

void AudioPair::SetFormat(const spa_pod* format) {
    spa_audio_info_raw info{};
    if (spa_format_audio_raw_parse(format, &info) < 0 || (live && info.rate == rate)) return;
    auto fresh = std::make_unique<LiveStream>(info.rate);
    if (fresh->Refused() != nullptr) {
        pw_stream_set_error(input.stream, -EINVAL, "%s", fresh->Refused());
        return;
    }
    fresh->SetLowLatency(true);
    fresh->SetBypass(bypass.isOn);
    fresh->Apply(settings);
    rate = info.rate;
    latencyFrames = fresh->LatencyFrames();
    // Waits until the data thread has left the older stream, which ends here.
    struct Exchange {
        std::unique_ptr<LiveStream>&present, &fresh;
    } exchange{live, fresh};
    pw_data_loop_invoke(
        dataLoop,
        [](spa_loop*, bool, uint32_t, const void*, size_t, void* user) {
            auto* const both = static_cast<Exchange*>(user);
            both->present.swap(both->fresh);
            return 0;
        },
        0, nullptr, 0, true, &exchange);
    TellLatency();  // in nanoseconds, so another rate changes it even with the same frames
}

// Takes the latency of the nodes that are linked to one side. The other side passes it on.
void AudioPair::TakeLatency(Side* side, const spa_pod* param) {
    spa_latency_info info{};
    if (spa_latency_parse(param, &info) < 0) return;
    const spa_direction direction = side == &input ? SPA_DIRECTION_OUTPUT : SPA_DIRECTION_INPUT;
    if (info.direction != direction) return;  // our own word
    const uint64_t ns = info.max_ns + (rate != 0 ? info.max_rate * kNsPerSecond / rate : 0);
    if (side->otherLatencyNs == ns) return;
    side->otherLatencyNs = ns;
    TellLatency();
}

void AudioPair::TellLatency() {
    if (rate == 0) return;
    TellLatency(&input, SPA_DIRECTION_INPUT, output.otherLatencyNs);
    TellLatency(&output, SPA_DIRECTION_OUTPUT, input.otherLatencyNs);
}

// In nanoseconds, because frames would be the graph's, whose rate may be another. The pair adds one
// quantum, because what the input takes in a cycle is played in the next one.
void AudioPair::TellLatency(Side* side, spa_direction direction, uint64_t otherNs) {
    const uint64_t ns = latencyFrames.load() * kNsPerSecond / rate + otherNs;
    spa_latency_info info{};
    info.direction = direction;
    info.min_quantum = info.max_quantum = 1;
    info.min_ns = info.max_ns = ns;
    std::array<uint8_t, kPodBytes> bytes{};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, bytes.data(), bytes.size());
    const spa_pod* params[] = {spa_latency_build(&builder, SPA_PARAM_Latency, &info)};
    pw_stream_update_params(side->stream, params, 1);
}

LiveStream::Levels AudioPair::Meters() const {
    return {sourceDb.load(), resultDb.load(), gainDb.load(), limiting.load()};
}

// Multiplies what is heard by a gain that follows the wanted one within a few milliseconds.
void AudioPair::Amplify(const std::array<float*, kChannels>& channels, size_t frames) {
    if (gain == 1 && wantedGain == 1) return;
    float peak = 0;
    for (const float* const channel : channels)
        for (size_t n = 0; n < frames; ++n) peak = std::max(peak, std::abs(channel[n]));
    const float most = std::max(1.0F, 1 / std::max(peak, kSmallestPeak));
    // After a peak, the gain rises again by at most 6 dB a second.
    room = std::min(room + room * static_cast<float>(frames) / static_cast<float>(rate), most);
    const float target = std::min(wantedGain, room);
    gain = std::min(gain, most);
    for (size_t n = 0; n < frames; ++n) {
        gain += (target - gain) * kGainStep;
        for (float* const channel : channels) channel[n] *= gain;
    }
    if (std::abs(gain - target) < kGainIsThere) gain = target;
}

// On the data thread, once in each cycle of the sound server.
void AudioPair::Process() {
    pw_buffer* in = nullptr;
    // If cycles were missed, only the newest sound is of use.
    while (pw_buffer* const next = pw_stream_dequeue_buffer(input.stream)) {
        if (in != nullptr) pw_stream_queue_buffer(input.stream, in);
        in = next;
    }
    pw_buffer* const out = pw_stream_dequeue_buffer(output.stream);
    if (in != nullptr && out != nullptr && in->buffer->n_datas >= kChannels &&
        out->buffer->n_datas >= kChannels) {
        std::array<const float*, kChannels> source{};
        std::array<float*, kChannels> result{}, nobody{};
        uint32_t bytes = UINT32_MAX;
        for (uint32_t channel = 0; channel < kChannels; ++channel) {
            const spa_data& from = in->buffer->datas[channel];
            const spa_data& to = out->buffer->datas[channel];
            const uint32_t offset = std::min(from.chunk->offset, from.maxsize);
            source.at(channel) =
                reinterpret_cast<const float*>(static_cast<char*>(from.data) + offset);
            result.at(channel) = static_cast<float*>(to.data);
            bytes = std::min({bytes, from.chunk->size, from.maxsize - offset, to.maxsize});
        }
        const size_t frames = bytes / sizeof(float);
        if (live) {
            live->Process(source.data(), result.data(), nobody.data(), frames);
            Amplify(result, frames);
            const LiveStream::Levels levels = live->Meters();
            sourceDb = levels.sourceDb;
            resultDb = levels.resultDb;
            gainDb = levels.gainDb;
            limiting = levels.limiting;
            if (latencyFrames.exchange(live->LatencyFrames()) != live->LatencyFrames())
                pw_loop_signal_event(loop, latencyMoved);
        } else {
            for (float* const channel : result) std::fill_n(channel, frames, 0.0F);
        }
        for (uint32_t channel = 0; channel < kChannels; ++channel) {
            spa_chunk* const chunk = out->buffer->datas[channel].chunk;
            chunk->offset = 0;
            chunk->stride = sizeof(float);
            chunk->size = static_cast<uint32_t>(frames * sizeof(float));
        }
    }
    if (in != nullptr) pw_stream_queue_buffer(input.stream, in);
    if (out != nullptr) pw_stream_queue_buffer(output.stream, out);
}
