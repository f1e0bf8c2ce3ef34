// What a file says about places in its sound: the cue points, labels and loops of a WAV file, and
// the cue sheet of a FLAC file.
//
// Files hold places in frames. They move if the sampling rate changes or if the chain's delay stays
// in the output. WAV and FLAC files get what a file of their kind had. Other formats get cue points
// and the tracks of a cue sheet as chapters, which are tags. One thread.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

class TagStream;
struct AudioTags;

struct Mark {
    uint64_t frame;
    std::string name;  // "" for none
};

struct Marks {
    struct Chunk {
        std::string name;   // four letters; "adtl" is the list of labels
        std::string bytes;  // without header and padding
    };
    std::vector<Chunk> chunks;        // cue, adtl, smpl, plst, bext and inst of a WAV file
    std::string cueSheet;             // the content of FLAC's CUESHEET block, "" if there is none
    std::vector<std::string> unread;  // names of chunks and blocks that are not known here
    uint32_t rateHz = 0;              // of the file; 0 for none

    // Moves all places to where the sound is in an output: its rate, and the frames of silence
    // before the sound begins. Loudness values in bext become "not known", because the loudness
    // changes.
    void Move(uint32_t toHz, uint64_t delayFrames);

    // Cue points with their labels, or else the tracks of the cue sheet, in ascending order.
    std::vector<Mark> Points() const;
    // Names of what Points() leaves out.
    std::vector<std::string> BesidePoints() const;

    // A name for each chunk, and one for the cue sheet.
    std::vector<std::string> Names() const;
    uint64_t Bytes() const;
};

// Points as the chunks of a WAV file: "cue " and "adtl".
std::vector<Marks::Chunk> ChunksOf(const std::vector<Mark>& points);

// fd: a file that can be read at any place; it isn't moved. Searches up to a chunk or block that
// the file is too short for.
Marks ReadMarks(int fd);

struct Sound {
    uint32_t rateHz;
    uint64_t frames;
};

// Puts tags->marks into a whole file that is open for reading and writing, or adds them as chapters
// to the tags that are to be written next. format: as libsndfile names it. Returns the names of
// what the format has no place for. stream->Error() tells whether the file was written.
std::vector<std::string> WriteMarks(TagStream* stream, int format, const Sound& sound,
                                    AudioTags* tags);
