// Tests the bundle as a host reads it through lilv: ports, presets, samples and refusals.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <lilv/lilv.h>
#include <lv2/port-groups/port-groups.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "client/presets.h"
#include "client/settings_text.h"
#include "lv2/ports.h"
#include "tests/signals.h"

namespace {
int allocations = 0, refusedOne = -1;  // counted from 0 while refusedOne isn't negative
}
#ifndef ORVANE_SANITIZED
static bool IsRefused() {
    return refusedOne >= 0 && allocations++ == refusedOne;
}
// The plug-in uses these functions instead of the platform's, too.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-inconsistent-declaration-parameter-name)
extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* malloc(size_t size) {
    return IsRefused() ? nullptr : __libc_malloc(size);
}
extern "C" void* calloc(size_t count, size_t size) {
    return IsRefused() ? nullptr : __libc_calloc(count, size);
}
// NOLINTEND(bugprone-reserved-identifier,readability-inconsistent-declaration-parameter-name)
#endif

namespace {

class Bundle : public testing::Test {
protected:
    Bundle() {
        lilv_world_set_option(world, LILV_OPTION_LV2_PATH, path);
        lilv_world_load_specifications(world);
        lilv_world_load_bundle(world, folder);
        uri = lilv_new_uri(world, kPluginUri);
        plugin = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world), uri);
    }
    ~Bundle() override {
        for (LilvNode* node : {uri, folder, path}) lilv_node_free(node);
        lilv_world_free(world);
    }

    LilvWorld* world = lilv_world_new();
    LilvNode* folder = lilv_new_file_uri(world, nullptr, ORVANE_BUNDLE);
    LilvNode* path = lilv_new_string(world, "/usr/lib/lv2");
    LilvNode* uri;
    const LilvPlugin* plugin;
};

TEST_F(Bundle, TellsRangesInAListenersUnits) {
    ASSERT_EQ(lilv_plugin_get_num_ports(plugin), kPortCount);
    std::vector<float> least(kPortCount), most(kPortCount), normal(kPortCount);
    lilv_plugin_get_port_ranges_float(plugin, least.data(), most.data(), normal.data());
    const struct {
        const char* symbol;
        float least, most, normal;
        const char* unit;
    } rows[] = {
        {"enabled", 0, 1, 1, ""},
        {"low_latency", 0, 1, 0, ""},
        {"enhancer", 0, 1, 0, ""},
        {"eq_9", -100, 100, 0, "pc"},
        {"output_gain", -20, 24.0824F, 0, "db"},
        {"max_gain", -20, 42.0761F, 0, "db"},
        {"ratio", 0, 10, 1, ""},
        {"gate", -20, 0, -0.0008686F, "db"},
    };
    LilvNode* const unit = lilv_new_uri(world, "http://lv2plug.in/ns/extensions/units#unit");
    LilvNode* const toggled = lilv_new_uri(world, LV2_CORE__toggled);
    for (const auto& row : rows) {
        LilvNode* const symbol = lilv_new_string(world, row.symbol);
        const LilvPort* const port = lilv_plugin_get_port_by_symbol(plugin, symbol);
        ASSERT_NE(port, nullptr) << row.symbol;
        const uint32_t n = lilv_port_get_index(plugin, port);
        EXPECT_NEAR(least[n], row.least, 1e-4) << row.symbol;
        EXPECT_NEAR(most[n], row.most, 1e-4) << row.symbol;
        EXPECT_NEAR(normal[n], row.normal, 1e-4) << row.symbol;
        EXPECT_EQ(lilv_port_has_property(plugin, port, toggled), row.least == 0 && row.most == 1)
            << row.symbol;
        LilvNode* const found = lilv_port_get(plugin, port, unit);
        const std::string text = found != nullptr ? lilv_node_as_uri(found) : "#";
        EXPECT_EQ(text.substr(text.find('#') + 1), row.unit) << row.symbol;
        lilv_node_free(found);
        lilv_node_free(symbol);
    }
    lilv_node_free(toggled);
    lilv_node_free(unit);
}

