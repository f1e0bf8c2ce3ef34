// Bytes onto file descriptors: all of them, or an error that is noticed. All text that the program
// prints goes through here, except how far a run has come.
#pragma once
#include <cstddef>
#include <string>

// In as many pieces as it takes; waits where a pipe that doesn't block is full. Returns 0 or the
// errno of the first failure.
int WriteAll(int fd, const void* bytes, size_t size);

// Likewise; throws Failure, with the reason, if part of it doesn't get there.
void WriteToStandardOutput(const void* bytes, size_t size);

// Lines for people, or JSON, in which TerminalText has escaped all but line ends and tabs. The
// first throws Failure; the second does what it can.
void PrintToStandardOutput(const std::string& text);
void PrintToStandardError(const std::string& text);
// "orvane: ", the message, and a line end. A line end within the message is escaped.
void PrintMessage(const std::string& message);
