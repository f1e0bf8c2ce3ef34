#include "platform/system.h"

#include <sys/time.h>
#include <unistd.h>

#include <cstdio>

bool DataFileExists(const char* name) {
    char path[512] = {};
    std::snprintf(path, sizeof path, "/data/%s", name);
    return access(path, F_OK) == 0;
}

int32_t WrappedMilliseconds(int64_t seconds, int64_t microseconds) {
    const uint32_t wholeMs = static_cast<uint32_t>(seconds) * 1000U;
    return static_cast<int32_t>(wholeMs + static_cast<uint32_t>(microseconds / 1000));
}

int32_t WallClockMilliseconds() {
    timeval now = {};
    gettimeofday(&now, nullptr);
    return WrappedMilliseconds(now.tv_sec, now.tv_usec);
}
