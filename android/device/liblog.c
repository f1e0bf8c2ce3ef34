#include "platform_function.h"

PLATFORM_FUNCTION(__android_log_print)
