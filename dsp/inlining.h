// Says which small functions on vectors are inlined on which target.
#pragma once

// ORVANE_LANE_INLINE stands before a function whose arguments are vectors. A call would pass them
// through memory, so the function is always inlined. On processors without a floating-point unit
// each operation is a call of a helper anyway. Inlining would save nothing there and would double
// the size of the code.
#if defined(__arm__) && defined(__SOFTFP__)
#define ORVANE_LANE_INLINE inline
// ORVANE_LANE_CALL stands before a function that makes several such calls. It is never inlined
// there, and always inlined elsewhere.
#define ORVANE_LANE_CALL [[gnu::noinline]] inline
#else
#define ORVANE_LANE_INLINE [[gnu::always_inline]] inline
#define ORVANE_LANE_CALL ORVANE_LANE_INLINE
#endif
