// Sends every command code with all sizes of command and reply around the valid ones, and without a
// reply block or size. Both blocks end at unreadable memory, and the command's cannot be written.
// An access outside crashes the test.
#include <gtest/gtest.h>

#include <algorithm>

#include "client/stderr_silencer.h"
#include "library_under_test.h"
#include "routine_call.h"

namespace {

constexpr uint32_t kCodes = 28, kCommandSizes = 142, kReplySizes = 43;
constexpr size_t kMargin = 64;  // bytes before the reply
constexpr unsigned char kFill = 0xA5;

// One call and the reply that it must give.
struct Call {
    uint32_t code, size, record;  // record: size of a complete record in bytes
    uint32_t offered;
    bool withSize, withBlock;

    // Returns the bytes of the reply, 0 if it does not fit, -1 if there is none.
    int Bytes() const {
        const uint32_t room = withBlock ? offered : 0;
        if (code == EFFECT_CMD_GET_PARAM)
            return room >= 20 && size >= record ? 20 : room >= 12 ? 12 : 0;
        const bool silent = code == EFFECT_CMD_RESET || code == EFFECT_CMD_SET_PARAM_DEFERRED;
        if (silent || code > EFFECT_CMD_GET_PARAM) return -1;
        return room >= 4 ? 4 : 0;
    }
    int32_t Status() const {
        if (code == EFFECT_CMD_GET_PARAM) return Bytes() == 20 ? 0 : -22;
        const bool reads = code == EFFECT_CMD_CONFIGURE || code == EFFECT_CMD_SET_PARAM;
        return reads && size < record ? -22 : 0;
    }
};

TEST(Sweep, NoCommandLeavesItsBlocksAndEveryReplyFits) {
    const StderrSilencer muted;
    Instance instance;
    GuardedBlock command(kCommandSizes), reply(kMargin + kReplySizes);
    const effect_config_t config = MakeConfig(44100, 2);
    const auto send = [&](const Call& c, void* data) {
        unsigned char* const margin = reply.Last(kMargin + c.offered);
        unsigned char* const block = reply.Last(c.offered);
        std::memset(margin, kFill, kMargin + c.offered);
        uint32_t replySize = c.offered;
        const int32_t result =
            (*instance.handle)
                ->command(instance.handle, c.code, c.size, data, c.withSize ? &replySize : nullptr,
                          c.withBlock ? block : nullptr);
        int written = static_cast<int>(c.offered), status = c.Status();
        while (written > 0 && block[written - 1] == kFill) --written;
        if (written >= 4) std::memcpy(&status, block, 4);
        const int bytes = c.Bytes();
        const uint32_t sizeAfter =
            c.withSize && bytes >= 0 ? static_cast<uint32_t>(bytes) : c.offered;
        ASSERT_TRUE(result == 0 && replySize == sizeAfter && written == std::max(bytes, 0) &&
                    status == c.Status() && std::count(margin, margin + kMargin, kFill) == kMargin)
            << "code " << c.code << ", size " << c.size << ", offered " << c.offered
            << (c.withSize ? "" : ", no size") << (c.withBlock ? "" : ", no block") << ": size "
            << replySize << ", written " << written << ", status " << status;
    };
    for (uint32_t code = 0; code < kCodes; ++code) {
        for (uint32_t size = 0; size < kCommandSizes && !HasFatalFailure(); ++size) {
            unsigned char content[kCommandSizes] = {};
            const bool get = code == EFFECT_CMD_GET_PARAM, configure = code == EFFECT_CMD_CONFIGURE;
            const auto i = static_cast<int32_t>(size);
            const int32_t words[] = {
                0, 4, 4 + 4 * (i % 4), get ? PARAM_GET_VERSION : PARAM_SET_MODE + i % 12, 1, 2,
                3, 4};
            std::memcpy(content, words, sizeof words);
            if (configure) std::memcpy(content, &config, sizeof config);
            const size_t record = configure ? sizeof config : get ? 16 : 20 + 4 * (size % 4);
            void* const data = command.Hold(content, size);
            Call call = {code, size, static_cast<uint32_t>(record), 4, false, true};
            send(call, data);
            call.withSize = true;
            for (call.offered = 0; call.offered < kReplySizes; ++call.offered) send(call, data);
            call.offered = 20;
            call.withBlock = false;
            send(call, data);
        }
    }
}

}  // namespace
