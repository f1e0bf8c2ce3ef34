// The boundary with the framework: record, entry points, descriptors, standard commands, parameter
// records and what a process call answers, with the log lines of each.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

#include "fake_device.h"
#include "framework_client.h"

namespace {

// The log lines that `call` causes, without their prefix, each with a line end.
std::string Logged(const std::function<void()>& call) {
    testing::internal::CaptureStderr();
    call();
    std::string log = testing::internal::GetCapturedStderr();
    const std::string prefix = "I/Quenthra_v2: ";
    for (size_t at = 0; at < log.size(); at = std::min(log.find('\n', at), log.size() - 1) + 1) {
        EXPECT_EQ(log.compare(at, prefix.size(), prefix), 0) << log;
        log.erase(at, prefix.size());
    }
    return log;
}

using Samples = std::vector<int16_t>;

constexpr effect_uuid_s kOwnType = {
    0xaa48cf24, 0x9ae1, 0x4045, 0xacb9, {0x4f, 0xe1, 0xe1, 0x56, 0x47, 0x5b}};
const std::string kOwnTypeBytes =
    "\x24\xcf\x48\xaa\xe1\x9a\x45\x40\xb9\xac\x4f\xe1\xe1\x56\x47\x5b";
const std::string kBassBoostBytes(
    "\x20\xf2\x34\x06\xd4\xdd\xdb\x11\xfc\xa0\x00\x02\xa5\xd5\xc5\x1b", 16);
const std::string kUuidBytes("\x90\x3a\x2c\xd9\x26\x3e\xe2\x11\x5f\xa2\x08\x00\x20\x0c\x9a\x66",
                             16);

std::string Padded(std::string text) {
    text.resize(64);
    return text;
}
std::string DescriptorBytes(const std::string& type) {
    return type + kUuidBytes + std::string("\0\0\2\0\x10\0\0\0\x0a\0\x18\0", 12) +
           Padded("Quenthra Orvane v2") + Padded("Hollin.RDT");
}

// A descriptor's memory, at an odd address.
struct DescriptorBlock {
    unsigned char bytes[1 + sizeof(effect_descriptor_t)];
    DescriptorBlock() { std::memset(bytes, 0x5A, sizeof bytes); }
    effect_descriptor_t* Get() { return reinterpret_cast<effect_descriptor_t*>(bytes + 1); }
    std::string Text() const { return {bytes + 1, bytes + sizeof bytes}; }
    bool Untouched() const {
        return std::all_of(bytes, bytes + sizeof bytes, [](unsigned char b) { return b == 0x5A; });
    }
};

TEST(Host, RecordAndVersionAreTheStatedOnes) {
    const audio_effect_library_t& record = LoadedLibrary();
    EXPECT_EQ(std::memcmp(&record, "TLEA\0\0\2\0", 8), 0);
    EXPECT_STREQ(record.name, "Quenthra Orvane v2");
    EXPECT_STREQ(record.implementor, "Hollin.RDT");
    uint32_t count = 7;
    EXPECT_EQ(Logged([&] {
                  EXPECT_EQ(record.query_num_effects(&count), 0);
                  EXPECT_EQ(record.query_num_effects(nullptr), 0);
              }),
              "");
    EXPECT_EQ(count, 1U);
    const auto number = [](const char* name) {
        return reinterpret_cast<int (*)()>(dlsym(LibraryHandle(), name))();
    };
    EXPECT_EQ(number("GetLibraryVersionMain"), 2);
    EXPECT_EQ(number("GetLibraryVersionSub"), 1);
    EXPECT_EQ(number("GetLibraryVersionExt"), 0);
    EXPECT_EQ(number("GetLibraryVersionBuild"), 2);
    EXPECT_STREQ(
        reinterpret_cast<const char* (*)()>(dlsym(LibraryHandle(), "GetLibraryVersionCodename"))(),
        "Lodestone");
}

TEST(Host, MarkerChoosesTheDescriptorAtEveryCallAndAnInstanceKeepsIts) {
    const audio_effect_library_t& record = LoadedLibrary();
    const effect_uuid_s* const uuid = &kOrvaneUuid;
    const std::string uuidText = "uuid = d92c3a90-3e26-11e2-a25f-0800200c9a66\n";
    for (const bool marker : {false, true, false}) {
        device.markerExists = marker;
        const std::string bytes = DescriptorBytes(marker ? kBassBoostBytes : kOwnTypeBytes);
        const int lookups = device.markerLookups;
        DescriptorBlock queried, found, ofInstance;
        EXPECT_EQ(Logged([&] { EXPECT_EQ(record.query_effect(0, queried.Get()), 0); }),
                  "Enter EffectQueryEffect(), index = 0\nExit EffectQueryEffect()\n");
        EXPECT_EQ(Logged([&] { EXPECT_EQ(record.get_descriptor(uuid, found.Get()), 0); }),
                  "Enter EffectGetDescriptor()\nEffectGetDescriptor(), " + uuidText);
        EXPECT_EQ(queried.Text(), bytes);
        EXPECT_EQ(found.Text(), bytes);
        effect_handle_t handle = nullptr;
        EXPECT_EQ(Logged([&] { EXPECT_EQ(record.create_effect(uuid, 5, -6, &handle), 0); }),
                  "Enter EffectCreate()\nEffectCreate(), " + uuidText +
                      "EffectCreate(), qth orvane effect (" + (marker ? "safemode" : "normal") +
                      "), Constructing ProcessUnit_Orvane\nCreating Quenthra Orvane v2\n");
        EXPECT_EQ(device.markerLookups, lookups + 3);
        device.markerExists = !marker;
        EXPECT_EQ((*handle)->get_descriptor(handle, ofInstance.Get()), 0);
        EXPECT_EQ(ofInstance.Text(), bytes);
        EXPECT_EQ((*handle)->process_reverse, nullptr);
        EXPECT_EQ(Logged([&] { EXPECT_EQ(record.release_effect(handle), 0); }),
                  "EffectRelease(), Deconstructing ProcessUnit\n");
    }
    device.markerExists = false;
}

TEST(Host, RefusedEntryPointsSayWhyAndLeaveTheCallersMemoryAlone) {
    const audio_effect_library_t& record = LoadedLibrary();
    const effect_interface_s& table = **Instance().handle;  // constant, outlives the instance
    const std::string query = "Enter EffectQueryEffect(), index = ";
    const std::string get = "Enter EffectGetDescriptor()\nEffectGetDescriptor(), ";
    const std::string create = "Enter EffectCreate()\nEffectCreate(), ";
    const std::string typeText = "uuid = aa48cf24-9ae1-4045-acb9-4fe1e156475b\n";
    DescriptorBlock block;
    effect_descriptor_t* const d = block.Get();
    const effect_interface_s* word = nullptr;
    effect_handle_t handle = &word;
    // Three null words: a handle without a unit.
    const effect_interface_s* noUnit[3] = {&table};
    audio_buffer_s none = {};
    const struct {
        std::function<int32_t()> call;
        int32_t status;
        std::string log;
        int lookups;
    } rows[] = {
        {[&] { return record.query_effect(0, nullptr); }, -22,
         query + "0\nEffectQueryEffect(), Error [pDescriptor = NULL]\n", 0},
        {[&] { return record.query_effect(1, nullptr); }, -22,
         query + "1\nEffectQueryEffect(), Error [pDescriptor = NULL]\n", 0},
        {[&] { return record.query_effect(1, d); }, -2,
         query + "1\nEffectQueryEffect(), Error [index out of range]\n", 0},
        {[&] { return record.query_effect(0xFFFFFFFF, d); }, -2,
         query + "-1\nEffectQueryEffect(), Error [index out of range]\n", 0},
        {[&] { return record.get_descriptor(nullptr, nullptr); }, -22, get + "uuid = NULL\n", 0},
        {[&] { return record.get_descriptor(&kOwnType, nullptr); }, -22,
         get + "pDescriptor = NULL\n", 0},
        {[&] { return record.get_descriptor(&kOwnType, d); }, -2,
         get + typeText + "EffectGetDescriptor(), Error [effect not found]\n", 1},
        {[&] { return record.create_effect(nullptr, 0, 0, nullptr); }, -22,
         create + "Error [uuid = NULL]\n", 0},
        {[&] { return record.create_effect(&kOwnType, 0, 0, nullptr); }, -22,
         create + "Error [pEffect = NULL]\n", 0},
        {[&] { return record.create_effect(&kOwnType, 0, 0, &handle); }, -2,
         create + typeText + "EffectCreate(), Error [effect not found]\n", 1},
        {[&] { return record.release_effect(nullptr); }, -22, "", 0},
        {[&] { return table.process(nullptr, &none, &none); }, -22, "", 0},
        {[&] { return table.process(noUnit, &none, &none); }, -22, "", 0},
        {[&] { return table.command(nullptr, 0, 0, nullptr, nullptr, nullptr); }, -22, "", 0},
        {[&] { return table.command(noUnit, 0, 0, nullptr, nullptr, nullptr); }, -22, "", 0},
        {[&] { return table.get_descriptor(nullptr, d); }, -22, "", 0},
        {[&] { return table.get_descriptor(noUnit, nullptr); }, -22, "", 0},
    };
    for (const auto& row : rows) {
        const int lookups = device.markerLookups;
        EXPECT_EQ(Logged([&] { EXPECT_EQ(row.call(), row.status); }), row.log);
        EXPECT_EQ(device.markerLookups - lookups, row.lookups) << row.log;
        EXPECT_TRUE(block.Untouched()) << row.log;
        EXPECT_EQ(handle, &word) << row.log;
    }
}

TEST(Host, ConfigurationsAreJudgedFieldByField) {
    constexpr uint16_t kAll = 0x1E;
    const std::string rate44 = "Configuring samplerate, in = 44100, out = 44100\n";
    const std::string stereo =
        "Configuring channels, in = 3, out = 3\nConfiguring channels, in = 2, out = 2\n";
    const std::string formats =
        "Configuring input sample format, in = 1\nConfiguring output sample format, out = 1\n";
    const std::string badRate =
        "Quenthra disabled, reason [in.samplingRate != [32000, 44100, 48000]\n";
    const std::string access =
        "Configuring input buffer access mode, in = 0\n"
        "Configuring output buffer access mode, out = 0\n";
    const std::string good = "Quenthra configuring successful\n";
    const std::string newRate = "Configuring new samplingrate...\n";
    const struct {
        uint16_t inMask, outMask;
        uint32_t inRate, outRate, inChannels, outChannels;
        uint8_t inFormat, outFormat, accessMode;
        int32_t rateAfter, channelsAfter;  // the status is 0 if the log says successful
        std::string log;
    } rows[] = {
        {0, 0, 1, 2, 3, 4, 5, 6, 7, 44100, 2, good},
        {kAll, kAll, 44100, 44100, 3, 3, 1, 1, 0, 44100, 2,
         rate44 + stereo + formats + access + good},
        {2, 6, 32000, 32000, 3, 9, 0, 0, 0, 32000, 2,
         "Configuring samplerate, in = 32000, out = 32000\n" + good + newRate},
        {2, 2, 48000, 48000, 0, 0, 0, 0, 0, 48000, 2,
         "Configuring samplerate, in = 48000, out = 48000\n" + good + newRate},
        {2, 2, 31999, 31999, 0, 0, 0, 0, 0, 44100, 2,
         "Configuring samplerate, in = 31999, out = 31999\n" + badRate},
        {2, 2, 48001, 48001, 0, 0, 0, 0, 0, 44100, 2,
         "Configuring samplerate, in = 48001, out = 48001\n" + badRate},
        {2, 2, 0xFFFFFFFF, 0xFFFFFFFF, 0, 0, 0, 0, 0, 44100, 2,
         "Configuring samplerate, in = -1, out = -1\n" + badRate},
        {2, 2, 44100, 48000, 0, 0, 0, 0, 0, 44100, 2,
         "Configuring samplerate, in = 44100, out = 48000\nQuenthra disabled, reason "
         "[in.samplingRate = 44100, out.samplingRate = 48000]\n"},
        {2, 4, 22050, 22050, 9, 9, 0, 0, 0, 44100, 2, good},
        {4, 4, 0, 0, 1, 1, 0, 0, 0, 44100, 1,
         "Configuring channels, in = 1, out = 1\nConfiguring channels, in = 1, out = 1\n" + good +
             "Configuring new channels...\n"},
        {4, 4, 0, 0, 1, 3, 0, 0, 0, 44100, 2,
         "Configuring channels, in = 1, out = 3\nConfiguring channels, in = 1, out = 2\n"
         "Quenthra disabled, reason [nIns = 1, nOuts = 2]\n"},
        {4, 4, 0, 0, 3, 12, 0, 0, 0, 44100, 2,
         "Configuring channels, in = 3, out = 12\nConfiguring channels, in = 2, out = 0\n"
         "Quenthra disabled, reason [nIns = 2, nOuts = 0]\n"},
        {8, 0, 0, 0, 0, 0, 1, 9, 0, 44100, 2, "Configuring input sample format, in = 1\n" + good},
        {8, 8, 0, 0, 0, 0, 0, 1, 0, 44100, 2,
         "Configuring input sample format, in = 0\nQuenthra disabled, reason [in.format = 0]\n"},
        {8, 8, 0, 0, 0, 0, 1, 3, 0, 44100, 2,
         "Configuring input sample format, in = 1\nConfiguring output sample format, out = 3\n"
         "Quenthra disabled, reason [out.format = 3]\n"},
        {0x10, 0, 0, 0, 0, 0, 0, 0, 255, 44100, 2,
         "Configuring input buffer access mode, in = 255\n" + good},
        {0, 0x10, 0, 0, 0, 0, 0, 0, 2, 44100, 2,
         "Configuring output buffer access mode, out = 2\n" + good},
    };
    for (const auto& row : rows) {
        Instance instance;
        EXPECT_EQ(instance.Get(PARAM_GET_READY), 0);
        effect_config_t config = {};
        config.inputCfg = {{},           row.inRate,     row.inChannels, {},
                           row.inFormat, row.accessMode, row.inMask};
        config.outputCfg = {
            {}, row.outRate, row.outChannels, {}, row.outFormat, row.accessMode, row.outMask};
        const bool accepted = row.log.find("successful") != std::string::npos;
        EXPECT_EQ(Logged([&] { EXPECT_EQ(instance.Configure(config), accepted ? 0 : -22); }),
                  "Quenthra enter configure\n" + row.log);
        EXPECT_EQ(instance.Get(PARAM_GET_READY), accepted ? 1 : 0) << row.log;
        EXPECT_EQ(instance.Get(PARAM_GET_SAMPLING_RATE), row.rateAfter) << row.log;
        EXPECT_EQ(instance.Get(PARAM_GET_CHANNELS), row.channelsAfter) << row.log;
    }
}

// What a new instance with everything on makes of `in`.
Samples Fresh(uint32_t rate, uint32_t channels, const Samples& in, uint32_t frames) {
    Instance instance;
    instance.Start(rate, channels);
    return instance.Run(in, frames, channels);
}

TEST(Host, WhatARejectedConfigurationStoredReachesTheProcessorsWithTheNextAcceptedOne) {
    const Samples noise = NoiseSamples(20000, 12000);
    Instance instance;
    instance.Start(44100, 1);
    effect_config_t rejected = MakeConfig(48000, 2);
    rejected.outputCfg.format = 0;
    ASSERT_EQ(instance.Configure(rejected), -22);
    EXPECT_EQ(instance.Get(PARAM_GET_READY), 0);
    Samples out(4096, 77);
    EXPECT_EQ(instance.Process(noise.data(), out.data(), 2048), -61);
    EXPECT_EQ(out, Samples(4096, 77));

    EXPECT_EQ(Logged([&] { EXPECT_EQ(instance.Configure(effect_config_t{}), 0); }),
              "Quenthra enter configure\nQuenthra configuring successful\n"
              "Configuring new samplingrate...\nConfiguring new channels...\n");
    EXPECT_EQ(instance.Run(noise, 2000, 2), Fresh(48000, 2, noise, 2000));
    // The same again changes nothing and resets nothing.
    Instance twin;
    twin.Start(48000, 2);
    twin.Run(noise, 2000, 2);
    EXPECT_EQ(Logged([&] { EXPECT_EQ(instance.Configure(effect_config_t{}), 0); }),
              "Quenthra enter configure\nQuenthra configuring successful\n");
    EXPECT_EQ(instance.Run(noise, 500, 2), twin.Run(noise, 500, 2));
}

TEST(Host, ParameterRecordsAreTakenOrRefused) {
    // Words beyond the command's size are there, but not the library's to read.
    const struct {
        uint32_t code, size;
        int32_t words[9];
        int32_t status;
        std::string log;
    } rows[] = {
        {5, 20, {-9, 4, 4, 0x20001, 1}, 0, "nCmdID = 131073, L = 1, H = 0, E = 0, R = 0"},
        {5, 32, {0, 4, 4, 0x20001, 1, 2, 3, 4}, 0, "nCmdID = 131073, L = 1, H = 0, E = 0, R = 0"},
        {5, 24, {0, 4, 8, 0x20007, 3, -450}, 0, "nCmdID = 131079, L = 3, H = -450, E = 0, R = 0"},
        {5, 28, {0, 4, 12, 0x20007, 3, 5, 6}, 0, "nCmdID = 131079, L = 3, H = 5, E = 6, R = 0"},
        {5, 36, {0, 4, 16, -1, 1, 2, 3, -4, 5}, 0, "nCmdID = -1, L = 1, H = 2, E = 3, R = -4"},
        {5, 20, {0, 8, 4, 0x20001, 0}, -22, ""},
        {5, 20, {0, 3, 4, 0x20001, 0}, -22, ""},
        {5, 36, {0, 4, 0, 0x20001, 0}, -22, ""},
        {5, 36, {0, 4, 5, 0x20001, 0}, -22, ""},
        {5, 36, {0, 4, 20, 0x20001, 0}, -22, ""},
        {5, 36, {0, 4, -4, 0x20001, 0}, -22, ""},
        {5, 36, {0, 4, -16, 0x20001, 0}, -22, ""},
        {5, 23, {0, 4, 8, 0x20001, 0}, -22, ""},
        {5, 16, {0, 4, 4, 0x20001, 0}, -22, ""},
        {5, 15, {0, 4, 4, 0x20001, 0}, -22, ""},
        {8, 16, {0, 4, 4, 0x8000}, -22, "code = 8, size = 16"},
        {8, 16, {0, 4, 4, 0x8008}, -22, "code = 8, size = 16"},
        {8, 16, {0, 8, 4, 0x8001}, -22, "code = 8, size = 16"},
        {8, 15, {0, 4, 4, 0x8001}, -22, "code = 8, size = 15"},
        {8, 16, {0, 4, 0, 0x8001}, 0, ""},
    };
    Instance instance;
    for (const auto& row : rows) {
        // Odd addresses for every block.
        unsigned char data[41], reply[41], replySize[5];
        std::memset(reply, 0x5A, sizeof reply);
        std::memcpy(data + 1, row.words, sizeof row.words);
        const uint32_t offered = 20;
        std::memcpy(replySize + 1, &offered, 4);
        const std::string prefix = row.code == 5 ? "DispatchCommand(), " : "Effect command, ";
        EXPECT_EQ(Logged([&] {
                      EXPECT_EQ(
                          (*instance.handle)
                              ->command(instance.handle, row.code, row.size, data + 1,
                                        reinterpret_cast<uint32_t*>(replySize + 1), reply + 1),
                          0);
                  }),
                  row.log.empty() ? "" : prefix + row.log + "\n");
        int32_t status = 1;
        std::memcpy(&status, reply + 1, 4);
        EXPECT_EQ(status, row.status) << row.log << row.size;
    }
    EXPECT_EQ(instance.Get(PARAM_GET_MODE), 1);
}

TEST(Host, MissingBlocksAreNeitherReadNorWritten) {
    Instance instance;
    const effect_interface_s& table = **instance.handle;
    for (uint32_t code = 0; code < 12; ++code) {
        const bool replies =
            code == 0 || code == 1 || code == 3 || code == 4 || code == 5 || code == 7 || code == 8;
        EXPECT_EQ(table.command(instance.handle, code, 100, nullptr, nullptr, nullptr), 0);
        uint32_t size = 20;
        EXPECT_EQ(table.command(instance.handle, code, 100, nullptr, &size, nullptr), 0);
        EXPECT_EQ(size, replies ? 0U : 20U) << code;
        int32_t status[5] = {7, 7, 7, 7, 7};
        EXPECT_EQ(table.command(instance.handle, code, 100, nullptr, nullptr, status), 0);
        const int32_t expected = code == 1 || code == 5 ? -22 : !replies || code == 8 ? 7 : 0;
        EXPECT_EQ(status[0], expected) << code;
        EXPECT_EQ(status[1], 7) << code;
    }
    EXPECT_EQ(instance.Get(PARAM_GET_ENABLED), 0);  // 3 acted, then 4
}

TEST(Host, QueriesAnswerAsSet) {
    Instance instance;
    const auto values = [&] {
        std::vector<int32_t> all;
        for (int32_t id = PARAM_GET_VERSION; id <= PARAM_GET_CHANNELS; ++id)
            all.push_back(instance.Get(id));
        return all;
    };
    device.clockUs = int64_t{1} << 41;  // far from 0, the time of no buffer
    EXPECT_EQ(values(), (std::vector<int32_t>{0x02010002, 0, 0, 0, 0, 44100, 2}));
    instance.Configure(48000, 1);
    EXPECT_EQ(instance.Enable(), 0);
    for (const int32_t mode : {1, 2, -1}) EXPECT_EQ(instance.Set(PARAM_SET_MODE, {mode}), 0);
    EXPECT_EQ(values(), (std::vector<int32_t>{0x02010002, 1, 1, 0, 1, 48000, 1}));

    // The time of a buffer counts only while it is noted, and for less than a second either way,
    // also where the 32-bit milliseconds wrap.
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
        EXPECT_EQ(processing(seconds * 1000000 + 1122999), 1);
        EXPECT_EQ(processing(seconds * 1000000 + 1123000), 0);
        EXPECT_EQ(processing(seconds * 1000000 - 875000), 1);
        EXPECT_EQ(processing(seconds * 1000000 - 877000), 0);
    }
    device.clockUs = -1;
    instance.Disable();
    EXPECT_EQ(instance.Get(PARAM_GET_ENABLED), 0);
}

