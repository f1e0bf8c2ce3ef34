// Tests the library of interface 3.0 as the loaders and media servers of Android 4.3 to 13 use it.
// The environment variable ORVANE_LIBRARY names the file. The other tests of the record and the
// recorded runs play it, too.
#include "later_loader.h"

#include <gtest/gtest.h>

#include "client/library_file.h"
#include "library_under_test.h"

namespace {

TEST(LaterLoader, LoadsTheFileAndRefusesOthers) {
    const std::string path = std::getenv("ORVANE_LIBRARY");
    const LaterLibrary later(path);
    ASSERT_EQ(later.Fault(), "");
    EXPECT_STREQ(later.Record().name, "Quenthra Orvane v2");
    EXPECT_STREQ(later.Record().implementor, "Hollin.RDT");
    EXPECT_EQ(LaterLibrary(ORVANE_LIBRARY_PATH).Fault(), "the library interface isn't 3");
    EXPECT_EQ(LibraryFile(path).Fault(),
              path + " is made for another version of the effect interface");
}

TEST(LaterLoader, RefusesWhatAMediaServerWantsFirstAndPlays16BitStereo) {
    constexpr uint32_t kStereo = 0x3, kSixChannels = 0x3F;
    constexpr uint8_t k16Bit = 1, kFloat = 5;
    const struct {
        uint32_t rateHz, channelMask;
        uint8_t format;
    } offers[] = {{96000, kSixChannels, kFloat}, {96000, kStereo, kFloat},
                  {96000, kStereo, k16Bit},      {48000, kSixChannels, kFloat},
                  {48000, kStereo, kFloat},      {48000, kSixChannels, k16Bit},
                  {48000, kStereo, k16Bit}};
    Instance instance, plain;
    plain.Start(48000, 2);
    instance.Initialise();
    const std::vector<int16_t> noise = NoiseSamples(9000, 20000);
    std::vector<int16_t> out(noise.size());
    const auto process = [&] {
        LaterBuffer from = {noise.size() / 2, noise.data()}, to = {noise.size() / 2, out.data()};
        return (*instance.handle)
            ->process(instance.handle, reinterpret_cast<audio_buffer_s*>(&from),
                      reinterpret_cast<audio_buffer_s*>(&to));
    };
    for (const auto& offer : offers) {
        LaterConfig side = {{}, offer.rateHz, offer.channelMask, {}, offer.format, 1, 0x1E};
        LaterConfig both[2] = {side, side};
        both[1].accessMode = 0;
        const bool accepted = &offer == std::end(offers) - 1;
        EXPECT_EQ(instance.Command(EFFECT_CMD_CONFIGURE, sizeof both, both), accepted ? 0 : -22);
        instance.SwitchEverythingOn();
        instance.Enable();
        EXPECT_EQ(process(), accepted ? 0 : -61) << offer.rateHz << ' ' << offer.channelMask;
    }
    EXPECT_TRUE(out == plain.Run(noise, static_cast<uint32_t>(noise.size() / 2), 2));
}

}  // namespace
