#include "quillon/cli/package_change.h"

#include <system_error>
#include <vector>

#include "quillon/base/report.h"
#include "quillon/cli/application_log.h"
#include "quillon/cli/build_folder.h"
#include "quillon/device/cached_lists.h"
#include "quillon/device/device_root.h"
#include "quillon/resolution/resolution.h"

namespace quillon::cli {
namespace {

using workstation::Application;
using workstation::Package;

// Returns the result of `change`, which installs or removes a package. The plug-in's cached lists
// name the files of packages, so they are removed: before, since a launch pad prepares processes as
// soon as the package registry has changed, and afterwards, since a launch may have saved them
// meanwhile.
template <typename Change>
auto changePackages(Change change) -> decltype(change()) {
  RETURN_IF_FAILED(device::removeCachedLists("/"));
  auto changed = change();
  RETURN_IF_FAILED(device::removeCachedLists("/"));
  return changed;
}

void reportWarnings(const Application& application, const resolution::Additions& additions) {
  if (const auto found = resolution::requireFrameworks(additions); !found) {
    report({"warning: '" + application.id + "' cannot be launched yet: " + found.error().what,
            found.error().remedy});
  }
  if (const auto warning = resolution::warningAbout(application.id, additions)) {
    report(*warning);
  }
}

// Has .NET's host resolve what the applications need beside the device's framework, so that their
// launches find the answer.
void resolveApplications(const Package& package, Warnings warnings) {
  resolution::forgetAnswers(package.rootPath);
  for (const Application& application : package.applications) {
    const auto additions = resolution::renewAnswer(application.exec);
    if (warnings == Warnings::kReport) {
      reportWarnings(application, additions);
    }
  }
}

// The answers about its applications, and their logs, are of no use without the package.
Expected<void> forgetApplications(const std::string& id, uid_t user) {
  ASSIGN_OR_RETURN(const std::vector<Package> packages, workstation::listPackages());
  for (const Package& package : packages) {
    if (package.id == id && package.owner == user) {
      resolution::forgetAnswers(package.rootPath);
      for (const Application& application : package.applications) {
        removeLogs("/", application.id);
      }
    }
  }
  return {};
}

}  // namespace

Expected<Package> installInto(const std::filesystem::path& device,
                              const workstation::ManifestText& manifest, uid_t user,
                              Warnings warnings) {
  std::error_code error;
  // A lost registry is replaced by a new one, which does not know the installed builds.
  if (!std::filesystem::exists(device::pathInDevice(device, workstation::kRegistryPath), error)) {
    forgetAllInstalled(device);
  }
  // Check the manifest before entering the device root, which may hide its folders.
  ASSIGN_OR_RETURN(const std::vector<std::string> folders,
                   workstation::foldersOfManifest(manifest));
  RETURN_IF_FAILED(device::enter(device, {{folders.begin(), folders.end()}, {}}));
  ASSIGN_OR_RETURN(Package package,
                   changePackages([&] { return workstation::installPackage(manifest, user); }));
  resolveApplications(package, warnings);
  return package;
}

Expected<bool> removePackage(const std::string& id, uid_t user) {
  RETURN_IF_FAILED(forgetApplications(id, user));
  return changePackages([&] { return workstation::removePackage(id, user); });
}

}  // namespace quillon::cli
