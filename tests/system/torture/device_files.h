// The device files that torture tests examine and damage.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace quillon::torture {

// Creates folders with enough assemblies for a list of several pages. Call it inside the device
// root.
void makeAssemblies();

// Returns the list that a launch must return: all assemblies in the order of the folders and,
// within a folder, of readdir(3). Uses only the standard library, not the code under test.
std::string expectedList();

// The final and temporary paths of the cached TPA list and of the other list.
std::filesystem::path cachePath();
std::filesystem::path temporaryPath();

void writeFile(const std::filesystem::path& path, const std::string& content);
std::optional<std::string> readFile(const std::filesystem::path& path);
std::string whole(const std::string& payload);

// Removes everything from the cache directory.
void clearCaches();

// Returns the names in the cache directory, sorted.
std::vector<std::string> namesInCacheDirectory();

}  // namespace quillon::torture
