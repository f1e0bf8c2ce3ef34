// The parts of a second-order recursive filter section in direct form I: coefficients and history.
#pragma once
#include <cstddef>

//   y[n] = b0 x[n] + b1 x[n-1] + b2 x[n-2] + fb1 y[n-1] + fb2 y[n-2]
template <typename Number>
struct BiquadCoefficients {
    Number b0 = 0, b1 = 0, b2 = 0, fb1 = 0, fb2 = 0;

    bool operator==(const BiquadCoefficients&) const = default;

    // Calls `act` five times, each time with one coefficient and the corresponding ones of
    // `others`.
    template <typename Act, typename... Others>
    void ForEach(Act act, const Others&... others) {
        act(b0, others.b0...);
        act(b1, others.b1...);
        act(b2, others.b2...);
        act(fb1, others.fb1...);
        act(fb2, others.fb2...);
    }
};

template <typename Number>
struct BiquadHistory {
    Number x1 = 0, x2 = 0, y1 = 0, y2 = 0;  // x[n-1], x[n-2], y[n-1], y[n-2]

    void Push(Number x, Number y) {
        x2 = x1;
        x1 = x;
        y2 = y1;
        y1 = y;
    }
};

template <typename Number>
[[gnu::always_inline]] inline Number BiquadOutput(const BiquadCoefficients<Number>& c,
                                                  const BiquadHistory<Number>& h, Number x) {
    return c.b0 * x + c.b1 * h.x1 + c.b2 * h.x2 + c.fb1 * h.y1 + c.fb2 * h.y2;
}

// Filters samples in place with constant coefficients. It is a run (runs.h).
template <typename Number>
struct BiquadRun {
    [[gnu::always_inline]] void Step(size_t i) {
        const Number x = samples[i];
        samples[i] = BiquadOutput(coefficients, history, x);
        history.Push(x, samples[i]);
    }
    Number* samples;
    BiquadCoefficients<Number> coefficients;
    BiquadHistory<Number> history;
};