TEST_F(Bundle, HasEveryPresetWithItsValues) {
    LilvNode* const kind = lilv_new_uri(world, "http://lv2plug.in/ns/ext/presets#Preset");
    LilvNodes* const found = lilv_plugin_get_related(plugin, kind);
    EXPECT_EQ(lilv_nodes_size(found), Presets().size());
    lilv_nodes_free(found);
    lilv_node_free(kind);
    LilvNode* const label = lilv_new_uri(world, LILV_NS_RDFS "label");
    static const LV2_URID_Map kMap = {
        nullptr, [](LV2_URID_Map_Handle, const char* text) -> LV2_URID {
            static std::map<std::string, LV2_URID> known;
            return known.try_emplace(text, known.size() + 1).first->second;
        }};
    for (const Preset& preset : Presets()) {
        const std::string name = std::string(kPluginUri) + '#' + preset.name;
        LilvNode* const node = lilv_new_uri(world, name.c_str());
        // Hosts list presets by their labels before they load any.
        LilvNode* const listed = lilv_world_get(world, node, label, nullptr);
        EXPECT_STREQ(lilv_node_as_string(listed), preset.name);
        lilv_node_free(listed);
        lilv_world_load_resource(world, node);
        LilvState* const state =
            lilv_state_new_from_world(world, const_cast<LV2_URID_Map*>(&kMap), node);
        ASSERT_NE(state, nullptr) << preset.name;
        Settings settings;
        const auto take = [](const char* symbol, void* into, const void* value, uint32_t,
                             uint32_t) {
            std::string key = symbol;
            std::replace(key.begin(), key.end(), '_', '-');
            for (const Control& control : kControls) {
                const std::string band = "eq-" + std::to_string(control.band);
                if (key != (control.IsBand() ? band : control.parameter->key)) continue;
                const double inUnits = control.FromPort(*static_cast<const float*>(value));
                auto* const all = static_cast<Settings*>(into);
                if (control.IsBand())
                    all->SetBand(static_cast<size_t>(control.band), inUnits);
                else if (!control.IsUnsendable(inUnits))
                    all->Set(control.parameter->id, inUnits);
            }
        };
        lilv_state_emit_port_values(state, take, &settings);
        EXPECT_EQ(Describe(settings), Describe(SettingsOf(preset)));
        lilv_state_free(state);
        lilv_node_free(node);
    }
    lilv_node_free(label);
}

// Returns the plug-in's own descriptor, so that nothing of lilv's is allocated.
const LV2_Descriptor& Descriptor() {
    void* const file = dlopen(ORVANE_BUNDLE "orvane.so", RTLD_NOW);
    const auto entry = reinterpret_cast<LV2_Descriptor_Function>(dlsym(file, "lv2_descriptor"));
    return *entry(0);
}

// Returns the instance, and in *lines how many lines were logged.
LV2_Handle Instantiate(double rateHz, int refused, ptrdiff_t* lines) {
    const LV2_Descriptor& descriptor = Descriptor();
    testing::internal::CaptureStderr();
    allocations = 0;
    refusedOne = refused;
    const LV2_Handle handle = descriptor.instantiate(&descriptor, rateHz, "", nullptr);
    refusedOne = -1;
    const std::string log = testing::internal::GetCapturedStderr();
    *lines = std::count(log.begin(), log.end(), '\n');
    return handle;
}

// An instance. All ports except audio are connected to elements of `ports`, which hold the
// defaults.
struct Host {
    explicit Host(double rateHz) {
        ptrdiff_t lines = 0;
        handle = Instantiate(rateHz, -1, &lines);
        ports[kEnabled] = 1;
        for (uint32_t n = kEnabled; n < kPortCount; ++n) {
            if (n >= kFirstControl && n < kLatency) {
                const Control& control = kControls[n - kFirstControl];
                ports[n] = control.ToPort(control.parameter->defaultValue);
            }
            Descriptor().connect_port(handle, n, &ports[n]);
        }
    }
    ~Host() { Descriptor().cleanup(handle); }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    float& Of(ParameterId id) {
        uint32_t n = kFirstControl;
        while (kControls[n - kFirstControl].parameter->id != id) ++n;
        return ports[n];
    }
    // Plays two channels in place.
    void Play(std::vector<float>* left, std::vector<float>* right) {
        const uint32_t most = 500;
        for (uint32_t at = 0; at < left->size(); at += most) {
            const uint32_t audio[] = {kLeftIn, kRightIn, kLeftOut, kRightOut};
            for (const uint32_t n : audio)
                Descriptor().connect_port(handle, n, (n % 2 == 0 ? left : right)->data() + at);
            Descriptor().run(handle, std::min(most, static_cast<uint32_t>(left->size()) - at));
        }
    }
    void PlayTone(double amplitude) {
        std::vector<float> left(48000);
        for (size_t n = 0; n < left.size(); ++n)
            left[n] = static_cast<float>(amplitude * std::sin(0.05 * static_cast<double>(n)));
        std::vector<float> right = left;
        Play(&left, &right);
    }

