// A line on the terminal that says how far a run has come and how fast it goes.
#pragma once
#include <chrono>
#include <cstdint>
#include <optional>

class Progress {
public:
    // show: false keeps time only.
    Progress(bool show, uint32_t streamRateHz, std::optional<uint64_t> allFrames);
    // Wipes the line.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Update(uint64_t frames);

    // Since it was made; more than 0.
    double ElapsedSeconds() const;

private:
    // Seconds of audio per second of time.
    double Speed(uint64_t frames) const;

    using Clock = std::chrono::steady_clock;
    bool visible;
    uint32_t rateHz;
    std::optional<uint64_t> total;
    Clock::time_point start, shown;
};
