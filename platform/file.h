// Files of the device's data directory.
#pragma once

// Whether "/data/<name>" exists, whatever its contents. A path beyond 511 characters is cut.
bool DataFileExists(const char* name);
