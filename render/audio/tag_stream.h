// A file as TagLib reads and writes it, by its descriptor; of which TagLib's own stream forgets
// that a write failed.
#pragma once
#include <taglib/tiostream.h>

class TagStream final : public TagLib::IOStream {
public:
    // fd: stays open, and where it is. Not from the file's start: -1.
    explicit TagStream(int descriptor) : fd(descriptor) {}

    // errno of the first read or write that failed, after which none is tried; 0 if all went well.
    int Error() const { return error; }

    TagLib::FileName name() const override { return ""; }
    TagLib::ByteVector readBlock(unsigned long size) override;
    void writeBlock(const TagLib::ByteVector& data) override;
    void insert(const TagLib::ByteVector& data, unsigned long start,
                unsigned long replace) override;
    void removeBlock(unsigned long start, unsigned long size) override { insert({}, start, size); }
    bool readOnly() const override;
    bool isOpen() const override { return fd >= 0; }
    void seek(long offset, Position from) override;
    long tell() const override { return at; }
    long length() override;
    void truncate(long size) override;

private:
    void WriteAt(long place, const TagLib::ByteVector& data);
    // Of a part of the file that may overlap where it goes.
    void Move(long from, long to, long size);

    int fd;
    int error = 0;
    long at = 0;
};
