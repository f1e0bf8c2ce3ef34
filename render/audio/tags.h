// Title, artist, album and the like, as far as libsndfile carries them from file to file: cover
// pictures, lyrics and fields of its own making it does not know.
#pragma once
#include <sndfile.h>

#include <string>
#include <vector>

struct Tag {
    int field;  // SF_STR_...
    std::string text;
};

std::vector<Tag> ReadTags(SNDFILE* file);

// Before the first sample. What the format cannot hold is left out.
void WriteTags(SNDFILE* file, const std::vector<Tag>& tags);

// Whether the file asks players to play it louder or softer (ReplayGain, or R128 gains of Opus), as
// far as can be seen in its first and last parts. libsndfile never hands such a tag on.
bool MentionsReplayGain(const std::string& path);
