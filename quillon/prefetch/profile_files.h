// The files of launch profiles in the cache folder of a device root. It is the device root that the
// process is inside of, unless a function has a parameter for another one.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "quillon/base/failure.h"
#include "quillon/prefetch/launch_profile.h"

namespace quillon::prefetch {

// The device path of the folder.
std::string profileFolder();

// The applications that have a file there, in alphabetical order.
std::vector<std::string> profiledApplications();

// `root` is the device root's folder; "/" inside of it.
// Returns nullopt if the file is missing, malformed, larger than any profile, not a regular file,
// or if another user than the process's owns it or may write to it.
std::optional<LaunchProfile> readProfile(const std::string& appId, const std::string& root = "/");

// Whether this process can write the application's profile.
bool canWriteProfile(const std::string& appId);

// Replaces the application's profile. Follows no symbolic link. Returns false on failure.
bool writeProfile(const std::string& appId, const LaunchProfile& profile);

// Removes all profiles of the device root `device`. Follows no symbolic link below it. Fails if a
// profile remains.
[[nodiscard]] Expected<void> removeProfiles(const std::filesystem::path& device);

}  // namespace quillon::prefetch
