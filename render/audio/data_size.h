// What the header of a WAV, AIFF or AU file says of its audio: a file cut off holds less than that,
// and libsndfile then reports the rest as if it had always been the whole.
#pragma once
#include <cstdint>
#include <optional>

struct DataSize {
    uint64_t promised, present;  // bytes of samples
};

// fd: a file that can be read at any place, of which nothing is moved; the header stands at
// `start`. None for other formats, and where the header was written before the length was known.
std::optional<DataSize> ReadDataSize(int fd, int64_t start);
