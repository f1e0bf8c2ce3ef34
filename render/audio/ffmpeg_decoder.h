// Decodes audio that libsndfile cannot read, or not completely. It runs the ffmpeg program in its
// own process, so a crash of the decoder does not end this program.
//
// Use an object on one thread. No shell is involved. ffmpeg gets the open file instead of its name
// and may read nothing else. Playlists that name other files or hosts are refused.
#pragma once
#include <sys/types.h>

#include <cstdint>
#include <span>
#include <string>

#include "render/audio/source_scan.h"

class FfmpegDecoder {
public:
    // Returns whether a program named ffmpeg is in the PATH.
    static bool IsInstalled();

    // Decodes the first audio stream of the bytes `part` of `fd`. The descriptor must be seekable.
    // A `rateHz` or `channels` of 0 keeps the stream's own; other values convert. Throws Failure if
    // the process cannot be started.
    FfmpegDecoder(int fd, const BytePart& part, uint32_t rateHz = 0, uint32_t channels = 0);
    ~FfmpegDecoder();
    FfmpegDecoder(const FfmpegDecoder&) = delete;
    FfmpegDecoder& operator=(const FfmpegDecoder&) = delete;

    // Both return 0 if there is no audio that ffmpeg can read.
    uint32_t RateHz() const { return rate; }
    uint32_t Channels() const { return channelCount; }

    // Fills `samples` with interleaved samples, full scale 1.0, until it is full or the stream
    // ends. Returns the number of samples, which may end within a frame. Waits for ffmpeg.
    size_t Read(std::span<float> samples);

    // Ends the process; call this when Read has reached the end. Returns what went wrong in one
    // line: ffmpeg's first message, or how the process ended. Returns "" if all went well.
    std::string Finish();

private:
    size_t ReadBytes(void* bytes, size_t size);
    void ReadHeader();
    std::string FirstMessage() const;

    pid_t process = -1;
    int output = -1;     // the pipe that the process writes to
    int messages = -1;   // a file in memory with ffmpeg's messages
    bool ended = false;  // the pipe has ended
    uint32_t rate = 0, channelCount = 0;
};
