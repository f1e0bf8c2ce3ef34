// Fuzz target: reads an audio file of unknown bytes as the renderer does: its structure, tags,
// samples and damage.
//
// The first byte of an input says how the file arrives and what ffmpeg does. The other bytes are
// the file.
//
//   bits 0, 1  0: a file, 1: a pipe, 2: standard input whose first three bytes were read, 3:
//   standard
//              input that was read to beyond its end
//   bit 2      the program ffmpeg is installed
//   bit 3      ffmpeg cannot read the first part
//   bit 4      ffmpeg has a message at the end of each part
//   bit 5      dither
//   bit 6      the output is softer
//
// The real ffmpeg runs in its own process. Its stand-in here returns the bytes of a part as
// samples.
//
// Run it with scripts/fuzz.sh.
#include <fcntl.h>
#include <sys/stat.h>

#include <cmath>
#include <span>
#include <string>
#include <utility>

#include "fuzz/fuzz_input.h"
#include "render/audio/audio_reader.h"
#include "render/audio/pcm.h"
#include "render/failure.h"

namespace {

// More than any small file needs, except for compressed silence.
constexpr uint64_t kMostFrames = 200'000;

struct Ffmpeg {
    bool isInstalled = false, refuses = false, complains = false;
    int fd = -1;
    uint64_t at = 0, to = 0;  // the bytes of the part that have not been read
} ffmpeg;

// Stands for the output file.
class NoWriter : public AudioWriter {
public:
    void Write(std::span<const int16_t> samples) override { written += samples.size(); }
    void Close() override {}
    std::string ClosedPath() const override { return ""; }
    void Commit() override {}
    std::vector<std::string> NotKept() const override { return {}; }
    uint64_t written = 0;
};

// Reads a file to its end, or its first kMostFrames frames.
void ReadAll(AudioReader& reader, bool dither, double gain) {
    const uint32_t rateHz = reader.RateHz(), channels = reader.Channels();
    Demand(rateHz > 0 && channels > 0, "a rate and channels");
    Demand(reader.Tags().MostBytes() > 0, "room for the tags");
    reader.Tags().marks.Points();
    // The renderer processes only these (render/chain_run.cpp).
    if (rateHz >= 1000 && rateHz <= 768000 && channels <= 2) {
        StreamMeter noMeter(Metering::kNothing);
        PcmSource source(reader, ChainRateHz(rateHz), dither, noMeter);
        NoWriter writer;
        PcmSink sink(writer, {ChainRateHz(rateHz), rateHz}, channels, dither, gain, noMeter);
        std::span<const int16_t> pcm;
        while (source.FramesRead() < kMostFrames && source.Read(&pcm)) {
            Demand(pcm.size() % channels == 0, "whole frames");
            sink.Write(pcm);
        }
        sink.Finish(source.FramesRead());
        Demand(writer.written == source.FramesRead() * channels, "as many frames as were read");
        Demand(source.Damage().size() >= reader.Damage().size(), "the reader's damage is told");
        return;
    }
    std::span<const float> samples;
    for (uint64_t frames = 0; frames < kMostFrames; frames += samples.size() / channels) {
        samples = reader.Read();
        Demand(samples.size() % channels == 0, "whole frames");
        for (const float sample : samples) Demand(std::isfinite(sample), "finite samples");
        if (samples.empty()) break;
    }
    reader.Damage();
}

}  // namespace

bool FfmpegDecoder::IsInstalled() {
    return ffmpeg.isInstalled;
}

FfmpegDecoder::FfmpegDecoder(int fd, const BytePart& part, uint32_t rateHz, uint32_t channels) {
    struct stat status {};
    Demand(fstat(fd, &status) == 0 && part.from <= part.to, "an open file and a part of it");
    if (std::exchange(ffmpeg.refuses, false)) return;
    ffmpeg.fd = fd;
    ffmpeg.at = part.from;
    ffmpeg.to = part.to;
    rate = rateHz != 0 ? rateHz : 22050;
    channelCount = channels != 0 ? channels : 2;
}

FfmpegDecoder::~FfmpegDecoder() = default;

size_t FfmpegDecoder::Read(std::span<float> samples) {
    const size_t most = std::min<uint64_t>(samples.size_bytes(), ffmpeg.to - ffmpeg.at);
    const ssize_t got = pread(ffmpeg.fd, samples.data(), most, static_cast<off_t>(ffmpeg.at));
    ffmpeg.at += static_cast<uint64_t>(std::max<ssize_t>(got, 0));
    return static_cast<size_t>(std::max<ssize_t>(got, 0)) / sizeof(float);
}

std::string FfmpegDecoder::Finish() {
    return channelCount == 0 || ffmpeg.complains ? "invalid data" : "";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const unsigned how = input.Take<uint8_t>(), arrival = how & 3U;
    ffmpeg.isInstalled = (how & 4U) != 0;
    ffmpeg.refuses = (how & 8U) != 0;
    ffmpeg.complains = (how & 16U) != 0;
    const MemoryFile file((arrival == 2 ? "abc" : "") + std::string(input.Rest()));
    if (arrival == 1) {
        std::array<int, 2> pipe{};
        Demand(pipe2(pipe.data(), O_CLOEXEC) == 0, "a pipe");
        const std::string_view bytes = input.Rest();  // libFuzzer's limit is below a pipe's size
        Demand(write(pipe[1], bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
               "a pipe with room");
        dup2(pipe[0], STDIN_FILENO);
        close(pipe[0]);
        close(pipe[1]);
    } else if (arrival != 0) {
        lseek(file.Descriptor(), arrival == 2 ? 3 : 1 << 20, SEEK_SET);
        dup2(file.Descriptor(), STDIN_FILENO);
    }
    try {
        AudioReader reader(arrival == 0 ? file.Path() : "-");
        ReadAll(reader, (how & 32U) != 0, (how & 64U) != 0 ? 0.5 : 1);
    } catch (const Failure& failure) {
        Demand(std::strchr(failure.what(), '\n') == nullptr, "a message of one line");
    }
    return 0;
}
