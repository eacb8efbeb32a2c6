// The workstation's package registry: installs, removes and finds packages, and knows which process
// runs which package.
//
// The registry is an SQLite database at a fixed device path. It therefore belongs to the device
// root that the calling process has entered. Any number of processes may use it at once; readers
// never wait.
//
// The caller owns all results. Thread safety: every call reads the registry by itself, so any
// thread may call any function.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "quillon/base/failure.h"

namespace quillon::workstation {

inline constexpr char kRegistryPath[] = "/opt/usr/share/quillon/packages.db";

struct Application {
  std::string id;
  std::string exec;              // absolute device path of the executable assembly
  std::string type = "inhouse";  // application type that the launcher passes to the plug-in
  bool service = false;          // a service component; otherwise a user interface
  std::vector<std::pair<std::string, std::string>> metadata;  // full keys, in manifest order
};

struct Package {
  std::string id;
  std::string version;
  std::string rootPath;                   // absolute device path, "/opt/usr/apps/<id>" by default
  uid_t owner = 0;                        // 0: installed for all users
  std::vector<std::string> privileges;    // full identifiers
  std::vector<Application> applications;  // the first is the main application
};

// The text of a package manifest. docs/package-manifest.md describes its grammar.
struct ManifestText {
  std::string file;  // named in messages; relative paths in the text begin at its folder
  std::string text;
};

[[nodiscard]] Expected<ManifestText> readManifestText(const std::string& file);

// Installs or replaces a package: copies the manifest's files to the package's root path.
//
// If the process is killed, the package is either as before or as requested: the next call of this
// function or of removePackage cleans up.
//
// owner: the user that the package is installed for; 0 for all users.
[[nodiscard]] Expected<Package> installPackage(const ManifestText& manifest, uid_t owner = 0);

// The same with the manifest in a file.
[[nodiscard]] Expected<Package> installPackage(const std::string& manifestFile, uid_t owner = 0);

// Returns the folders that installPackage reads: the manifest's folder and the folder of its files.
// A caller that enters a device root before it installs must keep them visible. Checks the whole
// manifest.
[[nodiscard]] Expected<std::vector<std::string>> foldersOfManifest(const ManifestText& manifest);

// Removes a package and its root path, also if the disk is full. Returns false if there is no such
// package.
[[nodiscard]] Expected<bool> removePackage(const std::string& packageId, uid_t owner = 0);

[[nodiscard]] Expected<std::vector<Package>> listPackages();

// Returns the package that contains an application; nullopt if no package does.
[[nodiscard]] Expected<std::optional<Package>> findPackageOfApplication(const std::string& appId);

// Reads all packages that the calling user sees into this process's lookup cache, so that later
// lookups need no access to the registry until it changes.
void cachePackages();

// Returns an opaque string that changes on every install or removal. Never fails; a missing
// registry has a fingerprint too.
std::string registryFingerprint();

// Device path of the folder with a record for each running application.
inline constexpr char kProcessDirectory[] = "/opt/usr/share/quillon/processes";

// Records that process `pid` runs an application of `packageId`, so that aul_app_get_pkgid_bypid
// finds it. The record is valid until the process ends.
//
// applicationId  for `quillon ps`; may be empty
[[nodiscard]] Expected<void> registerProcess(pid_t pid, const std::string& packageId,
                                             const std::string& applicationId = {});

// What a process is recorded as.
struct ProcessRecord {
  std::string packageId;
  std::string applicationId;  // empty if it is not known
};

// Returns the record of a living process in the open folder `records`; nullopt if it has none, or
// if the record belongs to an earlier process with the same id. Any process that may write to the
// folder can forge records.
std::optional<ProcessRecord> recordOfProcess(int records, pid_t pid);

// Returns the living processes that run an application of `packageId`, sorted.
std::vector<pid_t> processesOfPackage(const std::string& packageId);

// Removes the records of processes that have ended, also of zombies. Takes time; call it when
// nobody waits.
void forgetEndedProcesses();

}  // namespace quillon::workstation
