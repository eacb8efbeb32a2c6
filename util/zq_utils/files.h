// File operations with a common error policy: none of them throws. On failure each returns false
// and, unless stated otherwise, logs one error line with the path and the message of the
// file-system library.
//
// A path "exists" if its status is neither an error nor not-found.
#pragma once

#include <boost/filesystem/path.hpp>

#include <string>

// How copyDir handles an existing destination, and which attributes it copies.
enum FSFlag : int {
  FS_NONE = 0,                                // fail if the destination exists
  FS_MERGE_SKIP = 1,                          // keep existing files and links
  FS_MERGE_OVERWRITE = 2,                     // replace existing files, keep links
  FS_COMMIT_COPY_FILE = 4,                    // copy each file to a new name, then rename it
  FS_PRESERVE_OWNERSHIP_AND_PERMISSIONS = 8,  // copy owner, group and mode
};

constexpr FSFlag operator|(FSFlag a, FSFlag b) {
  return static_cast<FSFlag>(static_cast<int>(a) | static_cast<int>(b));
}

// Removes a directory tree. Returns true if the path does not exist.
bool removeAll(const boost::filesystem::path& path);

// Removes one file or empty directory. Returns true if the path does not exist.
bool removeFile(const boost::filesystem::path& path);

// Renames `from` to `to`; between file systems, copies and removes, which works for regular files
// only. Returns false without a log line if `from` does not exist or `to` exists.
bool moveFile(const boost::filesystem::path& from, const boost::filesystem::path& to);

// Copies the regular file `from` to `to` and replaces the content of an existing `to`. Follows
// symbolic links. If one of the two is not a regular file, fails without waiting. Returns false
// without a log line if `from` does not exist.
bool copyFile(const boost::filesystem::path& from, const boost::filesystem::path& to);

// Creates the directory and its parents. Returns true if the path exists, whatever its type.
bool createDir(const boost::filesystem::path& path);

// Copies a directory tree: directories, regular files, and symbolic links as links. On failure, the
// part that was already copied remains.
//
// `to` itself may be a link to a directory. Inside `to` the copy follows no link, also if it leads
// to another part of `to`. With one of the FS_MERGE flags, it keeps a link that leads to an
// existing file or directory, and skips the entry; a directory of `from` is then skipped with its
// content. Otherwise a link in the place of an entry is a failure, and so is a dangling link in a
// merge, except that FS_COMMIT_COPY_FILE replaces a link in the place of a file, unless
// FS_MERGE_SKIP keeps it.
//
// It also fails if it has to copy a FIFO, socket or device, or to write to one. It does not wait
// for another process.
bool copyDir(const boost::filesystem::path& from, const boost::filesystem::path& to,
             FSFlag flags = FS_NONE);

// Sets the owner, group and permission bits of `to` to those of `from`. `to` must be readable, and
// must not be a symbolic link unless `from` is a directory.
void copyOwnershipAndPermissions(const boost::filesystem::path& from,
                                 const boost::filesystem::path& to);

// Sets the access label of `path`.
bool setSmack(const std::string& path, const std::string& label);

// Copies the access label, owner and group from `source` to `destination`. If `isSymlink` is true,
// changes the link `destination` itself. Failures are written to standard error.
void updateAssemblyInfo(const std::string& source, const std::string& destination, bool isSymlink);

// Returns the size in bytes of the file that `path` leads to, or 0 if stat(2) fails.
unsigned int getFileSize(const std::string& path);
