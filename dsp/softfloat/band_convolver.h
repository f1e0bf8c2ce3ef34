// The three circular convolutions of BandFilters<float> on unpacked numbers (number.h).
//
// One forward transform of a block, three products, three inverse transforms, each value as
// FFT_R24<float> and the plain product give it, to the bit but for the signs of zeros.
//
// Allocates: Prepare only. Thread: no lock of its own; the owner serialises all calls.
#pragma once
#include <cstddef>
#include <cstdint>

#include "dsp/butterfly.h"
#include "dsp/owned_array.h"
#include "dsp/softfloat/number.h"

class SoftBandConvolver {
public:
    // Takes over factors: `tables` as FFT_R24::rdft builds them for n values, n/4 factors of the
    // stages before n/4 of the real-spectrum step; the bands' spectra as BandFilters has them.
    // False if memory is refused. Kernels that don't fit the numbers, and lengths other than
    // 2^(2 k), are no error: Convolve then answers false.
    bool Prepare(uint32_t n, const float* tables, const float* low, const float* high,
                 const float* band);

    // input: `count` samples, `stride` apart, zeros behind them up to n. low, high, band: n samples
    // each, not overlapping the input. False, with nothing that counts in the outputs, if a value
    // leaves the numbers' range.
    bool Convolve(const float* input, size_t count, size_t stride, float* low, float* high,
                  float* band);

private:
    using Number = Complex<SoftFloat>;
    using Factor = Complex<SoftFactor>;

    bool Load(const float* input, size_t count, size_t stride);
    bool Stages(Number* a) const;
    bool RealSpectrum();
    bool ProductToWork(const Factor* kernel);
    bool Inverse(const Factor* kernel, float* out);

    size_t half = 0;         // complex values: n / 2; 0 while not usable
    SoftFactor eighth = {};  // cos(pi / 4)
    OwnedArray<Twiddles<SoftFactor>>
        twiddles;                    // by group of any stage: half / 4, the first two unused
    OwnedArray<Factor> realFactors;  // half / 2, the first unused
    OwnedArray<Factor> kernels[3];   // low, high, band: half each; [0] holds two real factors
    OwnedArray<uint16_t> reversed;   // by index of a complex value: its bits reversed
    OwnedArray<Number> spectrum, work;
};
