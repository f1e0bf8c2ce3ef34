#include "render/audio/quantizer.h"

#include <algorithm>
#include <cmath>

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
        const double scaled = 32768.0 * sample + (dither ? Noise() : 0.0);
        out->push_back(
            static_cast<int16_t>(std::clamp(std::floor(scaled + 0.5), -32768.0, 32767.0)));
    }
}
