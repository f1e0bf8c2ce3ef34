// What the library says of itself.
#pragma once
#include <string>

#include "tools/effect_library.h"

// The record, the descriptor, and every parameter with its present value where it can be asked.
std::string LibraryInfo(const std::string& path, const EffectLibrary& library);

// "2.1.0.2".
std::string LibraryVersionText();
