// Whether what a process was prepared from is still so.
#pragma once

#include <filesystem>
#include <string>

namespace quillon::launchpad {

// A text that changes whenever anything changes that the plug-in's lists and the prepared process
// were made of: the installed packages, the framework's folders, the flag files, the zone, the
// plug-in. Two equal texts mean that a process prepared at the first is like one prepared at the
// second. Holds inside a device root.
//
// plugin  the plug-in's file
std::string currentStamp(const std::filesystem::path& plugin);

// Identity, size and time of change of a file, as a part of such a text.
std::string stampOf(const std::filesystem::path& file);

}  // namespace quillon::launchpad
