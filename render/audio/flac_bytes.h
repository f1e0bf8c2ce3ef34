// A FLAC file in memory.
#pragma once
#include <sndfile.h>

#include <cstdint>
#include <span>
#include <string>

#include "render/audio/sndfile_handle.h"

// Throws Failure.
class FlacBytes {
public:
    FlacBytes(uint32_t rateHz, uint32_t channels);
    FlacBytes(const FlacBytes&) = delete;
    FlacBytes& operator=(const FlacBytes&) = delete;

    // Interleaved samples, whole frames.
    void Write(std::span<const int16_t> samples);
    // The whole file; nothing can be written any more.
    const std::string& Finish();

private:
    // What libsndfile writes through; it goes back to the header at the end.
    struct Memory {
        std::string bytes;
        size_t at = 0;
    };
    static sf_count_t Length(void* memory);
    static sf_count_t Seek(sf_count_t offset, int whence, void* memory);
    static sf_count_t WriteBytes(const void* from, sf_count_t size, void* memory);
    static sf_count_t Tell(void* memory);

    Memory target;  // outlives the handle on it
    SndfileHandle file;
};
