// Marks the symbols that the shared library exports. All others are hidden by -fvisibility=hidden.
// scripts/check-library.sh compares the exported names with the list in cmake/exported_names.txt.
//
// Every exported class that computes includes this header, so it also checks how floats are
// computed.
#pragma once
#include <cfloat>

// Refuses a build with floating-point arithmetic that would change results. Each product and each
// sum must be rounded by itself to its own type, in the order written. No macro says whether the
// compiler fuses products and sums. So build with -ffp-contract=off; scripts/check-library.sh
// checks the result.
#if defined __FAST_MATH__ || __FINITE_MATH_ONLY__
#error "build without -ffast-math and its parts"
#endif
static_assert(FLT_EVAL_METHOD == 0, "float and double are computed in a wider type: -mfpmath=sse");

// Exports a class with its operations, a function or an object.
#define ORVANE_API __attribute__((visibility("default")))
// Hides a private helper of an exported class.
#define ORVANE_LOCAL __attribute__((visibility("hidden")))
