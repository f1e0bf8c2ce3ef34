// What ends a run early: thrown anywhere, said in one line by main.
#pragma once
#include <fmt/core.h>

#include <stdexcept>
#include <utility>

// It cannot be done: exit status 1.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    // The text of fmt::format.
    template <typename... Values>
    requires(sizeof...(Values) > 0) explicit Failure(fmt::format_string<Values...> format,
                                                     Values&&... values)
        : std::runtime_error(fmt::format(format, std::forward<Values>(values)...)) {}
};

// The source is damaged, and what could be read of it has been written: exit status 3. It is thrown
// when everything else is done.
class DamagedSource : public Failure {
    using Failure::Failure;
};

// The command line asks for nonsense: exit status 2.
class UsageError : public Failure {
    using Failure::Failure;
};