TEST(Host, ProcessNeedsWholeRecordsAndAnEnabledConfiguredUnit) {
    Instance instance;
    Samples in(512, 1000), out(512, 77);
    audio_buffer_s good = {256, in.data()}, other = {128, out.data()}, null = {256, nullptr};
    audio_buffer_s target = {256, out.data()}, empty = {0, out.data()};
    const auto process = [&](audio_buffer_s* a, audio_buffer_s* b) {
        return (*instance.handle)->process(instance.handle, a, b);
    };
    const auto refused = [&] {
        EXPECT_EQ(process(nullptr, &target), -22);
        EXPECT_EQ(process(&good, nullptr), -22);
        EXPECT_EQ(process(&null, &target), -22);
        EXPECT_EQ(process(&good, &null), -22);
        EXPECT_EQ(process(&good, &other), -22);
        EXPECT_EQ(process(&empty, &empty), -61);
    };
    refused();
    EXPECT_EQ(process(&good, &target), -61);
    instance.Enable();
    EXPECT_EQ(process(&good, &target), -61);
    instance.Disable();
    instance.Configure(44100, 2);
    EXPECT_EQ(process(&good, &target), -61);
    EXPECT_EQ(out, Samples(512, 77));
    instance.Enable();
    refused();
    EXPECT_EQ(process(&good, &target), 0);
    EXPECT_EQ(out[510], 998);  // behind 255 frames of silence
    EXPECT_EQ(out[509], 0);
}

