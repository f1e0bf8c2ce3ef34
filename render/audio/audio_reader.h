// Audio files and streams in, as floats: through libsndfile, and through the ffmpeg program what
// libsndfile can't read or not whole.
//
// Everything throws Failure with one line for the user.
#pragma once
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "render/audio/ffmpeg_decoder.h"
#include "render/audio/pipe_copy.h"
#include "render/audio/sndfile_handle.h"
#include "render/audio/source_scan.h"
#include "render/audio/tags.h"

// Samples as they come: of a file, or of several one after another.
class SampleReader {
public:
    virtual ~SampleReader() = default;
    virtual uint32_t RateHz() const = 0;
    virtual uint32_t Channels() const = 0;
    // As the files say; none if they don't know.
    virtual std::optional<uint64_t> Frames() const = 0;
    // Every sample is a whole number of 16 bits: nothing is lost in taking it as that.
    virtual bool IsSixteenBit() const = 0;
    // Next interleaved samples, full scale 1.0, whole frames; empty at the end. NaN and infinity
    // read as 0.
    virtual std::span<const float> Read() = 0;
    // The same where IsSixteenBit.
    virtual std::span<const int16_t> ReadSixteenBit() = 0;
    // Samples that were NaN or infinite so far. They stop here, since resampler and meters would
    // spread them over their neighbours.
    virtual uint64_t NotNumbers() const = 0;
    // Call this after the last block. It returns what is wrong with the file, a phrase for each
    // fault; empty if the file is whole.
    virtual std::vector<std::string> Damage() const = 0;
};

// Frames of a block of a reader, but for the last.
constexpr size_t kReadFrames = 4096;

// Always reads floats: decoders of lossy formats wrap what goes over full scale when asked for 16
// bits.
class AudioReader final : public SampleReader {
public:
    // path: "-" is standard input. What comes through a pipe is read to its end first, except WAV,
    // AIFF and AU whose headers leave the length open. copyOfPipe: a file with all that has come
    // through it, "" for none; it is read instead.
    explicit AudioReader(const std::string& path, const std::string& copyOfPipe = "");

    uint32_t RateHz() const override { return static_cast<uint32_t>(info.samplerate); }
    uint32_t Channels() const override { return static_cast<uint32_t>(info.channels); }
    // As the file promises; none if it doesn't know.
    std::optional<uint64_t> Frames() const override;
    bool IsSixteenBit() const override;
    // A pipe whose length is open has only those few that libsndfile knows.
    const AudioTags& Tags() const { return tags; }

    std::span<const float> Read() override;
    std::span<const int16_t> ReadSixteenBit() override;
    // What a file can't tell isn't found: an MP3 file without a count of its frames may have been
    // cut between two of them.
    std::vector<std::string> Damage() const override;
    uint64_t NotNumbers() const override { return notNumbers; }

private:
    struct Descriptor {
        int fd = -1;
        Descriptor() = default;
        ~Descriptor() {
            if (fd >= 0) close(fd);
        }
        Descriptor(const Descriptor&) = delete;
        Descriptor& operator=(const Descriptor&) = delete;
    };
    // The source with the scan's patch and end, as libsndfile reads it.
    struct View {
        int fd;
        uint64_t start, size, at;
        std::optional<HeaderPatch> patch;
    };
    static sf_count_t ReadView(void* bytes, sf_count_t count, void* self);

    void OpenInput(const std::string& path, const std::string& copyOfPipe);
    void OpenFile(const std::string& path);
    void OpenView();
    // Where libsndfile doesn't read it, or not whole.
    void OpenDecoder(const std::string& reason);
    bool StartPart();
    // Samples that the library has read when asked for a block.
    size_t Samples(sf_count_t frames);
    size_t DecodedSamples();

    SF_INFO info{};
    std::string name;
    bool piped = false;  // and read as it comes
    std::optional<PipeCopy> copy;
    Descriptor input;
    uint64_t start = 0;  // of the file, from that of the descriptor's
    SourceScan scan;
    View view{};
    SndfileHandle file;  // closed before what it reads through
    std::unique_ptr<FfmpegDecoder> decoder;
    std::vector<BytePart> parts;  // for the decoder
    size_t nextPart = 0;
    AudioTags tags;
    std::vector<float> block;
    std::vector<int16_t> sixteenBits;
    std::vector<std::string> faults;  // found while reading
    uint64_t framesRead = 0;
    uint64_t notNumbers = 0;
};
