// Reads the bytes of a file, a part of them at a time, and the integers in them.
#pragma once
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
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

// A chunk of a RIFF or AIFF file begins with its name and its size, 4 bytes each.
constexpr size_t kChunkHeader = 8;

// The byte order of a number: its least or most significant byte first.
enum class Order : uint8_t { kLowFirst, kHighFirst };

// Returns the number at byte `at`, or 0 if the bytes end before the number does.
template <typename Number>
Number Get(std::string_view bytes, size_t at, Order order = Order::kLowFirst) {
    if (at + sizeof(Number) > bytes.size()) return 0;
    bytes = bytes.substr(at, sizeof(Number));
    return static_cast<Number>(order == Order::kHighFirst ? BigEndian(bytes) : LittleEndian(bytes));
}

// Writes `value` at byte `at`. A value too large for Number becomes the largest Number. Does
// nothing if the bytes end before the number does.
template <typename Number>
void Put(std::string* bytes, size_t at, uint64_t value, Order order = Order::kLowFirst) {
    if (at + sizeof(Number) > bytes->size()) return;
    value = std::min<uint64_t>(value, static_cast<Number>(-1));
    for (size_t i = 0; i < sizeof(Number); ++i) {
        const size_t place = order == Order::kHighFirst ? sizeof(Number) - 1 - i : i;
        (*bytes)[at + place] = static_cast<char>(value >> (8 * i));
    }
}
