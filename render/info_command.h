// What the library says of itself: the record, the descriptor, and every parameter with its present
// value where it can be asked.
#pragma once
#include <string>

#include "render/command.h"
#include "render/common_options.h"

class InfoCommand final : public Command {
public:
    explicit InfoCommand(Options& program);
    void Run() override;

private:
    LibraryOptions library;
};

// "2.1.0.2".
std::string LibraryVersionText();
