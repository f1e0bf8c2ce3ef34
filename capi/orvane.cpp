// The C interface of include/orvane.h. It connects a stream to values that any thread may set.
#pragma GCC visibility push(default)
#include "include/orvane.h"
#pragma GCC visibility pop

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "client/controls.h"
#include "client/presets.h"
#include "client/quantize.h"
#include "client/settings_reader.h"
#ifndef ORVANE_WITHOUT_RESAMPLER
#include "live/any_rate.h"
#endif
#include "live/live_stream.h"

#ifdef ORVANE_WITHOUT_RESAMPLER
// Stands in for live/any_rate.h where nothing may be linked. Takes only the rates of the effect.
template <typename Stream>
class AnyRate {
public:
    static uint32_t FactorOf(uint32_t rateHz) {
        return rateHz >= kLowestRateHz && rateHz <= kHighestRateHz ? 1 : 0;
    }
    explicit AnyRate(uint32_t rateHz) : stream(rateHz) {}
    const char* Refused() const { return stream.Refused(); }
    Stream& Inner() { return stream; }
    uint32_t LatencyFrames() const { return stream.LatencyFrames(); }
    void Flush() { stream.Flush(); }
    void Process(const float* const in[2], float* const out[2], size_t frames) {
        float* const nowhere[2] = {};
        stream.Process(in, out, nowhere, frames);
    }

private:
    Stream stream;
};
#endif

struct orvane_stream {
    orvane_stream(uint32_t rateHz, uint32_t channelCount)
        : stream(rateHz), channels(channelCount) {}

    void Store(const Settings& settings) {
        for (size_t n = 0; n < kControls.size(); ++n)
            values[n].store(ValueOf(settings, kControls[n]), std::memory_order_relaxed);
        changes.fetch_add(1, std::memory_order_release);
    }
    // Hands what was set to the stream. The thread that processes calls it.
    void TakeOver() {
        stream.Inner().SetBypass(isBypassed.load(std::memory_order_relaxed));
        const uint32_t now = changes.load(std::memory_order_acquire);
        if (now == taken) return;
        taken = now;
        for (size_t n = 0; n < kControls.size(); ++n)
            stream.Inner().Set(n, values[n].load(std::memory_order_relaxed));
    }
    // Publishes what the stream tells.
    void Tell() {
        const LiveStream::Levels levels = stream.Inner().Meters();
        latencyFrames.store(stream.LatencyFrames(), std::memory_order_relaxed);
        sourceDb.store(levels.sourceDb, std::memory_order_relaxed);
        resultDb.store(levels.resultDb, std::memory_order_relaxed);
        gainDb.store(levels.gainDb, std::memory_order_relaxed);
        isLimiting.store(levels.limiting, std::memory_order_relaxed);
    }

    AnyRate<LiveStream> stream;
    const uint32_t channels;
    // The values that were set last, in the units of the table.
    std::array<std::atomic<double>, kControls.size()> values{};
    std::atomic<uint32_t> changes = 0;  // counts the calls that set values
    uint32_t taken = 0;                 // the count when values were last taken over
    std::atomic<bool> isBypassed = false;
    std::atomic<uint32_t> latencyFrames = 0;
    std::atomic<float> sourceDb = 0, resultDb = 0, gainDb = 0;
    std::atomic<bool> isLimiting = false;
};
static_assert(std::atomic<double>::is_always_lock_free);

