// Byte offsets of structure members that the assembly routines use. The headers that define the
// structures check each offset with a static_assert.
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

#define MIRRORED_PLACES_SIZE 32
#define MIRRORED_PLACES_W_IM 8
#define MIRRORED_PLACES_RIGHT 16  // followed by `raised`
#define MIRRORED_PLACES_LEFT 24

#define TRANSFORM_PLACE_SIZE 4
#define TRANSFORM_PLACE_RAISED 2

#define TWIDDLES_W1_RE 0
#define TWIDDLES_W1_IM 8
#define TWIDDLES_W2_RE 16
#define TWIDDLES_W2_IM 24
#define TWIDDLES_W3_RE 32
#define TWIDDLES_W3_IM 40
