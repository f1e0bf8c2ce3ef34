#include "render/audio/audio_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>

#include "render/failure.h"
#include "render/stderr_silencer.h"

namespace {

constexpr size_t kBlockFrames = 4096;

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

constexpr const char* kPipeAdvice =
    "WAV, AIFF, AU, Ogg and MP3 can be read from a pipe, FLAC and others only as a named file";

}  // namespace

AudioReader::AudioReader(const std::string& path) : name(path == "-" ? "standard input" : path) {
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) throw Failure(name + " is a folder");
    if (path != "-" && access(path.c_str(), R_OK) != 0)
        throw Failure(name + " cannot be read: " + std::strerror(errno));
    {
        // The MP3 decoder says on standard error what it thinks of a file.
        const StderrSilencer silencer;
        if (path == "-") {
            const off_t start = lseek(STDIN_FILENO, 0, SEEK_CUR);
            piped = start < 0;
            if (!piped) dataSize = ReadDataSize(STDIN_FILENO, start);
            file.reset(sf_open_fd(STDIN_FILENO, SFM_READ, &info, SF_FALSE));
        } else {
            piped = std::filesystem::is_fifo(path, ignored);
            file.reset(sf_open(path.c_str(), SFM_READ, &info));
            if (!piped) {
                const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
                dataSize = ReadDataSize(fd, 0);
                close(fd);
            }
        }
    }
    if (file == nullptr) {
        std::string reason = sf_strerror(nullptr);
        while (!reason.empty() && (reason.back() == '.' || reason.back() == '\n'))
            reason.pop_back();
        throw Failure(name + " cannot be read: " + reason +
                      (piped ? std::string(" (") + kPipeAdvice + ")" : ""));
    }
    if (piped && !ReadableFromPipe(info.format))
        throw Failure(name + " cannot be read: " + kPipeAdvice);
    replayGain = !piped && path != "-" && MentionsReplayGain(path);
    block.resize(kBlockFrames * Channels());
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

std::span<const float> AudioReader::Read() {
    const sf_count_t frames = sf_readf_float(file.get(), block.data(), kBlockFrames);
    if (frames < static_cast<sf_count_t>(kBlockFrames) && sf_error(file.get()) != SF_ERR_NO_ERROR)
        throw Failure(name + " cannot be read to its end: " + sf_strerror(file.get()));
    const auto count = static_cast<size_t>(std::max<sf_count_t>(frames, 0)) * Channels();
    const std::span<float> samples(block.data(), count);
    for (float& sample : samples)
        if (!std::isfinite(sample)) {
            sample = 0;
            ++notNumbers;
        }
    return samples;
}
