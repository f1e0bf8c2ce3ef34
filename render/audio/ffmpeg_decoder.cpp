#include "render/audio/ffmpeg_decoder.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <bit>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <utility>
#include <vector>

#include "render/failure.h"

namespace {

constexpr const char* kProgram = "ffmpeg";
constexpr int kInputOfProcess = 3;
constexpr const char* kInputName = "/proc/self/fd/3";
// Audio containers that ffmpeg may open. Other formats are excluded, above all playlists.
constexpr const char* kDemuxers =
    "aac,ac3,aiff,amr,ape,asf,au,caf,dsf,dts,eac3,flac,iff,matroska,webm,mov,mp4,m4a,mp3,mpc,mpc8,"
    "ogg,oma,rm,shn,tak,truehd,tta,voc,w64,wav,wv";

// The actions on file descriptors that a spawned process takes before it starts.
class SpawnActions {
public:
    SpawnActions() { posix_spawn_file_actions_init(&actions); }
    ~SpawnActions() { posix_spawn_file_actions_destroy(&actions); }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;

    void Duplicate(int from, int to) { posix_spawn_file_actions_adddup2(&actions, from, to); }
    const posix_spawn_file_actions_t* Get() const { return &actions; }

private:
    posix_spawn_file_actions_t actions{};
};

// A spawned process begins with no blocked signals and with the default action of SIGPIPE, whatever
// this program has set.
class SpawnAttributes {
public:
    SpawnAttributes() {
        posix_spawnattr_init(&attributes);
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_setsigmask(&attributes, &none);
        sigset_t defaults;
        sigemptyset(&defaults);
        sigaddset(&defaults, SIGPIPE);
        posix_spawnattr_setsigdefault(&attributes, &defaults);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;

    const posix_spawnattr_t* Get() const { return &attributes; }

private:
    posix_spawnattr_t attributes{};
};

}  // namespace

bool FfmpegDecoder::IsInstalled() {
    const char* const path = std::getenv("PATH");
    std::istringstream folders(path != nullptr ? path : "");
    for (std::string folder; std::getline(folders, folder, ':');)
        if (access((folder + "/" + kProgram).c_str(), X_OK) == 0) return true;
    return false;
}

FfmpegDecoder::FfmpegDecoder(int fd, const BytePart& part, uint32_t rateHz, uint32_t channels) {
    std::vector<std::string> arguments{kProgram,
                                       "-nostdin",
                                       "-hide_banner",
                                       "-v",
                                       "error",
                                       "-protocol_whitelist",
                                       "file,subfile",
                                       "-format_whitelist",
                                       kDemuxers,
                                       "-i",
                                       fmt::format("subfile,,start,{},end,{},,:/proc/self/fd/{}",
                                                   part.from, part.to, kInputOfProcess),
                                       "-map",
                                       "0:a:0",
                                       "-map_metadata",
                                       "-1",
                                       "-bitexact",
                                       "-c:a",
                                       "pcm_f32be"};
    if (rateHz != 0) arguments.insert(arguments.end(), {"-ar", std::to_string(rateHz)});
    if (channels != 0) arguments.insert(arguments.end(), {"-ac", std::to_string(channels)});
    arguments.insert(arguments.end(), {"-f", "au", "-"});
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);

    std::array<int, 2> pipe{-1, -1};
    messages = memfd_create("messages", MFD_CLOEXEC);
    int error = messages < 0 || pipe2(pipe.data(), O_CLOEXEC) != 0 ? errno : 0;
    output = pipe[0];
    if (error == 0) {
        SpawnActions actions;
        actions.Duplicate(pipe[1], STDOUT_FILENO);
        actions.Duplicate(messages, STDERR_FILENO);
        actions.Duplicate(fd, kInputOfProcess);
        const SpawnAttributes attributes;
        error = posix_spawnp(&process, kProgram, actions.Get(), attributes.Get(), pointers.data(),
                             environ);
    }
    if (pipe[1] >= 0) close(pipe[1]);
    if (error != 0) {
        process = -1;
        Finish();
        throw Failure("{} cannot be run: {}", kProgram, std::strerror(error));
    }
    ReadHeader();
}

FfmpegDecoder::~FfmpegDecoder() {
    Finish();
}

size_t FfmpegDecoder::ReadBytes(void* bytes, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t count = read(output, static_cast<char*>(bytes) + done, size - done);
        if (count < 0 && errno == EINTR) continue;
        ended = ended || count <= 0;
        if (ended) break;
        done += static_cast<size_t>(count);
    }
    return done;
}

void FfmpegDecoder::ReadHeader() {
    std::array<uint32_t, 6>
        // The header of an AU stream: magic, offset of the samples, size, encoding, rate, channels.
        header{};
    if (ReadBytes(header.data(), sizeof(header)) != sizeof(header)) return;
    for (uint32_t& word : header) word = __builtin_bswap32(word);
    std::vector<char> note(header[1] - std::min<uint32_t>(header[1], sizeof(header)));
    if (ReadBytes(note.data(), note.size()) != note.size()) return;
    rate = header[4];
    channelCount = header[5];
}

size_t FfmpegDecoder::Read(std::span<float> samples) {
    const size_t count = ReadBytes(samples.data(), samples.size_bytes()) / sizeof(float);
    for (float& sample : samples.first(count))
        sample = std::bit_cast<float>(__builtin_bswap32(std::bit_cast<uint32_t>(sample)));
    return count;
}

std::string FfmpegDecoder::FirstMessage() const {
    std::string text(4096, '\0');
    text.resize(
        static_cast<size_t>(std::max<ssize_t>(pread(messages, text.data(), text.size(), 0), 0)));
    text.resize(std::min(text.find('\n'), text.size()));
    // Removes a prefix such as "[aac @ 0x55d8]", which names a part of ffmpeg and an address.
    if (text.starts_with('[')) text.erase(0, text.find("] ") + 2);
    // Removes the file's name, which is only a descriptor's number here.
    if (const size_t at = text.find(kInputName); at != std::string::npos)
        text.erase(0, at + std::strlen(kInputName) + 2);
    return text;
}

std::string FfmpegDecoder::Finish() {
    std::string message;
    if (output >= 0) close(std::exchange(output, -1));
    if (process >= 0) {
        if (!ended) kill(process, SIGKILL);
        int status = 0;
        while (waitpid(process, &status, 0) < 0 && errno == EINTR) continue;
        process = -1;
        message = FirstMessage();
        if (message.empty() && WIFSIGNALED(status))
            message = fmt::format("it was ended by signal {}", WTERMSIG(status));
        else if (message.empty() && WEXITSTATUS(status) != 0)
            message = fmt::format("it ended with status {}", WEXITSTATUS(status));
    }
    if (messages >= 0) close(std::exchange(messages, -1));
    return message;
}
