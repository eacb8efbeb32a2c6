#include "packages/folder_change.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <new>
#include <optional>
#include <vector>

#include "data_paths.h"
#include "log/log_failure.h"
#include "packages/folder_tree.h"
#include "path_failure.h"
#include "quillon/base/folders.h"

namespace quillon::workstation {
namespace {

namespace fs = std::filesystem;

constexpr const char* kGarbage = "garbage";
constexpr const char* kReplace = "replace";
constexpr const char* kRemove = "remove";

struct LogEntry {
  fs::path temporary;
  fs::path root;
  std::string step;
  uint64_t inode;
};

// The name of a file and the open folder that it is in. The folder is invalid, with its errno, if
// it is missing or is reached through a symbolic link.
struct Place {
  explicit Place(const fs::path& path)
      : folder(openFolderWithoutLinks(AT_FDCWD, path.parent_path())),
        error(folder ? 0 : errno),
        name(path.filename()) {}
  Descriptor folder;
  int error;
  std::string name;
};

constexpr uint64_t kNoFile = 0;

// Returns the inode, kNoFile if there is no such file, or nullopt, with errno, if this is unknown.
std::optional<uint64_t> inodeOf(const Place& place) {
  struct stat status {};
  if (place.folder &&
      fstatat(place.folder.get(), place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
    return status.st_ino;
  }
  errno = place.folder ? errno : place.error;
  return errno == ENOENT ? std::optional(kNoFile) : std::nullopt;
}

bool rename(const Place& from, const Place& to, unsigned flags) {
  return renameat2(from.folder.get(), from.name.c_str(), to.folder.get(), to.name.c_str(), flags) ==
         0;
}

// An unused name in the same folder, and therefore on the same file system. An earlier process with
// the same id may have left files that it could not delete.
fs::path temporaryNameFor(const fs::path& root) {
  static std::atomic<unsigned> count;
  fs::path path;
  do {
    path = root.parent_path() /
           (".quillon-" + std::to_string(getpid()) + "-" + std::to_string(++count));
  } while (inodeOf(Place(path)).value_or(kNoFile) != kNoFile);
  return path;
}

Expected<std::vector<LogEntry>> logEntries(Registry& registry) {
  std::vector<LogEntry> all;
  Statement query(registry.database(), "SELECT aside, root, step, inode FROM folder_change");
  while (query.step()) {
    all.push_back(
        {query.text(0), query.text(1), query.text(2), static_cast<uint64_t>(query.number(3))});
  }
  RETURN_IF_FAILED(query.finish());
  return all;
}

bool flush(const Place& place) { return fsync(place.folder.get()) == 0; }

// Undoes the step, if it was taken. Without an inode, there was no folder to put at the root. The
// disk has the old files at the root before the new ones are deleted.
bool undo(const LogEntry& entry) {
  if (entry.step == kGarbage || (entry.step == kReplace && entry.inode == kNoFile)) {
    return true;
  }
  const Place root(entry.root);
  const Place temporary(entry.temporary);
  const auto rootInode = inodeOf(root);
  const auto temporaryInode = inodeOf(temporary);
  if (!rootInode || !temporaryInode) {
    return false;
  }
  const bool hasTemporary = *temporaryInode != kNoFile;
  if (entry.step == kReplace) {
    return *rootInode != entry.inode ||
           (rename(root, temporary, hasTemporary ? RENAME_EXCHANGE : 0) && flush(root));
  }
  return !hasTemporary || (rename(temporary, root, 0) && flush(root));
}

// Returns whether there is no such folder now.
bool removeFolder(const fs::path& path) {
  const Place place(path);
  const bool removed = place.folder ? removeTree(place.folder.get(), place.name) && flush(place)
                                    : place.error == ENOENT;
  if (!removed) {
    logFailure(failAt("cannot remove the folder", path, "remove it by hand").value());
  }
  return removed;
}

Expected<void> write(Registry& next, const LogEntry& entry) {
  Statement row(next.database(), "INSERT OR REPLACE INTO folder_change VALUES(?1, ?2, ?3, ?4)");
  row.bind(entry.temporary.string()).bind(entry.root.string()).bind(entry.step);
  return row.bind(static_cast<int64_t>(entry.inode)).finish();
}

Expected<void> forget(Registry& next, const fs::path& temporary) {
  Statement row(next.database(), "DELETE FROM folder_change WHERE aside = ?1");
  return row.bind(temporary.string()).finish();
}

// All changes of a root are in the past when a later one is complete.
Expected<void> forgetSteps(Registry& next, const fs::path& root) {
  Statement rows(next.database(), "UPDATE folder_change SET step = ?1 WHERE root = ?2");
  return rows.bind(kGarbage).bind(root.string()).finish();
}

Expected<void> recover(Registry& registry, const LogEntry& entry) {
  if (!undo(entry)) {
    const std::string remedy = "the package's files are in '" + entry.temporary.string() + "'";
    logFailure(failAt("cannot restore the folder", entry.root, remedy.c_str()).value());
    return {};
  }
  if (!removeFolder(entry.temporary)) {
    return {};
  }
  return registry.update([&](Registry& next) { return forget(next, entry.temporary); });
}

}  // namespace

// Only the owner may open the lock: anyone who can open a file can lock it.
Expected<InstallLock> InstallLock::acquire() {
  constexpr mode_t kMode = 0600;
  const Descriptor folder =
      openFolderWithoutLinks(AT_FDCWD, kDataDirectory, MissingFolder::kMakeAndFlush);
  if (!folder) {
    return failAt("cannot make the folder", kDataDirectory);
  }
  Descriptor file(open(kRegistryLockPath, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kMode));
  if (!file) {
    return failAt("cannot open the lock", kRegistryLockPath);
  }
  fchmod(file.get(), kMode);  // earlier versions let everyone read it
  while (flock(file.get(), LOCK_EX) != 0) {
    if (errno != EINTR) {
      return failAt("cannot take the lock", kRegistryLockPath);
    }
  }
  return InstallLock(std::move(file));
}

FolderChange::FolderChange(Registry& registry, fs::path root)
    : registry_(registry), root_(std::move(root)), temporary_(temporaryNameFor(root_)) {}

// If this fails, or memory runs out, the entry stays in the log and the next install tries again.
FolderChange::~FolderChange() {
  try {
    [[maybe_unused]] const auto recovered = recoverFolders(registry_);
  } catch (const std::bad_alloc&) {
  }
}

Expected<void> FolderChange::log(const char* step, uint64_t inode) {
  return registry_.update([&](Registry& next) {
    return write(next, {temporary_, root_, step, inode});
  });
}

Expected<Descriptor> FolderChange::stage() {
  RETURN_IF_FAILED(log(kGarbage, 0));
  const Descriptor parent =
      openFolderWithoutLinks(AT_FDCWD, root_.parent_path(), MissingFolder::kMakeAndFlush);
  if (!parent) {
    return failAt("cannot make the folder", root_.parent_path());
  }
  constexpr mode_t kMode = 0755;
  const std::string name = temporary_.filename();
  if (mkdirat(parent.get(), name.c_str(), kMode) != 0) {
    return failAt("cannot make the folder", temporary_);
  }
  Descriptor staged = openFolderWithoutLinks(parent.get(), name);
  if (!staged || fchmod(staged.get(), kMode) != 0) {  // whatever the umask is
    return failAt("cannot open the folder", temporary_);
  }
  return staged;
}

Expected<void> FolderChange::replace() {
  const Place temporary(temporary_);
  const Place root(root_);
  const auto inode = inodeOf(temporary);
  const auto replaced = inodeOf(root);
  if (!inode || !replaced) {
    return failAt("cannot replace the folder", root_);
  }
  RETURN_IF_FAILED(log(kReplace, *inode));
  if (rename(temporary, root, *replaced != kNoFile ? RENAME_EXCHANGE : RENAME_NOREPLACE) &&
      flush(root)) {
    return {};
  }
  const bool unsupported = errno == EINVAL || errno == ENOSYS;
  return failAt(
      "cannot replace the folder", root_,
      unsupported ? "remove the package first: quillon package remove ID" : kWritableRemedy);
}

Expected<void> FolderChange::remove() {
  const Place root(root_);
  if (root.error != 0 && root.error != ENOENT) {
    errno = root.error;
    return failAt("cannot open the folder", root_.parent_path(),
                  root.error == ENOTDIR ? "replace the symbolic link on its path by the folder"
                                        : kWritableRemedy);
  }
  const auto inode = inodeOf(root);
  if (!inode) {
    return failAt("cannot examine the folder", root_);
  }
  if (*inode == kNoFile) {
    return {};
  }
  RETURN_IF_FAILED(log(kRemove, kNoFile));
  if (rename(root, Place(temporary_), 0) && flush(root)) {
    return {};
  }
  return failAt("cannot move the folder", root_);
}

// The folder at the root may replace one that could not be deleted when it was abandoned.
Expected<void> FolderChange::settle(Registry& next) const {
  RETURN_IF_FAILED(forget(next, root_));
  RETURN_IF_FAILED(forgetSteps(next, root_));
  return write(next, {temporary_, root_, kGarbage, 0});
}

Expected<void> FolderChange::abandon(Registry& next, const fs::path& folder) const {
  return write(next, {folder, root_, kGarbage, 0});
}

Expected<void> recoverFolders(Registry& registry) {
  ASSIGN_OR_RETURN(const auto entries, logEntries(registry));
  for (const LogEntry& entry : entries) {
    RETURN_IF_FAILED(recover(registry, entry));
  }
  return {};
}

}  // namespace quillon::workstation
