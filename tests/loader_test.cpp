// A stand-in for the platform around the shared library: the loader, with global functions of the
// same names as the library's own, and the server that hands an application's calls over in blocks
// of exactly the application's size.
#include <gtest/gtest.h>

#include <string>

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

// The record of a library that the platform would accept, else null.
const audio_effect_library_t* Accepted() {
    const audio_effect_library_t& record = LoadedLibrary();
    if (record.tag != 0x41454C54 || record.version >> 16 != 2) return nullptr;
    return &record;
}

// One application's effect. Every block it hands over is its own, ends where it ends, and is
// unmapped after the call.
class Application {
public:
    explicit Application(const effect_uuid_s& uuid) { record->create_effect(&uuid, 1, 2, &handle); }
    ~Application() { record->release_effect(handle); }
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    struct Result {
        int32_t status;                    // of the call
        std::vector<unsigned char> reply;  // as long as the library says
        int32_t Word(size_t at) const {
            int32_t word = -1;
            if (reply.size() >= at + 4) std::memcpy(&word, reply.data() + at, 4);
            return word;
        }
    };
    Result Command(uint32_t code, const std::vector<unsigned char>& data, uint32_t replySize) {
        GuardedBlock command(data.size() + 1), reply(replySize + 1);
        unsigned char* const replyData = reply.Last(replySize);
        std::memset(replyData, 0x5A, replySize);
        Result result = {};
        uint32_t size = replySize;
        result.status =
            (*handle)->command(handle, code, static_cast<uint32_t>(data.size()),
                               command.Hold(data.data(), data.size()), &size, replyData);
        result.reply.assign(replyData, replyData + std::min(size, replySize));
        return result;
    }

    // getParameter(int, T[valueBytes / sizeof(T)]): the platform offers header, identifier, value.
    Result GetParameter(int32_t id, uint32_t valueBytes) {
        return Command(EFFECT_CMD_GET_PARAM, Bytes({0, 4, static_cast<int32_t>(valueBytes), id}),
                       16 + valueBytes);
    }

    static std::vector<unsigned char> Bytes(std::vector<int32_t> words) {
        std::vector<unsigned char> bytes(4 * words.size());
        std::memcpy(bytes.data(), words.data(), bytes.size());
        return bytes;
    }

    effect_handle_t handle = nullptr;

private:
    const audio_effect_library_t* record = Accepted();
};

class Loader : public testing::Test {
protected:
    MutedLog muted;
};

TEST_F(Loader, FindsTheEffectByItsRecordAlone) {
    const audio_effect_library_t* const record = Accepted();
    ASSERT_NE(record, nullptr);
    uint32_t count = 0;
    ASSERT_EQ(record->query_num_effects(&count), 0);
    ASSERT_EQ(count, 1U);
    effect_descriptor_t listed = {}, found = {}, own = {};
    ASSERT_EQ(record->query_effect(0, &listed), 0);
    EXPECT_EQ(listed.apiVersion >> 16, 2U);
    ASSERT_EQ(record->get_descriptor(&listed.uuid, &found), 0);
    EXPECT_EQ(std::memcmp(&listed, &found, sizeof found), 0);
    const Application application(listed.uuid);
    ASSERT_NE(application.handle, nullptr);
    ASSERT_EQ((*application.handle)->get_descriptor(application.handle, &own), 0);
    EXPECT_EQ(std::memcmp(&own, &found, sizeof found), 0);
    EXPECT_EQ((*application.handle)->process_reverse, nullptr);
}

