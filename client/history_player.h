// Plays the calls of a history (histories.h) on a new instance of a library. The outputs of a
// library depend only on these calls, so a digest of them can be recorded.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "client/histories.h"
#include "client/instance.h"

// Makes calls on one instance. Every second buffer is processed in place. Allocates nothing itself.
class HistoryPlayer {
public:
    // The record must outlive the player.
    explicit HistoryPlayer(const audio_effect_library_t& library) : instance(library) {}

    // Returns false if the library made no instance. Every call is then answered with -22.
    bool HasInstance() const { return instance.handle != nullptr; }

    // Makes one call and returns its status. A call of kProcess takes `input`, interleaved samples
    // of `channels` channels, and leaves its output in `out`.
    int32_t Play(const HistoryCall& call, const int16_t* input, uint32_t channels) {
        const auto first = static_cast<uint32_t>(call.first);
        switch (call.kind) {
            case HistoryCall::kConfigure:
                return instance.Configure(first, static_cast<uint32_t>(call.values[0]));
            case HistoryCall::kCommand:
                return instance.Command(first);
            case HistoryCall::kSet:
                return instance.Set(call.first, {call.values[0], call.values[1]});
            case HistoryCall::kProcess:
                break;
        }
        const size_t count = size_t{first} * channels;
        inPlace = !inPlace;
        if (inPlace) std::memcpy(out, input, count * sizeof *out);
        return instance.Process(inPlace ? out : input, out, first);
    }

    int16_t out[2 * History::kMostFrames];

private:
    ClientInstance instance;
    bool inPlace = false;
};
