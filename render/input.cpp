#include "render/input.h"

#include <filesystem>

#include "client/terminal_text.h"
#include "render/failure.h"

void CheckFormat(const std::string& input, const SampleReader& reader) {
    constexpr uint32_t kLowestHz = 1000, kHighestHz = 768000;
    if (reader.RateHz() < kLowestHz || reader.RateHz() > kHighestHz)
        throw Failure("{} has a sampling rate of {} Hz, outside {} to {} Hz", input,
                      reader.RateHz(), kLowestHz, kHighestHz);
    if (reader.Channels() > 2)
        throw Failure(
            "{} has {} channels and the effect takes one or two; downmix first, for example with"
            " sox {} -c 2 stereo.wav",
            input, reader.Channels(), input == "-" ? input : ShellQuoted(input));
}

std::string TitleOf(const std::string& input, const AudioReader& reader) {
    if (std::string title = reader.Tags().Title(); !title.empty()) return title;
    return input == "-" ? "standard input" : std::filesystem::path(input).filename().string();
}
