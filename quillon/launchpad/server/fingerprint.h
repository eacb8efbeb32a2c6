// Detects whether a worker is outdated.
#pragma once

#include <filesystem>
#include <string>

namespace quillon::launchpad {

// An opaque string that changes whenever an input of a worker's preparation changes: the installed
// packages, the framework's folders, the flag files, the zone, the plug-in. Call inside a device
// root.
//
// plugin  file of the plug-in
std::string currentFingerprint(const std::filesystem::path& plugin);

// Appends identity, size and modification time of a file, relative to the open folder `folder` (see
// fstatat(2)). A missing file has an identity too.
void appendFileIdentity(std::string& fingerprint, int folder, const char* file);

}  // namespace quillon::launchpad
