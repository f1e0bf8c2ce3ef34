#include "render/audio/audio_writer.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "client/stderr_silencer.h"
#include "render/audio/sndfile_handle.h"
#include "render/audio/tag_stream.h"
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

// Returns the row for a file name, or null if the name has no known ending.
const Ending* FindEnding(const std::string& path) {
    std::string ending = std::filesystem::path(path).extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const Ending& entry : kEndings)
        if (ending == entry.ending) return &entry;
    return nullptr;
}

// The file functions that libsndfile writes through. Some of its formats report success although a
// write failed. So the first error is kept here, and nothing more is written after it.
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
        // After an error, writing seems to succeed. Otherwise libsndfile 1.2.0 would not free what
        // its encoder for Vorbis holds.
        NotedFile& file = Of(self);
        if (file.error == 0) file.Note(WriteAll(file.fd, bytes, static_cast<size_t>(size)));
        return size;
    }
    static sf_count_t Tell(void* self) { return lseek(Of(self).fd, 0, SEEK_CUR); }

private:
    static NotedFile& Of(void* self) { return *static_cast<NotedFile*>(self); }
    void Note(int newError) {
        if (error == 0) error = newError;
    }
};

bool IsOpus(int sndfileFormat) {
    return (sndfileFormat & SF_FORMAT_SUBMASK) == SF_FORMAT_OPUS;
}

// Opens the file `fd` and returns what its header says. Throws Failure if it can't be read.
SF_INFO HeaderOf(int fd, const std::string& name) {
    const StderrSilencer silencer;
    SF_INFO info{};
    const SndfileHandle file(
        sf_open(("/proc/self/fd/" + std::to_string(fd)).c_str(), SFM_READ, &info));
    if (file == nullptr)
        throw Failure("{} is not written: it cannot be read back: {}", name, sf_strerror(nullptr));
    return info;
}

// Adds the fields of one gain. `scope` is TRACK or ALBUM.
void AddGainFields(const Loudness& loudness, const std::string& scope, bool isOpus,
                   TagLib::PropertyMap* fields) {
    constexpr double kR128Lufs = -23, kReplayGainLufs = -18;
    if (!std::isfinite(loudness.integratedLufs)) return;
    const auto add = [&](const std::string& name, const std::string& value) {
        fields->insert(name, TagLib::String(value));
    };
    if (isOpus) {
        const double steps = 256 * (kR128Lufs - loudness.integratedLufs);
        add("R128_" + scope + "_GAIN",
            std::to_string(std::lround(std::clamp(steps, -32768.0, 32767.0))));
        return;
    }
    add("REPLAYGAIN_" + scope + "_GAIN",
        fmt::format("{:+.2f} dB", kReplayGainLufs - loudness.integratedLufs));
    if (std::isfinite(loudness.truePeakDb))
        add("REPLAYGAIN_" + scope + "_PEAK",
            fmt::format("{:.6f}", std::pow(10, loudness.truePeakDb / 20)));
}

