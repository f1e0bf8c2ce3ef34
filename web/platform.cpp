// The platform of a page: no log, no marker file, no clock. The module imports nothing.
#include "platform/clock.h"
#include "platform/file.h"
#include "platform/log.h"

void LogInfo(const char*, ...) {}

bool DataFileExists(const char*) {
    return false;
}

int32_t WallClockMilliseconds() {
    return 0;
}

// The C library's formatted text comes with streams, which nothing here opens.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
constexpr int32_t kBadFile = 8;
int32_t __imported_wasi_snapshot_preview1_fd_close(int32_t) {
    return kBadFile;
}
int32_t __imported_wasi_snapshot_preview1_fd_seek(int32_t, int64_t, int32_t, int32_t) {
    return kBadFile;
}
int32_t __imported_wasi_snapshot_preview1_fd_write(int32_t, int32_t, int32_t, int32_t) {
    return kBadFile;
}
}
// NOLINTEND(bugprone-reserved-identifier)
