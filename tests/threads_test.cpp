// Uses instances from many threads at once. This is most useful under the thread sanitizer.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "client/stderr_silencer.h"
#include "fake_device.h"
#include "library_under_test.h"

namespace {

using Samples = std::vector<int16_t>;

// Sends a random command, usually a valid one.
void SendAnything(Instance& instance, std::mt19937& random) {
    constexpr uint32_t kRates[] = {32000, 44100, 48000, 22050};
    const auto number = [&random](int32_t limit) {
        return static_cast<int32_t>(random() % static_cast<unsigned>(limit));
    };
    const auto code = static_cast<uint32_t>(number(12));
    if (code == EFFECT_CMD_CONFIGURE) {
        // Configuring designs filters. It is rare, so that the audio thread gets its share.
        if (number(16) == 0)
            instance.Configure(kRates[number(4)], 1 + static_cast<uint32_t>(number(2)));
    } else if (code == EFFECT_CMD_SET_PARAM) {
        instance.Set(PARAM_SET_MODE + number(12), {number(10), number(200) - 99});
        instance.Set(PARAM_SET_TIMESTAMP_ENABLE, {1});
    } else if (code == EFFECT_CMD_GET_PARAM) {
        instance.Get(PARAM_GET_VERSION + number(8));
    } else {
        instance.Command(code);
        if (code == EFFECT_CMD_DISABLE) instance.Enable();
    }
}

// Looks the effect up, creates an instance and destroys it, whatever the marker says meanwhile.
// Returns how many descriptors were neither of the two possible ones.
int ComeAndGo() {
    effect_descriptor_t seen[3] = {};
    const Instance instance;
    LoadedLibrary().get_descriptor(&kOrvaneUuid, &seen[0]);
    if (LoadedLibrary().query_effect == nullptr)  // not in interface 3.0
        seen[1] = seen[0];
    else
        LoadedLibrary().query_effect(0, &seen[1]);
    (*instance.handle)->get_descriptor(instance.handle, &seen[2]);
    return static_cast<int>(std::count_if(seen, seen + 3, [](const effect_descriptor_t& d) {
        return d.type.timeLow != kOrvaneType.timeLow && d.type.timeLow != kBassBoostType.timeLow;
    }));
}

TEST(Threads, InstancesDontDisturbEachOtherAndCallsOnOneAreSerialised) {
    const char* const wanted = std::getenv("ORVANE_THREADS_SECONDS");
    const std::chrono::seconds duration(wanted != nullptr ? std::atoi(wanted) : 2);
    const StderrSilencer muted;
    const Samples noise = NoiseSamples(20000, 12000);
    Instance untouched, shared;
    untouched.Start(44100, 2);
    shared.Start(44100, 2);
    const Samples expected = untouched.Run(noise, 300, 2);

    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0}, processed{0}, created{0};
    std::vector<std::thread> threads;
    const auto loop = [&](auto body) {
        threads.emplace_back([&stop, body, seed = threads.size()] {
            std::mt19937 random(static_cast<unsigned>(seed));
            while (!stop) body(random);
        });
    };
    loop([&](std::mt19937& random) {
        Samples out(4096);
        const int32_t status =
            shared.Process(noise.data(), out.data(), static_cast<uint32_t>(random() % 2049));
        if (status == 0) ++processed;
        if (status != 0 && status != -61) ++wrong;
    });
    for (int i = 0; i < 2; ++i)
        loop([&](std::mt19937& random) {
            SendAnything(shared, random);
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        });
    for (int i = 0; i < 2; ++i) loop([&](std::mt19937&) { wrong += ComeAndGo(), ++created; });
    loop([](std::mt19937&) {
        device.markerExists = !device.markerExists;
        std::this_thread::yield();
    });

    const auto end = std::chrono::steady_clock::now() + duration;
    do {
        untouched.Reset();
        if (untouched.Run(noise, 300, 2) != expected) ++wrong;
    } while (std::chrono::steady_clock::now() < end || processed == 0 || created == 0);
    stop = true;
    for (std::thread& thread : threads) thread.join();
    device.markerExists = false;
    EXPECT_EQ(wrong, 0);

    // After a reset, the earlier calls on the shared instance have no effect.
    shared.Start(44100, 2);
    shared.Reset();
    EXPECT_TRUE(shared.Run(noise, 300, 2) == expected);
}

}  // namespace
