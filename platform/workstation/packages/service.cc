#include "packages/service.h"

#include <unistd.h>

#include <new>

#include "log/log_failure.h"
#include "packages/lookup.h"
#include "packages/registry.h"

namespace quillon::workstation {
namespace {

// Returns the first application with that id; null if there is none.
const Application* applicationOf(const Package& package, const std::string& appId) {
  for (const Application& application : package.applications) {
    if (application.id == appId) {
      return &application;
    }
  }
  return nullptr;
}

}  // namespace

ServiceResult registryFailed(const Failure& failure) {
  logFailure(failure);
  return kRegistryFailed;
}

ServiceResult findPackage(const char* packageId, Package& found) {
  return findPackage(packageId, geteuid(), found);
}

ServiceResult findPackage(const char* packageId, uid_t user, Package& found) {
  if (packageId == nullptr || *packageId == '\0') {
    return kInvalidArgument;
  }
  auto package = lookUpPackage(packageId, user);
  if (!package) {
    return registryFailed(package.error());
  }
  if (!*package) {
    return kNotFound;
  }
  found = std::move(**package);
  return kOk;
}

ServiceResult findApplication(const char* appId, FoundApplication& found) {
  if (appId == nullptr || *appId == '\0') {
    return kInvalidArgument;
  }
  const auto package = findPackageOfApplication(appId);
  if (!package) {
    return registryFailed(package.error());
  }
  const Application* application = *package ? applicationOf(**package, appId) : nullptr;
  if (application == nullptr) {
    return kNotFound;
  }
  found = {(*package)->id, *application};
  return kOk;
}

ServiceResult findAllApplications(std::vector<FoundApplication>& found) try {
  auto registry = Registry::openForReading();
  if (!registry) {
    return registryFailed(registry.error());
  }
  auto packages = registry->packagesVisibleTo(geteuid());
  if (!packages) {
    return registryFailed(packages.error());
  }
  for (Package& package : *packages) {
    for (Application& application : package.applications) {
      found.push_back({package.id, std::move(application)});
    }
  }
  return kOk;
} catch (const std::bad_alloc&) {
  return kNoMemory;
}

}  // namespace quillon::workstation
