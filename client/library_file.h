// Loads an effect library from a file and finds its record.
//
// Allocates. Thread: any that is not the audio thread. The library is unloaded on destruction, so
// the object must outlive every instance made from the record.
#pragma once
#include <string>

#include "platform/library_record.h"

class LibraryFile {
public:
    // Loads the library. A path without a slash names a file in the current folder.
    explicit LibraryFile(const std::string& path);
    ~LibraryFile();
    LibraryFile(const LibraryFile&) = delete;
    LibraryFile& operator=(const LibraryFile&) = delete;

    // Returns null if the file can't be used; Fault() then says why in one line.
    const audio_effect_library_t* Record() const { return record; }
    const std::string& Fault() const { return fault; }

private:
    void* handle;
    const audio_effect_library_t* record = nullptr;
    std::string fault;
};
