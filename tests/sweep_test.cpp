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
                ASSERT_TRUE(status == 0 && *replySize <= offered &&
                            std::count(margin, margin + kMargin, kFill) == kMargin)
                    << "code " << code << ", size " << commandSize << ", reply " << offered
                    << " became " << *replySize;
            }
        }
    }
}

}  // namespace
