// What the package manager knows of a package. 0 on success, -1 on failure.
#pragma once

#include <string>

// The package's root path, for the user that the installer works for.
int getRootPath(const std::string& packageId, std::string& rootPath);

// The file name of the main application's executable.
int getExecName(std::string packageId, std::string& execName);

// The value of a metadata key of the main application. 0 also when the key has no value: `value`
// is then left as it was, so test it and not the result.
int getMetadataValue(std::string packageId, std::string key, std::string& value);
