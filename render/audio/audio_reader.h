// Audio files and streams in, as floats, through libsndfile.
//
// Everything throws Failure with one line for the user.
#pragma once
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "render/audio/data_size.h"
#include "render/audio/sndfile_handle.h"
#include "render/audio/tags.h"

class AudioReader {
public:
    // path: "-" is standard input, from which some formats cannot be read. copyOfPipe: a file with
    // all that has come through it, "" for none; it is read instead.
    explicit AudioReader(const std::string& path, const std::string& copyOfPipe = "");

    uint32_t RateHz() const { return static_cast<uint32_t>(info.samplerate); }
    uint32_t Channels() const { return static_cast<uint32_t>(info.channels); }
    // As the file says; none if it doesn't know.
    std::optional<uint64_t> Frames() const;
    // Every sample is a whole number of 16 bits: nothing is lost in taking it as that.
    bool IsSixteenBit() const;
    // Of a pipe, only those few that libsndfile knows.
    const AudioTags& Tags() const { return tags; }

    // Next interleaved samples, full scale 1.0; empty at the end. Always floats: decoders of lossy
    // formats wrap what goes over full scale when asked for 16 bits. NaN and infinity read as 0.
    std::span<const float> Read();
    // The same where IsSixteenBit.
    std::span<const int16_t> ReadSixteenBit();
    // Call this after the last block. It returns what is wrong with the file, a phrase for each
    // fault; empty if the file is whole.
    std::vector<std::string> Damage() const;
    // Samples that were NaN or infinite so far. They stop here, since resampler and meters would
    // spread them over their neighbours.
    uint64_t NotNumbers() const { return notNumbers; }

private:
    // Samples that the library has read when asked for a block.
    size_t Samples(sf_count_t frames);

    SF_INFO info{};
    std::string name;
    bool piped = false;
    std::optional<DataSize> dataSize;
    SndfileHandle file;
    AudioTags tags;
    std::vector<float> block;
    std::vector<int16_t> sixteenBits;
    uint64_t framesRead = 0;
    uint64_t notNumbers = 0;
};
