// This declares the functions that the proofs of tests/prove_chain.py call.
#pragma once
#include <cstddef>
#include <cstdint>

extern "C" {
// The prover does these itself. An object begins with unknown content, and data is always unknown.
void* proof_object(const char* name, size_t bytes);
void* proof_data(const char* name, size_t bytes);
void proof_read(const void* at, size_t bytes);
void proof_write(void* at, size_t bytes);  // anything
void proof_assume(bool);
void proof_check(bool);
// Names what may matter in the turns of a loop. It is a statement about an object that holds in
// each, or a number that is a bound or moves on with the turns.
void proof_keep(const void* object, bool (*holds)(const void*));
void proof_number(const void* object, uint32_t (*number)(const void*));
}

template <typename T>
T* Object(const char* name) {
    return static_cast<T*>(proof_object(name, sizeof(T)));
}
template <typename T>
T* Data(const char* name, size_t count) {
    return static_cast<T*>(proof_data(name, count * sizeof(T)));
}
