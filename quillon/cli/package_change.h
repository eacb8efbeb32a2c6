// Changes of the packages in a device root.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

#include "quillon/base/failure.h"
#include "workstation/packages.h"

namespace quillon::cli {

// Enters the device root and installs or replaces a package: see workstation::installPackage().
// Then resolves what its applications need beside the device's framework. The process must have one
// thread.
//
// warnings  whether to report what the machine lacks for the applications; their launches do, too
enum class Warnings { kReport, kOmit };
[[nodiscard]] Expected<workstation::Package> installInto(const std::filesystem::path& device,
                                                         const workstation::ManifestText& manifest,
                                                         uid_t user,
                                                         Warnings warnings = Warnings::kReport);

// Removes a package of the device root that the process is inside of, and what was kept about its
// applications. Returns false if it is not installed: see workstation::removePackage().
[[nodiscard]] Expected<bool> removePackage(const std::string& id, uid_t user);

}  // namespace quillon::cli
