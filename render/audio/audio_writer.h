// 16-bit samples out, to a file whose ending names the format or to standard output.
//
// Everything throws Failure with one line for the user.
#pragma once
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "render/audio/output_file.h"
#include "render/audio/tags.h"

// The format that a file name's ending asks for.
class OutputFormat {
public:
    // "-" is a WAV stream. UsageError for an ending that nothing is known of.
    explicit OutputFormat(const std::string& path);
    // Returns whether the constructor takes it.
    static bool IsKnown(const std::string& path);
    bool TakesRate(uint32_t rateHz) const;
    // The decoder gives other samples than the encoder was given.
    bool IsLossy() const;
    int SndfileFormat() const { return sndfileFormat; }

private:
    int sndfileFormat = 0;
    std::vector<uint32_t> rates;  // empty: all
};

// Where the samples go. Nothing exists under the final name until Commit.
class AudioWriter {
public:
    virtual ~AudioWriter() = default;
    // Interleaved samples, whole frames.
    virtual void Write(std::span<const int16_t> samples) = 0;
    // Completes the file, which has no name yet, and opens it to see that it holds what was
    // written. No samples may follow.
    virtual void Close() = 0;
    // After Close: the path of the file without its name, for reading; "" if there is no file.
    virtual std::string ClosedPath() const = 0;
    // Gives the file its name, after Close if that wasn't called.
    virtual void Commit() = 0;
    // The tags that there is no place for, known after Close, and what OutputFile couldn't keep,
    // known after Commit.
    virtual std::vector<std::string> NotKept() const = 0;
};

// The headers of WAV and AIFF hold their lengths in 32 bits; this leaves room for the other chunks.
constexpr uint64_t kMostWavBytes = 0xFFF00000;

struct AudioFormat {
    uint32_t rateHz;
    uint32_t channels;
    std::optional<uint64_t> frames;         // if known
    uint64_t mostWavBytes = kMostWavBytes;  // of samples: more become RF64; AIFF refuses them
    uint64_t delayFrames = 0;               // of silence before the sound begins
    std::optional<FileTimes> times{};       // of the file; none: the present
};

// path: "-" is standard output, a WAV stream whose header leaves the length open. together: as
// OutputFile has it.
std::unique_ptr<AudioWriter> OpenAudioWriter(const std::string& path, bool overwrite,
                                             const AudioFormat& format, const AudioTags& tags,
                                             OutputSet* together = nullptr);
