// What runs with every sample in files that are compiled for ARM's Thumb state.
#pragma once

// Before such a function: ARM state, whose instructions do more each. Not for what uses
// softfloat/number.h, whose ARM instructions a file for Thumb state leaves out.
#if defined(__thumb__) && !defined(__clang__)
#define ORVANE_ARM_STATE [[gnu::target("arm"), gnu::noinline]]
#else
#define ORVANE_ARM_STATE
#endif
