// Reads the tags of audio files and writes them to other files, with TagLib. All named fields,
// pictures and ID3 frames without a field name are kept. For formats that TagLib does not know,
// libsndfile transfers a few fields.
//
// Use an object on one thread. WriteTags and AddFields throw Failure.
#pragma once
#include <sndfile.h>
#include <taglib/tbytevector.h>
#include <taglib/tpropertymap.h>

#include <cstdint>
#include <string>
#include <vector>

#include "render/audio/marks.h"

// An ID3 frame that is neither a field nor a picture, in the form of ID3v2.4.
struct Id3Frame {
    std::string name;  // four characters
    TagLib::ByteVector bytes;
};

struct AudioTags {
    TagLib::PropertyMap fields;
    std::vector<TagLib::ByteVector> pictures;  // each as the content of a FLAC picture block
    std::vector<Id3Frame> frames;
    // Names of fields that make players play louder or softer. They are dropped, because the
    // loudness changes.
    std::vector<std::string> gains;
    std::vector<std::string> unread;  // names of what only the file's own format can hold
    Marks marks;
    bool isSixteenBitAlac = false;  // the file is an MP4 file with lossless sound of 16 bits

    // Returns the first value of a field, or "" if there is none.
    std::string First(const char* field) const;
    std::string Title() const { return First("TITLE"); }
    // Returns an upper bound of the bytes that the tags and marks need in any format.
    uint64_t MostBytes() const;
    // Returns a name for each field, picture and frame. Marks::Names() returns those of the marks.
    std::vector<std::string> Names() const;
};

// Reads all tags and marks of a file. `file` may be null. `fd`: a seekable descriptor of the same
// file, whose position does not change, or -1 for none. `format`: as in libsndfile's SF_INFO, or 0.
// Fields about the program that made the file are dropped, because it did not make the new one.
AudioTags ReadTags(SNDFILE* file, int fd, int format);

// Writes the fields that libsndfile can write. Call it before the first sample. Returns the names
// of the tags that were not written.
std::vector<std::string> WriteStrings(SNDFILE* file, const AudioTags& tags);

// Writes tags to a complete file that is open for reading and writing. Returns the names of the
// tags that the format has no place for. If the disk is full, the file is damaged: throws Failure
// with `name`, the name to show.
std::vector<std::string> WriteTags(int fd, int format, const AudioTags& tags,
                                   const std::string& name);

// Adds fields to the tags of such a file, or replaces them. Does nothing if the format has no tags.
// Throws Failure as WriteTags does.
void AddFields(int fd, int format, const TagLib::PropertyMap& fields, const std::string& name);
