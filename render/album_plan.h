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
    std::optional<uint64_t> frames;  // the length; nothing if the file doesn't say it
    FileTimes times;                 // the source's times before it was read
};

// A cue sheet beside a file that holds several tracks.
struct CueSheet {
    std::string output;  // path
    std::string text;    // the text to write
    FileTimes times;     // the source's times
};

struct Album {
    std::string title;  // from the tags; "" if there is none
    std::vector<AlbumTrack> tracks;
    std::vector<CueSheet> sheets;
    std::vector<std::string> notes;  // for example what is left out, or why names define the order
};

// Finds the albums of a folder. Tracks are the audio files in it and in the folders of discs
// directly below it ("CD1", "Disc 2"). Tracks with the same album tag form an album; a disc number
// at the end of the tag doesn't count. Files without the tag belong to the only album of the
// folder. If there is no such album, they form one.
//
// Tracks are ordered by disc and track number. The disc number comes from its tag, or else from the
// folder or the album tag. If a track number is missing or occurs twice, tracks are ordered by
// name. Numbers in names are compared as numbers, so "2" comes before "10".
//
// Outputs have the same places below outFolder as the tracks have below the folder. `format` is the
// ending of all outputs, such as ".flac". With "", each track keeps its ending, or gets .flac if
// its own format can't be written.
std::vector<Album> FindAlbums(const std::string& folder, const std::string& outFolder,
                              const std::string& format);
