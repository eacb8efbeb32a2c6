#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>

#include "util/log/log.h"
#include "util/zq_utils/file_copy.h"
#include "util/zq_utils/file_status.h"
#include "util/zq_utils/files.h"

namespace fs = boost::filesystem;
using boost::system::error_code;

namespace {

constexpr FSFlag kMerge = FS_MERGE_SKIP | FS_MERGE_OVERWRITE;

bool hasAny(FSFlag flags, FSFlag wanted) { return (flags & wanted) != 0; }

bool isDirectory(const fs::path& path) {
  error_code error;
  return fs::is_directory(path, error);
}

// An existing directory gets the owner of its source also with FS_MERGE_OVERWRITE; a new directory
// gets it only with FS_PRESERVE_OWNERSHIP_AND_PERMISSIONS.
bool prepareExisting(const fs::path& from, const fs::path& to, FSFlag flags) {
  if (!hasAny(flags, kMerge)) {
    QLOG_ERROR_OF("copyDir", "Destination directory %s already exists", to.c_str());
    return false;
  }
  if (hasAny(flags, FS_MERGE_OVERWRITE | FS_PRESERVE_OWNERSHIP_AND_PERMISSIONS)) {
    copyOwnershipAndPermissions(from, to);
  }
  return true;
}

bool prepareNew(const fs::path& from, const fs::path& to, FSFlag flags) {
  if (!createDir(to)) {
    QLOG_ERROR_OF("copyDir", "Unable to create destination directory %s", to.c_str());
    return false;
  }
  if (hasAny(flags, FS_PRESERVE_OWNERSHIP_AND_PERMISSIONS)) {
    copyOwnershipAndPermissions(from, to);
  }
  return true;
}

// Returns true if `target` is a symbolic link that a merge keeps.
bool isKeptLink(const fs::path& target, FSFlag flags) {
  error_code error;
  return hasAny(flags, kMerge) && pathExists(target) &&
         fs::is_symlink(fs::symlink_status(target, error));
}

// Copies the link itself. In a merge, an existing link or file is kept.
bool copyLink(const fs::path& link, const fs::path& target, FSFlag flags) {
  if (hasAny(flags, kMerge) && pathExists(target)) {
    return true;
  }
  error_code error;
  fs::copy_symlink(link, target, error);
  if (error) {
    QLOG_ERROR_OF("copyDir", "Failed to copy symlink: %s, %s", target.c_str(),
                  error.message().c_str());
  }
  return !error;
}

void putInPlace(const fs::path& copy, const fs::path& target, FSFlag flags) {
  if (hasAny(flags, FS_MERGE_OVERWRITE)) {
    fs::remove(target);
  }
  fs::rename(copy, target);
}

// Throws filesystem_error on failure.
void copyOrThrow(const fs::path& file, const fs::path& copy, FSFlag flags) {
  const FileCopyOptions options = {
      .overwrite = hasAny(flags, FS_MERGE_OVERWRITE), .followSource = false, .followTarget = false};
  error_code error;
  copyRegularFile(file, copy, options, error);
  if (error) {
    throw fs::filesystem_error("boost::filesystem::copy_file", file, copy, error);
  }
}

// Throws filesystem_error on failure.
void copyOneFile(const fs::path& file, const fs::path& target, FSFlag flags) {
  if (hasAny(flags, FS_MERGE_SKIP) && pathExists(target)) {
    return;
  }
  const bool commit = hasAny(flags, FS_COMMIT_COPY_FILE);
  if (!commit && isKeptLink(target, flags)) {
    return;
  }
  const fs::path copy =
      commit ? target.parent_path() / fs::unique_path("%%%%-%%%%-%%%%-%%%%") : target;
  copyOrThrow(file, copy, flags);
  if (hasAny(flags, FS_PRESERVE_OWNERSHIP_AND_PERMISSIONS)) {
    copyOwnershipAndPermissions(file, copy);
  }
  if (commit) {
    putInPlace(copy, target, flags);
  }
}

bool copyEntry(const fs::directory_entry& entry, const fs::path& to, FSFlag flags) {
  const fs::path target = to / entry.path().filename();
  if (fs::is_symlink(entry.symlink_status())) {
    return copyLink(entry.path(), target, flags);
  }
  if (fs::is_directory(entry.status())) {
    return isKeptLink(target, flags) || copyDir(entry.path(), target, flags);
  }
  copyOneFile(entry.path(), target, flags);
  return true;
}

bool copyEntries(const fs::path& from, const fs::path& to, FSFlag flags) {
  for (const fs::directory_entry& entry : fs::directory_iterator(from)) {
    if (!copyEntry(entry, to, flags)) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool copyDir(const fs::path& from, const fs::path& to, FSFlag flags) {
  if (!isDirectory(from)) {
    QLOG_ERROR("Source directory %s does not exist or is not a directory", from.c_str());
    return false;
  }
  if (!(pathExists(to) ? prepareExisting(from, to, flags) : prepareNew(from, to, flags))) {
    return false;
  }
  try {
    return copyEntries(from, to, flags);
  } catch (const fs::filesystem_error& failure) {
    QLOG_ERROR("Failed to copy directory: %s", failure.what());
    return false;
  }
}
