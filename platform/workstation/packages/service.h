// What the package services' C functions share: results, and how a failing registry shows.
#pragma once

#include <cerrno>
#include <optional>
#include <string>

#include "quillon/base/failure.h"
#include "workstation/packages.h"

namespace quillon::workstation {

// The services' results. All but the first are negative, as the interface asks.
enum ServiceResult : int {
  kOk = 0,
  kInvalidArgument = -EINVAL,
  kNotFound = -ENOENT,
  kTooLong = -ERANGE,
  kNoMemory = -ENOMEM,
  kRegistryFailed = -EIO,
};

// A user's view of one package; for the calling user by default. On any result but kOk `found` is
// untouched. A registry that cannot be read leaves an error record.
ServiceResult findPackage(const char* packageId, Package& found);
ServiceResult findPackage(const char* packageId, uid_t user, Package& found);

// An application and the package that it is part of.
struct FoundApplication {
  std::string packageId;
  Application application;
};
ServiceResult findApplication(const char* appId, FoundApplication& found);

// All applications that the calling user sees.
ServiceResult findAllApplications(std::vector<FoundApplication>& found);

// Writes the error record of a failure.
ServiceResult registryFailed(const Failure& failure);

}  // namespace quillon::workstation
