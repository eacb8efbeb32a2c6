// What the lists of several strategies are made of: where the platform's assemblies lie, how the
// TPA comes from there, and how the shared component directories join a DLL search path.
#pragma once

#include <string>
#include <vector>

// The platform's API assemblies, where nothing redirects them; empty when the directory is missing.
std::string platformApiDirectory();

// The directories that a TPA is searched in, in order: the runtime's framework, the assemblies made
// by the reflection eliminator, the device API and its reference assemblies. The first path of a
// name stays in the list, so the order decides.
std::vector<std::string> assemblyDirectories(const std::string& apiDirectory);

// The TPA string of the directories followed by those of `dllPath`, a ":"-joined list.
std::string findAssemblies(std::vector<std::string> directories, const std::string& dllPath);

// Appends the shared directories of component packages, which bring their own separators.
void appendCobaDirectories(std::string& dllPath);
