// From directories to the TPA string: absolute assembly paths joined by ":", at most one for each
// assembly name, in the order in which the names were first met.
#pragma once

#include <string>
#include <vector>

// Appends the absolute form of each directory of a ":"-joined list; an empty text for one that
// cannot be resolved.
void addPlatformAssembliesPaths(const std::string& directoryList,
                                std::vector<std::string>& directories);

// Scans the directories, without their subdirectories, and appends the chosen assemblies to `tpa`.
//
// The first path met for a name stays, but a native image displaces the IL file of the same name in
// the same directory. Directories that cannot be opened are skipped silently.
void addAssembliesFromDirectories(const std::vector<std::string>& directories, std::string& tpa);

// Ends with ".dll" or ".exe", whatever the case, and is no native image.
bool isManagedAssembly(const std::string& name);

// The three characters before the last four are ".ni", whatever the case.
bool isNativeImage(const std::string& name);

// The name that one assembly has whichever file holds it: file name without its last extension and
// without one lower-case ".ni".
std::string getAssemblyNameFromPath(const std::string& path);

// Without a final ".dll" or ".exe", then without one final ".ni", whatever the case.
std::string stripNiDLL(const std::string& path);
