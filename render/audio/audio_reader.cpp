#include "render/audio/audio_reader.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>

#include "client/stderr_silencer.h"
#include "render/failure.h"

namespace {

// Returns libsndfile's last message without its full stop.
std::string Reason(SNDFILE* file) {
    const std::string reason = sf_strerror(file);
    return reason.substr(0, reason.find_last_not_of(".\n") + 1);
}

bool IsMpeg(int format) {
    return (format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG;
}

// Returns the number of bytes from `start` to the end of the file. Standard input may have been
// read to a place beyond its end.
uint64_t SizeFrom(int fd, uint64_t start) {
    struct stat status {};
    const uint64_t size = fstat(fd, &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
    return size - std::min(start, size);
}

}  // namespace

AudioReader::AudioReader(const std::string& path, const std::string& copyOfPipe)
    : name(path == "-" ? "standard input" : path) {
    OpenInput(path, copyOfPipe);
    if (!piped) scan = ScanSource(input.fd, start);
    OpenFile(copy ? copy->Path() : copyOfPipe.empty() ? path : copyOfPipe);
    const std::string reason = file == nullptr ? Reason(nullptr) : "";
    tags = ReadTags(file.get(), piped || start != 0 ? -1 : input.fd, info.format);
    const bool isLonger = scan.uncountedFrames && file != nullptr && info.frames >= 0 &&
                          static_cast<uint64_t>(info.frames) < *scan.uncountedFrames;
    if (!scan.parts.empty())
        parts = scan.parts;
    else if (file == nullptr || isLonger)
        parts = {{0, SizeFrom(input.fd, start)}};
    if (!piped && !parts.empty()) OpenDecoder(reason);
    if (file == nullptr && decoder == nullptr) throw Failure("{} cannot be read: {}", name, reason);
}

void AudioReader::OpenInput(const std::string& path, const std::string& copyOfPipe) {
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) throw Failure("{} is a folder", name);
    const std::string& source = copyOfPipe.empty() ? path : copyOfPipe;
    input.fd = source == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                             : open(source.c_str(), O_RDONLY | O_CLOEXEC);
    if (input.fd < 0) throw Failure("{} cannot be read: {}", name, std::strerror(errno));
    off_t place = lseek(input.fd, 0, SEEK_CUR);
    if (place < 0 && PipeCopy::IsEndless(input.fd)) {
        piped = true;
        return;
    }
    if (place < 0) {
        copy.emplace(input.fd, name);
        close(input.fd);
        input.fd = open(copy->Path().c_str(), O_RDONLY | O_CLOEXEC);
        place = 0;
    }
    start = static_cast<uint64_t>(place);
}

void AudioReader::OpenFile(const std::string& path) {
    // libsndfile's MP3 decoder prints warnings to standard error.
    const StderrSilencer silencer;
    // If libsndfile cannot read a descriptor, it closes it even when told not to. So it gets a
    // duplicate.
    if (piped)
        file.reset(sf_open_fd(fcntl(input.fd, F_DUPFD_CLOEXEC, 0), SFM_READ, &info, SF_TRUE));
    else if (scan.patch || scan.end || path == "-")
        OpenView();
    else
        file.reset(sf_open(path.c_str(), SFM_READ, &info));
    if (file == nullptr) info = {};
}

sf_count_t AudioReader::ReadView(void* bytes, sf_count_t count, void* self) {
    View& view = *static_cast<View*>(self);
    const uint64_t left = view.size - std::min(view.at, view.size);
    const ssize_t got = pread(view.fd, bytes, std::min(static_cast<uint64_t>(count), left),
                              static_cast<off_t>(view.start + view.at));
    if (got <= 0) return 0;
    if (view.patch)
        for (size_t i = 0; i < view.patch->bytes.size(); ++i)
            if (const uint64_t place = view.patch->at + i;
                place >= view.at && place < view.at + static_cast<uint64_t>(got))
                static_cast<char*>(bytes)[place - view.at] = view.patch->bytes[i];
    view.at += static_cast<uint64_t>(got);
    return got;
}

void AudioReader::OpenView() {
    view = {input.fd, start, scan.end.value_or(SizeFrom(input.fd, start)), 0, scan.patch};
    const auto length = [](void* self) {
        return static_cast<sf_count_t>(static_cast<View*>(self)->size);
    };
    const auto seek = [](sf_count_t offset, int whence, void* self) {
        View& of = *static_cast<View*>(self);
        const uint64_t from = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? of.at : of.size;
        of.at = from + static_cast<uint64_t>(offset);
        return static_cast<sf_count_t>(of.at);
    };
    const auto tell = [](void* self) {
        return static_cast<sf_count_t>(static_cast<View*>(self)->at);
    };
    SF_VIRTUAL_IO through{length, seek, ReadView, nullptr, tell};
    file.reset(sf_open_virtual(&through, SFM_READ, &info, &view));
}

void AudioReader::OpenDecoder(const std::string& reason) {
    if (!FfmpegDecoder::IsInstalled()) {
        if (file == nullptr)
            throw Failure(
                "{} cannot be read: {}; the program ffmpeg, which reads more formats, is "
                "not installed",
                name, reason);
        faults.push_back(
            parts.size() > 1
                ? fmt::format(
                      "it consists of {} files joined into one, and only the first is read, "
                      "because the program ffmpeg is not installed",
                      parts.size())
                : "it holds more audio than its header says, which is not read, because the "
                  "program "
                  "ffmpeg is not installed");
        return;
    }
    if (StartPart()) {
        file.reset();
        info = {};
        info.samplerate = static_cast<int>(decoder->RateHz());
        info.channels = static_cast<int>(decoder->Channels());
        info.format = SF_FORMAT_AU | SF_FORMAT_FLOAT;
    } else {
        decoder.reset();
        if (file == nullptr)
            throw Failure("{} cannot be read: {}; {}", name, reason, faults.front());
    }
}

// Starts the decoder on the next part that ffmpeg can read. Notes ffmpeg's message for each part
// that it cannot read. Returns false if no part is left.
bool AudioReader::StartPart() {
    while (nextPart < parts.size()) {
        BytePart part = parts[nextPart++];
        part.from += start;
        part.to += start;
        decoder = std::make_unique<FfmpegDecoder>(input.fd, part, RateHz(), Channels());
        if (decoder->Channels() != 0) return true;
        faults.push_back("ffmpeg says: " + decoder->Finish());
    }
    return false;
}

std::optional<uint64_t> AudioReader::Frames() const {
    // A pipe's header holds a guess of its writer. An Ogg file that was cut off has no length. The
    // length of an MP3 file without a frame count is an estimate.
    if (piped || decoder != nullptr || scan.uncountedFrames || info.frames == SF_COUNT_MAX)
        return std::nullopt;
    return static_cast<uint64_t>(info.frames);
}

bool AudioReader::IsSixteenBit() const {
    if (decoder != nullptr) return tags.isSixteenBitAlac && parts.size() == 1;
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
    std::vector<std::string> damage = scan.damage;
    damage.insert(damage.end(), faults.begin(), faults.end());
    if (damage.empty() && Frames() && framesRead < *Frames())
        damage.push_back(
            fmt::format("it ends early, after {} of {} frames", framesRead, *Frames()));
    return damage;
}

size_t AudioReader::Samples(sf_count_t frames) {
    if (frames < static_cast<sf_count_t>(kReadFrames) && faults.empty() &&
        sf_error(file.get()) != SF_ERR_NO_ERROR) {
        faults.push_back("it cannot be read to its end: " + Reason(file.get()));
    }
    const auto count = static_cast<size_t>(std::max<sf_count_t>(frames, 0));
    framesRead += count;
    return count * Channels();
}

size_t AudioReader::DecodedSamples() {
    size_t done = 0;
    while (true) {
        const size_t count = decoder->Read(std::span(block).subspan(done));
        done += count - count % Channels();
        if (done == block.size()) return done;
        if (const std::string message = decoder->Finish(); !message.empty() && faults.empty())
            faults.push_back("ffmpeg says: " + message);
        if (!StartPart()) return done;
    }
}

std::span<const float> AudioReader::Read() {
    block.resize(kReadFrames * Channels());
    size_t count = 0;
    if (decoder != nullptr) {
        count = DecodedSamples();
    } else {
        const StderrSilencer silencer(IsMpeg(info.format));
        count = Samples(sf_readf_float(file.get(), block.data(), kReadFrames));
    }
    const std::span<float> samples(block.data(), count);
    for (float& sample : samples)
        if (!std::isfinite(sample)) {
            sample = 0;
            ++notNumbers;
        }
    return samples;
}

std::span<const int16_t> AudioReader::ReadSixteenBit() {
    sixteenBits.resize(kReadFrames * Channels());
    if (decoder != nullptr) {
        const std::span<const float> samples = Read();
        // ffmpeg's floats of 16-bit samples are these samples / 32768, without rounding.
        std::transform(samples.begin(), samples.end(), sixteenBits.begin(), [](float sample) {
            return static_cast<int16_t>(std::clamp(sample * 32768.0f, -32768.0f, 32767.0f));
        });
        return {sixteenBits.data(), samples.size()};
    }
    return {sixteenBits.data(),
            Samples(sf_readf_short(file.get(), sixteenBits.data(), kReadFrames))};
}
