#include "packages/folder_change.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <vector>

#include "data_paths.h"
#include "path_failure.h"

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

// 0 if there is no such file.
uint64_t inodeOf(const fs::path& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

bool exchange(const fs::path& one, const fs::path& other) {
  return renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE) == 0;
}

// A unique name in the same folder, and therefore on the same file system.
fs::path temporaryNameFor(const fs::path& root) {
  static std::atomic<unsigned> count;
  return root.parent_path() /
         (".quillon-" + std::to_string(getpid()) + "-" + std::to_string(++count));
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

// Undoes the step, if it was taken.
bool undo(const LogEntry& entry) {
  if (entry.step == kReplace && inodeOf(entry.root) == entry.inode) {
    return inodeOf(entry.temporary) != 0 ? exchange(entry.temporary, entry.root)
                                         : rename(entry.root.c_str(), entry.temporary.c_str()) == 0;
  }
  if (entry.step == kRemove && inodeOf(entry.temporary) != 0) {
    return rename(entry.temporary.c_str(), entry.root.c_str()) == 0;
  }
  return true;
}

Expected<void> recover(Registry& registry, const LogEntry& entry) {
  if (!undo(entry)) {
    return failAt("cannot restore the folder", entry.root);
  }
  std::error_code error;
  fs::remove_all(entry.temporary, error);
  if (error) {
    return fail("cannot remove the folder '" + entry.temporary.string() + "': " + error.message(),
                "remove it by hand");
  }
  Statement forget(registry.database(), "DELETE FROM folder_change WHERE aside = ?1");
  return forget.bind(entry.temporary.string()).finish();
}

}  // namespace

Expected<InstallLock> InstallLock::acquire() {
  constexpr mode_t kMode = 0644;
  Descriptor file(open(kRegistryLockPath, O_RDWR | O_CREAT | O_CLOEXEC, kMode));
  if (!file) {
    return failAt("cannot open the lock", kRegistryLockPath);
  }
  while (flock(file.get(), LOCK_EX) != 0) {
    if (errno != EINTR) {
      return failAt("cannot take the lock", kRegistryLockPath);
    }
  }
  return InstallLock(std::move(file));
}

FolderChange::FolderChange(Registry& registry, fs::path root)
    : registry_(registry), root_(std::move(root)), temporary_(temporaryNameFor(root_)) {}

FolderChange::~FolderChange() {
  // If this fails, the entry stays in the log and the next install tries again.
  [[maybe_unused]] const auto recovered = recoverFolders(registry_);
}

Expected<void> FolderChange::log(const fs::path& temporary, const char* step, uint64_t inode) {
  Statement row(registry_.database(),
                "INSERT OR REPLACE INTO folder_change VALUES(?1, ?2, ?3, ?4)");
  row.bind(temporary.string()).bind(root_.string()).bind(step);
  return row.bind(static_cast<int64_t>(inode)).finish();
}

Expected<fs::path> FolderChange::stage() {
  RETURN_IF_FAILED(log(temporary_, kGarbage, 0));
  std::error_code error;
  fs::create_directories(root_.parent_path(), error);
  constexpr mode_t kMode = 0755;
  if (error || mkdir(temporary_.c_str(), kMode) != 0) {
    if (error) {
      errno = error.value();
    }
    return failAt("cannot make the folder", temporary_);
  }
  return temporary_;
}

Expected<void> FolderChange::replace() {
  RETURN_IF_FAILED(log(temporary_, kReplace, inodeOf(temporary_)));
  const bool replaced = inodeOf(root_) != 0 ? exchange(temporary_, root_)
                                            : renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD,
                                                        root_.c_str(), RENAME_NOREPLACE) == 0;
  if (replaced) {
    return {};
  }
  const bool unsupported = errno == EINVAL || errno == ENOSYS;
  return failAt(
      "cannot replace the folder", root_,
      unsupported ? "remove the package first: quillon package remove ID" : kWritableRemedy);
}

Expected<void> FolderChange::remove() {
  RETURN_IF_FAILED(log(temporary_, kRemove, 0));
  if (rename(root_.c_str(), temporary_.c_str()) == 0 || errno == ENOENT) {
    return {};
  }
  return failAt("cannot move the folder", root_);
}

Expected<void> FolderChange::settle() { return log(temporary_, kGarbage, 0); }

Expected<void> FolderChange::abandon(const fs::path& folder) { return log(folder, kGarbage, 0); }

Expected<void> recoverFolders(Registry& registry) {
  ASSIGN_OR_RETURN(const auto entries, logEntries(registry));
  for (const LogEntry& entry : entries) {
    RETURN_IF_FAILED(recover(registry, entry));
  }
  return {};
}

}  // namespace quillon::workstation
