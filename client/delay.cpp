#include "client/delay.h"

#include <numeric>

namespace {

constexpr uint32_t kLimiterFrames = 255;
constexpr uint32_t kEqualizerFrames = 256;
constexpr uint32_t kEnhancerKernelFrames = 127;
constexpr uint32_t kEnhancerBlockFrames = 770;

}  // namespace

bool BlockBuffering::Deliver() {
    waiting += bufferFrames;
    finished += waiting / kEnhancerBlockFrames * kEnhancerBlockFrames;
    waiting %= kEnhancerBlockFrames;
    if (finished < bufferFrames) return false;
    finished -= bufferFrames;
    return true;
}

uint32_t StreamDelayFrames(const Settings& settings) {
    uint32_t frames = kLimiterFrames;
    if (settings.IsOn(PARAM_PLAYBACKGAIN_ENABLE)) frames += kLimiterFrames;
    if (settings.IsOn(PARAM_EQUALIZER_ENABLE)) frames += kEqualizerFrames;
    if (settings.IsOn(PARAM_ENHANCER_ENABLE)) frames += kEnhancerKernelFrames;
    return frames;
}

uint32_t BufferingFrames(const Settings& settings, uint32_t bufferFrames) {
    if (!settings.IsOn(PARAM_ENHANCER_ENABLE)) return 0;
    const uint32_t mostWaiting =
        kEnhancerBlockFrames - std::gcd(kEnhancerBlockFrames, bufferFrames);
    return (mostWaiting + bufferFrames - 1) / bufferFrames * bufferFrames;
}

uint32_t DelayFrames(const Settings& settings, uint32_t bufferFrames) {
    return StreamDelayFrames(settings) + BufferingFrames(settings, bufferFrames);
}
