// The workstation's package registry, for the tools that fill it and the launcher that reads it.
//
// The registry is an SQLite database at a fixed device path, so it belongs to the device root that
// the calling process has entered. Any number of processes may use it at once.
//
// Results are owned by the caller. Thread safety: every call opens the registry for itself, so any
// thread may make one.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "quillon/base/failure.h"

namespace quillon::workstation {

struct Application {
  std::string id;
  std::string exec;              // absolute device path of the executable assembly
  std::string type = "inhouse";  // application type that the launcher hands to the plug-in
  bool service = false;          // a service component, else one with a user interface
  std::vector<std::pair<std::string, std::string>> metadata;  // full keys, in manifest order
};

struct Package {
  std::string id;
  std::string version;
  std::string rootPath;                   // absolute device path, "/opt/usr/apps/<id>" by default
  uid_t owner = 0;                        // 0: for every user
  std::vector<std::string> privileges;    // full identifiers
  std::vector<Application> applications;  // the first is the main one
};

// Installs or replaces a package from its manifest and copies the manifest's files to its root
// path. The grammar of manifests is in docs/package-manifest.md. Whoever is killed meanwhile leaves
// the package as it was or as it becomes: the next call of this function or of removePackage clears
// up. owner: the user whom the package is for, 0 for every user.
[[nodiscard]] Expected<Package> installPackage(const std::string& manifestPath, uid_t owner = 0);

// The folders that installPackage reads: the manifest's own and that of its files. Whoever enters a
// device root in between keeps them visible. The whole manifest is checked.
[[nodiscard]] Expected<std::vector<std::string>> foldersOfManifest(const std::string& manifestPath);

// Removes a package and its root path. False when there is no such package.
[[nodiscard]] Expected<bool> removePackage(const std::string& packageId, uid_t owner = 0);

[[nodiscard]] Expected<std::vector<Package>> listPackages();

// The package that holds an application; empty when no package does.
[[nodiscard]] Expected<std::optional<Package>> findPackageOfApplication(const std::string& appId);

// Answers the questions that this process will ask about any package ahead of them, until the
// registry changes. For a process that has time now and none later.
void rememberPackages();

// A text that is another one after every change of what is installed. Never fails: where there is
// no registry, that is its state.
std::string registryStamp();

// Notes that process `pid` runs an application of `packageId`, which makes the process known to
// aul_app_get_pkgid_bypid. The note ends with the process.
[[nodiscard]] Expected<void> registerProcess(pid_t pid, const std::string& packageId);

// Takes away what is left of the notes of processes that have ended. Call when nobody waits.
void clearProcessNotes();

}  // namespace quillon::workstation
