#include "dsp/softfloat/band_convolver.h"

#include <algorithm>
#include <bit>

#include "dsp/softfloat/butterfly_groups.h"

namespace {

using Number = Complex<SoftFloat>;

// Returns 2^exponent, which must be a normal float.
float PowerOf2(int32_t exponent) {
    return std::bit_cast<float>(static_cast<uint32_t>(exponent + 127) << 23U);
}

// Returns the complex factor with its exponents raised by `raised`. If a part can't be a factor,
// returns 0 and sets *fits to false.
SoftTurn TurnOf(float re, float im, float smallest, int32_t raised, bool* fits) {
    if (!softfloat::CanBeFactor(re, smallest) || !softfloat::CanBeFactor(im, smallest)) {
        *fits = false;
        return {};
    }
    SoftFactor real = softfloat::FactorOf(re), imaginary = softfloat::FactorOf(im);
    real.e += raised + softfloat::kAligned;
    imaginary.e += raised + kTurnLower;
    return {Packed(real), Packed(imaginary)};
}

}  // namespace

bool SoftBandConvolver::Allocate(uint32_t n) {
    *this = {};
    const size_t m = n / 2;
    if (m < 8 || m > UINT16_MAX || !std::has_single_bit(m) || std::countr_zero(m) % 2 == 0)
        return true;
    if (!factors.Allocate(m / 4) || !places.Allocate(m / 2) ||
        !kernels.Allocate(kBands * (m / 2)) || !reversed.Allocate(m) || !spectrum.Allocate(m) ||
        !work.Allocate(m))
        return false;
    const int bits = std::countr_zero(m);
    for (size_t k = 0; k < m; ++k) {
        const size_t place = reversed[k / 2].at / 2U + (k % 2 != 0 ? m / 2 : 0);
        const int raised = softfloat::kAligned * (bits - std::popcount(place));
        reversed[k] = {static_cast<uint16_t>(place), static_cast<uint16_t>(raised)};
    }
    half = m;
    return true;
}

void SoftBandConvolver::SetFactors(const float* twiddles, Planar<const float> real) {
    if (half == 0) return;
    factorsFit = true;
    eighth = softfloat::FactorOf(twiddles[2]);
    // A number with a raised exponent looks larger than it is, so the factors must be larger.
    const float smallest = PowerOf2(reversed[0].raised - 46);
    for (size_t t = 2; t < half / 4; ++t) {
        const Twiddles<float> w = GroupTwiddles(twiddles, t);
        const auto turn = [=, this](Complex<float> factor) {
            return TurnOf(factor.re, factor.im, smallest, 0, &factorsFit);
        };
        factors[t] = {turn(w.w1), turn(w.w2), turn(w.w3)};
    }
    for (size_t k = 1; k < half / 2; ++k) {
        const TransformPlace left = reversed[k], right = reversed[half - k];
        places[k] = {TurnOf(real.re[k], real.im[k], smallest, 0, &factorsFit), &work[right.at],
                     static_cast<int8_t>(right.raised - left.raised), 0,
                     static_cast<int16_t>(left.at - right.at)};
    }
}

void SoftBandConvolver::SetKernels(const Planar<const float> (&bands)[kBands]) {
    if (half == 0) return;
    kernelsFit = true;
    for (size_t b = 0; b < kBands; ++b)
        for (size_t k = 0; k < half / 2; ++k) {
            // The upper bins are stored behind the middle one, in falling order. The exponents are
            // raised as SpectrumProduct expects. Bin 0 and the middle bin are not aligned there.
            const auto turn = [&](size_t bin, int32_t raised) {
                return TurnOf(bands[b].re[bin], bands[b].im[bin], 0x1p-46F, raised, &kernelsFit);
            };
            const int32_t raised = reversed[k].raised;
            kernels[b * (half / 2) + k] =
                k == 0 ? MirroredTurns{turn(0, raised), turn(half / 2, reversed[half / 2].raised)}
                       : MirroredTurns{turn(k, raised + softfloat::kAligned),
                                       turn(half / 2 + k, raised)};
        }
}

