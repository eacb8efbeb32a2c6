// The log files of detached applications, one for each application id of a device root.
// Applications can write to their folder, so it is accessed without following symbolic links.
//
// Linked into the program itself: no header of the full parser's library may be included here.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "quillon/base/descriptor.h"
#include "quillon/base/failure.h"

namespace quillon::cli {

// A larger file is replaced at the next detached launch and kept as "APPID.log.1".
inline constexpr off_t kMaxLogSize = off_t{1} << 20;

// The folder of the logs, in the device root `device`.
std::filesystem::path logFolder(const std::filesystem::path& device);

// Opens the file for appending, and creates it if it is missing. Call from outside of the device
// root, as for the functions below.
[[nodiscard]] Expected<Descriptor> openLogForAppending(const std::filesystem::path& device,
                                                       const std::string& appId);

// Opens the file for reading.
[[nodiscard]] Expected<Descriptor> openLog(const std::filesystem::path& device,
                                           const std::string& appId);

// Removes the files of an application's log. Does not need the record of the device root, so that
// it works inside, with "/", too.
void removeLogs(const std::filesystem::path& device, const std::string& appId);

// Removes an application's log if nothing was written to it.
void removeEmptyLog(const std::filesystem::path& device, const std::string& appId);

// Returns the ids of the applications that have a log, sorted.
[[nodiscard]] Expected<std::vector<std::string>> applicationsWithLog(
    const std::filesystem::path& device);

}  // namespace quillon::cli
