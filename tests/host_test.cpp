// Tests the boundary with the framework: record, entry points, descriptors and configurations, and
// the log lines that they cause.
#include <gtest/gtest.h>

#include <functional>

#include "captured_log.h"
#include "fake_device.h"
#include "library_under_test.h"

namespace {

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

}  // namespace
