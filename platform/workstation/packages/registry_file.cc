#include "packages/registry_file.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "data_paths.h"
#include "packages/database.h"
#include "path_failure.h"
#include "quillon/base/descriptor.h"
#include "quillon/base/files.h"
#include "quillon/base/folders.h"
#include "workstation/packages.h"

namespace quillon::workstation {
namespace {

constexpr size_t kMaxSize = size_t{64} << 20;

// SQLite's name for the journal of packages.db.
constexpr const char* kJournalPath = "/opt/usr/share/quillon/packages.db-journal";
constexpr const char* kNewPath = "/opt/usr/share/quillon/packages.db.new";
constexpr const char* kReservePath = "/opt/usr/share/quillon/packages.reserve";

// Enough for the two copies of the registry that exist during a change.
constexpr off_t kMinReserve = 256 << 10;
constexpr off_t kReserveFactor = 2;

constexpr mode_t kMode = 0644;

bool isDiskFull(int error) { return error == ENOSPC || error == EDQUOT; }

// Creates a file. Removes what an interrupted process has left under that name, and follows no link
// that is planted there.
Descriptor create(const char* path) {
  unlink(path);
  return Descriptor(open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kMode));
}

// Returns false with errno on failure. A journal belongs to the file that is replaced: SQLite would
// roll it back into the new one.
bool writeAndRename(std::string_view bytes) {
  const Descriptor file = create(kNewPath);
  if (!file || !writeAll(file.get(), bytes) || fchmod(file.get(), kMode) != 0 ||
      fsync(file.get()) != 0) {
    return false;
  }
  if (unlink(kJournalPath) == 0 && !flushFolder(kDataDirectory)) {
    return false;
  }
  return rename(kNewPath, kRegistryPath) == 0 && flushFolder(kDataDirectory);
}

// Whether an earlier version was interrupted while it changed the registry in place.
bool hasJournal() {
  struct stat status {};
  return lstat(kJournalPath, &status) == 0 && S_ISREG(status.st_mode);
}

// The file of an earlier reservation, if it is one, else a new one.
Descriptor openReserve() {
  Descriptor file(open(kReservePath, O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  const bool isOwn =
      file && fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1;
  return isOwn ? std::move(file) : create(kReservePath);
}

off_t sizeOf(const char* path) {
  struct stat status {};
  return lstat(path, &status) == 0 ? status.st_size : 0;
}

}  // namespace

Expected<std::string> readRegistryFile() {
  auto bytes = readWholeFile(kRegistryPath, kMaxSize);
  if (!bytes) {
    if (errno == ENOENT || errno == ENOTDIR) {
      return std::string();
    }
    return fail(std::string("cannot read the package registry '") + kRegistryPath +
                    "': " + fileErrorText(errno, kMaxSize),
                "check the file and the permissions of its folders");
  }
  if (hasJournal()) {
    auto recovered = Database::recoverFile(kRegistryPath);
    // SQLite has removed the journal. A later registry must not meet it after a power cut.
    if (recovered && !flushFolder(kDataDirectory)) {
      return failAt("cannot recover the package registry", kRegistryPath);
    }
    return recovered;
  }
  return std::move(*bytes);
}

Expected<void> replaceRegistryFile(std::string_view bytes, Reserve reserve) {
  bool replaced = writeAndRename(bytes);
  if (!replaced && isDiskFull(errno) && reserve == Reserve::kUse && unlink(kReservePath) == 0) {
    replaced = writeAndRename(bytes);
  }
  if (replaced) {
    return {};
  }
  const auto failure = failAt("cannot write the package registry", kRegistryPath);
  unlink(kNewPath);
  return failure;
}

void reserveSpace() {
  const off_t wanted = kMinReserve + kReserveFactor * sizeOf(kRegistryPath);
  const off_t size = sizeOf(kReservePath);
  if (size >= wanted) {
    return;
  }
  const Descriptor file = openReserve();
  if (file && posix_fallocate(file.get(), 0, wanted) != 0) {
    [[maybe_unused]] const int result = ftruncate(file.get(), size);  // frees a part of the growth
  }
}

}  // namespace quillon::workstation
