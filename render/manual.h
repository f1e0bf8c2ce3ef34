// Help, manual page and completion, all from the options that the commands have.
#pragma once
#include <string>

#include "render/options.h"

// What ends every help: presets and examples.
std::string HelpFooter();

// Two options for those who install the program, not shown: --man-page and --bash-completion,
// which print it and end the program.
void AddManualTo(Options& program);
