// Plays a piece through a loaded library. The library's log stays silent unless it is asked for.
//
// Throws Failure if the library refuses something.
#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "client/piece_stream.h"
#include "render/effect_library.h"

class AlignedStream {
public:
    // The library must outlive the stream.
    AlignedStream(const EffectLibrary& effectLibrary, const Settings& settings,
                  const StreamFormat& format, const Alignment& alignment);
    ~AlignedStream();
    AlignedStream(const AlignedStream&) = delete;
    AlignedStream& operator=(const AlignedStream&) = delete;

    // These do the same as PieceStream's functions.
    void Process(std::span<const int16_t> in, std::vector<int16_t>* out);
    void Finish(std::vector<int16_t>* out);
    uint64_t FramesOut() const { return stream->FramesOut(); }
    uint64_t SettlingFrames() const { return stream->SettlingFrames(); }

private:
    void CheckNothingRefused() const;

    const EffectLibrary& library;
    std::unique_ptr<PieceStream> stream;
};

// Plays whole pieces, each through an instance of its own. The library must outlive the object.
std::function<std::vector<int16_t>(const std::vector<int16_t>&)> AlignedPlayer(
    const EffectLibrary& library, const Settings& settings, const StreamFormat& format,
    bool startsCold = false);
