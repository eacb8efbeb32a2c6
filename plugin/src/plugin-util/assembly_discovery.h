// Finds assemblies in directories and builds the TPA string: absolute assembly paths separated by
// ":", at most one per assembly name, in the order in which the names were found.
#pragma once

#include <string>
#include <vector>

// Appends the absolute path of each directory of a ":"-separated list to `directories`. Appends an
// empty string for a directory that cannot be resolved.
void addPlatformAssembliesPaths(const std::string& directoryList,
                                std::vector<std::string>& directories);

// Scans the directories, without their subdirectories, and appends the assemblies found to `tpa`.
//
// The first path found for a name is used, but a native image replaces the IL file of the same name
// in the same directory. Directories that cannot be opened are skipped without a log line.
void addAssembliesFromDirectories(const std::vector<std::string>& directories, std::string& tpa);

// Returns true if `name` ends with ".dll" or ".exe", ignoring case, and is not a native image.
bool isManagedAssembly(const std::string& name);

// Returns true if the three characters before the last four are ".ni", ignoring case.
bool isNativeImage(const std::string& name);

// Returns the assembly name: the file name without its last extension and without one lower-case
// ".ni". An IL file and its native image have the same assembly name.
std::string getAssemblyNameFromPath(const std::string& path);

// Returns `path` without a final ".dll" or ".exe", then without one final ".ni". Ignores case.
std::string stripNiDLL(const std::string& path);