    std::vector<float> ports = std::vector<float>(kPortCount);
    LV2_Handle handle;
};

// Only the switch of the enhancer is connected; the other controls keep their defaults.
TEST(Plugin, BeginsAnewWithEachActivationAndNeedsNoOtherControls) {
    Host host(48000);
    for (uint32_t n = kLowLatency; n < kLatency; ++n)
        if (&host.ports[n] != &host.Of(PARAM_ENHANCER_ENABLE))
            Descriptor().connect_port(host.handle, n, nullptr);
    host.Of(PARAM_ENHANCER_ENABLE) = 1;
    std::vector<float> played[2];
    for (std::vector<float>& left : played) {
        left = Noise<float>(96000, 0.3);
        std::vector<float> right = left;
        Descriptor().activate(host.handle);
        host.Play(&left, &right);
        EXPECT_TRUE(right == left);
        EXPECT_EQ(host.ports[kLatency], 1024 + 255 + 127 + 1024);
    }
    EXPECT_TRUE(played[0] == played[1]);
}

TEST(Plugin, BypassedFromTheStartItPassesBothChannelsWithoutAFade) {
    Host host(48000);
    host.ports[kEnabled] = 0;
    const std::vector<float> left = Noise<float>(20000, 0.3, 1),
                             right = Noise<float>(20000, 0.3, 2);
    std::vector<float> heardLeft = left, heardRight = right;
    host.Play(&heardLeft, &heardRight);
    const auto late = static_cast<ptrdiff_t>(host.ports[kLatency]);
    EXPECT_TRUE(std::equal(left.begin(), left.end() - late, heardLeft.begin() + late));
    EXPECT_TRUE(std::equal(right.begin(), right.end() - late, heardRight.begin() + late));
}

TEST(Plugin, LeavesTheOtherBuffersAloneWhileAnAudioPortIsNotConnected) {
    Host host(48000);
    for (const uint32_t missing : {kLeftIn, kRightIn, kLeftOut, kRightOut}) {
        std::vector<float> buffers[4];
        for (uint32_t n = 0; n < 4; ++n) {
            buffers[n].assign(3000, 0.25F);
            Descriptor().connect_port(host.handle, n, n == missing ? nullptr : buffers[n].data());
        }
        Descriptor().run(host.handle, 3000);
        for (const std::vector<float>& buffer : buffers)
            EXPECT_TRUE(buffer == std::vector<float>(3000, 0.25F)) << missing;
    }
}

TEST(Plugin, MetersLevelsAndGainWithTheirSignsAndLightsTheLampAtTheGateOnly) {
    Host host(48000);
    host.Of(PARAM_LIMITER_GATE) = -6;  // 0.5
    host.Of(PARAM_OUTPUT_GAIN) = -3;
    const struct {
        double amplitude;
        float before, after;
        bool isLimited;
    } rows[] = {{0.6, -7.45F, -10.45F, false},  // 0.42 after the gain
                {0.9, -3.93F, -9.03F, true},
                {0.6, -7.45F, -10.45F, false},
                {0, -100, -100, false}};
    for (const auto& row : rows) {
        for (int second = 0; second < 8; ++second) host.PlayTone(row.amplitude);
        EXPECT_NEAR(host.ports[kSourceLevel], row.before, 0.3) << row.amplitude;
        EXPECT_NEAR(host.ports[kResultLevel], row.after, 0.3) << row.amplitude;
        EXPECT_NEAR(host.ports[kGain], row.after - row.before, 0.3) << row.amplitude;
        EXPECT_EQ(host.ports[kLimiting], row.isLimited ? 1 : 0) << row.amplitude;
    }
}

