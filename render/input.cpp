#include "render/input.h"

#include <filesystem>

#include "render/failure.h"

void CheckChannels(const std::string& input, const SampleReader& reader) {
    if (reader.Channels() > 2)
        throw Failure(
            "{0} has {1} channels and the effect takes one or two; downmix first, for example with"
            " sox {0} -c 2 stereo.wav",
            input, reader.Channels());
}

std::string TitleOf(const std::string& input, const AudioReader& reader) {
    if (std::string title = reader.Tags().Title(); !title.empty()) return title;
    return input == "-" ? "standard input" : std::filesystem::path(input).filename().string();
}
