// Gives access to the bytes of a file, a part at a time, to inspect its structure. Use an object on
// one thread.
#pragma once
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>

class ByteWindow {
public:
    static constexpr size_t kMostBytes = 1 << 16;

    // Places are counted in bytes from `startsAt` of the file. The descriptor must stay open; its
    // file position does not change.
    ByteWindow(int descriptor, uint64_t startsAt) : fd(descriptor), start(startsAt) {
        struct stat status {};
        if (fstat(fd, &status) == 0 && static_cast<uint64_t>(status.st_size) > start)
            size = static_cast<uint64_t>(status.st_size) - start;
    }

    uint64_t Size() const { return size; }

    // Returns `count` bytes at `place`, fewer if the file ends or cannot be read. `count` is at
    // most kMostBytes. The bytes are valid until the next call.
    std::string_view At(uint64_t place, size_t count) {
        if (place < bufferPlace || place + count > bufferPlace + buffer.size()) Fill(place);
        const size_t from =
            static_cast<size_t>(std::min<uint64_t>(place - bufferPlace, buffer.size()));
        return std::string_view(buffer).substr(from, count);
    }

private:
    void Fill(uint64_t place) {
        bufferPlace = place;
        buffer.resize(kMostBytes);
        size_t filled = 0;
        while (filled < buffer.size()) {
            const ssize_t count = pread(fd, buffer.data() + filled, buffer.size() - filled,
                                        static_cast<off_t>(start + place + filled));
            if (count < 0 && errno == EINTR) continue;
            if (count <= 0) break;
            filled += static_cast<size_t>(count);
        }
        buffer.resize(filled);
    }

    int fd;
    uint64_t start, size = 0;
    std::string buffer;
    uint64_t bufferPlace = 0;
};

// Returns `bytes` as a number whose first byte is the least significant.
inline uint64_t LittleEndian(std::string_view bytes) {
    uint64_t number = 0;
    for (size_t i = bytes.size(); i-- > 0;)
        number = number << 8 | static_cast<unsigned char>(bytes[i]);
    return number;
}

// Returns `bytes` as a number whose first byte is the most significant.
inline uint64_t BigEndian(std::string_view bytes) {
    uint64_t number = 0;
    for (const char byte : bytes) number = number << 8 | static_cast<unsigned char>(byte);
    return number;
}
