// Whether what a process was prepared from is still so.
#pragma once

#include <filesystem>
#include <string>

namespace quillon::launchpad {

// Bytes that change whenever anything changes that the plug-in's lists and the prepared process
// were made of: the installed packages, the framework's folders, the flag files, the zone, the
// plug-in. Two equal ones mean that a process prepared at the first is like one prepared at the
// second. Holds inside a device root.
//
// plugin  the plug-in's file
std::string currentFingerprint(const std::filesystem::path& plugin);

// Adds identity, size and time of change of a file, relative to the folder `folder` (see
// fstatat(2)).
void appendFileIdentity(std::string& fingerprint, int folder, const char* file);

}  // namespace quillon::launchpad
