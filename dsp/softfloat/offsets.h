// Numbers that the assembly routines and the headers share: byte offsets of structure members, and
// the significands of constants. The headers that define the structures and the constants check
// each number with a static_assert.
#pragma once

#define CONTOUR_MIX_WEIGHTS 48  // three SoftFactors: high, band, low
#define CONTOUR_MIX_B0 72
#define CONTOUR_MIX_B1 80
#define CONTOUR_MIX_B2 88
#define CONTOUR_MIX_FB1 96
#define CONTOUR_MIX_FB2 104
#define CONTOUR_MIX_X1 112
#define CONTOUR_MIX_X2 120
#define CONTOUR_MIX_Y1 128
#define CONTOUR_MIX_Y2 136

#define LIMITER_KEEP 0xe65fd9              // significand of kLimiterKeep
#define LIMITER_KEEPS_FROM 0x471e7800      // KeepsExponentFrom(kLimiterKeep)
#define LIMITER_RECOVER_KEEP 0xfff972      // significand of kLimiterRecoverKeep
#define LIMITER_RECOVER_STEP 0xd1b717      // significand of kLimiterRecoverStep
#define LIMITER_RECOVER_STEP_EXPONENT 113  // its exponent field

#define MIRRORED_PLACES_SIZE 16
#define MIRRORED_PLACES_RIGHT 8  // followed by the word that begins with `raised`
#define MIRRORED_PLACES_RAISED 12

#define MIRRORED_TURNS_SIZE 16
#define MIRRORED_TURNS_RIGHT 8

#define TRANSFORM_PLACE_SIZE 4
#define TRANSFORM_PLACE_RAISED 2

#define TWIDDLES_SIZE 24
#define TWIDDLES_W1 0
#define TWIDDLES_W2 8
#define TWIDDLES_W3 16
