// Tests what standard commands, parameter records and process calls do to one instance.
#include <gtest/gtest.h>

#include "captured_log.h"
#include "fake_device.h"
#include "library_under_test.h"

namespace {

using Samples = std::vector<int16_t>;

// Returns a configuration that is rejected after its rate and channels were read.
effect_config_t Rejected(uint32_t rate, uint32_t channels) {
    effect_config_t config = MakeConfig(rate, channels);
    config.outputCfg.format = 0;
    return config;
}

// Returns the output of a new instance with everything on.
Samples Fresh(uint32_t rate, uint32_t channels, const Samples& in, uint32_t frames) {
    Instance instance;
    instance.Start(rate, channels);
    return instance.Run(in, frames, channels);
}

TEST(Commands, WhatARejectedConfigurationStoredReachesTheProcessorsWithTheNextAcceptedOne) {
    const Samples noise = NoiseSamples(20000, 12000);
    Instance instance;
    instance.Start(44100, 1);
    ASSERT_EQ(instance.Configure(Rejected(48000, 2)), -22);
    EXPECT_EQ(instance.Get(PARAM_GET_READY), 0);
    Samples out(4096, 77);
    EXPECT_EQ(instance.Process(noise.data(), out.data(), 2048), -61);
    EXPECT_EQ(out, Samples(4096, 77));

    EXPECT_EQ(instance.Configure(effect_config_t{}), 0);
    EXPECT_EQ(instance.Run(noise, 2000, 2), Fresh(48000, 2, noise, 2000));
    // Sending the same values again changes nothing and resets nothing.
    Instance twin;
    twin.Start(48000, 2);
    twin.Run(noise, 2000, 2);
    EXPECT_EQ(instance.Configure(effect_config_t{}), 0);
    EXPECT_EQ(instance.Run(noise, 500, 2), twin.Run(noise, 500, 2));
}

TEST(Commands, ParameterRecordsAreTakenOrRefused) {
    // The words beyond the command's size are readable, but the library must not read them.
    const struct {
        const char* what;
        uint32_t code, size;
        int32_t words[9];
        int32_t status;
    } rows[] = {
        {"one value", 5, 20, {-9, 4, 4, 0x20001, 1}, 0},
        {"more than its value", 5, 32, {0, 4, 4, 0x20001, 1, 2, 3, 4}, 0},
        {"two values", 5, 24, {0, 4, 8, 0x20007, 3, -450}, 0},
        {"three values", 5, 28, {0, 4, 12, 0x20007, 3, 5, 6}, 0},
        {"four values, unknown", 5, 36, {0, 4, 16, -1, 1, 2, 3, -4, 5}, 0},
        {"two identifiers", 5, 20, {0, 8, 4, 0x20001, 0}, -22},
        {"a part of an identifier", 5, 20, {0, 3, 4, 0x20001, 0}, -22},
        {"no value", 5, 36, {0, 4, 0, 0x20001, 0}, -22},
        {"half a value", 5, 36, {0, 4, 2, 0x20001, 0}, -22},
        {"a value and a byte", 5, 36, {0, 4, 5, 0x20001, 0}, -22},
        {"five values", 5, 36, {0, 4, 20, 0x20001, 0}, -22},
        {"2^32 - 4 bytes of values", 5, 36, {0, 4, -4, 0x20001, 0}, -22},
        {"shorter than its values", 5, 23, {0, 4, 8, 0x20001, 0}, -22},
        {"without its value", 5, 16, {0, 4, 4, 0x20001, 0}, -22},
        {"below the queries", 8, 16, {0, 4, 4, 0x8000}, -22},
        {"above the queries", 8, 16, {0, 4, 4, 0x8008}, -22},
        {"two queries", 8, 16, {0, 8, 4, 0x8001}, -22},
        {"a part of a query", 8, 15, {0, 4, 4, 0x8001}, -22},
        {"a query of any value size", 8, 16, {0, 4, 0, 0x8001}, 0},
    };
    Instance instance;
    {
        const CapturedLog log("parameters");
        for (const auto& row : rows) {
            // Every block is at an odd address.
            unsigned char data[41], reply[41], replySize[5];
            std::memset(reply, 0x5A, sizeof reply);
            std::memcpy(data + 1, row.words, sizeof row.words);
            const uint32_t offered = 20;
            std::memcpy(replySize + 1, &offered, 4);
            (*instance.handle)
                ->command(instance.handle, row.code, row.size, data + 1,
                          reinterpret_cast<uint32_t*>(replySize + 1), reply + 1);
            int32_t status = 1;
            std::memcpy(&status, reply + 1, 4);
            EXPECT_EQ(status, row.status) << row.what;
        }
    }
    EXPECT_EQ(instance.Get(PARAM_GET_MODE), 1);

    // A client in the same process as the server passes the same memory for command and reply.
    int32_t block[] = {9, 4, 4, PARAM_GET_CHANNELS, 9};
    uint32_t size = sizeof block;
    (*instance.handle)->command(instance.handle, EFFECT_CMD_GET_PARAM, 16, block, &size, block);
    EXPECT_EQ(std::vector(block, block + 5), (std::vector{0, 4, 4, int{PARAM_GET_CHANNELS}, 2}));
}

TEST(Commands, QueriesAnswerAsSet) {
    Instance instance;
    const auto values = [&] {
        std::vector<int32_t> all;
        for (int32_t id = PARAM_GET_VERSION; id <= PARAM_GET_CHANNELS; ++id)
            all.push_back(instance.Get(id));
        return all;
    };
    device.clockUs = int64_t{1} << 41;  // far from 0, which means that no buffer was processed
    EXPECT_EQ(values(), (std::vector<int32_t>{0x02010002, 0, 0, 0, 0, 44100, 2}));
    EXPECT_EQ(instance.Get(PARAM_SET_MODE), -22);
    instance.Configure(48000, 1);
    EXPECT_EQ(instance.Enable(), 0);
    for (const int32_t mode : {1, 2, -1}) EXPECT_EQ(instance.Set(PARAM_SET_MODE, {mode}), 0);
    EXPECT_EQ(values(), (std::vector<int32_t>{0x02010002, 1, 1, 0, 1, 48000, 1}));

    // The time of a buffer counts only while it is noted, and only if it is less than a second away
    // in either direction. This also holds where the 32-bit milliseconds wrap around.
    int16_t sample = 0;
    const auto processing = [&](int64_t us) {
        device.clockUs = us;
        return instance.Get(PARAM_GET_PROCESSING);
    };
    for (const int64_t seconds : {int64_t{5}, int64_t{2147484}, int64_t{4294967}}) {
        device.clockUs = seconds * 1000000 + 123999;
        instance.Set(PARAM_SET_TIMESTAMP_ENABLE, {0});
        instance.Process(&sample, &sample, 1);
        EXPECT_EQ(instance.Get(PARAM_GET_PROCESSING), 0);
        instance.Set(PARAM_SET_TIMESTAMP_ENABLE, {256});
        instance.Process(&sample, &sample, 1);
        for (const int64_t us : {1122999, 1123000, -875000, -877000})
            EXPECT_EQ(processing(seconds * 1000000 + us), us == 1122999 || us == -875000) << us;
    }
    device.clockUs = -1;
    instance.Disable();
    EXPECT_EQ(instance.Get(PARAM_GET_ENABLED), 0);
}

TEST(Commands, ProcessNeedsWholeRecordsAndAnEnabledConfiguredUnit) {
    Instance instance;
    Samples in(512, 1000), out(512, 77);
    audio_buffer_s good = {256, in.data()}, other = {128, out.data()}, null = {256, nullptr};
    audio_buffer_s target = {256, out.data()}, empty = {0, out.data()};
    const auto process = [&](audio_buffer_s* a, audio_buffer_s* b) {
        return (*instance.handle)->process(instance.handle, a, b);
    };
    const auto steps = {+[](Instance&) {}, +[](Instance& i) { i.Enable(); },
                        +[](Instance& i) { i.Disable(), i.Configure(44100, 2); },
                        +[](Instance& i) { i.Enable(); }};
    size_t step = 0;
    for (const auto act : steps) {
        act(instance);
        for (audio_buffer_s* const bad : {&null, &other, static_cast<audio_buffer_s*>(nullptr)}) {
            EXPECT_EQ(process(bad, &target), -22);
            EXPECT_EQ(process(&good, bad), -22);
        }
        EXPECT_EQ(process(&empty, &empty), -61);
        EXPECT_EQ(out, Samples(512, 77));
        EXPECT_EQ(process(&good, &target), ++step == steps.size() ? 0 : -61);
    }
    EXPECT_EQ(out[510], 998);  // after 255 frames of silence
    EXPECT_EQ(out[509], 0);
}

TEST(Commands, CallsThatResetMakeANewInstanceAndOthersKeepTheHistory) {
    const Samples in = NoiseSamples(6000, 12000);
    using I = Instance&;
    const struct {
        const char* what;
        void (*act)(I);
        bool resets;
    } rows[] = {
        {"reset", [](I i) { i.Reset(); }, true},
        {"off and on", [](I i) { i.Disable(), i.Enable(); }, true},
        {"other mode", [](I i) { i.Set(PARAM_SET_MODE, {1}); }, true},
        {"other rate", [](I i) { i.Configure(48000, 2), i.Configure(44100, 2); }, true},
        {"other count", [](I i) { i.Configure(44100, 1), i.Configure(44100, 2); }, true},
        {"rejected", [](I i) { i.Configure(Rejected(48000, 2)), i.Configure(44100, 2); }, true},
        {"on again", [](I i) { i.Enable(); }, false},
        {"same mode", [](I i) { i.Set(PARAM_SET_MODE, {0}), i.Set(PARAM_SET_MODE, {2}); }, false},
        {"same stream", [](I i) { i.Configure(44100, 2); }, false},
        {"unknown", [](I i) { i.Set(0x20099, {1}), i.Command(0), i.Command(9); }, false},
    };
    const Samples first = Fresh(44100, 2, in, 256);
    for (const auto& row : rows) {
        Instance instance, twin;
        for (Instance* i : {&instance, &twin}) {
            i->Start(44100, 2);
            EXPECT_EQ(i->Run(in, 256, 2), first);
        }
        row.act(instance);
        EXPECT_EQ(instance.Run(in, 256, 2), row.resets ? first : twin.Run(in, 256, 2)) << row.what;
    }
}

}  // namespace
