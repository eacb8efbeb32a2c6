// Changes of a package's folder that are atomic even if the process is killed or the power is cut.
//
// The new folder is filled under a temporary name beside the package's folder and then renamed to
// its place. The table folder_change of the registry is an intent log: each step is logged before
// it is taken, so that the next install or removal can undo what the registry did not commit. Each
// step is on the disk before the registry changes again.
//
//   step "garbage"  the temporary folder can be deleted: it is being filled, or it was replaced
//   step "replace"  the temporary folder, identified by its inode, is about to be exchanged with
//                   the package's folder
//   step "remove"   the package's folder is about to be renamed to the temporary name
//
// One update changes the packages and sets the step to "garbage". Before it, recovery restores the
// old folder; after it, recovery deletes the temporary folder.
//
// Temporary names and rename(2) alone are not enough: without the log, recovery could not tell the
// folder of an interrupted first install, or the old root of a package that moved, from a folder
// that belongs to no package and must be kept.
//
// Folders are reached without following symbolic links. Callers hold the InstallLock during the
// whole change.
#pragma once

#include <filesystem>

#include "packages/registry.h"
#include "quillon/base/descriptor.h"
#include "quillon/base/failure.h"

namespace quillon::workstation {

// Lets one process at a time change packages. Held until the object is destroyed.
class InstallLock {
 public:
  static Expected<InstallLock> acquire();
  // False after the object was moved from.
  [[nodiscard]] bool isHeld() const { return static_cast<bool>(file_); }

 private:
  explicit InstallLock(Descriptor file) : file_(std::move(file)) {}
  Descriptor file_;
};

class FolderChange {
 public:
  FolderChange(Registry& registry, std::filesystem::path root);
  // Undoes the change if the registry did not commit it, and deletes the temporary folder.
  ~FolderChange();
  FolderChange(const FolderChange&) = delete;
  FolderChange& operator=(const FolderChange&) = delete;

  // Creates and opens the empty temporary folder, which the caller fills.
  Expected<Descriptor> stage();
  // Puts the staged folder in the place of the package's folder, which may be missing.
  Expected<void> replace();
  // Renames the package's folder, if there is one, to the temporary name.
  Expected<void> remove();
  // Makes the change permanent. Call in the update that changes the registry.
  Expected<void> settle(Registry& next) const;
  // Deletes `folder`, an old root of the package, after the update. Call in it.
  Expected<void> abandon(Registry& next, const std::filesystem::path& folder) const;

 private:
  Expected<void> log(const char* step, uint64_t inode);
  Registry& registry_;
  std::filesystem::path root_;
  std::filesystem::path temporary_;
};

// Finishes or undoes the changes of processes that were killed. A folder that cannot be deleted or
// restored is not a failure: it stays in the log, and the next call tries again.
Expected<void> recoverFolders(Registry& registry);

}  // namespace quillon::workstation
