// What the structure of an audio file says of it before anything is decoded: whether it is whole,
// and whether several files were joined into it. Decoders pass over both without a word.
#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "render/audio/byte_window.h"

// Bytes of a file, from its start.
struct BytePart {
    uint64_t from, to;
};

// Bytes of a header that hide the audio from a decoder, and what has to stand there instead.
struct HeaderPatch {
    uint64_t at;
    std::string bytes;
};

struct SourceScan {
    std::vector<std::string> damage;  // a phrase for each fault; empty if none was found
    // Two or more compressed files that were joined into one. Each can be decoded by itself, and a
    // decoder for one file stops after the first.
    std::vector<BytePart> parts;
    // Frames (samples per channel) of an MP3 file whose header promises none, as they were counted.
    // Decoders estimate them from the first frame's bit rate.
    std::optional<uint64_t> uncountedFrames;
    std::optional<HeaderPatch> patch;
    std::optional<uint64_t> end;  // where a second file begins that has to be hidden
};

// fd: a file that can be read at any place; it isn't moved. The header stands at `start`.
// Says nothing of formats that it doesn't know, and of lengths that the header leaves open.
SourceScan ScanSource(int fd, uint64_t start);

// Returns whether a header's length was written by someone who didn't know it. Writers to a pipe
// put all ones or a size near 2^31 or 2^32 there.
bool IsOpenLength(uint64_t length);

// Of the formats that are streams of pages or frames.
SourceScan ScanOgg(ByteWindow& file);
SourceScan ScanFlac(ByteWindow& file, uint64_t from);
SourceScan ScanMp3(ByteWindow& file);

// Returns where the audio begins after ID3v2 tags at `from`.
uint64_t SkipId3(ByteWindow& file, uint64_t from);
