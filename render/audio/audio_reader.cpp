#include "render/audio/audio_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "render/failure.h"
#include "render/stderr_silencer.h"

namespace {

// The containers that libsndfile reads without going back. Of the others it refuses some and reads
// nothing from the rest without a word.
bool ReadableFromPipe(int format) {
    switch (format & SF_FORMAT_TYPEMASK) {
        case SF_FORMAT_WAV:
        case SF_FORMAT_WAVEX:
        case SF_FORMAT_AIFF:
        case SF_FORMAT_AU:
        case SF_FORMAT_OGG:
        case SF_FORMAT_MPEG:
            return true;
        default:
            return false;
    }
}

bool IsMpeg4(const std::string& path) {
    std::array<char, 8> head{};
    std::ifstream(path, std::ios::binary).read(head.data(), head.size());
    return std::string_view(head.data(), head.size()).substr(4) == "ftyp";
}

constexpr const char* kPipeAdvice =
    "WAV, AIFF, AU, Ogg and MP3 can be read from a pipe, FLAC and others only as a named file";

}  // namespace

AudioReader::AudioReader(const std::string& path, const std::string& copyOfPipe)
    : name(path == "-" ? "standard input" : path) {
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) throw Failure("{} is a folder", name);
    if (path != "-" && access(path.c_str(), R_OK) != 0)
        throw Failure("{} cannot be read: {}", name, std::strerror(errno));
    off_t start = 0;
    {
        // The MP3 decoder says on standard error what it thinks of a file.
        const StderrSilencer silencer;
        if (!copyOfPipe.empty()) {
            piped = true;
            file.reset(sf_open(copyOfPipe.c_str(), SFM_READ, &info));
        } else if (path == "-") {
            start = lseek(STDIN_FILENO, 0, SEEK_CUR);
            piped = start < 0;
            file.reset(sf_open_fd(STDIN_FILENO, SFM_READ, &info, SF_FALSE));
        } else {
            piped = std::filesystem::is_fifo(path, ignored);
            file.reset(sf_open(path.c_str(), SFM_READ, &info));
        }
    }
    if (file == nullptr) {
        std::string reason = sf_strerror(nullptr);
        while (!reason.empty() && (reason.back() == '.' || reason.back() == '\n'))
            reason.pop_back();
        if (IsMpeg4(path))
            throw Failure(
                "{0} cannot be read: MPEG-4 audio is not known here; ffmpeg makes a file that is, "
                "tags and all: ffmpeg -i '{0}' '{1}'",
                path, std::filesystem::path(path).replace_extension(".flac").string());
        throw Failure("{} cannot be read: {}{}", name, reason,
                      piped && copyOfPipe.empty() ? fmt::format(" ({})", kPipeAdvice) : "");
    }
    if (piped && copyOfPipe.empty() && !ReadableFromPipe(info.format))
        throw Failure("{} cannot be read: {}", name, kPipeAdvice);
    const int fd = piped         ? -1
                   : path == "-" ? STDIN_FILENO
                                 : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (!piped) dataSize = ReadDataSize(fd, start);
    tags = ReadTags(file.get(), start == 0 ? fd : -1, info.format);
    if (path != "-" && fd >= 0) close(fd);
}

std::optional<uint64_t> AudioReader::Frames() const {
    // A pipe's header promises what its writer hoped for; an Ogg file cut off knows nothing.
    if (piped || info.frames == SF_COUNT_MAX) return std::nullopt;
    return static_cast<uint64_t>(info.frames);
}

bool AudioReader::IsSixteenBit() const {
    switch (info.format & SF_FORMAT_SUBMASK) {
        case SF_FORMAT_PCM_S8:
        case SF_FORMAT_PCM_U8:
        case SF_FORMAT_PCM_16:
        case SF_FORMAT_ALAC_16:
        case SF_FORMAT_ULAW:
        case SF_FORMAT_ALAW:
            return true;
        default:
            return false;
    }
}

std::vector<std::string> AudioReader::Damage() const {
    std::vector<std::string> damage;
    if (Frames() && framesRead < *Frames())
        damage.push_back(
            fmt::format("it ends early, after {} of {} frames", framesRead, *Frames()));
    else if (dataSize && dataSize->present < dataSize->promised)
        damage.push_back(fmt::format("it ends early, after {} of {} bytes of audio",
                                     dataSize->present, dataSize->promised));
    return damage;
}

size_t AudioReader::Samples(sf_count_t frames) {
    if (frames < static_cast<sf_count_t>(kReadFrames) && sf_error(file.get()) != SF_ERR_NO_ERROR)
        throw Failure("{} cannot be read to its end: {}", name, sf_strerror(file.get()));
    const auto count = static_cast<size_t>(std::max<sf_count_t>(frames, 0));
    framesRead += count;
    return count * Channels();
}

std::span<const float> AudioReader::Read() {
    block.resize(kReadFrames * Channels());
    const std::span<float> samples(block.data(),
                                   Samples(sf_readf_float(file.get(), block.data(), kReadFrames)));
    for (float& sample : samples)
        if (!std::isfinite(sample)) {
            sample = 0;
            ++notNumbers;
        }
    return samples;
}

std::span<const int16_t> AudioReader::ReadSixteenBit() {
    sixteenBits.resize(kReadFrames * Channels());
    return {sixteenBits.data(),
            Samples(sf_readf_short(file.get(), sixteenBits.data(), kReadFrames))};
}
