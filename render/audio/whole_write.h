// Writes bytes to file descriptors: all of them, or an error is reported. All text that the program
// prints goes through here, except the progress of a run.
#pragma once
#include <cstddef>
#include <string>

// Writes all bytes, in as many steps as needed. If a non-blocking pipe is full, it waits. Returns
// 0, or the errno of the first failure.
int WriteAll(int fd, const void* bytes, size_t size);

// Writes all bytes to standard output. Throws Failure with the reason if it cannot.
void WriteToStandardOutput(const void* bytes, size_t size);

// Print lines of text or JSON. TerminalText escapes control characters except line ends and tabs.
// The first function throws Failure on an error; the second ignores errors.
void PrintToStandardOutput(const std::string& text);
void PrintToStandardError(const std::string& text);
// Prints "orvane: ", the message and a line end to standard error. Line ends within the message are
// escaped.
void PrintMessage(const std::string& message);
