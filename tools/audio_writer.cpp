#include "tools/audio_writer.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "tools/failure.h"
#include "tools/output_file.h"
#include "tools/sndfile_handle.h"

namespace {

struct Ending {
    const char* ending;
    int sndfileFormat;
};
constexpr Ending kEndings[] = {
    {".wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
    {".flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
    {".ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
    {".oga", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
    {".opus", SF_FORMAT_OGG | SF_FORMAT_OPUS},
    {".mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III},
    {".aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16},
    {".aif", SF_FORMAT_AIFF | SF_FORMAT_PCM_16},
    {".au", SF_FORMAT_AU | SF_FORMAT_PCM_16},
    {".snd", SF_FORMAT_AU | SF_FORMAT_PCM_16},
    {".caf", SF_FORMAT_CAF | SF_FORMAT_PCM_16},
    {".w64", SF_FORMAT_W64 | SF_FORMAT_PCM_16},
    {".rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16},
};

// A WAV header holds its length in 32 bits; this leaves room for the other chunks.
constexpr uint64_t kMostWavBytes = 0xFFF00000;

class FileWriter : public AudioWriter {
public:
    FileWriter(const std::string& path, bool overwrite, const AudioFormat& format,
               const std::vector<Tag>& tags)
        : name(path), output(path, overwrite) {
        info.samplerate = static_cast<int>(format.rateHz);
        info.channels = static_cast<int>(format.channels);
        info.format = OutputFormat(path).SndfileFormat();
        const bool isWav = (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV;
        const bool fits =
            format.frames && *format.frames < kMostWavBytes / (2 * uint64_t{format.channels});
        if (isWav && !fits) info.format = SF_FORMAT_RF64 | SF_FORMAT_PCM_16;
        file.reset(sf_open(output.TemporaryPath().c_str(), SFM_WRITE, &info));
        if (file == nullptr) throw Failure(name + " cannot be written: " + sf_strerror(nullptr));
        if (isWav && !fits) sf_command(file.get(), SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
        WriteTags(file.get(), tags);
    }

    void Write(std::span<const int16_t> samples) override {
        const auto count = static_cast<sf_count_t>(samples.size());
        if (sf_write_short(file.get(), samples.data(), count) != count)
            throw Failure(name + " cannot be written: " + sf_strerror(file.get()));
    }

    void Commit() override {
        const int result = sf_close(file.release());
        if (result != 0) throw Failure(name + " cannot be written: " + sf_error_number(result));
        output.Commit();
    }

private:
    std::string name;
    OutputFile output;  // outlives the handle on it
    SF_INFO info{};
    SndfileHandle file;
};

// libsndfile cannot write WAV without going back to the header, so this writes one that needn't be
// gone back to. Little-endian hosts only, as is the effect interface.
class StreamWriter : public AudioWriter {
public:
    explicit StreamWriter(const AudioFormat& format) {
        const auto channels = static_cast<uint16_t>(format.channels);
        const auto frameBytes = static_cast<uint16_t>(2 * channels);
        std::string header;
        const auto put = [&header](auto value) {
            header.append(reinterpret_cast<const char*>(&value), sizeof(value));
        };
        constexpr uint32_t kOpen = 0xFFFFFFFF;
        header += "RIFF";
        put(kOpen);
        header += "WAVEfmt ";
        put(uint32_t{16});
        put(uint16_t{1});
        put(channels);
        put(format.rateHz);
        put(format.rateHz * frameBytes);
        put(frameBytes);
        put(uint16_t{16});
        header += "data";
        put(kOpen);
        WriteBytes(header.data(), header.size());
    }

    void Write(std::span<const int16_t> samples) override {
        WriteBytes(reinterpret_cast<const char*>(samples.data()), samples.size_bytes());
    }

    void Commit() override {}

private:
    static void WriteBytes(const char* bytes, size_t size) {
        while (size > 0) {
            const ssize_t written = write(STDOUT_FILENO, bytes, size);
            if (written < 0 && errno == EINTR) continue;
            if (written < 0)
                throw Failure(std::string("standard output cannot be written: ") +
                              std::strerror(errno));
            bytes += written;
            size -= static_cast<size_t>(written);
        }
    }
};

}  // namespace

OutputFormat::OutputFormat(const std::string& path) {
    if (path == "-") return;
    std::string ending = std::filesystem::path(path).extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    std::string known;
    for (const Ending& entry : kEndings) {
        if (ending == entry.ending) sndfileFormat = entry.sndfileFormat;
        known += std::string(" ") + entry.ending;
    }
    if (sndfileFormat == 0)
        throw UsageError(path + ": the ending names no format; known are" + known);
    if ((sndfileFormat & SF_FORMAT_SUBMASK) == SF_FORMAT_OPUS)
        rates = {8000, 12000, 16000, 24000, 48000};
    if ((sndfileFormat & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG)
        rates = {8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000};
}

bool OutputFormat::TakesRate(uint32_t rateHz) const {
    return rates.empty() || std::find(rates.begin(), rates.end(), rateHz) != rates.end();
}

std::unique_ptr<AudioWriter> OpenAudioWriter(const std::string& path, bool overwrite,
                                             const AudioFormat& format,
                                             const std::vector<Tag>& tags) {
    if (path == "-") return std::make_unique<StreamWriter>(format);
    return std::make_unique<FileWriter>(path, overwrite, format, tags);
}
