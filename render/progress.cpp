#include "render/progress.h"

#include <algorithm>
#include <cstdio>

Progress::Progress(bool show, uint32_t streamRateHz, std::optional<uint64_t> allFrames)
    : visible(show), rateHz(streamRateHz), total(allFrames), start(Clock::now()), shown(start) {}

Progress::~Progress() {
    if (visible) std::fputs("\r\033[K", stderr);
}

double Progress::ElapsedSeconds() const {
    const std::chrono::duration<double> elapsed = Clock::now() - start;
    return std::max(elapsed.count(), 1e-6);
}

double Progress::Speed(uint64_t frames) const {
    return static_cast<double>(frames) / rateHz / ElapsedSeconds();
}

void Progress::Update(uint64_t frames) {
    constexpr std::chrono::milliseconds kInterval{200};
    if (!visible || Clock::now() - shown < kInterval) return;
    shown = Clock::now();
    const double speed = Speed(frames);
    if (total && *total > 0)
        std::fprintf(stderr, "\r\033[K%3.0f %%  %.0f times real time",
                     100.0 * static_cast<double>(frames) / static_cast<double>(*total), speed);
    else
        std::fprintf(stderr, "\r\033[K%.0f s  %.0f times real time",
                     static_cast<double>(frames) / rateHz, speed);
}
