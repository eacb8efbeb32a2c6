// Parts of the search lists that several strategies share: the platform's assembly directories, the
// TPA built from them, and the shared component directories of the DLL search path.
#pragma once

#include <string>
#include <vector>

// Returns the directory of the platform's API assemblies, or an empty string if it does not exist.
// Used if no configuration redirects the API.
std::string platformApiDirectory();

// Returns the directories that are searched first for a TPA: the framework of the runtime, then the
// assemblies that the reflection eliminator generated. The order matters, because the first path of
// an assembly name is used.
std::vector<std::string> runtimeDirectories();

// Appends the directory of the device API and that of its reference assemblies, which are searched
// next.
void appendApiDirectories(const std::string& apiDirectory, std::vector<std::string>& directories);

// Returns the TPA string of `directories` followed by the directories of `dllPath`, a ":"-separated
// list.
std::string findAssemblies(std::vector<std::string> directories, const std::string& dllPath);

// Appends the shared directories of component packages. Their list begins with ":".
void appendCobaDirectories(std::string& dllPath);
