// The exceptions that end a run. Any code may throw them. main prints the message in one line and
// ends with the exit status that belongs to the class.
#pragma once
#include <fmt/core.h>

#include <stdexcept>
#include <utility>

// Something cannot be done. The exit status is 1.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    // Formats the message with fmt::format.
    template <typename... Values>
    requires(sizeof...(Values) > 0) explicit Failure(fmt::format_string<Values...> format,
                                                     Values&&... values)
        : std::runtime_error(fmt::format(format, std::forward<Values>(values)...)) {}
};

// The source is damaged, and everything that could be read of it has been written. It is thrown
// when everything else is done. The exit status is 3.
class DamagedSource : public Failure {
    using Failure::Failure;
};

// The command line is wrong. The exit status is 2.
class UsageError : public Failure {
    using Failure::Failure;
};