class FileWriter : public AudioWriter {
public:
    FileWriter(const std::string& path, bool overwrite, const AudioFormat& format,
               const AudioTags& audioTags, OutputSet* together)
        : name(path),
          output(path, overwrite, together),
          target{output.Descriptor()},
          tags(audioTags),
          mostWavBytes(format.mostWavBytes),
          rateHz(format.rateHz) {
        if (format.times) output.SetTimes(*format.times);
        tags.marks.Move(format.rateHz, format.delayFrames);
        info.samplerate = static_cast<int>(format.rateHz);
        info.channels = static_cast<int>(format.channels);
        info.format = OutputFormat(path).SndfileFormat();
        const bool isWav = (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV;
        const bool fits =
            format.frames && *format.frames < mostWavBytes / (2 * uint64_t{format.channels});
        if (isWav && !fits) info.format = SF_FORMAT_RF64 | SF_FORMAT_PCM_16;
        if (format.frames) CheckRoom(*format.frames);
        SF_VIRTUAL_IO through{NotedFile::Length, NotedFile::Seek, nullptr, NotedFile::Write,
                              NotedFile::Tell};
        file.reset(sf_open_virtual(&through, SFM_WRITE, &info, &target));
        if (file == nullptr) Refuse(sf_error(nullptr));
        if (format.quality && OutputFormat(path).IsLossy()) {
            double compression = 1 - *format.quality / 10;
            sf_command(file.get(), SFC_SET_COMPRESSION_LEVEL, &compression, sizeof compression);
        }
        if (isWav && !format.frames)
            sf_command(file.get(), SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
        notKept = KeepsStrings() ? WriteStrings(file.get(), tags) : tags.Names();
    }

    void Write(std::span<const int16_t> samples) override {
        const auto count = static_cast<sf_count_t>(samples.size());
        framesWritten += samples.size() / static_cast<size_t>(info.channels);
        CheckRoom(framesWritten);
        sf_count_t written = 0;
        if ((info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG) {
            // Given 16-bit stereo, libsndfile 1.2.0 encodes noise at full scale. Floats are encoded
            // correctly.
            floats.assign(samples.begin(), samples.end());
            for (float& sample : floats) sample /= 32768;
            written = sf_write_float(file.get(), floats.data(), count);
        } else {
            written = sf_write_short(file.get(), samples.data(), count);
        }
        if (written != count || target.error != 0) Refuse(sf_error(file.get()));
    }

    void Close() override {
        const int result = sf_close(file.release());
        if (result != 0 || target.error != 0) Refuse(result);
        std::vector<std::string> marks = tags.marks.Names();
        if (BytesFit()) {
            marks = PutMarks();
            if (OutputFormat(name).TakesTags() && !tags.Names().empty())
                notKept = WriteTags(target.fd, info.format, tags, name);
        }
        for (const auto& lost : {marks, output.NotKept()})
            notKept.insert(notKept.end(), lost.begin(), lost.end());
        ReadBack();
    }

    std::string ClosedPath() const override { return output.TemporaryPath(); }

    void Commit() override {
        if (file != nullptr) Close();
        output.Commit();
    }

    std::vector<std::string> NotKept() const override { return notKept; }

private:
    // Throws Failure if an AIFF file would get too long. Its header has sizes of 32 bits, and
    // libsndfile writes only the low 32 bits of larger sizes.
    void CheckRoom(uint64_t frames) const {
        if ((info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_AIFF &&
            frames >= mostWavBytes / (2 * static_cast<uint64_t>(info.channels)))
            throw Failure(
                "{} would be larger than the 4 GiB that an AIFF file can hold; .wav, .flac, "
                ".caf and .w64 can hold more",
                name);
    }

    // Opens the file again and throws Failure if the length, rate or channels in its header are
    // wrong. An empty file is not checked.
    void ReadBack() const {
        if (framesWritten == 0) return;
        const uint64_t resultHz = IsOpus(info.format) ? 48000 : rateHz;
        const SF_INFO result = HeaderOf(target.fd, name);
        const uint64_t frames = framesWritten * resultHz / rateHz;
        if (static_cast<uint64_t>(result.frames) != frames || result.channels != info.channels ||
            static_cast<uint64_t>(result.samplerate) != resultHz)
            throw Failure(
                "{} is not written: read back it has {} frames at {} Hz, {} channels "
                "instead of {} at {} Hz, {} channels",
                name, result.frames, result.samplerate, result.channels, frames, resultHz,
                info.channels);
    }

    // Returns whether libsndfile writes its text chunks, for players that read no other tags. In
    // formats whose tags TagLib writes, libsndfile's would be in TagLib's way.
    bool KeepsStrings() const {
        const int type = info.format & SF_FORMAT_TYPEMASK;
        return type != SF_FORMAT_FLAC && type != SF_FORMAT_OGG && type != SF_FORMAT_MPEG;
    }

    // Returns whether the marks and tags fit in the file. An RF64 file whose length was not known
    // may have become a WAV file that is almost full.
    bool BytesFit() {
        std::array<char, 4> magic{};
        const bool isWav = pread(target.fd, magic.data(), magic.size(), 0) == 4 &&
                           std::string_view(magic.data(), magic.size()) == "RIFF";
        if (isWav) info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
        return !isWav ||
               static_cast<uint64_t>(NotedFile::Length(&target)) + tags.MostBytes() < UINT32_MAX;
    }

    // Call this before WriteTags, because marks that become chapters are added to `tags`.
    std::vector<std::string> PutMarks() {
        TagStream stream(target.fd);
        std::vector<std::string> lost = WriteMarks(
            &stream, info.format, {static_cast<uint32_t>(info.samplerate), framesWritten}, &tags);
        target.error = stream.Error();
        if (target.error != 0) Refuse(0);
        return lost;
    }

    // Throws Failure. libsndfile's code is used only if no write failed. After a failed write the
    // code may be meaningless, and libsndfile would print that.
    [[noreturn]] void Refuse(int sndfileError) const {
        throw Failure(
            "{} cannot be written: {}", name,
            target.error != 0 ? std::strerror(target.error) : sf_error_number(sndfileError));
    }

    std::string name;
    OutputFile output;  // declared before `file`, which writes to it
    NotedFile target;   // declared before `file`, which writes through it
    AudioTags tags;
    std::vector<std::string> notKept;
    uint64_t mostWavBytes;
    uint64_t rateHz;
    uint64_t framesWritten = 0;
    SF_INFO info{};
    SndfileHandle file;
    std::vector<float> floats;
};

// Writes WAV to standard output. libsndfile needs to seek back to the header, so this class writes
// a header with an open length. Only for little-endian hosts, like the effect interface.
class StreamWriter : public AudioWriter {
public:
    StreamWriter(const AudioFormat& format, const AudioTags& tags) : notKept(tags.Names()) {
        for (const std::string& mark : tags.marks.Names()) notKept.push_back(mark);
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

    void Close() override {}
    std::string ClosedPath() const override { return ""; }
    void Commit() override {}
    std::vector<std::string> NotKept() const override { return notKept; }

private:
    std::vector<std::string> notKept;
};

}  // namespace

bool OutputFormat::IsKnown(const std::string& path) {
    return path == "-" || FindEnding(path) != nullptr;
}

OutputFormat::OutputFormat(const std::string& path) {
    if (path == "-") return;
    std::string known;
    for (const Ending& entry : kEndings) known += std::string(" ") + entry.ending;
    if (const Ending* const entry = FindEnding(path))
        sndfileFormat = entry->sndfileFormat;
    else
        throw UsageError("{} has no ending of a known format; the known endings are{}", path,
                         known);
    if ((sndfileFormat & SF_FORMAT_SUBMASK) == SF_FORMAT_OPUS)
        rates = {8000, 12000, 16000, 24000, 48000};
    if ((sndfileFormat & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG)
        rates = {8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000};
}

bool OutputFormat::IsLossy() const {
    const int coding = sndfileFormat & SF_FORMAT_SUBMASK;
    return coding == SF_FORMAT_VORBIS || coding == SF_FORMAT_OPUS ||
           coding == SF_FORMAT_MPEG_LAYER_III;
}

bool OutputFormat::TakesRate(uint32_t rateHz) const {
    return rates.empty() || std::find(rates.begin(), rates.end(), rateHz) != rates.end();
}

std::unique_ptr<AudioWriter> OpenAudioWriter(const std::string& path, bool overwrite,
                                             const AudioFormat& format, const AudioTags& tags,
                                             OutputSet* together) {
    if (path == "-") return std::make_unique<StreamWriter>(format, tags);
    return std::make_unique<FileWriter>(path, overwrite, format, tags, together);
}

bool OutputFormat::TakesTags() const {
    switch (sndfileFormat & SF_FORMAT_TYPEMASK) {
        case SF_FORMAT_WAV:
        case SF_FORMAT_AIFF:
        case SF_FORMAT_FLAC:
        case SF_FORMAT_OGG:
        case SF_FORMAT_MPEG:
            return true;
        default:
            return false;
    }
}

bool OutputFormat::IsForPlayers() const {
    const int type = sndfileFormat & SF_FORMAT_TYPEMASK;
    return TakesTags() && type != SF_FORMAT_WAV && type != SF_FORMAT_AIFF;
}

void WriteGains(const std::string& path, const std::string& output, const Gains& gains) {
    const int format = OutputFormat(output).SndfileFormat();
    TagLib::PropertyMap fields;
    AddGainFields(gains.piece, "TRACK", IsOpus(format), &fields);
    if (gains.album) AddGainFields(*gains.album, "ALBUM", IsOpus(format), &fields);
    if (fields.isEmpty()) return;
    const FileTimes times = TimesOf(path);
    const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) throw Failure("{} cannot be written: {}", output, std::strerror(errno));
    try {
        const SF_INFO before = HeaderOf(fd, output);
        AddFields(fd, format, fields, output);
        const SF_INFO after = HeaderOf(fd, output);
        if (after.frames != before.frames || after.channels != before.channels ||
            after.samplerate != before.samplerate)
            throw Failure("{} is not written: its gain tags damaged it", output);
    } catch (...) {
        close(fd);
        throw;
    }
    const bool stored = futimens(fd, times.data()) == 0 && fsync(fd) == 0;
    if (close(fd) != 0 || !stored)
        throw Failure("{} cannot be written: {}", output, std::strerror(errno));
}
