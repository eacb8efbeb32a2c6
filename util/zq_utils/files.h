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

// Renames `from` to `to`; between file systems, copies and removes. Returns false without a log
// line if `from` does not exist or `to` exists.
bool moveFile(const boost::filesystem::path& from, const boost::filesystem::path& to);

// Copies `from` to `to` and replaces an existing `to`. Returns false without a log line if `from`
// does not exist.
bool copyFile(const boost::filesystem::path& from, const boost::filesystem::path& to);

// Creates the directory and its parents. Returns true if the path exists, whatever its type.
bool createDir(const boost::filesystem::path& path);

// Copies a directory tree. On failure, the part that was already copied remains.
bool copyDir(const boost::filesystem::path& from, const boost::filesystem::path& to,
             FSFlag flags = FS_NONE);

// Sets the owner, group and permission bits of `to` to those of `from`. `to` must be readable.
void copyOwnershipAndPermissions(const boost::filesystem::path& from,
                                 const boost::filesystem::path& to);

// Sets the access label of `path`.
bool setSmack(const std::string& path, const std::string& label);

// Copies the access label, owner and group from `source` to `destination`. If `isSymlink` is true,
// changes the link `destination` itself. Failures are written to standard error.
void updateAssemblyInfo(const std::string& source, const std::string& destination, bool isSymlink);

// Returns the size in bytes of the file that `path` leads to, or 0 if stat(2) fails.
unsigned int getFileSize(const std::string& path);
