// Memory that ends at an unreadable page, and calls of assembly routines. Such a call checks that
// the routine keeps the callee-saved registers and the stack.
#pragma once
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

// Memory for a command's block, or for a routine's input. Access to the next byte faults.
class GuardedBlock {
public:
    explicit GuardedBlock(size_t capacity) {
        const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        usable = (capacity + page - 1) / page * page;
        total = usable + page;
        void* const memory =
            mmap(nullptr, total, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) std::abort();
        base = static_cast<unsigned char*>(memory);
        if (mprotect(base + usable, page, PROT_NONE) != 0) std::abort();
    }
    ~GuardedBlock() { munmap(base, total); }
    GuardedBlock(const GuardedBlock&) = delete;
    GuardedBlock& operator=(const GuardedBlock&) = delete;

    // Returns the address of the last `size` bytes.
    unsigned char* Last(size_t size) { return base + usable - size; }

    // Copies `size` bytes from `source` to the end of the memory and returns their address. The
    // memory can then only be read.
    void* Hold(const void* source, size_t size) {
        mprotect(base, usable, PROT_READ | PROT_WRITE);
        if (size != 0) std::memcpy(Last(size), source, size);
        mprotect(base, usable, PROT_READ);
        return Last(size);
    }

private:
    unsigned char* base = nullptr;
    size_t usable = 0, total = 0;
};

extern "C" uint32_t ChangedRegisters(const void* routine, const uint32_t* arguments,
                                     uint32_t* result);

// Returns the bits of the argument as a 32-bit word.
template <typename Argument>
uint32_t Word(Argument argument) {
    uint32_t word = 0;
    static_assert(sizeof argument <= sizeof word);
    std::memcpy(&word, &argument, sizeof argument);
    return word;
}

// Memory for a routine's input. It ends at an unreadable page, so a read beyond the input faults.
class RoutineInput {
public:
    // Copies the values to the end of the memory and returns their address. It is valid until the
    // next call.
    template <typename Value>
    Value* Put(const std::vector<Value>& values) {
        const size_t bytes = values.size() * sizeof(Value);
        if (bytes > kCapacity) std::abort();
        unsigned char* const place = block.Last(bytes);
        if (bytes != 0) std::memcpy(place, values.data(), bytes);
        return reinterpret_cast<Value*>(place);
    }

private:
    static constexpr size_t kCapacity = size_t{1} << 21U;  // bytes
    GuardedBlock block{kCapacity};
};

// Calls the routine and returns its result. Fails the test if the routine changed a callee-saved
// register or the stack pointer.
template <typename Result, typename... Parameters, typename... Arguments>
uint32_t Call(Result (*routine)(Parameters...), Arguments... arguments) {
    const std::array<uint32_t, 6> words = {Word<Parameters>(arguments)...};
    uint32_t result = 0;
    EXPECT_EQ(ChangedRegisters(reinterpret_cast<const void*>(routine), words.data(), &result), 0U);
    return result;
}