TEST(Host, EverythingOffIsADelayAtTheLimitersRestingGain) {
    for (const uint32_t channels : {1U, 2U}) {
        Instance instance;
        instance.Configure(44100, channels);
        instance.Enable();
        const size_t total = size_t{1000} * channels;
        Samples expected(total, 9980);
        std::fill_n(expected.begin(), size_t{255} * channels, int16_t{0});
        EXPECT_EQ(instance.Run(Samples(total, 10000), 256, channels), expected);
    }
}

TEST(Host, OutputIsOverwrittenInPlaceOrElsewhere) {
    const Samples in = NoiseSamples(12288, 12000);
    const Samples expected = Fresh(44100, 2, in, 300);
    // Two buffers of silence while the enhancer gathers its first block.
    EXPECT_EQ(Samples(expected.begin(), expected.begin() + 1200), Samples(1200));
    for (const uint8_t access : {EFFECT_BUFFER_ACCESS_WRITE, EFFECT_BUFFER_ACCESS_ACCUMULATE}) {
        for (const int garbage : {-32768, 1, 0}) {  // 0: in place
            Instance instance;
            effect_config_t config = MakeConfig(44100, 2);
            config.outputCfg.accessMode = access;
            instance.Start(44100, 2);
            instance.Configure(config);
            Samples input = in, output(in.size(), static_cast<int16_t>(garbage));
            for (uint32_t at = 0; at < in.size() / 2; at += 300) {
                const uint32_t frames = std::min(300U, static_cast<uint32_t>(in.size() / 2) - at);
                int16_t* const source = input.data() + 2 * size_t{at};
                int16_t* const target = garbage == 0 ? source : output.data() + 2 * size_t{at};
                ASSERT_EQ(instance.Process(source, target, frames), 0);
            }
            EXPECT_EQ(garbage == 0 ? input : output, expected);
            EXPECT_TRUE(garbage == 0 || input == in);
        }
    }
}

