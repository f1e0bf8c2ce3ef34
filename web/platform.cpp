// The platform layer of a page: it has no log, no marker file and no clock. The module imports
// nothing.
#include "platform/log.h"
#include "platform/system.h"

void LogInfo(const char*, ...) {}

bool DataFileExists(const char*) {
    return false;
}

int32_t WallClockMilliseconds() {
    return 0;
}

// The C library's functions for formatted text refer to these functions for streams. Nothing here
// opens a stream.
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
