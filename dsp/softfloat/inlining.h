// Says which small functions on vectors are inlined, and which short loops are unrolled, on which
// target.
#pragma once
#include <cstddef>
#include <type_traits>
#include <utility>

// ORVANE_LANE_INLINE stands before a function whose arguments are vectors. A call would pass them
// through memory, so the function is always inlined. On processors without a floating-point unit
// each operation is a call of a helper anyway. Inlining would save nothing there and would double
// the size of the code.
#if defined(__arm__) && defined(__SOFTFP__)
#define ORVANE_LANE_INLINE inline
// ORVANE_LANE_CALL stands before a function that makes several such calls. It is never inlined
// there, and always inlined elsewhere.
#define ORVANE_LANE_CALL [[gnu::noinline]] inline
inline constexpr bool kUnrolls = false;
#else
#define ORVANE_LANE_INLINE [[gnu::always_inline]] inline
#define ORVANE_LANE_CALL ORVANE_LANE_INLINE
inline constexpr bool kUnrolls = true;
#endif

// Calls act(k) for k from 0 to count - 1, each k a constant.
template <size_t count, typename Act>
[[gnu::always_inline]] inline void ForEachConstant(Act act) {
    [act]<size_t... k>(std::index_sequence<k...>) {
        (act(std::integral_constant<size_t, k>()), ...);
    }
    (std::make_index_sequence<count>());
}
// The same, but a loop where unrolling would only make the code larger.
template <size_t count, typename Act>
[[gnu::always_inline]] inline void ForEachIndex(Act act) {
    if constexpr (kUnrolls)
        ForEachConstant<count>(act);
    else
        for (size_t k = 0; k < count; ++k) act(k);
}
