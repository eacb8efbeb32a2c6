// Helpers shared by the C functions of the package services.
#pragma once

#include <cerrno>
#include <string>

#include "quillon/base/failure.h"
#include "workstation/packages.h"

namespace quillon::workstation {

// Results of the services. The interface requires negative values for failures.
enum ServiceResult : int {
  kOk = 0,
  kInvalidArgument = -EINVAL,
  kNotFound = -ENOENT,
  kTooLong = -ERANGE,
  kNoMemory = -ENOMEM,
  kRegistryFailed = -EIO,
};

// Finds a package that a user sees, by default the calling user. Sets `found` only if the result is
// kOk. Logs an error if the registry cannot be read.
ServiceResult findPackage(const char* packageId, Package& found);
ServiceResult findPackage(const char* packageId, uid_t user, Package& found);

// An application and the id of its package.
struct FoundApplication {
  std::string packageId;
  Application application;
};
ServiceResult findApplication(const char* appId, FoundApplication& found);

// Finds all applications that the calling user sees.
ServiceResult findAllApplications(std::vector<FoundApplication>& found);

// Logs a failure as an error.
ServiceResult registryFailed(const Failure& failure);

}  // namespace quillon::workstation