TEST(Plugin, IsAsLateAsItTellsAtEveryRateAndWithLowLatency) {
    for (const double rateHz : {44100.0, 96000.0, 192000.0})
        for (const bool low : {false, true}) {
            Host host(rateHz);
            host.Of(PARAM_ENHANCER_ENABLE) = host.Of(PARAM_EQUALIZER_ENABLE) = 1;
            host.ports[kLowLatency] = low ? 1 : 0;
            std::vector<float> left(40000), right(40000);
            left[3000] = right[3000] = 0.25F;
            host.Play(&left, &right);
            const auto peak = std::max_element(left.begin(), left.end());
            EXPECT_EQ(peak - left.begin(), 3000 + static_cast<ptrdiff_t>(host.ports[kLatency]))
                << rateHz << low;
        }
}

TEST_F(Bundle, DesignatesItsLatencyItsSwitchAndItsChannels) {
    ASSERT_TRUE(lilv_plugin_has_latency(plugin));
    EXPECT_EQ(lilv_plugin_get_latency_port_index(plugin), kLatency);
    LilvNode* const reports = lilv_new_uri(world, LV2_CORE__reportsLatency);
    EXPECT_TRUE(
        lilv_port_has_property(plugin, lilv_plugin_get_port_by_index(plugin, kLatency), reports));
    lilv_node_free(reports);
    LilvNode* const realTime = lilv_new_uri(world, LV2_CORE__hardRTCapable);
    EXPECT_TRUE(lilv_plugin_has_feature(plugin, realTime));
    lilv_node_free(realTime);
    const struct {
        const char* designation;
        const char* kind;
        uint32_t port;
    } rows[] = {{LV2_CORE__latency, LV2_CORE__OutputPort, kLatency},
                {LV2_CORE__enabled, LV2_CORE__InputPort, kEnabled},
                {LV2_PORT_GROUPS__left, LV2_CORE__InputPort, kLeftIn},
                {LV2_PORT_GROUPS__right, LV2_CORE__InputPort, kRightIn},
                {LV2_PORT_GROUPS__left, LV2_CORE__OutputPort, kLeftOut},
                {LV2_PORT_GROUPS__right, LV2_CORE__OutputPort, kRightOut}};
    for (const auto& row : rows) {
        LilvNode* const designation = lilv_new_uri(world, row.designation);
        LilvNode* const kind = lilv_new_uri(world, row.kind);
        const LilvPort* const port = lilv_plugin_get_port_by_designation(plugin, kind, designation);
        EXPECT_TRUE(port != nullptr && lilv_port_get_index(plugin, port) == row.port)
            << row.designation;
        lilv_node_free(designation);
        lilv_node_free(kind);
    }
}

TEST(Instantiate, RefusesEveryRateButWholeOnesOf32000To48000AndTheirMultiplesInOneLine) {
    ptrdiff_t lines = 0;
    for (const double rateHz : {0.0, 31999.0, 32000.5, 48000.999, 48001.0, 64000.0, -44100.0,
                                0x1p32 + 44100, 1e300, static_cast<double>(kNan)}) {
        EXPECT_EQ(Instantiate(rateHz, -1, &lines), nullptr) << rateHz;
        EXPECT_EQ(lines, 1) << rateHz;
    }
}

#ifndef ORVANE_SANITIZED
TEST(Instantiate, GivesNothingAndOneLineWhicheverAllocationIsRefused) {
    ptrdiff_t lines = 0;
    for (const double rateHz : {48000.0, 96000.0})
        for (int refused = 0;; ++refused) {
            const LV2_Handle handle = Instantiate(rateHz, refused, &lines);
            if (allocations > refused) {
                EXPECT_EQ(handle, nullptr) << rateHz << ' ' << refused;
                EXPECT_EQ(lines, 1) << rateHz << ' ' << refused;
            } else {
                ASSERT_NE(handle, nullptr);
                Descriptor().cleanup(handle);
                EXPECT_GT(allocations, 50);
                break;
            }
        }
}
#endif

}  // namespace
