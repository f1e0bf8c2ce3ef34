// Inspects the structure of an audio file before it is decoded. Finds out whether the file is
// whole, and whether several files were joined into it. Decoders ignore both without a message. Use
// on one thread.
#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "render/audio/bytes.h"

// The bytes `from` (included) to `to` (excluded) of a file, counted from the start of its audio
// header.
struct BytePart {
    uint64_t from, to;
};

// A place in a header whose value keeps decoders from reading all of the audio, and the bytes to
// read there instead.
struct HeaderPatch {
    uint64_t at;
    std::string bytes;
};

struct SourceScan {
    std::vector<std::string> damage;  // one phrase for each fault; empty if none was found
    // Set if the file is two or more compressed files that were joined. Each part can be decoded by
    // itself. A decoder for one file would stop after the first.
    std::vector<BytePart> parts;
    // The number of frames (samples per channel) of an MP3 file without a frame count, found by
    // counting. Decoders estimate it from the bit rate of the first frame.
    std::optional<uint64_t> uncountedFrames;
    std::optional<HeaderPatch> patch;
    std::optional<uint64_t> end;  // where a second file begins that must be hidden from the decoder
};

// Scans the file that begins at byte `start`. `fd` must be seekable; its file position does not
// change. The result is empty for unknown formats, and says nothing about lengths that the header
// leaves open.
SourceScan ScanSource(int fd, uint64_t start);

// Returns whether a length in a header is a placeholder of a writer that did not know it. Writers
// to a pipe use all ones, or a size near 2^31 or 2^32.
bool IsOpenLength(uint64_t length);

// Scan formats that are streams of pages or frames. `from` is where "fLaC" stands.
SourceScan ScanOgg(ByteWindow& file);
SourceScan ScanFlac(ByteWindow& file, uint64_t from);
SourceScan ScanMp3(ByteWindow& file);

// Returns where the audio begins after any ID3v2 tags at `from`.
uint64_t SkipId3(ByteWindow& file, uint64_t from);
