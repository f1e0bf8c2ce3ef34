// Files of the device's data directory.
#pragma once

// Returns true if the file "/data/<name>" exists. A path longer than 511 characters is cut.
bool DataFileExists(const char* name);
