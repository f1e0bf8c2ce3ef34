// Every command code with every size of command and reply around those that mean something. Both
// blocks end at unreadable memory, and the command's can't be written, so a step outside crashes.
#include <gtest/gtest.h>

#include <algorithm>

#include "framework_client.h"
#include "guarded_block.h"
#include "muted_log.h"

namespace {

constexpr uint32_t kCodes = 28, kCommandSizes = 142, kReplySizes = 43;
constexpr size_t kMargin = 64;  // in front of the reply
constexpr unsigned char kFill = 0xA5;

struct Expected {
    uint32_t replySize;
    std::vector<std::pair<size_t, int32_t>> words;  // offset, value
};

// What the library is to answer to the test's blocks, which are valid as far as they go.
Expected Answer(uint32_t code, uint32_t size, uint32_t offered) {
    if (code == EFFECT_CMD_GET_PARAM) {
        if (size >= 16 && offered >= 20) return {20, {{0, 0}, {8, 4}, {16, 0x02010002}}};
        if (offered >= 12) return {12, {{0, -22}, {8, 0}}};
        return {0, {}};
    }
    constexpr uint32_t kWithStatus[] = {EFFECT_CMD_INIT,      EFFECT_CMD_CONFIGURE,
                                        EFFECT_CMD_ENABLE,    EFFECT_CMD_DISABLE,
                                        EFFECT_CMD_SET_PARAM, EFFECT_CMD_SET_PARAM_COMMIT};
    if (std::ranges::count(kWithStatus, code) == 0) return {offered, {}};
    if (offered < 4) return {0, {}};
    const uint32_t needed = code == EFFECT_CMD_CONFIGURE   ? sizeof(effect_config_t)
                            : code == EFFECT_CMD_SET_PARAM ? 16 + 4 * (1 + size % 4)
                                                           : 0;
    return {offered, {{0, size < needed ? -22 : 0}}};
}

TEST(Sweep, NoCommandLeavesItsBlocksAndEveryReplyFits) {
    const MutedLog muted;
    Instance instance;
    GuardedBlock command(kCommandSizes), reply(kMargin + kReplySizes), size(sizeof(uint32_t));
    const effect_config_t config = MakeConfig(44100, 2);
    for (uint32_t code = 0; code < kCodes; ++code) {
        for (uint32_t commandSize = 0; commandSize < kCommandSizes; ++commandSize) {
            unsigned char content[kCommandSizes] = {};
            const int32_t values = 1 + static_cast<int32_t>(commandSize % 4);
            const int32_t id = code == EFFECT_CMD_GET_PARAM
                                   ? PARAM_GET_VERSION
                                   : PARAM_SET_MODE + static_cast<int32_t>(commandSize % 12);
            const int32_t record[] = {0, 4, 4 * values, id, 1, 2, 3, 4};
            if (code == EFFECT_CMD_CONFIGURE)
                std::memcpy(content, &config, sizeof config);
            else
                std::memcpy(content, record, sizeof record);
            void* const data = command.Hold(content, commandSize);
            for (uint32_t offered = 0; offered < kReplySizes; ++offered) {
                auto* const replySize = reinterpret_cast<uint32_t*>(size.Last(sizeof(uint32_t)));
                *replySize = offered;
                unsigned char* const margin = reply.Last(kMargin + offered);
                std::memset(margin, kFill, kMargin + offered);
                const int32_t status = (*instance.handle)
                                           ->command(instance.handle, code, commandSize, data,
                                                     replySize, reply.Last(offered));
                const Expected expected = Answer(code, commandSize, offered);
                unsigned char bytes[kMargin + kReplySizes];
                std::memset(bytes, kFill, sizeof bytes);
                for (const auto& [at, word] : expected.words)
                    std::memcpy(bytes + kMargin + at, &word, sizeof word);
                ASSERT_TRUE(status == 0 && *replySize == expected.replySize &&
                            std::memcmp(margin, bytes, kMargin + offered) == 0)
                    << "code " << code << ", size " << commandSize << ", reply " << offered
                    << " became " << *replySize;
            }
        }
    }
}

}  // namespace
