#include "dsp/softfloat/band_convolver.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "dsp/softfloat/butterfly_groups.h"
#include "dsp/softfloat/spectrum_product.h"

namespace {

using Number = Complex<SoftFloat>;
using Factor = Complex<SoftFactor>;

uint32_t BitsOf(float v) {
    return std::bit_cast<uint32_t>(v);
}

}  // namespace

bool SoftBandConvolver::Prepare(uint32_t n, const float* tables, const float* low,
                                const float* high, const float* band) {
    half = 0;
    const size_t m = n / 2;
    if (m < 8 || !std::has_single_bit(m) || std::countr_zero(m) % 2 == 0 || m > UINT16_MAX)
        return true;
    if (!twiddles.Allocate(m / 4) || !realFactors.Allocate(m / 2) || !spectrum.Allocate(m) ||
        !work.Allocate(m) || !reversed.Allocate(m))
        return false;
    for (size_t k = 1; k < m; ++k)
        reversed[k] = static_cast<uint16_t>(reversed[k / 2] / 2 + (k % 2 != 0 ? m / 2 : 0));
    for (OwnedArray<Factor>& kernel : kernels)
        if (!kernel.Allocate(m)) return false;

    bool fits = true;
    const auto factor = [&fits](float re, float im) {
        if (!softfloat::CanBeFactor(re) || !softfloat::CanBeFactor(im)) fits = false;
        return fits ? Factor{softfloat::FactorOf(re), softfloat::FactorOf(im)} : Factor{};
    };
    eighth = softfloat::FactorOf(tables[2]);
    // w3 is rounded as the stages of FFT_R24 round it.
    for (size_t group = 2; group < m / 4; group += 2) {
        const float* const w2 = tables + group;
        for (size_t second = 0; second < 2; ++second) {
            const float* const w1 = tables + 2 * (group + second);
            const float twice = 2 * w2[1 - second];
            twiddles[group + second] = {factor(w1[0], w1[1]),
                                        second == 0 ? factor(w2[0], w2[1]) : factor(-w2[1], w2[0]),
                                        factor(w1[0] - twice * w1[1], twice * w1[0] - w1[1])};
        }
    }
    const float* const c = tables + m / 2;
    for (size_t k = 1; k < m / 2; ++k) realFactors[k] = factor(0.5F - c[m / 2 - k], c[k]);
    const float* const spectra[] = {low, high, band};
    for (size_t b = 0; b < 3; ++b)
        for (size_t k = 0; k < m; ++k)
            kernels[b][k] = factor(spectra[b][2 * k], spectra[b][2 * k + 1]);
    if (fits) half = m;
    return true;
}

bool SoftBandConvolver::Convolve(const float* input, size_t count, size_t stride, float* low,
                                 float* high, float* band) {
    return half != 0 && Load(input, count, stride) && RealSpectrum() &&
           Inverse(kernels[0].data(), low) && Inverse(kernels[1].data(), high) &&
           Inverse(kernels[2].data(), band);
}

bool SoftBandConvolver::Load(const float* input, size_t count, size_t stride) {
    for (size_t i = 0; i < count; ++i)
        if (!softfloat::Enters(BitsOf(input[i * stride]))) return false;
    // Sample pairs as complex values, in the order of reversed bits.
    Number* const a = spectrum.data();
    for (size_t to = 0; to < half; ++to) {
        const size_t i = size_t{2} * reversed[to];
        a[to].re = i < count ? softfloat::Unpack(BitsOf(input[i * stride])) : SoftFloat{};
        a[to].im = i + 1 < count ? softfloat::Unpack(BitsOf(input[(i + 1) * stride])) : SoftFloat{};
    }
    return Stages(a);
}

// All stages but the last.
bool SoftBandConvolver::Stages(Number* a) const {
    for (size_t span = 1; 4 * span < half; span *= 4) {
        const size_t groups = half / (4 * span);
        UntwiddledGroup(a, span);
        if (!EighthGroup(a + 4 * span, span, eighth)) return false;
        if (groups > 2 && !TwiddledGroups(a + 8 * span, span, &twiddles[2], groups - 2))
            return false;
    }
    return true;
}

// The last stage, then from the spectrum of the complex values to that of the real ones. [0] holds
// the two real values at 0 Hz and half the rate.
bool SoftBandConvolver::RealSpectrum() {
    Number* const a = spectrum.data();
    const size_t span = half / 2;
    for (size_t k = 0; k < span; ++k) {
        const auto [lowRe, highRe] = SumAndDifference(a[k].re, a[k + span].re);
        const auto [lowIm, highIm] = SumAndDifference(a[k].im, a[k + span].im);
        a[k] = {lowRe, lowIm};
        a[k + span] = {highRe, highIm};
    }
    const auto [sum, difference] = SumAndDifference(a[0].re, a[0].im);
    a[0] = {sum, difference};
    for (size_t k = 1; k < span; ++k) {
        Number& left = a[k];
        Number& right = a[half - k];
        Number y = {left.re - right.re, left.im + right.im};
        if (!Turned(realFactors[k], y)) return false;
        left = {left.re - y.re, left.im - y.im};
        right = {right.re + y.re, right.im - y.im};
    }
    for (size_t k = 0; k < half; ++k)
        if (!softfloat::Settles(a[k].re, a[k].im)) return false;
    return true;
}

// The product with a kernel and the way back to the spectrum of complex values, in the order of
// reversed bits.
bool SoftBandConvolver::ProductToWork(const Factor* kernel) {
    const Number* const a = spectrum.data();
    Number* const out = work.data();
    const SoftFloat sum = kernel[0].re * a[0].re;
    SoftFloat difference = sum - kernel[0].im * a[0].im;
    if (difference.m != 0 && difference.e < 0) return false;
    --difference.e;  // halved
    out[0] = {sum - difference, -difference};
    const Number middle = Twiddle(kernel[half / 2], a[half / 2]);
    out[1] = {middle.re, -middle.im};
    return SpectrumProduct(a, kernel, realFactors.data(), reversed.data(), out, half);
}

// The last stage leaves the conjugates.
bool SoftBandConvolver::Inverse(const Factor* kernel, float* out) {
    if (!ProductToWork(kernel) || !Stages(work.data())) return false;
    const Number* const a = work.data();
    const size_t span = half / 2;
    const auto put = [](float* to, SoftFloat v) {
        const uint32_t bits = softfloat::Pack(v);
        std::memcpy(to, &bits, sizeof bits);
    };
    for (size_t k = 0; k < span; ++k, out += 2) {
        const auto [lowRe, highRe] = SumAndDifference(a[k].re, a[k + span].re);
        const auto [lowIm, highIm] = SumAndDifference(a[k].im, a[k + span].im);
        put(out, lowRe);
        put(out + 1, -lowIm);
        put(out + half, highRe);
        put(out + half + 1, -highIm);
    }
    return true;
}
