// The marks of an audio file: cue points, labels and loops of a WAV file, and the cue sheet of a
// FLAC file.
//
// Files store marks as frame numbers. The numbers change if the sampling rate changes, or if the
// delay of the chain stays in the output. Marks of WAV files are kept in WAV files, and cue sheets
// of FLAC files in FLAC files. Other formats get cue points and the tracks of a cue sheet as
// chapters, which are tags. Use an object on one thread.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

class TagStream;
struct AudioTags;

struct Mark {
    uint64_t frame;
    std::string name;  // "" if it has no name
};

struct Marks {
    struct Chunk {
        std::string name;   // four characters; "adtl" is the list of labels
        std::string bytes;  // the content without header and padding
    };
    std::vector<Chunk> chunks;  // the chunks cue, adtl, smpl, plst, bext and inst of a WAV file
    std::string cueSheet;       // the content of FLAC's CUESHEET block; "" if there is none
    std::vector<std::string> unread;  // names of chunks and blocks that are not kept
    uint32_t rateHz = 0;              // of the frame numbers; 0 if not known

    // Converts all frame numbers from rateHz to `toHz` and adds `delayFrames`, the frames of
    // silence before the sound in the output. Sets the loudness values in bext to "not known",
    // because the loudness changes. Does nothing if rateHz is 0.
    void Move(uint32_t toHz, uint64_t delayFrames);

    // Returns the cue points with their labels, in ascending order. If there are none, it returns
    // the tracks of the cue sheet.
    std::vector<Mark> Points() const;
    // Returns the names of chunks and other content that Points() leaves out.
    std::vector<std::string> BesidePoints() const;

    // Returns a name for each chunk, and "cue sheet" if there is one.
    std::vector<std::string> Names() const;
    uint64_t Bytes() const;
};

// Returns whether the content of a CUESHEET block holds the tracks and index points that it counts,
// and nothing else. Decoders of FLAC refuse a file with another block.
bool IsCueSheet(const std::string& block);

// Returns the points as the chunks "cue " and "adtl" of a WAV file.
std::vector<Marks::Chunk> ChunksOf(const std::vector<Mark>& points);

// Reads the marks of a WAV, RF64, AIFF or FLAC file. `fd` must be seekable; its file position does
// not change. Stops at a chunk or block that reaches beyond the end of the file. rateHz of the
// result is 0.
Marks ReadMarks(int fd);

struct Sound {
    uint32_t rateHz;
    uint64_t frames;
};

// Writes tags->marks to a complete file that is open for reading and writing. If the format only
// has chapters, it adds them to *tags, which must be written afterwards. `format`: as in
// libsndfile's SF_INFO. Returns the names of what the format has no place for. stream->Error()
// tells whether writing failed.
std::vector<std::string> WriteMarks(TagStream* stream, int format, const Sound& sound,
                                    AudioTags* tags);
