// Sends the library the records that applications make with android/quenthra_orvane.h.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "android/quenthra_orvane.h"
#include "client/presets.h"
#include "tests/library_under_test.h"

namespace {

TEST(Controls, RecordsAreTheLibrarysAndSentFromAnyAddress) {
    Instance instance;
    unsigned char block[1 + ORVANE_SET_MAX_BYTES] = {};
    unsigned char* const record = block + 1;
    constexpr int32_t kValues[] = {1, -45, 7, 9};
    const ParameterCommand expected = PackSet(PARAM_SET_MODE, kValues, std::size(kValues));
    const size_t size = OrvanePackSet(record, ORVANE_PARAM_SET_MODE, kValues, ORVANE_MAX_VALUES);
    ASSERT_EQ(size, expected.bytes);
    EXPECT_EQ(std::memcmp(record, &expected, size), 0);
    EXPECT_EQ(instance.Command(EFFECT_CMD_SET_PARAM, static_cast<uint32_t>(size), record), 0);
    for (const int32_t count : {0, 5})
        EXPECT_EQ(OrvanePackSet(record, ORVANE_PARAM_SET_MODE, kValues, count), 0U);

    const auto ask = [&](int32_t id, int32_t* value) {
        unsigned char reply[1 + ORVANE_REPLY_BYTES];
        uint32_t replySize = ORVANE_REPLY_BYTES;
        const auto bytes = static_cast<uint32_t>(OrvanePackGet(record, id));
        (*instance.handle)
            ->command(instance.handle, EFFECT_CMD_GET_PARAM, bytes, record, &replySize, reply + 1);
        return OrvaneReadReply(reply + 1, replySize, value);
    };
    int32_t value = -9;
    EXPECT_EQ(ask(ORVANE_PARAM_GET_MODE, &value), 0);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(ask(ORVANE_PARAM_SET_MODE, &value), -22);
    EXPECT_EQ(value, 1);
}

TEST(Controls, LevelsOfAllBandsAndOfOneGiveWhatTheTablesSay) {
    constexpr uint32_t kFrames = 2048;
    std::vector<int16_t> in(4 * size_t{kFrames});
    for (size_t n = 0; n < in.size(); ++n) {
        const double phase = 2.0 * std::numbers::pi * 1000.0 / 44100.0 * static_cast<double>(n);
        in[n] = static_cast<int16_t>(std::lround(8000.0 * std::sin(phase)));
    }
    const auto power = [](const std::vector<int16_t>& samples) {
        double sum = 0;
        for (size_t n = samples.size() / 2; n < samples.size(); ++n)
            sum += static_cast<double>(samples[n]) * samples[n];
        return sum;
    };
    const auto gainOf = [&](int32_t all, int32_t one, int32_t ofOne) {
        Instance instance;
        instance.Configure(44100, 1);
        instance.Set(PARAM_EQUALIZER_ENABLE, {1});
        for (int32_t band = 0; band < 10; ++band)
            instance.Set(PARAM_EQUALIZER_BANDLEVEL, {band, band == one ? ofOne : all});
        instance.Enable();
        return std::sqrt(power(instance.Run(in, kFrames, 1)) / power(in));
    };
    constexpr int32_t kThirdOf1000Hz = 16;
    for (int32_t band = 0; band < 10; ++band)  // one band has a gain of 3 and the others of 1
        EXPECT_NEAR(gainOf(0, band, 100),
                    std::abs(1 + 2 * OrvaneBandTerm(band, kThirdOf1000Hz) / 1000.0), 0.006)
            << band;
    for (int db = -42; db <= 12; db += 3) {
        const double gain = gainOf(OrvaneLevelOfDb(db), -1, 0);
        const double wanted = db < -40 ? 0.0 : std::fmin(std::pow(10.0, db / 20.0), 3.0);
        // Half a step of the level is 0.005 below 0 dB and 0.01 above; the rest is 16-bit rounding.
        EXPECT_NEAR(gain, wanted, (db <= 0 ? 0.005 : 0.01) + 0.001) << db << " dB";
    }
}

TEST(Controls, PresetsReplaceWhateverWasSetBefore) {
    const std::vector<int16_t> in = NoiseSamples(16384, 20000);
    for (const Preset& preset : Presets()) {
        Instance fresh, used;
        used.SwitchEverythingOn();
        int32_t id = 0, values[2] = {}, index = 0;
        while (const int32_t count = OrvanePresetCommand(preset.name, index, &id, values)) {
            unsigned char record[ORVANE_SET_MAX_BYTES];
            const size_t size = OrvanePackSet(record, id, values, count);
            used.Command(EFFECT_CMD_SET_PARAM, static_cast<uint32_t>(size), record);
            ++index;
        }
        EXPECT_EQ(index, 20);
        Settings settings = SettingsOf(preset);
        if (!settings.IsSet(PARAM_LIMITER_GATE)) settings.Set(PARAM_LIMITER_GATE, 1);
        for (const ParameterCommand& command : settings.Commands()) fresh.Set(command);
        for (Instance* instance : {&fresh, &used}) {
            instance->Configure(44100, 2);
            instance->Enable();
        }
        EXPECT_EQ(used.Run(in, 1024, 2), fresh.Run(in, 1024, 2)) << preset.name;
    }
    int32_t id = 0, values[2] = {};
    EXPECT_EQ(OrvanePresetCommand("musi", 0, &id, values), 0);
}

}  // namespace
