#include "platform/file.h"

#include <unistd.h>

#include <cstdio>

bool DataFileExists(const char* name) {
    char path[512] = {};
    std::snprintf(path, sizeof path, "/data/%s", name);
    return access(path, F_OK) == 0;
}
