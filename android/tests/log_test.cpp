// Tests the log lines that the platform's own log library receives.
#include <android/log.h>
#include <gtest/gtest.h>

#include <string>

#include "platform/log.h"

namespace {

struct Line {
    int priority = -1;
    std::string tag, text;
    int count = 0;
};
Line received;

void Keep(const __android_logger_data* line, const char* text) {
    received.priority = line->priority;
    received.tag = line->tag;
    received.text = text;
    ++received.count;
}

TEST(Log, LinesReachThePlatformAtInformationLevelUnderTheTag) {
    __android_log_set_logger(Keep);
    LogInfo("Configuring channels, in = %d, out = %s", 3, "%s%n");
    EXPECT_EQ(received.priority, 4);
    EXPECT_EQ(received.tag, "Quenthra_v2");
    EXPECT_EQ(received.text, "Configuring channels, in = 3, out = %s%n");
    LogInfo("%s", std::string(600, 'x').c_str());
    EXPECT_EQ(received.text, std::string(511, 'x'));
    EXPECT_EQ(received.count, 2);
}

}  // namespace
