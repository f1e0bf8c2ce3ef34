// Audio that libsndfile can't read, or not whole, decoded by the ffmpeg program in a process of its
// own: what goes wrong there ends that process and not this one.
//
// One thread. Nothing is passed through a shell, and ffmpeg gets the open file instead of its name.
// It may read nothing else: play lists that name other files or hosts are refused.
#pragma once
#include <sys/types.h>

#include <cstdint>
#include <span>
#include <string>

#include "render/audio/source_scan.h"

class FfmpegDecoder {
public:
    // Returns false if no program of that name is in the PATH.
    static bool IsInstalled();

    // Decodes the first audio stream of these bytes of `fd`, which can be read at any place. A rate
    // or channels of 0 are the stream's own. Throws Failure if no process can be made.
    FfmpegDecoder(int fd, const BytePart& part, uint32_t rateHz = 0, uint32_t channels = 0);
    ~FfmpegDecoder();
    FfmpegDecoder(const FfmpegDecoder&) = delete;
    FfmpegDecoder& operator=(const FfmpegDecoder&) = delete;

    // 0 if there is no audio that ffmpeg can read.
    uint32_t RateHz() const { return rate; }
    uint32_t Channels() const { return channelCount; }

    // Reads interleaved samples, full scale 1.0, until `samples` is full or the stream ends.
    // Returns how many samples there are.
    size_t Read(std::span<float> samples);

    // Call this when Read has come to the end. Returns what went wrong, in one line: ffmpeg's own
    // first message, or how the process ended. "" if all went well.
    std::string Finish();

private:
    size_t ReadBytes(void* bytes, size_t size);
    void ReadHeader();
    std::string FirstMessage() const;

    pid_t process = -1;
    int output = -1;     // the process writes there
    int messages = -1;   // a file in memory
    bool ended = false;  // the output
    uint32_t rate = 0, channelCount = 0;
};
