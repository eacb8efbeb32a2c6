// Lookup of single packages, as one user sees them, through the process's lookup cache.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "quillon/base/failure.h"
#include "workstation/packages.h"

namespace quillon::workstation {

[[nodiscard]] Expected<std::optional<Package>> lookUpPackage(const std::string& id, uid_t user);

// Returns the package that contains an application. Also caches that package under its id, because
// callers usually look it up next.
[[nodiscard]] Expected<std::optional<Package>> lookUpPackageOfApplication(const std::string& appId,
                                                                          uid_t user);

}  // namespace quillon::workstation
