#include "fake_device.h"

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

// On a device, a library that called these instead of its own functions would never return.
#define LOADER_FUNCTION(name)   \
    extern "C" int32_t name() { \
        std::abort();           \
    }
LOADER_FUNCTION(EffectQueryNumberEffects)
LOADER_FUNCTION(EffectQueryEffect)
LOADER_FUNCTION(EffectCreate)
LOADER_FUNCTION(EffectRelease)
LOADER_FUNCTION(EffectGetDescriptor)

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library reserves its own

extern "C" int access(const char* path, int mode) noexcept {
    if (std::strcmp(path, "/data/qth_ov_safemode.sig") != 0)
        return faccessat(AT_FDCWD, path, mode, 0);
    ++device.markerLookups;
    if (device.markerExists && mode == F_OK) return 0;
    errno = ENOENT;
    return -1;
}

extern "C" int gettimeofday(timeval* now, void* /*zone*/) noexcept {
    const int64_t fakeUs = device.clockUs;
    timespec real = {};
    clock_gettime(CLOCK_REALTIME, &real);
    now->tv_sec = fakeUs < 0 ? real.tv_sec : static_cast<time_t>(fakeUs / 1000000);
    now->tv_usec = static_cast<suseconds_t>(fakeUs < 0 ? real.tv_nsec / 1000 : fakeUs % 1000000);
    return 0;
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)