namespace {

constexpr int ControlOf(ParameterId id) {
    for (size_t n = 0; n < kControls.size(); ++n)
        if (kControls[n].parameter->id == id) return static_cast<int>(n);
    return -1;
}
constexpr auto kList = [] {
    std::array<orvane_parameter, kControls.size()> list{};
    for (size_t n = 0; n < list.size(); ++n) {
        const Parameter& row = *kControls[n].parameter;
        const bool isBand = row.kind == ParameterKind::kBandValue;
        list[n] = {kControlKeys[n].text.data(),
                   row.label,
                   row.group,
                   UnitText(row.unit),
                   row.law,
                   row.minimum,
                   row.maximum,
                   row.defaultValue,
                   1.0 / row.wireScale,
                   isBand ? kControls[n].band : -1,
                   row.needs == kNoSwitch ? -1 : ControlOf(row.needs)};
    }
    return list;
}();

bool IsControl(int number) {
    return number >= 0 && static_cast<size_t>(number) < kControls.size();
}
bool IsPreset(int number) {
    return number >= 0 && static_cast<size_t>(number) < Presets().size();
}

const char* TextOf(int number, const char* Preset::*text) {
    return IsPreset(number) ? Presets()[static_cast<size_t>(number)].*text : nullptr;
}

// Writes a line for the caller, cut to the room that there is.
class ErrorText {
public:
    ErrorText(char* text, size_t size) : into(size > 0 ? text : nullptr), room(size) { Write(""); }
    void Write(const char* line, const char* more = "") const {
        if (into != nullptr) std::snprintf(into, room, "%s%s", line, more);
    }

private:
    char* into;
    size_t room;
};

// Reads the lines of a settings file on top of `settings`. If they are wrong, says so, and returns
// false.
bool Read(const char* text, Settings* settings, const ErrorText& error) {
    Fault fault;
    if (ReadSettings(text, settings, &fault)) return true;
    error.Write("settings, line ", fault.Text());
    return false;
}

bool ReadWishes(const char* preset, const char* text, Settings* settings, const ErrorText& error) {
    if (preset != nullptr) {
        const Preset* const found = FindPreset(preset);
        if (found == nullptr) {
            error.Write("no preset is called ", Fault().AddQuoted(preset).Text());
            return false;
        }
        *settings = SettingsOf(*found);
    }
    return text == nullptr || Read(text, settings, error);
}

const char* Refusal(uint32_t rateHz, uint32_t channels, unsigned flags) {
    if (AnyRate<LiveStream>::FactorOf(rateHz) == 0)
        return "the rate is neither 32000 to 48000 Hz nor 2, 4 or 8 times 44100 or 48000 Hz";
    if (channels != 1 && channels != 2) return "there must be one or two channels";
    if ((flags & ~unsigned{ORVANE_LOW_LATENCY | ORVANE_COLD_START}) != 0)
        return "the flags are unknown";
    return nullptr;
}

float ToFloat(float sample) {
    return sample;
}
float ToFloat(int16_t sample) {
    return static_cast<float>(sample) / 32768;
}
void Put(float sample, float* into) {
    *into = sample;
}
void Put(float sample, int16_t* into) {
    *into = Quantized(sample);
}

// Processes planar frames. A stream of one channel plays it on both sides.
void ProcessPlanar(orvane_stream* stream, const float* const* in, float* const* out,
                   size_t frames) {
    const size_t last = stream->channels - 1;
    const float* const from[2] = {in[0], in[last]};
    float* const into[2] = {out[0], out[last]};
    stream->stream.Process(from, into, frames);
}

template <typename Sample>
int ProcessInterleaved(orvane_stream* stream, const Sample* in, Sample* out, size_t frames) {
    constexpr size_t kPieceFrames = 256;
    if (stream == nullptr || (frames > 0 && (in == nullptr || out == nullptr)))
        return ORVANE_INVALID;
    stream->TakeOver();
    const size_t channels = stream->channels;
    for (size_t done = 0; done < frames;) {
        const size_t count = std::min(frames - done, kPieceFrames);
        float planar[2][kPieceFrames];
        float* const io[2] = {planar[0], planar[1]};
        for (size_t n = 0; n < count; ++n)
            for (size_t c = 0; c < channels; ++c)
                planar[c][n] = ToFloat(in[(done + n) * channels + c]);
        ProcessPlanar(stream, io, io, count);
        for (size_t n = 0; n < count; ++n)
            for (size_t c = 0; c < channels; ++c)
                Put(planar[c][n], &out[(done + n) * channels + c]);
        done += count;
    }
    stream->Tell();
    return ORVANE_OK;
}

}  // namespace

orvane_stream* orvane_create(uint32_t rate_hz, uint32_t channels, const char* preset,
                             const char* settings, unsigned flags, char* error, size_t error_size) {
    const ErrorText text(error, error_size);
    if (const char* const refusal = Refusal(rate_hz, channels, flags)) {
        text.Write(refusal);
        return nullptr;
    }
    Settings wishes;
    if (!ReadWishes(preset, settings, &wishes, text)) return nullptr;
    std::unique_ptr<orvane_stream> made(new (std::nothrow) orvane_stream(rate_hz, channels));
    // The rate is one that the effect takes, so only memory can have been refused.
    if (made == nullptr || made->stream.Refused() != nullptr) {
        text.Write("not enough memory");
        return nullptr;
    }
    LiveStream& inner = made->stream.Inner();
    made->Store(wishes);
    inner.SetLowLatency((flags & ORVANE_LOW_LATENCY) != 0);
    made->TakeOver();
    if ((flags & ORVANE_COLD_START) == 0) inner.Settle();
    made->Tell();
    return made.release();
}

void orvane_destroy(orvane_stream* stream) {
    delete stream;
}

