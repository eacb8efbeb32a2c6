// Single packages of the registry, as one user sees them.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "quillon/base/failure.h"
#include "workstation/packages.h"

namespace quillon::workstation {

[[nodiscard]] Expected<std::optional<Package>> lookUpPackage(const std::string& id, uid_t user);

// The package that holds an application. That package is likely to be looked up next and is known
// without another look into the registry.
[[nodiscard]] Expected<std::optional<Package>> lookUpPackageOfApplication(const std::string& appId,
                                                                          uid_t user);

// The answers for all packages that a user sees and their applications, from one look into the
// registry. Best effort.
void lookUpInAdvance(uid_t user);

}  // namespace quillon::workstation
