// Bytes onto file descriptors: all of them, or an error that is noticed.
#pragma once
#include <cstddef>
#include <string>

// In as many pieces as it takes; waits where a pipe that doesn't block is full. Returns 0 or the
// errno of the first failure.
int WriteAll(int fd, const void* bytes, size_t size);

// Likewise; throws Failure, with the reason, if part of it doesn't get there.
void WriteToStandardOutput(const void* bytes, size_t size);
void PrintToStandardOutput(const std::string& text);
