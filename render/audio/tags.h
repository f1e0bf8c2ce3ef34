// What a file says of its music, kept from file to file through TagLib: every field that it names,
// pictures, and frames of ID3 that have no name there. Formats that TagLib doesn't know keep the
// few fields that libsndfile carries.
//
// One thread. Throws Failure where a file can't be written.
#pragma once
#include <sndfile.h>
#include <taglib/tbytevector.h>
#include <taglib/tpropertymap.h>

#include <cstdint>
#include <string>
#include <vector>

#include "render/audio/marks.h"

// A frame of ID3 that is no field and no picture, in the form of version 2.4.
struct Id3Frame {
    std::string name;  // four letters
    TagLib::ByteVector bytes;
};

struct AudioTags {
    TagLib::PropertyMap fields;
    std::vector<TagLib::ByteVector> pictures;  // each as FLAC holds it
    std::vector<Id3Frame> frames;
    std::vector<std::string> gains;   // fields that ask players to play louder or softer: left out,
                                      // for the loudness changes
    std::vector<std::string> unread;  // what only the file's own format has a place for
    Marks marks;

    // The first value of a field, "" for none.
    std::string First(const char* field) const;
    std::string Title() const { return First("TITLE"); }
    // More than any format needs for them.
    uint64_t MostBytes() const;
    // A name for each field, picture and frame. The marks have names of their own.
    std::vector<std::string> Names() const;
};

// fd: the same file as a descriptor that can be read at any place, or -1; it isn't moved.
// format: as libsndfile names it. The program that made the other file is left out: it did not make
// this one.
AudioTags ReadTags(SNDFILE* file, int fd, int format);

// Before the first sample, where the format has fields that libsndfile writes. Returns the names of
// what it has no place for.
std::vector<std::string> WriteStrings(SNDFILE* file, const AudioTags& tags);

// Whether TagLib writes to such a file.
bool TakesTags(int format);

// Into a whole file that is open for reading and writing. Returns the names of what it has no place
// for. On a full disk the file is no longer whole: throws Failure, with `name`.
std::vector<std::string> WriteTags(int fd, int format, const AudioTags& tags,
                                   const std::string& name);
