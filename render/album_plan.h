// Finds the albums of a folder: the tracks of each in their order, and the output of each track.
//
// Throws Failure, which names the file.
#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "render/audio/output_file.h"

struct AlbumTrack {
    std::string name;           // below the album's folder: "CD1/01 One.flac"
    std::string input, output;  // paths
    uint32_t rateHz, channels;
    bool sixteenBit;
    std::optional<uint64_t> frames;  // if the file knows
    FileTimes times;                 // of the source, before it was read
};

// A cue sheet beside a file that holds several tracks.
struct CueSheet {
    std::string output;  // path
    std::string text;    // as it is to be written
    FileTimes times;     // of the source
};

struct Album {
    std::string title;  // from the tags, "" for none
    std::vector<AlbumTrack> tracks;
    std::vector<CueSheet> sheets;
    std::vector<std::string> notes;  // what the order follows if not the tags; what is left out
};

// Finds the albums of a folder. Tracks are the audio files in it and in the folders of discs right
// below it ("CD1", "Disc 2"). The album tag tells albums apart, without the disc's number that it
// may end with. Files without the tag belong to the folder's only album, or else together.
//
// The order is that of disc and track number; the disc's is the tag's, or else the folder's or the
// album tag's. If a track number is missing or occurs twice, the order is that of the names, in
// which numbers count as such: "2" comes before "10".
//
// Outputs lie below outFolder as the tracks do below the folder. format: the ending of all outputs,
// such as ".flac"; "" keeps each track's own, or .flac where that can't be written.
std::vector<Album> FindAlbums(const std::string& folder, const std::string& outFolder,
                              const std::string& format);
