// What the library says of itself, and the parameter table for documents.
#pragma once
#include <string>

#include "tools/effect_host.h"

// The record, the descriptor, and every parameter with its present value where it can be asked.
std::string LibraryInfo(const std::string& path, const EffectLibrary& library);

// "2.1.0.2".
std::string LibraryVersionText();

// The parameter table in Markdown; needs no library.
std::string ParameterMarkdown();
