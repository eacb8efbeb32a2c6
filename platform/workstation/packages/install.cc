// Installing, removing and listing packages.
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "data_paths.h"
#include "packages/folder_change.h"
#include "packages/folder_tree.h"
#include "packages/manifest.h"
#include "packages/registry.h"
#include "quillon/base/shell_word.h"
#include "workstation/inside_device.h"
#include "workstation/packages.h"

namespace quillon::workstation {
namespace {

namespace fs = std::filesystem;

// The registry, locked against other installers, without unfinished changes. Its end reserves space
// for the next removal.
struct InstallSession {
  InstallSession(InstallLock taken, Registry opened)
      : lock(std::move(taken)), registry(std::move(opened)) {}
  InstallSession(InstallSession&&) = default;
  ~InstallSession() {
    if (lock.isHeld()) {
      reserveSpace();
    }
  }
  InstallLock lock;
  Registry registry;
};

Expected<InstallSession> beginInstallSession(Reserve reserve) {
  ASSIGN_OR_RETURN(InstallLock lock, InstallLock::acquire());
  ASSIGN_OR_RETURN(Registry registry, Registry::openForWriting(reserve));
  RETURN_IF_FAILED(recoverFolders(registry));
  return InstallSession(std::move(lock), std::move(registry));
}

bool isWithin(const fs::path& inner, const fs::path& outer) {
  return std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

bool isPackage(const Package& package, const std::string& id, uid_t owner) {
  return package.id == id && package.owner == owner;
}

Expected<void> checkRoots(const Package& other, const Package& package) {
  if (!isWithin(package.rootPath, other.rootPath) && !isWithin(other.rootPath, package.rootPath)) {
    return {};
  }
  return fail("the root '" + package.rootPath + "' of package '" + package.id + "' overlaps '" +
                  other.rootPath + "', the root of the installed package '" + other.id + "'",
              "choose another 'package.root'");
}

Expected<void> checkApplications(const Package& other, const Package& package) {
  if (other.owner != package.owner || other.id == package.id) {
    return {};
  }
  for (const Application& application : package.applications) {
    const auto sameId = [&](const Application& there) { return there.id == application.id; };
    if (std::any_of(other.applications.begin(), other.applications.end(), sameId)) {
      return fail("application '" + application.id + "' is part of the installed package '" +
                      other.id + "'",
                  "remove that package or choose another 'application.id'");
    }
  }
  return {};
}

// A folder that no package owns belongs to the user or the platform and is not replaced.
Expected<void> checkRootIsFree(const fs::path& root) {
  std::error_code error;
  const auto status = fs::symlink_status(root, error);
  if (status.type() == fs::file_type::not_found) {
    return {};
  }
  if (fs::is_directory(status) && fs::is_empty(root, error) && !error) {
    return {};
  }
  const std::string outside = pathOfDevice() + root.string();
  return fail("'" + root.string() + "' exists already and belongs to no package",
              "choose another 'package.root', or move it away: mv " + shellWord(outside) + " " +
                  shellWord(outside + ".old"));
}

// Fails if the package would overwrite files of the device, or share a folder or an application
// with another package.
Expected<void> checkPlace(const std::vector<Package>& installed, const Package& package) {
  bool ownsRoot = false;
  for (const Package& other : installed) {
    if (isPackage(other, package.id, package.owner) && other.rootPath == package.rootPath) {
      ownsRoot = true;
      continue;
    }
    RETURN_IF_FAILED(checkRoots(other, package));
    RETURN_IF_FAILED(checkApplications(other, package));
  }
  return ownsRoot ? Expected<void>() : checkRootIsFree(package.rootPath);
}

// The new files are copied to a folder beside the root.
Expected<void> checkFilesAreElsewhere(const Manifest& manifest) {
  std::error_code error;
  const fs::path target = fs::path(manifest.package.rootPath).parent_path();
  if (!manifest.files || !isWithin(fs::weakly_canonical(target, error),
                                   fs::weakly_canonical(*manifest.files, error))) {
    return {};
  }
  return fail(
      "the package would be copied into its own files in '" + manifest.files->string() + "'",
      "choose another 'package.root' or 'package.files'");
}

// Installs the files, then registers the package. If the package had another root path before, the
// same update abandons it.
Expected<void> place(Registry& registry, const Manifest& manifest,
                     const std::optional<Package>& old) {
  FolderChange change(registry, manifest.package.rootPath);
  ASSIGN_OR_RETURN(const Descriptor staged, change.stage());
  if (manifest.files) {
    RETURN_IF_FAILED(copyTree(manifest.filesFolder.get(), staged.get(), *manifest.files));
  }
  RETURN_IF_FAILED(change.replace());
  return registry.update([&](Registry& next) -> Expected<void> {
    RETURN_IF_FAILED(next.put(manifest.package));
    const bool moved = old && old->rootPath != manifest.package.rootPath;
    RETURN_IF_FAILED(moved ? change.abandon(next, old->rootPath) : Expected<void>());
    return change.settle(next);
  });
}

Expected<void> install(const Manifest& manifest) {
  RETURN_IF_FAILED(checkFilesAreElsewhere(manifest));
  ASSIGN_OR_RETURN(InstallSession session, beginInstallSession(Reserve::kKeep));
  Registry& registry = session.registry;
  ASSIGN_OR_RETURN(const auto installed, registry.packages());
  RETURN_IF_FAILED(checkPlace(installed, manifest.package));
  ASSIGN_OR_RETURN(const auto old, registry.package(manifest.package.id, manifest.package.owner));
  return place(registry, manifest, old);
}

}  // namespace

Expected<Package> installPackage(const std::string& manifestFile, uid_t owner) {
  ASSIGN_OR_RETURN(const ManifestText text, readManifestText(manifestFile));
  return installPackage(text, owner);
}

Expected<Package> installPackage(const ManifestText& text, uid_t owner) {
  ASSIGN_OR_RETURN(Manifest manifest, readManifest(text));
  manifest.package.owner = owner;
  RETURN_IF_FAILED(install(manifest));
  return std::move(manifest.package);
}

Expected<std::vector<std::string>> foldersOfManifest(const ManifestText& text) {
  ASSIGN_OR_RETURN(const Manifest manifest, readManifest(text));
  std::vector<std::string> folders = {fs::absolute(text.file).parent_path().string()};
  if (manifest.files) {
    folders.push_back(manifest.files->string());
  }
  return folders;
}

Expected<bool> removePackage(const std::string& packageId, uid_t owner) {
  ASSIGN_OR_RETURN(InstallSession session, beginInstallSession(Reserve::kUse));
  Registry& registry = session.registry;
  ASSIGN_OR_RETURN(const auto package, registry.package(packageId, owner));
  if (!package) {
    return false;
  }
  FolderChange change(registry, package->rootPath);
  RETURN_IF_FAILED(change.remove());
  const auto unregistered = registry.update([&](Registry& next) -> Expected<void> {
    RETURN_IF_FAILED(next.erase(packageId, owner));
    return change.settle(next);
  });
  RETURN_IF_FAILED(unregistered);
  return true;
}

Expected<std::vector<Package>> listPackages() {
  ASSIGN_OR_RETURN(Registry registry, Registry::openForReading());
  return registry.packages();
}

std::string registryFingerprint() {
  struct stat status {};
  if (stat(kRegistryPath, &status) != 0) {
    return "none";
  }
  return std::to_string(status.st_ino) + ":" + std::to_string(status.st_size) + ":" +
         std::to_string(status.st_mtim.tv_sec) + "." + std::to_string(status.st_mtim.tv_nsec);
}

}  // namespace quillon::workstation
