// Inlining of what is small on vectors.
#pragma once

// Before a function whose arguments are vectors: they would pass through memory. Where floats are
// calls of helpers, inlining saves nothing of their work and makes the code twice as large.
#if defined(__arm__) && defined(__SOFTFP__)
#define ORVANE_LANE_INLINE inline
// Before one that is several calls there, and wherever it would be inlined.
#define ORVANE_LANE_CALL [[gnu::noinline]] inline
#else
#define ORVANE_LANE_INLINE [[gnu::always_inline]] inline
#define ORVANE_LANE_CALL ORVANE_LANE_INLINE
#endif
