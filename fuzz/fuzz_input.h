// Reads the bytes of one fuzz input from the front. Beyond the end, all bytes are zero.
#pragma once
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

class FuzzInput {
public:
    FuzzInput(const uint8_t* bytes, size_t count) : next(bytes), left(count) {}

    bool Empty() const { return left == 0; }
    void Take(void* destination, size_t count) {
        std::memset(destination, 0, count);
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

// Advances the generator of test signals by one step and returns its state (G. Marsaglia, Xorshift
// RNGs).
inline uint32_t Random(uint32_t* state) {
    *state ^= *state << 13U;
    *state ^= *state >> 17U;
    *state ^= *state << 5U;
    return *state;
}