TEST(Host, DelaysAreTheStatedOnes) {
    constexpr size_t kAt = 30000;  // frames: the playback gain has faded in
    const struct {
        bool gain, equalizer, enhancer;
        uint32_t frames, delay;
    } rows[] = {
        {false, false, false, 256, 255},
        {true, false, false, 256, 255 + 255},
        {false, true, false, 256, 255 + 256},
        {false, false, true, 256, 255 + 127 + 768},
        {false, false, true, 770, 255 + 127},
        {false, false, true, 1024, 255 + 127 + 1024},
        {true, true, true, 256, 3 * 255 + 1 + 127 + 768},
    };
    for (const auto& row : rows) {
        for (const uint32_t channels : {1U, 2U}) {
            Instance instance;
            instance.Configure(44100, channels);
            instance.Set(PARAM_PLAYBACKGAIN_RATIO, {0});
            instance.Set(PARAM_PLAYBACKGAIN_ENABLE, {row.gain});
            instance.Set(PARAM_EQUALIZER_ENABLE, {row.equalizer});
            instance.Set(PARAM_ENHANCER_ENABLE, {row.enhancer});
            instance.Enable();
            Samples in(size_t{40000} * channels);
            in[kAt * channels] = 20000;
            const Samples out = instance.Run(in, row.frames, channels);
            const auto peak = std::max_element(
                out.begin(), out.end(), [](int a, int b) { return std::abs(a) < std::abs(b); });
            EXPECT_GT(*peak, 10000);
            EXPECT_EQ(static_cast<size_t>(peak - out.begin()), (kAt + row.delay) * channels);
        }
    }
}

