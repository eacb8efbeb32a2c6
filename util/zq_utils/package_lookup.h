// Queries the package manager. Each function returns 0 on success and -1 on failure.
#pragma once

#include <string>

// Stores the root path of the package, for the user that the installer works for.
int getRootPath(const std::string& packageId, std::string& rootPath);

// Stores the file name of the main application's executable.
int getExecName(std::string packageId, std::string& execName);

// Stores the value of a metadata key of the main application. If the key has no value, returns 0
// and leaves `value` unchanged; callers must test `value`.
int getMetadataValue(std::string packageId, std::string key, std::string& value);
