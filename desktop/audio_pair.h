// The pair of streams through which the desktop's sound passes: players are linked to "orvane", and
// "orvane.out" plays the result on the listener's output. A LiveStream stands between them.
//
// Both streams have the rate of the sound server's graph if it is 32000 to 48000 Hz, otherwise
// 48000 Hz; the sound server then resamples. Blocks have 770 frames, for a low latency.
//
// Thread: the loop's thread, unless a function says otherwise. The sound is processed on the sound
// server's data thread, which allocates nothing and waits for nothing.
#pragma once
#include <pipewire/pipewire.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>

#include "client/settings.h"
#include "live/live_stream.h"

constexpr char kInputName[] = "orvane", kOutputName[] = "orvane.out";  // of the two nodes

class AudioPair {
public:
    // Connects both streams to the sound server. Throws std::runtime_error if a stream can't be
    // made. context, serverCore: must live longer than the pair.
    AudioPair(pw_context* context, pw_core* serverCore, const Settings& firstSettings);
    // Returns when the data thread has left the pair.
    ~AudioPair();
    AudioPair(const AudioPair&) = delete;
    AudioPair& operator=(const AudioPair&) = delete;

    // Heard from the next block on; a switch that moves fades out and in.
    void Apply(const Settings& wanted);
    // wanted: true plays the input with the same latency, multiplied by a linear gain. A gain above
    // 1 is lowered as long as samples would exceed full scale.
    void SetBypass(bool wanted, float inputGain);

    // Returns the levels of the last 0.3 s, in dB relative to full scale.
    LiveStream::Levels Meters() const;
    // Returns 0 before the first sound.
    uint32_t RateHz() const { return rate; }
    uint32_t LatencyFrames() const { return latencyFrames.load(); }

private:
    struct Side {
        AudioPair* pair = nullptr;
        pw_stream* stream = nullptr;
        spa_hook listener{};
        uint64_t otherLatencyNs = 0;  // between this side and what is linked to it
    };

    void Disconnect();
    void Connect(Side* side, const char* name, const char* mediaClass, spa_direction direction);
    void SetFormat(const spa_pod* format);
    void TakeLatency(Side* side, const spa_pod* param);
    void TellLatency();
    void TellLatency(Side* side, spa_direction direction, uint64_t otherNs);
    void Process();
    void Amplify(const std::array<float*, 2>& channels, size_t frames);
    template <typename Value>
    void Send(const Value& value, spa_invoke_func_t function);

    static const pw_stream_events kInputEvents, kOutputEvents;

    pw_core* core;
    pw_loop* loop;
    pw_data_loop* dataLoop;
    spa_source* latencyMoved = nullptr;  // signalled by the data thread
    Side input, output;
    Settings settings;
    struct Bypass {
        bool isOn = false;
        float gain = 1;
    } bypass;
    uint32_t rate = 0;
    std::unique_ptr<LiveStream> live;  // replaced while the data thread waits, then its own
    // The data thread owns these: the gain of what is heard, where it moves to, and how large it
    // may be without exceeding full scale.
    float gain = 1, wantedGain = 1, room = 1;
    bool isEnding = false;

    std::atomic<uint32_t> latencyFrames{0};
    std::atomic<float> sourceDb{-100}, resultDb{-100}, gainDb{0};
    std::atomic<bool> limiting{false};
};
