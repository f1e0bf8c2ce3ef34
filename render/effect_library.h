// The effect library that the renderer runs, and pieces played through it. It is loaded from a
// file.
//
// Throws Failure if the library can't be used or refuses something. Thread: one at a time.
#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "client/library_file.h"
#include "client/stream.h"
#include "platform/library_record.h"

// Throws "the library refuses to ..." if the status isn't 0.
void Check(int32_t status, const std::string& what);

class EffectLibrary {
public:
    // If `showsLog` is false, log lines that the library writes to standard error are dropped.
    EffectLibrary(const std::string& path, bool showsLog);

    const audio_effect_library_t& Record() const { return *file.Record(); }
    bool ShowsLog() const { return showLog; }

    uint32_t EffectCount() const;
    // Returns the descriptor of the library's first effect.
    effect_descriptor_t Descriptor() const;

private:
    LibraryFile file;
    bool showLog;
};

// Plays a piece as PieceStream does. The library's log stays silent unless it is asked for.
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

// Returns a function that plays a whole piece of interleaved samples through a new instance. The
// output is as long as the input, and aligned with it. The library must outlive the function.
std::function<std::vector<int16_t>(const std::vector<int16_t>&)> AlignedPlayer(
    const EffectLibrary& library, const Settings& settings, const StreamFormat& format,
    bool startsCold = false);
