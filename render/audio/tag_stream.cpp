#include "render/audio/tag_stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "render/failure.h"

namespace {

constexpr int kMostEmptyReads = 10'000;

constexpr long kBlockBytes = 1 << 18;

}  // namespace

TagLib::ByteVector TagStream::readBlock(unsigned long size) {
    const long present = std::clamp<long>(static_cast<long>(size), 0, std::max(length() - at, 0L));
    if (present == 0 && ++emptyReads > kMostEmptyReads)
        throw Failure("the tags lead beyond the end of the file");
    TagLib::ByteVector data(static_cast<unsigned>(present), 0);
    const ssize_t count = pread(fd, data.data(), data.size(), at);
    if (count < 0) error = errno;
    data.resize(static_cast<unsigned>(std::max<ssize_t>(count, 0)));
    at += data.size();
    return data;
}

void TagStream::WriteAt(long place, const TagLib::ByteVector& data) {
    unsigned done = 0;
    while (error == 0 && done < data.size()) {
        const ssize_t count = pwrite(fd, data.data() + done, data.size() - done, place + done);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) error = errno;
        done += static_cast<unsigned>(std::max<ssize_t>(count, 0));
    }
}

void TagStream::writeBlock(const TagLib::ByteVector& data) {
    WriteAt(at, data);
    at += data.size();
}

void TagStream::Move(long from, long to, long size) {
    for (long done = 0; done < size && error == 0;) {
        const long count = std::min(kBlockBytes, size - done);
        // Begins at the end whose bytes are not overwritten before they are read.
        const long offset = to > from ? size - done - count : done;
        seek(from + offset, Beginning);
        const TagLib::ByteVector block = readBlock(static_cast<unsigned long>(count));
        if (block.size() != static_cast<unsigned long>(count) && error == 0) error = EIO;
        WriteAt(to + offset, block);
        done += count;
    }
}

void TagStream::insert(const TagLib::ByteVector& data, unsigned long start, unsigned long replace) {
    const long size = length(), place = static_cast<long>(start);
    const long behind = std::min(place + static_cast<long>(replace), size);
    const long behindNow = place + static_cast<long>(data.size());
    if (behindNow != behind) Move(behind, behindNow, size - behind);
    WriteAt(place, data);
    if (behindNow < behind) truncate(size - (behind - behindNow));
    at = behindNow;
}

bool TagStream::readOnly() const {
    return (fcntl(fd, F_GETFL) & O_ACCMODE) == O_RDONLY;
}

void TagStream::seek(long offset, Position from) {
    // As with fseek, seeking to before the start changes nothing. TagLib does this when it searches
    // the last 128 bytes of a shorter file.
    const long place = offset + (from == Current ? at : from == End ? length() : 0);
    if (place >= 0) at = place;
}

long TagStream::length() {
    struct stat status {};
    return fstat(fd, &status) == 0 ? status.st_size : 0;
}

void TagStream::truncate(long size) {
    if (error == 0 && ftruncate(fd, size) != 0) error = errno;
}
