// Ownership of a meter of libebur128.
#pragma once
#include <ebur128.h>

#include <memory>

struct Ebur128Deleter {
    void operator()(ebur128_state* state) const { ebur128_destroy(&state); }
};
using Ebur128Handle = std::unique_ptr<ebur128_state, Ebur128Deleter>;
