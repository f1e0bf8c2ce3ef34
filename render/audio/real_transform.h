// A real FFT of fixed length, with FFTW. Both directions are unscaled, so a round trip multiplies
// by `length`. FFTW's planner is not thread-safe, so construct and destroy all objects on one
// thread.
#pragma once
#include <fftw3.h>

#include <complex>
#include <memory>
#include <vector>

class RealTransform {
public:
    explicit RealTransform(size_t length)
        : time(length),
          spectrum(length / 2 + 1),
          forward(
              fftw_plan_dft_r2c_1d(static_cast<int>(length), time.data(), Bins(), FFTW_ESTIMATE)),
          inverse(
              fftw_plan_dft_c2r_1d(static_cast<int>(length), Bins(), time.data(), FFTW_ESTIMATE)) {}

    void Forward() { fftw_execute(forward.get()); }
    void Inverse() { fftw_execute(inverse.get()); }  // also overwrites `spectrum`

    std::vector<double> time;
    std::vector<std::complex<double>> spectrum;

private:
    fftw_complex* Bins() { return reinterpret_cast<fftw_complex*>(spectrum.data()); }

    struct DestroyPlan {
        void operator()(fftw_plan plan) const { fftw_destroy_plan(plan); }
    };
    using Plan = std::unique_ptr<fftw_plan_s, DestroyPlan>;
    Plan forward, inverse;
};
