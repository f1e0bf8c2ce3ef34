// What ends a run early: thrown anywhere, said in one line by main.
#pragma once
#include <stdexcept>

// It cannot be done: exit status 1.
class Failure : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The command line asks for nonsense: exit status 2.
class UsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};
