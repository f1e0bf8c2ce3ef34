// A stand-in for the platform around the shared library: the loader, with global functions of the
// same names as the library's own, and the server that hands an application's calls over in blocks
// of exactly the application's size.
#include <gtest/gtest.h>

#include <algorithm>

#include "framework_client.h"
#include "guarded_block.h"
#include "muted_log.h"

// The platform's loader exports these; a library that calls them instead of its own never returns.
#define LOADER_FUNCTION(name)                                          \
    extern "C" __attribute__((visibility("default"))) int32_t name() { \
        std::abort();                                                  \
    }
LOADER_FUNCTION(EffectQueryNumberEffects)
LOADER_FUNCTION(EffectQueryEffect)
LOADER_FUNCTION(EffectCreate)
LOADER_FUNCTION(EffectRelease)
LOADER_FUNCTION(EffectGetDescriptor)

namespace {

// An application's call as the server hands it over: each block a copy that ends at unreadable
// memory and is unmapped after the call. Returns the reply's words, as many as the library says.
std::vector<int32_t> Command(Instance& app, uint32_t code, const void* data, size_t size,
                             uint32_t offered) {
    GuardedBlock command(size), reply(offered);
    std::memset(reply.Last(offered), 0x5A, offered);
    uint32_t replySize = offered;
    EXPECT_EQ((*app.handle)
                  ->command(app.handle, code, static_cast<uint32_t>(size), command.Hold(data, size),
                            &replySize, reply.Last(offered)),
              0);
    std::vector<int32_t> words(std::min(replySize, offered) / 4);
    if (!words.empty()) std::memcpy(words.data(), reply.Last(offered), 4 * words.size());
    return words;
}

TEST(Loader, FindsTheEffectByItsRecordAlone) {
    const MutedLog muted;
    const audio_effect_library_t& record = LoadedLibrary();
    ASSERT_EQ(record.tag, 0x41454C54U);
    ASSERT_EQ(record.version >> 16, 2U);
    uint32_t count = 0;
    ASSERT_EQ(record.query_num_effects(&count), 0);
    ASSERT_EQ(count, 1U);
    effect_descriptor_t listed = {}, found = {}, own = {};
    ASSERT_EQ(record.query_effect(0, &listed), 0);
    EXPECT_EQ(listed.apiVersion >> 16, 2U);
    ASSERT_EQ(record.get_descriptor(&listed.uuid, &found), 0);
    EXPECT_EQ(std::memcmp(&listed, &found, sizeof found), 0);
    effect_handle_t handle = nullptr;
    ASSERT_EQ(record.create_effect(&listed.uuid, 1, 2, &handle), 0);
    const Instance app(handle);
    ASSERT_EQ((*handle)->get_descriptor(handle, &own), 0);
    EXPECT_EQ(std::memcmp(&own, &found, sizeof found), 0);
    EXPECT_EQ((*handle)->process_reverse, nullptr);
}

TEST(Loader, AnApplicationsBlocksAreEnoughOrRefused) {
    constexpr int32_t kLeft = 0x5A5A5A5A;  // as offered
    constexpr uint32_t kSet = EFFECT_CMD_SET_PARAM, kGet = EFFECT_CMD_GET_PARAM;
    const struct {
        uint32_t code;
        std::vector<int32_t> command;
        uint32_t offered;
        std::vector<int32_t> reply;
    } rows[] = {
        // getParameter into int[1], int[2], short[1], byte[1] and nothing
        {kGet, {0, 4, 4, PARAM_GET_VERSION}, 20, {0, kLeft, 4, kLeft, 0x02010002}},
        {kGet, {0, 4, 8, PARAM_GET_VERSION}, 24, {0, kLeft, 4, kLeft, 0x02010002}},
        {kGet, {0, 4, 2, PARAM_GET_VERSION}, 18, {-22, kLeft, 0}},
        {kGet, {0, 4, 1, PARAM_GET_VERSION}, 17, {-22, kLeft, 0}},
        {kGet, {0, 4, 0, PARAM_GET_VERSION}, 16, {-22, kLeft, 0}},
        {kSet, {0, 4, 8, PARAM_SET_MODE, 1}, 4, {-22}},  // shorter than its value size
        {kGet, {0, 4, 4, PARAM_GET_MODE}, 20, {0, kLeft, 4, kLeft, 0}},
        {kSet, {0, 4, 4, PARAM_SET_MODE, 1}, 4, {0}},
        {kGet, {0, 4, 4, PARAM_GET_MODE}, 20, {0, kLeft, 4, kLeft, 1}},
    };
    const MutedLog muted;
    Instance app;
    for (const auto& row : rows)
        EXPECT_EQ(Command(app, row.code, row.command.data(), 4 * row.command.size(), row.offered),
                  row.reply)
            << &row - rows;
    const std::vector<unsigned char> zeros(65536);
    for (size_t size = 1; size < 64; ++size)
        EXPECT_EQ(Command(app, EFFECT_CMD_CONFIGURE, zeros.data(), size, 4),
                  std::vector<int32_t>{-22})
            << size;
    for (const uint32_t code : {9U, 12U, 19U, 65536U, 0xFFFFFFFFU})
        EXPECT_EQ(Command(app, code, zeros.data(), 65536, 65536), std::vector(16384, kLeft));

    // A client in the server's own process hands the same memory over for command and reply.
    int32_t block[] = {9, 4, 4, PARAM_GET_CHANNELS, 9};
    uint32_t size = sizeof block;
    (*app.handle)->command(app.handle, EFFECT_CMD_GET_PARAM, 16, block, &size, block);
    const int32_t answer[] = {0, 4, 4, PARAM_GET_CHANNELS, 2};
    EXPECT_EQ(size, sizeof answer);
    EXPECT_EQ(std::memcmp(block, answer, sizeof answer), 0);
}

TEST(Loader, TheServersMixerRunsItInPlace) {
    const MutedLog muted;
    Instance app;
    ASSERT_EQ(app.Command(EFFECT_CMD_INIT), 0);
    ASSERT_EQ(app.Configure(44100, 2), 0);
    app.Reset();
    ASSERT_EQ(app.Enable(), 0);
    // At rest the output limiters delay by 255 frames and scale by 0.998.
    const std::vector<int16_t> in = NoiseSamples(8192, 8000);
    constexpr size_t kSamples = 2048, kBytes = 2 * kSamples;
    GuardedBlock block(kBytes);
    auto* const samples = reinterpret_cast<int16_t*>(block.Last(kBytes));
    for (size_t at = 0; at < in.size(); at += kSamples) {
        std::copy_n(in.data() + at, kSamples, samples);
        ASSERT_EQ(app.Process(samples, samples, kSamples / 2), 0);
        for (size_t i = 0; i < kSamples; ++i) {
            const double expected = at + i < 510 ? 0 : 0.998 * in[at + i - 510];
            ASSERT_NEAR(samples[i], expected, 1.5) << at + i;
        }
    }
    ASSERT_EQ(app.Disable(), 0);
    EXPECT_EQ(app.Process(samples, samples, kSamples / 2), -61);
}

}  // namespace
