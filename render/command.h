// A command of the program: its options, and what it does with them.
#pragma once
#include "render/options.h"

class Command {
public:
    Command(Options& program, const char* name, const char* description)
        : options(program.AddCommand(name, description)) {}
    virtual ~Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    bool IsAsked() const { return options.IsAsked(); }
    // Throws Failure or UsageError.
    virtual void Run() = 0;

protected:
    Options options;
};
