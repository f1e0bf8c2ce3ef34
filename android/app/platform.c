/* Makes the stand-ins for the platform's libc and libm, as device/libc.c does. They have all that
 * the native library for apps may import; Android 5.0 (SDK 21) has these functions. */
#include "android/device/platform_function.h"

#ifdef PLATFORM_LIBM
PLATFORM_FUNCTION(cos)
PLATFORM_FUNCTION(cosf)
PLATFORM_FUNCTION(exp)
PLATFORM_FUNCTION(floor)
PLATFORM_FUNCTION(log10)
PLATFORM_FUNCTION(logf)
PLATFORM_FUNCTION(pow)
PLATFORM_FUNCTION(powf)
PLATFORM_FUNCTION(sin)
PLATFORM_FUNCTION(sinf)
PLATFORM_FUNCTION(sqrt)
PLATFORM_FUNCTION(sqrtf)
#else
PLATFORM_FUNCTION(abort)
PLATFORM_FUNCTION(access)
PLATFORM_FUNCTION(calloc)
PLATFORM_FUNCTION(free)
PLATFORM_FUNCTION(gettimeofday)
PLATFORM_FUNCTION(malloc)
PLATFORM_FUNCTION(memchr)
PLATFORM_FUNCTION(memcmp)
PLATFORM_FUNCTION(memcpy)
PLATFORM_FUNCTION(memmove)
PLATFORM_FUNCTION(memset)
PLATFORM_FUNCTION(pthread_mutex_destroy)
PLATFORM_FUNCTION(pthread_mutex_init)
PLATFORM_FUNCTION(pthread_mutex_lock)
PLATFORM_FUNCTION(pthread_mutex_unlock)
PLATFORM_FUNCTION(raise)
PLATFORM_FUNCTION(snprintf)
PLATFORM_FUNCTION(strcmp)
PLATFORM_FUNCTION(strlen)
PLATFORM_FUNCTION(strtod)
#endif
