// Shows a line on the terminal with the progress and the speed of a run.
#pragma once
#include <chrono>
#include <cstdint>
#include <optional>

class Progress {
public:
    // show: false only measures the time.
    Progress(bool show, uint32_t streamRateHz, std::optional<uint64_t> allFrames);
    // Wipes the line.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Update(uint64_t frames);

    // Returns the seconds since the object was made, more than 0.
    double ElapsedSeconds() const;

private:
    // Returns the speed in seconds of audio per second.
    double Speed(uint64_t frames) const;

    using Clock = std::chrono::steady_clock;
    bool visible;
    uint32_t rateHz;
    std::optional<uint64_t> total;
    Clock::time_point start, shown;
};
