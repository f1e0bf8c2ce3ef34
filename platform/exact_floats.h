// Refuses a build with floating-point arithmetic that would change results. Each product and each
// sum must be rounded by itself to its own type, in the order written. No macro says whether the
// compiler fuses products and sums. So build with -ffp-contract=off; scripts/check-library.sh
// checks the result.
#pragma once
#include <cfloat>

#if defined __FAST_MATH__ || __FINITE_MATH_ONLY__
#error "build without -ffast-math and its parts"
#endif
static_assert(FLT_EVAL_METHOD == 0, "float and double are computed in a wider type: -mfpmath=sse");
