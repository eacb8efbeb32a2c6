// What the lists of several strategies are made of: where the platform's assemblies lie, how the
// TPA comes from there, and how the shared component directories join a DLL search path.
#pragma once

#include <string>
#include <vector>

// The platform's API assemblies, where nothing redirects them; empty when the directory is missing.
std::string platformApiDirectory();

// A TPA is searched in these directories first: the runtime's framework, then the assemblies made
// by the reflection eliminator. The first path of a name stays in the list, so the order decides.
std::vector<std::string> runtimeDirectories();

// Then in the device API and its reference assemblies.
void appendApiDirectories(const std::string& apiDirectory, std::vector<std::string>& directories);

// The TPA string of the directories followed by those of `dllPath`, a ":"-joined list.
std::string findAssemblies(std::vector<std::string> directories, const std::string& dllPath);

// Appends the shared directories of component packages, which bring their own separators.
void appendCobaDirectories(std::string& dllPath);
