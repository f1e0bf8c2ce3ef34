#include "render/audio/quantizer.h"

#include <cmath>

#include "client/quantize.h"

double Quantizer::Noise() {
    constexpr double kSpan = std::minstd_rand::max() - std::minstd_rand::min();
    const auto first = static_cast<double>(random());
    return (first - static_cast<double>(random())) / kSpan;
}

void Quantizer::Process(std::span<const float> in, std::vector<int16_t>* out) {
    out->reserve(out->size() + in.size());
    for (float sample : in) {
        if (!std::isfinite(sample)) {
            ++notNumbers;
            sample = 0;
        }
        if (std::abs(sample) > 1.0f) ++clipped;
        out->push_back(Quantized(sample, dither ? Noise() : 0));
    }
}
