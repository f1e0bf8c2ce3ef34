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
    // path: "-" is standard input, from which some formats cannot be read.
    explicit AudioReader(const std::string& path);

    uint32_t RateHz() const { return static_cast<uint32_t>(info.samplerate); }
    uint32_t Channels() const { return static_cast<uint32_t>(info.channels); }
    // As the file says; none if it doesn't know.
    std::optional<uint64_t> Frames() const;
    // As the header says, where the file's own end could be an earlier one; none if it doesn't
    // tell.
    std::optional<DataSize> Data() const { return dataSize; }
    // Every sample is a whole number of 16 bits: nothing is lost in taking it as that.
    bool IsSixteenBit() const;
    std::vector<Tag> Tags() const { return ReadTags(file.get()); }
    bool HasReplayGain() const { return replayGain; }

    // Next interleaved samples, full scale 1.0; empty at the end. Always floats: decoders of lossy
    // formats wrap what goes over full scale when asked for 16 bits. NaN and infinity read as 0.
    std::span<const float> Read();
    // Samples that were NaN or infinite so far. They stop here, since resampler and meters would
    // spread them over their neighbours.
    uint64_t NotNumbers() const { return notNumbers; }

private:
    SF_INFO info{};
    std::string name;
    bool piped = false, replayGain = false;
    std::optional<DataSize> dataSize;
    SndfileHandle file;
    std::vector<float> block;
    uint64_t notNumbers = 0;
};
