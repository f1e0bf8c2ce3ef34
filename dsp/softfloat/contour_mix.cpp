#include "dsp/softfloat/contour_mix.h"

UnpackedBiquad::UnpackedBiquad(const Biquad<float, float>& filter)
    : holds(filter.rampRemaining == 0) {
    const auto factor = [this](float v) {
        if (!softfloat::CanBeFactor(v)) holds = false;
        return holds ? softfloat::FactorOf(v) : SoftFactor{};
    };
    const auto number = [this](float v) {
        const auto bits = std::bit_cast<uint32_t>(v);
        if (!softfloat::Enters(bits)) holds = false;
        return holds ? softfloat::Unpack(bits) : SoftFloat{};
    };
    const auto& [c0, c1, c2, feedback1, feedback2] = filter.coefficients;
    b0 = factor(c0);
    b1 = factor(c1);
    b2 = factor(c2);
    fb1 = factor(feedback1);
    fb2 = factor(feedback2);
    x1 = number(filter.history.x1);
    x2 = number(filter.history.x2);
    y1 = number(filter.history.y1);
    y2 = number(filter.history.y2);
}

void UnpackedBiquad::Keep(Biquad<float, float>* filter) const {
    const auto packed = [](SoftFloat v) { return std::bit_cast<float>(softfloat::Pack(v)); };
    filter->history = {packed(x1), packed(x2), packed(y1), packed(y2)};
}
