/* The native library for apps imports these functions beside those of the device's stand-ins (device/libc.c
 * and device/libm.c). Android 5.0 (SDK 21) has them. */
#include "android/device/platform_function.h"

#ifdef PLATFORM_LIBM
PLATFORM_FUNCTION(floor)
PLATFORM_FUNCTION(log10)
#else
PLATFORM_FUNCTION(memchr)
PLATFORM_FUNCTION(strcmp)
PLATFORM_FUNCTION(strlen)
#endif
