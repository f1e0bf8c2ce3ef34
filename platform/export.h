// What a build of the library must know of every class: which symbols a user of the shared library
// can find. All others are hidden, by -fvisibility=hidden. cmake/exported_names.txt lists what
// comes out, and scripts/check-library.sh compares.
#pragma once
#include "platform/exact_floats.h"  // the classes that are exported are those that compute

// On a class: its operations. On a function or an object: that one.
#define ORVANE_API __attribute__((visibility("default")))
// On a private helper of such a class: not this one.
#define ORVANE_LOCAL __attribute__((visibility("hidden")))
