// Tests the boundary with the framework: record, entry points, descriptors and configurations, and
// the log lines that they cause. Then tests what standard commands, parameter records and process
// calls do to one instance.
#include <gtest/gtest.h>

#include <functional>

#include "captured_log.h"
#include "fake_device.h"
#include "library_under_test.h"

namespace {

using Samples = std::vector<int16_t>;

const std::string kOwnTypeBytes =
    "\x24\xcf\x48\xaa\xe1\x9a\x45\x40\xb9\xac\x4f\xe1\xe1\x56\x47\x5b";
const std::string kBassBoostBytes(
    "\x20\xf2\x34\x06\xd4\xdd\xdb\x11\xfc\xa0\x00\x02\xa5\xd5\xc5\x1b", 16);
const std::string kUuidBytes("\x90\x3a\x2c\xd9\x26\x3e\xe2\x11\x5f\xa2\x08\x00\x20\x0c\x9a\x66",
                             16);

std::string DescriptorBytes(const std::string& type) {
    std::string name = "Quenthra Orvane v2", implementor = "Hollin.RDT";
    name.resize(64);
    implementor.resize(64);
    return type + kUuidBytes + std::string("\0\0\2\0\x10\0\0\0\x0a\0\x18\0", 12) + name +
           implementor;
}

// Memory for a descriptor at an odd address.
const std::string kUntouched(1 + sizeof(effect_descriptor_t), 'Z');
effect_descriptor_t* In(std::string& block) {
    return reinterpret_cast<effect_descriptor_t*>(block.data() + 1);
}

// Libraries of interface 3.0 export only their record, which lacks these functions.
TEST(HostOfInterface2, RecordQueriesAndVersionAreTheStatedOnes) {
    const audio_effect_library_t& record = LoadedLibrary();
    EXPECT_EQ(std::memcmp(&record, "TLEA\0\0\2\0", 8), 0);
    EXPECT_STREQ(record.name, "Quenthra Orvane v2");
    EXPECT_STREQ(record.implementor, "Hollin.RDT");
    const CapturedLog log("queries");
    uint32_t count = 7;
    EXPECT_EQ(record.query_num_effects(&count), 0);
    EXPECT_EQ(record.query_num_effects(nullptr), 0);
    EXPECT_EQ(count, 1U);
    std::string block = kUntouched;
    EXPECT_EQ(record.query_effect(1, nullptr), -22);
    EXPECT_EQ(record.query_effect(1, In(block)), -2);
    EXPECT_EQ(record.query_effect(0xFFFFFFFF, In(block)), -2);
    EXPECT_EQ(block, kUntouched);
    for (const bool marker : {false, true, false}) {
        device.markerExists = marker;
        EXPECT_EQ(record.query_effect(0, In(block)), 0);
        EXPECT_EQ(block, "Z" + DescriptorBytes(marker ? kBassBoostBytes : kOwnTypeBytes));
    }
    const auto getter = [](const std::string& name) {
        return dlsym(LibraryHandle(), ("GetLibraryVersion" + name).c_str());
    };
    std::vector<int> version;
    for (const char* const part : {"Main", "Sub", "Ext", "Build"})
        version.push_back(reinterpret_cast<int (*)()>(getter(part))());
    EXPECT_EQ(version, (std::vector{2, 1, 0, 2}));
    EXPECT_STREQ(reinterpret_cast<const char* (*)()>(getter("Codename"))(), "Lodestone");
}

TEST(Host, MarkerChoosesTheDescriptorAtEveryCallAndAnInstanceKeepsIts) {
    const audio_effect_library_t& record = LoadedLibrary();
    const CapturedLog log("life");
    for (const bool marker : {false, true, false}) {
        device.markerExists = marker;
        const int lookups = device.markerLookups;
        std::string found = kUntouched, ofInstance = kUntouched;
        effect_handle_t handle = nullptr;
        EXPECT_EQ(record.get_descriptor(&kOrvaneUuid, In(found)), 0);
        EXPECT_EQ(record.create_effect(&kOrvaneUuid, 5, -6, &handle), 0);
        EXPECT_EQ(device.markerLookups, lookups + 2);
        device.markerExists = !marker;
        EXPECT_EQ((*handle)->get_descriptor(handle, In(ofInstance)), 0);
        for (const std::string& block : {found, ofInstance})
            EXPECT_EQ(block, "Z" + DescriptorBytes(marker ? kBassBoostBytes : kOwnTypeBytes));
        EXPECT_EQ((*handle)->process_reverse, nullptr);
        EXPECT_EQ(record.release_effect(handle), 0);
    }
    device.markerExists = false;
}

TEST(Host, RefusedEntryPointsLeaveTheCallersMemoryAlone) {
    const audio_effect_library_t& record = LoadedLibrary();
    // The table is constant and outlives the instance.
    const effect_interface_s& table = **Instance().handle;
    std::string block = kUntouched;
    effect_descriptor_t* const d = In(block);
    const effect_interface_s* word = nullptr;
    effect_handle_t handle = &word;
    // A handle whose other words are null: it has no unit.
    const effect_interface_s* noUnit[3] = {&table};
    audio_buffer_s none = {};
    effect_uuid_s first = kOrvaneUuid, last = kOrvaneUuid;  // differ from the effect's in one byte
    first.timeLow ^= 1U;
    last.node[5] ^= 1U;
#define ROW(call) #call, [&] { return call; }
    const struct {
        const char* what;
        std::function<int32_t()> call;
        int32_t status, lookups;
    } rows[] = {
        {ROW(record.get_descriptor(nullptr, nullptr)), -22, 0},
        {ROW(record.get_descriptor(&kOrvaneType, nullptr)), -22, 0},
        {ROW(record.get_descriptor(&kOrvaneType, d)), -2, 1},
        {ROW(record.get_descriptor(&first, d)), -2, 1},
        {ROW(record.get_descriptor(&last, d)), -2, 1},
        {ROW(record.create_effect(nullptr, 0, 0, nullptr)), -22, 0},
        {ROW(record.create_effect(&kOrvaneType, 0, 0, nullptr)), -22, 0},
        {ROW(record.create_effect(&kOrvaneType, 0, 0, &handle)), -2, 1},
        {ROW(record.create_effect(&last, 0, 0, &handle)), -2, 1},
        {ROW(record.release_effect(nullptr)), -22, 0},
        {ROW(table.process(nullptr, &none, &none)), -22, 0},
        {ROW(table.process(noUnit, &none, &none)), -22, 0},
        {ROW(table.command(nullptr, 0, 0, nullptr, nullptr, nullptr)), -22, 0},
        {ROW(table.command(noUnit, 0, 0, nullptr, nullptr, nullptr)), -22, 0},
        {ROW(table.get_descriptor(nullptr, d)), -22, 0},
        {ROW(table.get_descriptor(noUnit, nullptr)), -22, 0},
    };
    const CapturedLog log("refusals");
#undef ROW
    for (const auto& row : rows) {
        const int lookups = device.markerLookups;
        EXPECT_EQ(row.call(), row.status) << row.what;
        EXPECT_EQ(device.markerLookups - lookups, row.lookups) << row.what;
        EXPECT_EQ(block, kUntouched) << row.what;
        EXPECT_EQ(handle, &word) << row.what;
    }
}

TEST(Host, ConfigurationsAreJudgedFieldByField) {
    enum Field { kRate, kChannels, kChannelsAt48000, kFormat, kAccess };
    // Each row changes one field on both sides of a good configuration for 44100 Hz, stereo, and
    // says which fields the configuration names.
    const struct {
        const char* what;
        bool accepted;
        Field field;
        uint32_t in, out;
        uint16_t inMask = 0x1E, outMask = 0x1E;
        int32_t rateAfter = 44100, channelsAfter = 2;
    } rows[] = {
        {"nothing", true, kRate, 44100, 44100},
        {"no field named", true, kRate, 1, 2, 0, 0},
        {"least rate", true, kRate, 32000, 32000, 2, 6, 32000},
        {"largest rate", true, kRate, 48000, 48000, 0x1E, 0x1E, 48000},
        {"rate too low", false, kRate, 31999, 31999},
        {"rate too high", false, kRate, 48001, 48001},
        {"rate with the top bit", false, kRate, 0xFFFFFFFF, 0xFFFFFFFF},
        {"two rates", false, kRate, 44100, 48000},
        {"a rate of the input alone", true, kRate, 22050, 22050, 2, 4},
        {"mono", true, kChannels, 1, 1, 4, 4, 44100, 1},
        {"mono to stereo", false, kChannels, 1, 3},
        {"an unknown mask", false, kChannels, 3, 12},
        {"twice the same unknown mask", false, kChannels, 12, 12},
        {"a rate with mono to stereo", false, kChannelsAt48000, 1, 3, 0x1E, 0x1E, 48000},
        {"channels of the output alone", true, kChannels, 3, 9, 2, 4},
        {"input format", false, kFormat, 0, 1},
        {"output format", false, kFormat, 1, 3},
        {"an output format that isn't named", true, kFormat, 1, 9, 8, 0},
        {"access mode of the input", true, kAccess, 255, 2, 0x10, 0},
        {"access mode of the output", true, kAccess, 255, 2, 0, 0x10},
    };
    const auto change = [](buffer_config_t& side, Field field, uint32_t value, uint16_t mask) {
        if (field == kRate) side.samplingRate = value;
        if (field == kChannelsAt48000) side.samplingRate = 48000;
        if (field == kChannels || field == kChannelsAt48000) side.channels = value;
        if (field == kFormat) side.format = static_cast<uint8_t>(value);
        if (field == kAccess) side.accessMode = static_cast<uint8_t>(value);
        side.mask = mask;
    };
    LoadedLibrary();  // the lines of loading aren't among those that are compared
    const CapturedLog log("configurations");
    for (const auto& row : rows) {
        Instance instance;
        EXPECT_EQ(instance.Get(PARAM_GET_READY), 0);
        effect_config_t config = MakeConfig(44100, 2);
        change(config.inputCfg, row.field, row.in, row.inMask);
        change(config.outputCfg, row.field, row.out, row.outMask);
        EXPECT_EQ(instance.Configure(config), row.accepted ? 0 : -22) << row.what;
        EXPECT_EQ(instance.Get(PARAM_GET_READY), row.accepted ? 1 : 0) << row.what;
        EXPECT_EQ(instance.Get(PARAM_GET_SAMPLING_RATE), row.rateAfter) << row.what;
        EXPECT_EQ(instance.Get(PARAM_GET_CHANNELS), row.channelsAfter) << row.what;
    }
}

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
