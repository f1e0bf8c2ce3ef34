// Every command code with every size of command and reply around those that mean something. Both
// blocks end at unreadable memory, and the command's can't be written, so a step outside crashes.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>

#include "framework_client.h"
#include "guarded_block.h"
#include "muted_log.h"

namespace {

constexpr uint32_t kCodes = 28, kCommandSizes = 142, kReplySizes = 43;
constexpr size_t kMargin = 64;  // in front of the reply
constexpr unsigned char kFill = 0xA5;

struct {
    uint32_t code, size, reply;
} current;

void NameTheCase(int) {
    char text[100];
    const int length = std::snprintf(text, sizeof text, "fault at code %u, size %u, reply %u\n",
                                     current.code, current.size, current.reply);
    if (write(STDOUT_FILENO, text, static_cast<size_t>(length)) >= 0) _exit(1);
}

struct Expected {
    uint32_t replySize;
    std::vector<std::pair<size_t, int32_t>> words;  // offset, value
};

// What the library is to answer; the content of a block is what Content makes.
Expected Answer(uint32_t code, uint32_t size, uint32_t offered) {
    int32_t status = 0;
    switch (code) {
        case EFFECT_CMD_CONFIGURE:
            status = size < sizeof(effect_config_t) ? -22 : 0;
            break;
        case EFFECT_CMD_SET_PARAM:
            status = size < 20 || size < 16 + 4 * (1 + size % 4) ? -22 : 0;
            break;
        case EFFECT_CMD_GET_PARAM:
            if (size >= 16 && offered >= 20) return {20, {{0, 0}, {8, 4}, {16, 0x02010002}}};
            if (offered >= 12) return {12, {{0, -22}, {8, 0}}};
            return {0, {}};
        case EFFECT_CMD_INIT:
        case EFFECT_CMD_ENABLE:
        case EFFECT_CMD_DISABLE:
        case EFFECT_CMD_SET_PARAM_COMMIT:
            break;
        default:
            return {offered, {}};
    }
    if (offered < 4) return {0, {}};
    return {offered, {{0, status}}};
}

// A command block that is valid as far as it goes.
std::vector<unsigned char> Content(uint32_t code, uint32_t size) {
    std::vector<unsigned char> bytes(256, 0xFF);
    if (code == EFFECT_CMD_CONFIGURE) {
        const effect_config_t config = MakeConfig(44100, 2);
        std::memcpy(bytes.data(), &config, sizeof config);
    } else {
        const auto id = static_cast<int32_t>(PARAM_SET_MODE + size % 12);
        const int32_t words[] = {0,
                                 4,
                                 static_cast<int32_t>(4 * (1 + size % 4)),
                                 code == EFFECT_CMD_GET_PARAM ? PARAM_GET_VERSION : id,
                                 1,
                                 2,
                                 3,
                                 4};
        std::memcpy(bytes.data(), words, sizeof words);
    }
    return bytes;
}

TEST(Sweep, NoCommandLeavesItsBlocksAndEveryReplyFits) {
    const MutedLog muted;
    std::signal(SIGSEGV, NameTheCase);
    std::signal(SIGBUS, NameTheCase);
    Instance instance;
    GuardedBlock command(kCommandSizes), reply(kMargin + kReplySizes), size(sizeof(uint32_t));
    for (uint32_t code = 0; code < kCodes; ++code) {
        for (uint32_t commandSize = 0; commandSize < kCommandSizes; ++commandSize) {
            void* const data = command.Hold(Content(code, commandSize).data(), commandSize);
            for (uint32_t offered = 0; offered < kReplySizes; ++offered) {
                current = {code, commandSize, offered};
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
    std::signal(SIGSEGV, SIG_DFL);
    std::signal(SIGBUS, SIG_DFL);
}

}  // namespace