bool SoftBandConvolver::Convolve(Planar<const float> block, size_t pairs,
                                 const Planar<float> (&bands)[kBands], float* tails) {
    if (!factorsFit || !kernelsFit) return false;
    const LoadedBlock loaded =
        LoadBlock(block.re, block.im, reversed.data(), spectrum.data(), pairs);
    if (loaded == LoadedBlock::kRefused) return false;
    const size_t tailPairs = half - pairs;
    const auto tailOf = [=](size_t b) {
        float* const tail = tails + b * 2 * tailPairs;
        return Planar<float>{tail, tail + tailPairs};
    };
    if (loaded == LoadedBlock::kSilence) {
        for (size_t b = 0; b < kBands; ++b) PassSilence(bands[b], pairs, tailOf(b));
    } else {
        for (size_t q = pairs; q < half; ++q) {
            Number& padding = spectrum[reversed[q].at];  // each part by itself: no call of memset
            padding.re = {};
            padding.im = {};
        }
        if (!Stages(spectrum.data()) || !RealSpectrum()) return false;
        // The band that shares the block's memory comes last, because the caller needs the block if
        // this function returns false.
        for (const bool last : {false, true})
            for (size_t b = 0; b < kBands; ++b) {
                if ((bands[b].re == block.re) != last) continue;
                if (!ProductToWork(&kernels[b * (half / 2)]) || !Stages(work.data())) return false;
                Finish(bands[b], pairs, tailOf(b));
            }
    }
    for (size_t b = 0; b < kBands; ++b) {
        std::copy_n(bands[b].re + pairs, tailPairs, tailOf(b).re);
        std::copy_n(bands[b].im + pairs, tailPairs, tailOf(b).im);
    }
    return true;
}

// The result for a silent block: the previous block's tail, then zeros.
void SoftBandConvolver::PassSilence(Planar<float> band, size_t pairs,
                                    Planar<const float> tail) const {
    std::fill(std::copy_n(tail.re, half - pairs, band.re), band.re + half, 0.0F);
    std::fill(std::copy_n(tail.im, half - pairs, band.im), band.im + half, 0.0F);
}

// Runs all stages but the last.
bool SoftBandConvolver::Stages(Number* a) const {
    for (size_t span = 1; 4 * span < half; span *= 4) {
        const size_t groups = half / (4 * span);
        UntwiddledGroup(a, span);
        if (!EighthGroup(a + 4 * span, span, eighth)) return false;
        if (groups > 2 && !TwiddledGroups(a + 8 * span, span, &factors[2], groups - 2))
            return false;
    }
    return true;
}

// Runs the last stage, then turns the spectrum of the complex values into that of the real values.
// spectrum[0] holds the two real bins at 0 Hz and at half the rate.
bool SoftBandConvolver::RealSpectrum() {
    Number* const a = spectrum.data();
    LastStage(&a->re, half);
    const auto [sum, difference] = SumAndDifference(a[0].re, a[0].im);
    a[0] = {sum, difference};
    Number& middle = a[half / 2];
    return softfloat::Settles(a[0].re, a[0].im) && softfloat::Settles(middle.re, middle.im) &&
           RealStep(a, places.data(), half);
}

// Multiplies by a kernel's spectrum and goes back to the spectrum of complex values, in
// bit-reversed order. Real and imaginary parts are exchanged, which turns the forward transform
// into the inverse.
bool SoftBandConvolver::ProductToWork(const MirroredTurns* kernel) {
    const Number* const a = spectrum.data();
    Number* const out = work.data();
    SoftFactor first = Unpacked(kernel[0].left.re), second = Unpacked(kernel[0].left.im);
    first.e -= softfloat::kAligned;
    second.e -= kTurnLower;
    const SoftFloat sum = first * a[0].re;
    SoftFloat difference = sum - second * a[0].im;
    // Halving rounds only a float that is subnormal. Like the checks before products, this one
    // refuses every number below 2^-80, which is more than it must: such numbers are rare.
    if (difference.m != 0 && difference.e < 0) return false;
    --difference.e;  // halved
    out[0] = {difference, sum - difference};
    const Number middle = Twiddle(kernel[0].right, a[half / 2]);
    out[1] = {middle.im, middle.re};
    return SpectrumProduct(a, kernel, places.data(), half);
}

// Runs the last stage. It leaves the band with the previous tail added and, behind its first
// `pairs` pairs, the next tail. The parts are exchanged back: the transform's imaginary part is
// band.re.
void SoftBandConvolver::Finish(Planar<float> band, size_t pairs, Planar<const float> tail) const {
    const size_t span = half / 2, overlapping = half - pairs;
    const auto part = [=](const SoftFloat* from, float* to, const float* joining) {
        LastInverseStage(from, span, overlapping, to, to + span, joining);
        LastInverseStage(from + 2 * overlapping, span, span - overlapping, to + overlapping,
                         to + span + overlapping, nullptr);
    };
    part(&work[0].im, band.re, tail.re);
    part(&work[0].re, band.im, tail.im);
}
