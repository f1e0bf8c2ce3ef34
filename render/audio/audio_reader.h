// Reads audio files and streams through libsndfile. What libsndfile cannot read, or not completely,
// is read through the ffmpeg program.
//
// Use an object on one thread. Constructors and reading functions throw Failure, whose message is
// one line for the user.
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

// A source of samples: one file, or several one after another.
class SampleReader {
public:
    virtual ~SampleReader() = default;
    virtual uint32_t RateHz() const = 0;
    virtual uint32_t Channels() const = 0;
    // Returns the number of frames according to the file headers. Unset if a header does not tell
    // it.
    virtual std::optional<uint64_t> Frames() const = 0;
    // Returns whether every sample fits in 16 bits, so that ReadSixteenBit loses nothing.
    virtual bool IsSixteenBit() const = 0;
    // Returns the next interleaved samples: whole frames, full scale 1.0. They are valid until the
    // next call. Returns an empty span at the end. NaN and infinity read as 0.
    virtual std::span<const float> Read() = 0;
    // Returns the next samples as 16-bit integers. Allowed only if IsSixteenBit().
    virtual std::span<const int16_t> ReadSixteenBit() = 0;
    // Returns how many samples were NaN or infinite so far. They are replaced here, because the
    // resampler and the meters would spread them to neighbouring samples.
    virtual uint64_t NotNumbers() const = 0;
    // Returns what is wrong with the file, one phrase for each fault. Empty if the file is whole.
    // Call it after the last block.
    virtual std::vector<std::string> Damage() const = 0;
};

// Number of frames in each block of a reader, except the last.
constexpr size_t kReadFrames = 4096;

// Reads one file or pipe. Samples of lossy formats are always read as floats, because their
// decoders wrap samples beyond full scale when asked for 16 bits.
class AudioReader final : public SampleReader {
public:
    // `path`: "-" is standard input. A pipe is copied to a temporary file first. The exceptions are
    // WAV, AIFF and AU whose headers leave the length open; they are read as they arrive.
    // `copyOfPipe`: the path of a file with the whole content of the pipe, which is read instead;
    // "" for none.
    explicit AudioReader(const std::string& path, const std::string& copyOfPipe = "");

    uint32_t RateHz() const override { return static_cast<uint32_t>(info.samplerate); }
    uint32_t Channels() const override { return static_cast<uint32_t>(info.channels); }
    // Unset if the header does not tell the length, or if it may be wrong.
    std::optional<uint64_t> Frames() const override;
    bool IsSixteenBit() const override;
    // Returns the tags. A pipe that is read as it arrives has only the few fields that libsndfile
    // reads.
    const AudioTags& Tags() const { return tags; }

    std::span<const float> Read() override;
    std::span<const int16_t> ReadSixteenBit() override;
    // Damage that leaves no trace in the file is not found. For example, an MP3 file without a
    // frame count may have been cut between two frames.
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
    // The bytes that libsndfile reads: the source with the header patch, up to the end that the
    // scan found.
    struct View {
        int fd;
        uint64_t start, size, at;
        std::optional<HeaderPatch> patch;
    };
    static sf_count_t ReadView(void* bytes, sf_count_t count, void* self);

    void OpenInput(const std::string& path, const std::string& copyOfPipe);
    void OpenFile(const std::string& path);
    void OpenView();
    // Called if libsndfile cannot read the file, or not completely. `reason` is libsndfile's
    // message.
    void OpenDecoder(const std::string& reason);
    bool StartPart();
    // Takes the number of frames that libsndfile returned for one block. Notes a fault if it
    // stopped early because of an error. Returns the number of samples.
    size_t Samples(sf_count_t frames);
    size_t DecodedSamples();

    SF_INFO info{};
    std::string name;
    bool piped = false;  // the input is a pipe that is read as it arrives
    std::optional<PipeCopy> copy;
    Descriptor input;
    uint64_t start = 0;  // where the audio file begins within the descriptor's file
    SourceScan scan;
    View view{};
    SndfileHandle file;  // declared after `view` and `input`, so that it is closed before them
    std::unique_ptr<FfmpegDecoder> decoder;
    std::vector<BytePart> parts;  // what the decoder reads, one part after another
    size_t nextPart = 0;
    AudioTags tags;
    std::vector<float> block;
    std::vector<int16_t> sixteenBits;
    std::vector<std::string> faults;  // faults found while reading
    uint64_t framesRead = 0;
    uint64_t notNumbers = 0;
};
