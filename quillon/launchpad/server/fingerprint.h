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

}  // namespace quillon::launchpad
