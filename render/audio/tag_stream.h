// The stream through which TagLib reads and writes a file, given by its descriptor. TagLib's own
// stream ignores failed writes; this one remembers the first error. Use an object on one thread.
//
// TagLib believes the counts in a damaged file and goes on reading at its end, for hours if the
// file says so. After many reads that give nothing, readBlock throws Failure.
#pragma once
#include <taglib/tiostream.h>

class TagStream final : public TagLib::IOStream {
public:
    // `descriptor` stays open, and its file position does not change. -1 stands for a file that
    // cannot be read from its start.
    explicit TagStream(int descriptor) : fd(descriptor) {}

    // Returns the errno of a read or write that failed, 0 if there was none. After an error nothing
    // more is written.
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
    // Moves `size` bytes of the file. The source and destination may overlap.
    void Move(long from, long to, long size);

    int fd;
    int error = 0;
    int emptyReads = 0;  // reads that found the end of the file
    long at = 0;
};
