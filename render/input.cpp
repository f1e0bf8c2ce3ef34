#include "render/input.h"

#include <filesystem>

#include "render/failure.h"

void CheckChannels(const std::string& input, const AudioReader& reader) {
    if (reader.Channels() > 2)
        throw Failure(input + " has " + std::to_string(reader.Channels()) +
                      " channels and the effect takes one or two; downmix first, for example with"
                      " sox " +
                      input + " -c 2 stereo.wav");
}

std::string TitleOf(const std::string& input, const AudioReader& reader) {
    for (const Tag& tag : reader.Tags())
        if (tag.field == SF_STR_TITLE) return tag.text;
    return input == "-" ? "standard input" : std::filesystem::path(input).filename().string();
}
