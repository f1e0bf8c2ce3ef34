// Says how functions are compiled on each target. Some small functions on vectors are inlined, some
// short loops are unrolled, and some functions are ARM instructions in a file of Thumb
// instructions.
#pragma once
#include <cstddef>
#include <type_traits>
#include <utility>

// ORVANE_LANE_INLINE stands before a function whose arguments are vectors. A call would pass them
// through memory, so the function is always inlined. Files that are compiled for size (on the
// device) have no vectors. There inlining would save little and would double the size of the code.
#if defined(__OPTIMIZE_SIZE__)
#define ORVANE_LANE_INLINE inline
// ORVANE_LANE_CALL stands before a function that is large enough to be never inlined there. It is
// always inlined elsewhere.
#define ORVANE_LANE_CALL [[gnu::noinline]] inline
constexpr bool kUnrolls = false;
#else
#define ORVANE_LANE_INLINE [[gnu::always_inline]] inline
#define ORVANE_LANE_CALL ORVANE_LANE_INLINE
constexpr bool kUnrolls = true;
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

// ORVANE_ARM_STATE compiles a function to ARM instructions in a file that is compiled to Thumb. Put
// it before a function that runs for every sample: one ARM instruction does more than one Thumb
// instruction. Don't put it before a function that uses dsp/softfloat/number.h, because that header
// compiles its inline ARM assembly only in files that are ARM as a whole.
#if defined(__thumb__) && !defined(__clang__)
#define ORVANE_ARM_STATE [[gnu::target("arm"), gnu::noinline]]
#else
#define ORVANE_ARM_STATE
#endif
