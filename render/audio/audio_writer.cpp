#include "render/audio/audio_writer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "render/audio/output_file.h"
#include "render/audio/sndfile_handle.h"
#include "render/audio/whole_write.h"
#include "render/failure.h"

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

// What libsndfile writes through. It returns success from some formats although a write failed, so
// the first error is kept here; after it nothing more is written.
struct NotedFile {
    int fd;
    int error = 0;  // errno

    static sf_count_t Length(void* self) {
        struct stat status {};
        return fstat(Of(self).fd, &status) == 0 ? status.st_size : -1;
    }
    static sf_count_t Seek(sf_count_t offset, int whence, void* self) {
        const off_t at = lseek(Of(self).fd, offset, whence);
        if (at < 0) Of(self).Note(errno);
        return at;
    }
    static sf_count_t Write(const void* bytes, sf_count_t size, void* self) {
        NotedFile& file = Of(self);
        if (file.error == 0) file.Note(WriteAll(file.fd, bytes, static_cast<size_t>(size)));
        return file.error == 0 ? size : 0;
    }
    static sf_count_t Tell(void* self) { return lseek(Of(self).fd, 0, SEEK_CUR); }

private:
    static NotedFile& Of(void* self) { return *static_cast<NotedFile*>(self); }
    void Note(int newError) {
        if (error == 0) error = newError;
    }
};

// A WAV header holds its length in 32 bits; this leaves room for the other chunks.
constexpr uint64_t kMostWavBytes = 0xFFF00000;

class FileWriter : public AudioWriter {
public:
    FileWriter(const std::string& path, bool overwrite, const AudioFormat& format,
               const std::vector<Tag>& tags)
        : name(path), output(path, overwrite), target{output.Descriptor()} {
        info.samplerate = static_cast<int>(format.rateHz);
        info.channels = static_cast<int>(format.channels);
        info.format = OutputFormat(path).SndfileFormat();
        const bool isWav = (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV;
        const bool fits =
            format.frames && *format.frames < kMostWavBytes / (2 * uint64_t{format.channels});
        if (isWav && !fits) info.format = SF_FORMAT_RF64 | SF_FORMAT_PCM_16;
        SF_VIRTUAL_IO through{NotedFile::Length, NotedFile::Seek, nullptr, NotedFile::Write,
                              NotedFile::Tell};
        file.reset(sf_open_virtual(&through, SFM_WRITE, &info, &target));
        if (file == nullptr) Refuse(sf_error(nullptr));
        if (isWav && !fits) sf_command(file.get(), SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
        WriteTags(file.get(), tags);
    }

    void Write(std::span<const int16_t> samples) override {
        const auto count = static_cast<sf_count_t>(samples.size());
        if (sf_write_short(file.get(), samples.data(), count) != count || target.error != 0)
            Refuse(sf_error(file.get()));
    }

    void Commit() override {
        const int result = sf_close(file.release());
        if (result != 0 || target.error != 0) Refuse(result);
        output.Commit();
    }

private:
    // libsndfile is asked only where the disk has nothing to say: after a failed write its codes
    // may mean nothing, and then it prints that.
    [[noreturn]] void Refuse(int sndfileError) const {
        throw Failure(
            name + " cannot be written: " +
            (target.error != 0 ? std::strerror(target.error) : sf_error_number(sndfileError)));
    }

    std::string name;
    OutputFile output;  // outlives the handle on it
    NotedFile target;   // likewise
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
        WriteToStandardOutput(header.data(), header.size());
    }

    void Write(std::span<const int16_t> samples) override {
        WriteToStandardOutput(samples.data(), samples.size_bytes());
    }

    void Commit() override {}
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
