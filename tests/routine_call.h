// Calls an assembly routine and checks that it keeps the callee-saved registers and the stack.
#pragma once
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

#include "guarded_block.h"

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
