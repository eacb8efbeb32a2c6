// Changes of a package's folder that a kill at any moment leaves whole.
//
// The new folder is made aside, in the folder that holds the package's, and takes its place in one
// rename. The registry notes each step before it is taken, in the table folder_change, so that the
// next installation can undo what the registry did not come to know of:
//
//   step "garbage"  the folder aside is of no use: it is being filled, or is what was replaced
//   step "replace"  the folder aside, with the inode noted, is about to change places with the
//                   package's folder
//   step "remove"   the package's folder is about to be moved aside
//
// The registry's own change and the note "garbage" are one transaction: before it the old state is
// restored, after it the new one stands. Callers hold the lock of InstallLock all the time.
#pragma once

#include <filesystem>
#include <string>

#include "packages/registry.h"
#include "quillon/base/descriptor.h"
#include "quillon/base/failure.h"
#include "quillon/base/files.h"

namespace quillon::workstation {

// Only one process at a time changes packages. Held from acquire to the end of the object's life.
class InstallLock {
 public:
  static Expected<InstallLock> acquire();

 private:
  explicit InstallLock(Descriptor file) : file_(std::move(file)) {}
  Descriptor file_;
};

class FolderChange {
 public:
  FolderChange(Registry& registry, std::filesystem::path root);
  // Undoes what the registry did not commit, and removes what is aside.
  ~FolderChange();
  FolderChange(const FolderChange&) = delete;
  FolderChange& operator=(const FolderChange&) = delete;

  // Makes the empty folder aside, and returns its path, for the caller to fill.
  Expected<std::filesystem::path> stage();
  // Puts the staged folder in the place of the package's folder, where there may be none.
  Expected<void> replace();
  // Moves the package's folder, if there is one, aside.
  Expected<void> remove();
  // Part of the registry's transaction: from its commit on the change stands.
  Expected<void> settle();
  // Part of that transaction too: a folder that the package leaves behind goes with its commit.
  Expected<void> abandon(const std::filesystem::path& folder);

 private:
  Expected<void> note(const std::filesystem::path& aside, const char* step, uint64_t inode);
  Registry& registry_;
  std::filesystem::path root_;
  std::filesystem::path aside_;
};

// Finishes or undoes the changes of processes that were killed.
Expected<void> recoverFolders(Registry& registry);

}  // namespace quillon::workstation
