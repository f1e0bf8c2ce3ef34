// A command of the program: its options, and what it does with them.
#pragma once
#include <CLI/CLI.hpp>

class Command {
public:
    Command(CLI::App& program, const char* name, const char* description)
        : app(*program.add_subcommand(name, description)) {}
    virtual ~Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    bool IsAsked() const { return app.parsed(); }
    // Throws Failure or UsageError.
    virtual void Run() = 0;

protected:
    CLI::App& app;
};
