// Refuses a build whose floating-point arithmetic would not be the one that every result here is
// defined by: each product and each sum rounded by itself to its own type, in the order written.
// (No macro tells of fused products and sums: build with -ffp-contract=off, and have
// scripts/check-library.sh look at the result.)
#pragma once
#include <cfloat>

#if defined __FAST_MATH__ || __FINITE_MATH_ONLY__
#error "build without -ffast-math and its parts"
#endif
static_assert(FLT_EVAL_METHOD == 0, "float and double are computed in a wider type: -mfpmath=sse");
