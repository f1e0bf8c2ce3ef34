// The log of a stream that plays inside someone else's program: none.
#include "platform/log.h"

void LogInfo(const char* /*format*/, ...) {}
