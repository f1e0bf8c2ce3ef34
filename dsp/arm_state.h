// Marks functions that must be compiled to ARM instructions in a file that is compiled to Thumb.
#pragma once

// Put this before a function that runs for every sample: one ARM instruction does more than one
// Thumb instruction. Don't put it before a function that uses softfloat/number.h, because that
// header compiles its inline ARM assembly only in files that are ARM as a whole.
#if defined(__thumb__) && !defined(__clang__)
#define ORVANE_ARM_STATE [[gnu::target("arm"), gnu::noinline]]
#else
#define ORVANE_ARM_STATE
#endif
