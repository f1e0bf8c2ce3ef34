// Reads and writes integers within the bytes of a file.
#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// A chunk of a RIFF or AIFF file begins with its name and its size, 4 bytes each.
constexpr size_t kChunkHeader = 8;

// The byte order of a number: its least or most significant byte first.
enum class Order : uint8_t { kLowFirst, kHighFirst };

// Returns the number at byte `at`, or 0 if the bytes end before the number does.
template <typename Number>
Number Get(std::string_view bytes, size_t at, Order order = Order::kLowFirst) {
    uint64_t number = 0;
    if (at + sizeof(Number) > bytes.size()) return 0;
    for (size_t i = 0; i < sizeof(Number); ++i) {
        const size_t place = order == Order::kHighFirst ? i : sizeof(Number) - 1 - i;
        number = number << 8 | static_cast<unsigned char>(bytes[at + place]);
    }
    return static_cast<Number>(number);
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