int orvane_process_planar(orvane_stream* stream, const float* const* in, float* const* out,
                          size_t frames) {
    if (stream == nullptr) return ORVANE_INVALID;
    for (size_t c = 0; frames > 0 && c < stream->channels; ++c)
        if (in == nullptr || out == nullptr || in[c] == nullptr || out[c] == nullptr)
            return ORVANE_INVALID;
    stream->TakeOver();
    if (frames > 0) ProcessPlanar(stream, in, out, frames);
    stream->Tell();
    return ORVANE_OK;
}

int orvane_process_float(orvane_stream* stream, const float* in, float* out, size_t frames) {
    return ProcessInterleaved(stream, in, out, frames);
}

int orvane_process_int16(orvane_stream* stream, const int16_t* in, int16_t* out, size_t frames) {
    return ProcessInterleaved(stream, in, out, frames);
}

int orvane_flush(orvane_stream* stream) {
    if (stream == nullptr) return ORVANE_INVALID;
    stream->TakeOver();
    stream->stream.Flush();
    stream->Tell();
    return ORVANE_OK;
}

uint32_t orvane_latency(const orvane_stream* stream) {
    return stream != nullptr ? stream->latencyFrames.load(std::memory_order_relaxed) : 0;
}

int orvane_set_bypass(orvane_stream* stream, int bypassed) {
    if (stream == nullptr) return ORVANE_INVALID;
    stream->isBypassed.store(bypassed != 0, std::memory_order_relaxed);
    return ORVANE_OK;
}

const orvane_parameter* orvane_parameter_at(int number) {
    return IsControl(number) ? &kList[static_cast<size_t>(number)] : nullptr;
}

int orvane_find(const char* key) {
    for (size_t n = 0; key != nullptr && n < kList.size(); ++n)
        if (std::strcmp(kList[n].key, key) == 0) return static_cast<int>(n);
    return ORVANE_INVALID;
}

int orvane_set(orvane_stream* stream, int parameter, double value) {
    if (stream == nullptr || !IsControl(parameter) || std::isnan(value)) return ORVANE_INVALID;
    const auto n = static_cast<size_t>(parameter);
    stream->values[n].store(kControls[n].Held(value), std::memory_order_relaxed);
    stream->changes.fetch_add(1, std::memory_order_release);
    return ORVANE_OK;
}

int orvane_get(const orvane_stream* stream, int parameter, double* value) {
    if (stream == nullptr || !IsControl(parameter) || value == nullptr) return ORVANE_INVALID;
    const auto n = static_cast<size_t>(parameter);
    const double set = stream->values[n].load(std::memory_order_relaxed);
    *value = kControls[n].IsUnsendable(set) ? set : kControls[n].parameter->Sendable(set);
    return ORVANE_OK;
}

const char* orvane_preset_name(int number) {
    return TextOf(number, &Preset::name);
}
const char* orvane_preset_purpose(int number) {
    return TextOf(number, &Preset::purpose);
}
const char* orvane_preset_description(int number) {
    return TextOf(number, &Preset::description);
}

int orvane_find_preset(const char* name) {
    const Preset* const found = name != nullptr ? FindPreset(name) : nullptr;
    return found != nullptr ? static_cast<int>(found - Presets().data()) : ORVANE_INVALID;
}

int orvane_apply_preset(orvane_stream* stream, int preset) {
    if (stream == nullptr || !IsPreset(preset)) return ORVANE_INVALID;
    stream->Store(SettingsOf(Presets()[static_cast<size_t>(preset)]));
    return ORVANE_OK;
}

int orvane_apply_settings(orvane_stream* stream, const char* settings, char* error,
                          size_t error_size) {
    const ErrorText text(error, error_size);
    Settings wishes;
    if (stream == nullptr || settings == nullptr) {
        text.Write(stream == nullptr ? "there is no stream" : "there is no text");
        return ORVANE_INVALID;
    }
    if (!Read(settings, &wishes, text)) return ORVANE_INVALID;
    stream->Store(wishes);
    return ORVANE_OK;
}

int orvane_meters(const orvane_stream* stream, orvane_levels* levels) {
    if (stream == nullptr || levels == nullptr) return ORVANE_INVALID;
    levels->source_db = stream->sourceDb.load(std::memory_order_relaxed);
    levels->result_db = stream->resultDb.load(std::memory_order_relaxed);
    levels->gain_db = stream->gainDb.load(std::memory_order_relaxed);
    levels->limiting = stream->isLimiting.load(std::memory_order_relaxed) ? 1 : 0;
    return ORVANE_OK;
}

const char* orvane_version() {
    return ORVANE_VERSION;
}