TEST_F(Loader, AnApplicationsBlocksAreEnoughOrRefused) {
    Application app(kOrvaneUuid);
    for (const uint32_t valueBytes : {4U, 8U}) {  // int[1], int[2]
        const auto answer = app.GetParameter(PARAM_GET_VERSION, valueBytes);
        ASSERT_EQ(answer.reply.size(), 20U);
        EXPECT_EQ(answer.Word(0), 0);
        EXPECT_EQ(answer.Word(8), 4);
        EXPECT_EQ(answer.Word(16), 0x02010002);
    }
    for (const uint32_t valueBytes : {2U, 1U, 0U}) {  // short[1], byte[1], none
        const auto answer = app.GetParameter(PARAM_GET_VERSION, valueBytes);
        ASSERT_EQ(answer.reply.size(), 12U);
        EXPECT_EQ(answer.Word(0), -22);
        EXPECT_EQ(answer.Word(8), 0);
    }
    const auto set = [&](const std::vector<int32_t>& words) {
        return app.Command(EFFECT_CMD_SET_PARAM, Application::Bytes(words), 4).Word(0);
    };
    EXPECT_EQ(set({0, 4, 8, PARAM_SET_MODE, 1}), -22);  // shorter than its value size
    EXPECT_EQ(app.GetParameter(PARAM_GET_MODE, 4).Word(16), 0);
    EXPECT_EQ(set({0, 4, 4, PARAM_SET_MODE, 1}), 0);
    EXPECT_EQ(app.GetParameter(PARAM_GET_MODE, 4).Word(16), 1);
    for (size_t size = 1; size < 64; ++size) {
        const std::vector<unsigned char> part(size);
        EXPECT_EQ(app.Command(EFFECT_CMD_CONFIGURE, part, 4).Word(0), -22) << size;
    }
    const std::vector<unsigned char> untouched(65536, 0x5A);
    for (const uint32_t code : {9U, 12U, 19U, 65536U, 0xFFFFFFFFU}) {
        const auto answer = app.Command(code, std::vector<unsigned char>(65536), 65536);
        EXPECT_EQ(answer.status, 0);
        EXPECT_EQ(answer.reply, untouched);
    }
}

// A client in the server's own process hands the same memory over for command and reply.
TEST_F(Loader, OneBlockMayBeCommandAndReply) {
    const Application app(kOrvaneUuid);
    GuardedBlock block(20);
    const int32_t request[5] = {9, 4, 4, PARAM_GET_CHANNELS, 9};
    std::memcpy(block.Last(20), request, sizeof request);
    uint32_t size = 20;
    (*app.handle)
        ->command(app.handle, EFFECT_CMD_GET_PARAM, 16, block.Last(20), &size, block.Last(20));
    const int32_t answer[5] = {0, 4, 4, PARAM_GET_CHANNELS, 2};
    EXPECT_EQ(size, 20U);
    EXPECT_EQ(std::memcmp(block.Last(20), answer, sizeof answer), 0);
}

TEST_F(Loader, TheServersMixerRunsItInPlace) {
    Application app(kOrvaneUuid);
    const effect_config_t config = MakeConfig(44100, 2);
    std::vector<unsigned char> bytes(sizeof config);
    std::memcpy(bytes.data(), &config, sizeof config);
    ASSERT_EQ(app.Command(EFFECT_CMD_INIT, {}, 4).Word(0), 0);
    ASSERT_EQ(app.Command(EFFECT_CMD_CONFIGURE, bytes, 4).Word(0), 0);
    ASSERT_EQ((*app.handle)->command(app.handle, EFFECT_CMD_RESET, 0, nullptr, nullptr, nullptr),
              0);
    ASSERT_EQ(app.Command(EFFECT_CMD_ENABLE, {}, 4).Word(0), 0);
    // At rest the output limiters delay by 255 frames and scale by 0.998.
    const std::vector<int16_t> in = NoiseSamples(8192, 8000);
    constexpr size_t kSamples = 2048, kBytes = 2 * kSamples;
    GuardedBlock block(kBytes);
    auto* const samples = reinterpret_cast<int16_t*>(block.Last(kBytes));
    audio_buffer_s buffer = {kSamples / 2, samples};
    for (size_t at = 0; at < in.size(); at += kSamples) {
        std::copy_n(in.data() + at, kSamples, samples);
        ASSERT_EQ((*app.handle)->process(app.handle, &buffer, &buffer), 0);
        for (size_t i = 0; i < kSamples; ++i) {
            const double expected = at + i < 510 ? 0 : 0.998 * in[at + i - 510];
            ASSERT_NEAR(samples[i], expected, 1.5) << at + i;
        }
    }
    ASSERT_EQ(app.Command(EFFECT_CMD_DISABLE, {}, 4).Word(0), 0);
    EXPECT_EQ((*app.handle)->process(app.handle, &buffer, &buffer), -61);
}

}  // namespace
