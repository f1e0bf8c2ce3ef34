// Help, manual page and completion, all from the options that the commands have.
#pragma once
#include <CLI/CLI.hpp>
#include <string>

// Help for 100 columns with presets and examples, and two options for those who install the
// program, not shown: --man-page and --bash-completion, which print it and end the program. Before
// the commands are added, which inherit it.
void AddManualTo(CLI::App& program);
