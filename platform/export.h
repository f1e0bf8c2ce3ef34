// Marks the symbols that the shared library exports. All others are hidden by -fvisibility=hidden.
// scripts/check-library.sh compares the exported names with the list in cmake/exported_names.txt.
#pragma once
#include "platform/exact_floats.h"  // the classes that are exported are those that compute

// Exports a class with its operations, a function or an object.
#define ORVANE_API __attribute__((visibility("default")))
// Hides a private helper of an exported class.
#define ORVANE_LOCAL __attribute__((visibility("hidden")))
