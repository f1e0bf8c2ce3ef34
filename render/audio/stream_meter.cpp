#include "render/audio/stream_meter.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <new>

namespace {

constexpr size_t kBlockSamples = 65536;
constexpr size_t kMostBlocks = 8;

}  // namespace

StreamMeter::StreamMeter(uint32_t channelCount, uint32_t rateHz, Metering metering,
                         uint64_t firstFrame)
    : channels(channelCount),
      samplesToSkip(firstFrame * channelCount),
      loudness(channelCount, rateHz, metering, firstFrame) {
    if (metering == Metering::kNothing) return;
    if (metering == Metering::kOverTime) spectrum.emplace(channelCount, rateHz);
    // Signals are the main thread's.
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    thread = std::thread([this] { Work(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

StreamMeter::~StreamMeter() {
    {
        const std::lock_guard lock(mutex);
        blocks.clear();
    }
    End();
}

void StreamMeter::Add(std::span<const float> samples) {
    if (!thread.joinable()) return;
    gathered.floats.insert(gathered.floats.end(), samples.begin(), samples.end());
    if (gathered.floats.size() >= kBlockSamples) HandOver();
}

void StreamMeter::Add(std::span<const int16_t> samples) {
    if (!thread.joinable()) return;
    gathered.sixteenBits.insert(gathered.sixteenBits.end(), samples.begin(), samples.end());
    if (gathered.sixteenBits.size() >= kBlockSamples) HandOver();
}

void StreamMeter::HandOver() {
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return blocks.size() < kMostBlocks; });
        blocks.push_back(std::move(gathered));
    }
    changed.notify_all();
    gathered = {};
}

void StreamMeter::End() {
    if (!thread.joinable()) return;
    {
        const std::lock_guard lock(mutex);
        ended = true;
    }
    changed.notify_all();
    thread.join();
}

Measured StreamMeter::Finish() {
    if (thread.joinable()) HandOver();
    End();
    if (failed) return {.loudness = {NAN, NAN, NAN}, .tenths = {}, .spectrum = {}};
    return {loudness.Result(), loudness.Tenths(), spectrum ? spectrum->Finish() : Spectrum{}};
}

void StreamMeter::Work() {
    std::unique_lock lock(mutex);
    while (true) {
        changed.wait(lock, [this] { return ended || !blocks.empty(); });
        if (blocks.empty()) return;
        const Block block = std::move(blocks.front());
        blocks.pop_front();
        lock.unlock();
        changed.notify_all();
        try {
            if (!failed) MeterBlock(block);
        } catch (const std::bad_alloc&) {
            failed = true;
        }
        lock.lock();
    }
}

void StreamMeter::MeterBlock(const Block& block) {
    std::vector<float> samples(block.sixteenBits.size());
    std::transform(block.sixteenBits.begin(), block.sixteenBits.end(), samples.begin(),
                   [](int16_t sample) { return static_cast<float>(sample) / 32768.0F; });
    samples.insert(samples.end(), block.floats.begin(), block.floats.end());
    loudness.Add(samples);
    if (!spectrum) return;
    const size_t skipped = std::min<uint64_t>(samplesToSkip, samples.size());
    samplesToSkip -= skipped;
    spectrum->Add(std::span(samples).subspan(skipped));
}
