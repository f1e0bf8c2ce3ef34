// Writes 16-bit samples to a file, whose ending names the format, or to standard output.
//
// Use an object on one thread. Everything that writes throws Failure, whose message is one line for
// the user.
#pragma once
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "render/audio/loudness.h"
#include "render/audio/output_file.h"
#include "render/audio/tags.h"

// The output format that the ending of a file name selects.
class OutputFormat {
public:
    // `path`: "-" stands for a WAV stream. Throws UsageError if the ending is not known.
    explicit OutputFormat(const std::string& path);
    // Returns whether the constructor accepts `path`.
    static bool IsKnown(const std::string& path);
    bool TakesRate(uint32_t rateHz) const;
    // Returns true if decoding does not give back the samples that were encoded.
    bool IsLossy() const;
    // Returns true if all tags can be written. Otherwise libsndfile writes a few.
    bool TakesTags() const;
    // Returns true if music players play the format, and no other program expects it without tags.
    bool IsForPlayers() const;
    int SndfileFormat() const { return sndfileFormat; }

private:
    int sndfileFormat = 0;
    std::vector<uint32_t> rates;  // the rates that the format allows; empty if it allows all
};

// Receives the output. No file exists under the final name until Commit.
class AudioWriter {
public:
    virtual ~AudioWriter() = default;
    // Appends whole interleaved frames.
    virtual void Write(std::span<const int16_t> samples) = 0;
    // Completes the file, which has no name yet. Opens it again and throws Failure if it does not
    // hold the frames that were written. Write must not be called afterwards.
    virtual void Close() = 0;
    // Returns a path under which the file can be read between Close and Commit; "" if there is no
    // file.
    virtual std::string ClosedPath() const = 0;
    // Gives the file its name. Calls Close first if nobody did.
    virtual void Commit() = 0;
    // Returns the names of what was lost, complete after Close. It lists the tags that the format
    // has no place for. It also lists properties of an old file of the same name that OutputFile
    // could not keep.
    virtual std::vector<std::string> NotKept() const = 0;
};

// The most bytes of samples in a WAV or AIFF file. The headers have lengths of 32 bits; this value
// leaves room for the other chunks.
constexpr uint64_t kMostWavBytes = 0xFFF00000;

struct AudioFormat {
    uint32_t rateHz;
    uint32_t channels;
    std::optional<uint64_t> frames;  // unset if not known
    // bytes of samples; a longer WAV file becomes RF64, a longer AIFF file is refused
    uint64_t mostWavBytes = kMostWavBytes;
    uint64_t delayFrames = 0;          // frames of silence before the sound begins
    std::optional<FileTimes> times{};  // the file's times; unset for the present
    // of a lossy format, 0 (smallest file) to 10; unset for libsndfile's default
    std::optional<double> quality{};
};

// `path`: "-" is standard output, as a WAV stream whose header leaves the length open. `together`:
// as for OutputFile. Throws UsageError or Failure.
std::unique_ptr<AudioWriter> OpenAudioWriter(const std::string& path, bool overwrite,
                                             const AudioFormat& format, const AudioTags& tags,
                                             OutputSet* together = nullptr);

// The loudness that players level by. The album's is unset for a single piece.
struct Gains {
    Loudness piece{};
    std::optional<Loudness> album{};
};

// Writes the gains into the tags of a complete file: R128_TRACK_GAIN and R128_ALBUM_GAIN for Opus,
// REPLAYGAIN_* with the true peak for other formats. `output` is the final name of the file at
// `path`, whose times are kept. What has no loudness gets no tags. Throws
// Failure, also if the file then has another length, rate or number of channels.
void WriteGains(const std::string& path, const std::string& output, const Gains& gains);
