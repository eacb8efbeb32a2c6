// The files of the device that torture tests look at and damage.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace quillon::torture {

// Folders with assemblies, enough for a list of several pages. Call it inside the device root.
void makeAssemblies();

// The list that a launch must return: every assembly in the order of the folders and, in a folder,
// of its directory stream. Made with the standard library, without the code under test.
std::string expectedList();

// The cached list's two names and those of the other list.
std::filesystem::path cachePath();
std::filesystem::path temporaryPath();

void writeFile(const std::filesystem::path& path, const std::string& content);
std::optional<std::string> readFile(const std::filesystem::path& path);
std::string whole(const std::string& payload);

// Leaves the cache directory empty.
void clearCaches();

// The names in the cache directory, sorted.
std::vector<std::string> namesInCacheDirectory();

}  // namespace quillon::torture
