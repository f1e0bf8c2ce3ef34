#include "client/delay.h"

#include <algorithm>
#include <iterator>
#include <numeric>

#include "table/stages.h"

namespace {

bool IsOn(const StageRow& stage, const Settings& settings) {
    return stage.enable == kNoSwitch || settings.IsOn(stage.enable);
}

// The only stage that collects blocks (the enhancer).
constexpr const StageRow& kCollector =
    *std::find_if(std::begin(kStages), std::end(kStages),
                  [](const StageRow& stage) { return stage.blockFrames != 0; });
constexpr uint32_t kBlockFrames = kCollector.blockFrames;

}  // namespace

bool BlockBuffering::Deliver() {
    waiting += bufferFrames;
    finished += waiting / kBlockFrames * kBlockFrames;
    waiting %= kBlockFrames;
    if (finished < bufferFrames) return false;
    finished -= bufferFrames;
    return true;
}

uint32_t StreamDelayFrames(const Settings& settings) {
    uint32_t frames = 0;
    for (const StageRow& stage : kStages)
        if (IsOn(stage, settings)) frames += stage.delayFrames;
    return frames;
}

uint32_t BufferingFrames(const Settings& settings, uint32_t bufferFrames) {
    if (!IsOn(kCollector, settings)) return 0;
    const uint32_t mostWaiting = kBlockFrames - std::gcd(kBlockFrames, bufferFrames);
    return (mostWaiting + bufferFrames - 1) / bufferFrames * bufferFrames;
}

uint32_t DelayFrames(const Settings& settings, uint32_t bufferFrames) {
    return StreamDelayFrames(settings) + BufferingFrames(settings, bufferFrames);
}
