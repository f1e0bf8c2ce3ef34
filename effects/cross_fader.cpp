#include "effects/cross_fader.h"

#include "dsp/fixed_point.h"

CrossFader::CrossFader() = default;

void CrossFader::BeginFader(int frames) {
    position = 0.0F;
    step = static_cast<float>(1.0 / frames);
}

void CrossFader::FadeStream(int16_t* target, const int16_t* source, int frames, int channels) {
    if (position >= 1.0F || target == source || frames <= 0 || channels <= 0) return;
    const int64_t total = static_cast<int64_t>(frames) * channels;
    for (int64_t first = 0; first < total; first += channels) {
        const float g = position;
        const float h = 1.0F - g;
        for (int64_t i = first; i < first + channels; ++i) {
            const int32_t in = TruncateToInt32(static_cast<float>(target[i]) * g);
            const int32_t out = TruncateToInt32(static_cast<float>(source[i]) * h);
            target[i] = static_cast<int16_t>(static_cast<uint16_t>(WrapAdd(in, out)));
        }
        position = step + position;
        if (position >= 1.0F) return;
    }
}
