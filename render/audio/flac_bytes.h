// Encodes 16-bit samples as a FLAC file in memory.
#pragma once
#include <sndfile.h>

#include <cstdint>
#include <span>
#include <string>

#include "render/audio/sndfile_handle.h"

// Use an object on one thread. The constructor and Write throw Failure.
class FlacBytes {
public:
    FlacBytes(uint32_t rateHz, uint32_t channels);
    FlacBytes(const FlacBytes&) = delete;
    FlacBytes& operator=(const FlacBytes&) = delete;

    // Appends whole interleaved frames.
    void Write(std::span<const int16_t> samples);
    // Completes the file and returns its bytes. They stay valid as long as the object. Write must
    // not be called afterwards.
    const std::string& Finish();

private:
    // The file in memory. libsndfile seeks back to its header at the end.
    struct Memory {
        std::string bytes;
        size_t at = 0;
    };
    static sf_count_t Length(void* memory);
    static sf_count_t Seek(sf_count_t offset, int whence, void* memory);
    static sf_count_t WriteBytes(const void* from, sf_count_t size, void* memory);
    static sf_count_t Tell(void* memory);

    Memory target;  // declared before `file`, which writes to it
    SndfileHandle file;
};
