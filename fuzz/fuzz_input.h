// Reads the bytes of one fuzz input from the front. Beyond the end, all bytes are zero.
#pragma once
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

class FuzzInput {
public:
    FuzzInput(const uint8_t* bytes, size_t count) : next(bytes), left(count) {}

    bool Empty() const { return left == 0; }
    // Returns all bytes that have not been taken. They stay.
    std::string_view Rest() const { return {reinterpret_cast<const char*>(next), left}; }
    void Take(void* destination, size_t count) {
        if (count != 0) std::memset(destination, 0, count);
        const size_t there = count < left ? count : left;
        if (there != 0) std::memcpy(destination, next, there);
        next += there;
        left -= there;
    }
    template <typename T>
    T Take() {
        T value;
        Take(&value, sizeof value);
        return value;
    }

private:
    const uint8_t* next;
    size_t left;
};

// A heap block of exactly `count` elements, so that the address sanitizer detects an access to the
// next byte. The elements begin `shift` bytes after an aligned address.
template <typename T>
class ExactBlock {
public:
    explicit ExactBlock(size_t count, size_t shift = 0)
        : bytes(new uint8_t[count * sizeof(T) + shift]), start(bytes.get() + shift) {}
    T* data() const { return reinterpret_cast<T*>(start); }

private:
    std::unique_ptr<uint8_t[]> bytes;
    uint8_t* start;
};

// Ends the process with the message `what` if a condition does not hold. The fuzzer then keeps the
// input.
inline void Demand(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

// Libraries for audio files forget some memory when they refuse a file.
// NOLINTNEXTLINE(bugprone-reserved-identifier, misc-definitions-in-headers): the sanitizer's name
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libsndfile\nleak:libvorbis\nleak:libmpg123\nleak:libtag\n";
}

// A file in memory that holds `bytes`.
class MemoryFile {
public:
    explicit MemoryFile(std::string_view bytes) : fd(memfd_create("fuzz", MFD_CLOEXEC)) {
        Demand(write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
               "a file in memory");
    }
    ~MemoryFile() { close(fd); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    int Descriptor() const { return fd; }
    std::string Path() const { return "/proc/self/fd/" + std::to_string(fd); }
    std::string Content() const {
        std::string bytes(static_cast<size_t>(lseek(fd, 0, SEEK_END)), '\0');
        Demand(pread(fd, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
               "the content of a file in memory");
        return bytes;
    }

private:
    int fd;
};

// Advances the generator of test signals by one step and returns its state (G. Marsaglia, Xorshift
// RNGs).
inline uint32_t Random(uint32_t* state) {
    *state ^= *state << 13U;
    *state ^= *state >> 17U;
    *state ^= *state << 5U;
    return *state;
}
