#include "packages/folder_change.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <vector>

#include "device_data.h"

namespace quillon::workstation {
namespace {

namespace fs = std::filesystem;

constexpr const char* kGarbage = "garbage";
constexpr const char* kReplace = "replace";
constexpr const char* kRemove = "remove";

struct Note {
  fs::path aside;
  fs::path root;
  std::string step;
  uint64_t inode;
};

// 0 where there is nothing.
uint64_t inodeOf(const fs::path& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

Failure failureAt(const std::string& what, const fs::path& path) {
  return {what + " '" + path.string() + "': " + std::strerror(errno),
          "check that the device root is writable and has space"};
}

Failure cannotReplace(const fs::path& root) {
  const bool unsupported = errno == EINVAL || errno == ENOSYS;
  return {"cannot replace the folder '" + root.string() + "': " + std::strerror(errno),
          unsupported ? "remove the package first: quillon package remove ID"
                      : "check that the device root is writable and has space"};
}

bool exchange(const fs::path& one, const fs::path& other) {
  return renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE) == 0;
}

// A name in the same folder, and so on the same file system, that no other change has.
fs::path asideOf(const fs::path& root) {
  static std::atomic<unsigned> count;
  return root.parent_path() /
         (".quillon-" + std::to_string(getpid()) + "-" + std::to_string(++count));
}

Expected<std::vector<Note>> notes(Registry& registry) {
  std::vector<Note> all;
  Statement query(registry.database(), "SELECT aside, root, step, inode FROM folder_change");
  while (query.step()) {
    all.push_back(
        {query.text(0), query.text(1), query.text(2), static_cast<uint64_t>(query.number(3))});
  }
  RETURN_IF_FAILED(query.finish());
  return all;
}

// Takes the step back, if it was taken.
bool undo(const Note& note) {
  if (note.step == kReplace && inodeOf(note.root) == note.inode) {
    return inodeOf(note.aside) != 0 ? exchange(note.aside, note.root)
                                    : rename(note.root.c_str(), note.aside.c_str()) == 0;
  }
  if (note.step == kRemove && inodeOf(note.aside) != 0) {
    return rename(note.aside.c_str(), note.root.c_str()) == 0;
  }
  return true;
}

Expected<void> recover(Registry& registry, const Note& note) {
  if (!undo(note)) return tl::unexpected(failureAt("cannot restore the folder", note.root));
  std::error_code error;
  fs::remove_all(note.aside, error);
  if (error) {
    return fail("cannot remove the folder '" + note.aside.string() + "': " + error.message(),
                "remove it by hand");
  }
  Statement forget(registry.database(), "DELETE FROM folder_change WHERE aside = ?1");
  return forget.bind(note.aside.string()).finish();
}

}  // namespace

Expected<InstallLock> InstallLock::acquire() {
  constexpr mode_t kMode = 0644;
  Descriptor file(open(kRegistryLockPath, O_RDWR | O_CREAT | O_CLOEXEC, kMode));
  if (!file) return tl::unexpected(failureAt("cannot open the lock", kRegistryLockPath));
  while (flock(file.get(), LOCK_EX) != 0) {
    if (errno != EINTR) return tl::unexpected(failureAt("cannot take the lock", kRegistryLockPath));
  }
  return InstallLock(std::move(file));
}

FolderChange::FolderChange(Registry& registry, fs::path root)
    : registry_(registry), root_(std::move(root)), aside_(asideOf(root_)) {}

FolderChange::~FolderChange() {
  // What fails here stays noted, and the next installation tries again.
  [[maybe_unused]] const auto recovered = recoverFolders(registry_);
}

Expected<void> FolderChange::note(const fs::path& aside, const char* step, uint64_t inode) {
  Statement row(registry_.database(),
                "INSERT OR REPLACE INTO folder_change VALUES(?1, ?2, ?3, ?4)");
  row.bind(aside.string()).bind(root_.string()).bind(step);
  return row.bind(static_cast<int64_t>(inode)).finish();
}

Expected<fs::path> FolderChange::stage() {
  RETURN_IF_FAILED(note(aside_, kGarbage, 0));
  std::error_code error;
  fs::create_directories(root_.parent_path(), error);
  constexpr mode_t kMode = 0755;
  if (error || mkdir(aside_.c_str(), kMode) != 0) {
    if (error) errno = error.value();
    return tl::unexpected(failureAt("cannot make the folder", aside_));
  }
  return aside_;
}

Expected<void> FolderChange::replace() {
  RETURN_IF_FAILED(note(aside_, kReplace, inodeOf(aside_)));
  const bool replaced = inodeOf(root_) != 0 ? exchange(aside_, root_)
                                            : renameat2(AT_FDCWD, aside_.c_str(), AT_FDCWD,
                                                        root_.c_str(), RENAME_NOREPLACE) == 0;
  if (replaced) return {};
  return tl::unexpected(cannotReplace(root_));
}

Expected<void> FolderChange::remove() {
  RETURN_IF_FAILED(note(aside_, kRemove, 0));
  if (rename(root_.c_str(), aside_.c_str()) == 0 || errno == ENOENT) return {};
  return tl::unexpected(failureAt("cannot move the folder", root_));
}

Expected<void> FolderChange::settle() { return note(aside_, kGarbage, 0); }

Expected<void> FolderChange::abandon(const fs::path& folder) { return note(folder, kGarbage, 0); }

Expected<void> recoverFolders(Registry& registry) {
  const auto all = notes(registry);
  if (!all) return tl::unexpected(all.error());
  for (const Note& note : *all) {
    RETURN_IF_FAILED(recover(registry, note));
  }
  return {};
}

}  // namespace quillon::workstation
