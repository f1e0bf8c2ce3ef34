// Calls an assembly routine and checks that it keeps the callee-saved registers and the stack.
#pragma once
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>

extern "C" uint32_t ChangedRegisters(const void* routine, const uint32_t* arguments,
                                     uint32_t* result);

// Returns the argument's bits as a word.
template <typename Argument>
uint32_t Word(Argument argument) {
    uint32_t word = 0;
    static_assert(sizeof argument <= sizeof word);
    std::memcpy(&word, &argument, sizeof argument);
    return word;
}

// Returns the routine's result. The test fails if the routine changed a callee-saved register or
// the stack pointer.
template <typename Result, typename... Parameters, typename... Arguments>
uint32_t Call(Result (*routine)(Parameters...), Arguments... arguments) {
    const std::array<uint32_t, 6> words = {Word<Parameters>(arguments)...};
    uint32_t result = 0;
    EXPECT_EQ(ChangedRegisters(reinterpret_cast<const void*>(routine), words.data(), &result), 0U);
    return result;
}
