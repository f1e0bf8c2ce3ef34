// The boundary with the framework: record, entry points, descriptors and configurations, with the
// log lines that they cause.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "captured_log.h"
#include "fake_device.h"
#include "framework_client.h"

namespace {

constexpr effect_uuid_s kOwnType = {
    0xaa48cf24, 0x9ae1, 0x4045, 0xacb9, {0x4f, 0xe1, 0xe1, 0x56, 0x47, 0x5b}};
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

// A descriptor's memory, at an odd address.
struct DescriptorBlock {
    std::string bytes = std::string(1 + sizeof(effect_descriptor_t), 'Z');
    effect_descriptor_t* Get() { return reinterpret_cast<effect_descriptor_t*>(bytes.data() + 1); }
    std::string Text() const { return bytes.substr(1); }
};

TEST(Host, RecordAndVersionAreTheStatedOnes) {
    const audio_effect_library_t& record = LoadedLibrary();
    EXPECT_EQ(std::memcmp(&record, "TLEA\0\0\2\0", 8), 0);
    EXPECT_STREQ(record.name, "Quenthra Orvane v2");
    EXPECT_STREQ(record.implementor, "Hollin.RDT");
    uint32_t count = 7;
    EXPECT_EQ(record.query_num_effects(&count), 0);
    EXPECT_EQ(record.query_num_effects(nullptr), 0);
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
    const CapturedLog log("life");
    for (const bool marker : {false, true, false}) {
        device.markerExists = marker;
        const std::string bytes = DescriptorBytes(marker ? kBassBoostBytes : kOwnTypeBytes);
        const int lookups = device.markerLookups;
        DescriptorBlock queried, found, ofInstance;
        EXPECT_EQ(record.query_effect(0, queried.Get()), 0);
        EXPECT_EQ(record.get_descriptor(&kOrvaneUuid, found.Get()), 0);
        EXPECT_EQ(queried.Text(), bytes);
        EXPECT_EQ(found.Text(), bytes);
        effect_handle_t handle = nullptr;
        EXPECT_EQ(record.create_effect(&kOrvaneUuid, 5, -6, &handle), 0);
        EXPECT_EQ(device.markerLookups, lookups + 3);
        device.markerExists = !marker;
        EXPECT_EQ((*handle)->get_descriptor(handle, ofInstance.Get()), 0);
        EXPECT_EQ(ofInstance.Text(), bytes);
        EXPECT_EQ((*handle)->process_reverse, nullptr);
        EXPECT_EQ(record.release_effect(handle), 0);
    }
    device.markerExists = false;
}

TEST(Host, RefusedEntryPointsLeaveTheCallersMemoryAlone) {
    const audio_effect_library_t& record = LoadedLibrary();
    const effect_interface_s& table = **Instance().handle;  // constant, outlives the instance
    DescriptorBlock block;
    effect_descriptor_t* const d = block.Get();
    const effect_interface_s* word = nullptr;
    effect_handle_t handle = &word;
    // Three null words: a handle without a unit.
    const effect_interface_s* noUnit[3] = {&table};
    audio_buffer_s none = {};
    const struct {
        std::function<int32_t()> call;
        int32_t status, lookups;
    } rows[] = {
        {[&] { return record.query_effect(1, nullptr); }, -22, 0},
        {[&] { return record.query_effect(1, d); }, -2, 0},
        {[&] { return record.query_effect(0xFFFFFFFF, d); }, -2, 0},
        {[&] { return record.get_descriptor(nullptr, nullptr); }, -22, 0},
        {[&] { return record.get_descriptor(&kOwnType, nullptr); }, -22, 0},
        {[&] { return record.get_descriptor(&kOwnType, d); }, -2, 1},
        {[&] { return record.create_effect(nullptr, 0, 0, nullptr); }, -22, 0},
        {[&] { return record.create_effect(&kOwnType, 0, 0, nullptr); }, -22, 0},
        {[&] { return record.create_effect(&kOwnType, 0, 0, &handle); }, -2, 1},
        {[&] { return record.release_effect(nullptr); }, -22, 0},
        {[&] { return table.process(nullptr, &none, &none); }, -22, 0},
        {[&] { return table.process(noUnit, &none, &none); }, -22, 0},
        {[&] { return table.command(nullptr, 0, 0, nullptr, nullptr, nullptr); }, -22, 0},
        {[&] { return table.command(noUnit, 0, 0, nullptr, nullptr, nullptr); }, -22, 0},
        {[&] { return table.get_descriptor(nullptr, d); }, -22, 0},
        {[&] { return table.get_descriptor(noUnit, nullptr); }, -22, 0},
    };
    const CapturedLog log("refusals");
    for (size_t row = 0; row < std::size(rows); ++row) {
        const int lookups = device.markerLookups;
        EXPECT_EQ(rows[row].call(), rows[row].status) << row;
        EXPECT_EQ(device.markerLookups - lookups, rows[row].lookups) << row;
        EXPECT_EQ(block.bytes, DescriptorBlock().bytes) << row;
        EXPECT_EQ(handle, &word) << row;
    }
}

TEST(Host, ConfigurationsAreJudgedFieldByField) {
    constexpr uint16_t kAll = 0x1E;
    constexpr uint32_t kHighest = 0xFFFFFFFF;
    const struct {
        uint16_t inMask, outMask;
        uint32_t inRate, outRate, inChannels, outChannels;
        uint8_t inFormat, outFormat, accessMode;
        bool accepted;
        int32_t rateAfter, channelsAfter;
    } rows[] = {
        {0, 0, 1, 2, 3, 4, 5, 6, 7, true, 44100, 2},
        {kAll, kAll, 44100, 44100, 3, 3, 1, 1, 0, true, 44100, 2},
        {2, 6, 32000, 32000, 3, 9, 0, 0, 0, true, 32000, 2},
        {2, 2, 48000, 48000, 0, 0, 0, 0, 0, true, 48000, 2},
        {2, 2, 31999, 31999, 0, 0, 0, 0, 0, false, 44100, 2},
        {2, 2, 48001, 48001, 0, 0, 0, 0, 0, false, 44100, 2},
        {2, 2, kHighest, kHighest, 0, 0, 0, 0, 0, false, 44100, 2},
        {2, 2, 44100, 48000, 0, 0, 0, 0, 0, false, 44100, 2},
        {2, 4, 22050, 22050, 9, 9, 0, 0, 0, true, 44100, 2},
        {4, 4, 0, 0, 1, 1, 0, 0, 0, true, 44100, 1},
        {4, 4, 0, 0, 1, 3, 0, 0, 0, false, 44100, 2},
        {4, 4, 0, 0, 3, 12, 0, 0, 0, false, 44100, 2},
        {8, 0, 0, 0, 0, 0, 1, 9, 0, true, 44100, 2},
        {8, 8, 0, 0, 0, 0, 0, 1, 0, false, 44100, 2},
        {8, 8, 0, 0, 0, 0, 1, 3, 0, false, 44100, 2},
        {0x10, 0, 0, 0, 0, 0, 0, 0, 255, true, 44100, 2},
        {0, 0x10, 0, 0, 0, 0, 0, 0, 2, true, 44100, 2},
    };
    const CapturedLog log("configurations");
    for (size_t row = 0; row < std::size(rows); ++row) {
        const auto& r = rows[row];
        Instance instance;
        EXPECT_EQ(instance.Get(PARAM_GET_READY), 0);
        effect_config_t config = {};
        config.inputCfg = {{}, r.inRate, r.inChannels, {}, r.inFormat, r.accessMode, r.inMask};
        config.outputCfg = {{}, r.outRate, r.outChannels, {}, r.outFormat, r.accessMode, r.outMask};
        EXPECT_EQ(instance.Configure(config), r.accepted ? 0 : -22) << row;
        EXPECT_EQ(instance.Get(PARAM_GET_READY), r.accepted ? 1 : 0) << row;
        EXPECT_EQ(instance.Get(PARAM_GET_SAMPLING_RATE), r.rateAfter) << row;
        EXPECT_EQ(instance.Get(PARAM_GET_CHANNELS), r.channelsAfter) << row;
    }
}

}  // namespace