TEST(Host, WhatResetsMakesANewInstanceAndWhatDoesNotGoesOn) {
    const Samples in = NoiseSamples(10000, 12000);
    const struct {
        std::function<void(Instance&)> act;
        bool resets;
    } rows[] = {
        {[](Instance& i) { i.Reset(); }, true},
        {[](Instance& i) { i.Disable(), i.Enable(); }, true},
        {[](Instance& i) { i.Set(PARAM_SET_MODE, {1}); }, true},
        {[](Instance& i) { i.Configure(48000, 2), i.Configure(44100, 2); }, true},
        {[](Instance& i) { i.Configure(44100, 1), i.Configure(44100, 2); }, true},
        {[](Instance& i) { i.Enable(); }, false},
        {[](Instance& i) { i.Set(PARAM_SET_MODE, {0}), i.Set(PARAM_SET_MODE, {2}); }, false},
        {[](Instance& i) { i.Configure(44100, 2); }, false},
        {[](Instance& i) { i.Set(PARAM_SET_MODE + 100, {1}), i.Command(0), i.Command(9); }, false},
    };
    const Samples first = Fresh(44100, 2, in, 256);
    for (size_t row = 0; row < std::size(rows); ++row) {
        Instance instance, twin;
        for (Instance* i : {&instance, &twin}) {
            i->Start(44100, 2);
            EXPECT_EQ(i->Run(in, 256, 2), first);
        }
        rows[row].act(instance);
        EXPECT_EQ(instance.Run(in, 256, 2), rows[row].resets ? first : twin.Run(in, 256, 2)) << row;
    }
}

}  // namespace
