#include "render/audio/tags.h"

#include <algorithm>
#include <cctype>
#include <fstream>

std::vector<Tag> ReadTags(SNDFILE* file) {
    std::vector<Tag> tags;
    for (int field = SF_STR_FIRST; field <= SF_STR_LAST; ++field) {
        // The program that made the other file did not make this one.
        if (field == SF_STR_SOFTWARE) continue;
        const char* text = sf_get_string(file, field);
        if (text != nullptr && *text != '\0') tags.push_back({field, text});
    }
    return tags;
}

void WriteTags(SNDFILE* file, const std::vector<Tag>& tags) {
    for (const Tag& tag : tags) sf_set_string(file, tag.field, tag.text.c_str());
}

bool MentionsReplayGain(const std::string& path) {
    // Tags of FLAC, Ogg and ID3 lie in front, behind a cover picture at most; APE tags at the end.
    constexpr std::streamoff kFront = 1 << 20;
    constexpr std::streamoff kBack = 1 << 16;
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    if (!file) return false;
    const std::streamoff size = file.tellg();
    const auto mentions = [&](std::streamoff from, std::streamoff to) {
        std::string bytes(static_cast<size_t>(to - from), '\0');
        file.seekg(from);
        if (!file.read(bytes.data(), to - from)) return false;
        std::transform(bytes.begin(), bytes.end(), bytes.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        return bytes.find("replaygain_") != std::string::npos ||
               bytes.find("r128_") != std::string::npos;
    };
    return size > 0 && (mentions(0, std::min(size, kFront)) ||
                        (size > kFront && mentions(std::max(kFront, size - kBack), size)));
}
