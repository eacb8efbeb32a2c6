// File operations with one error policy: none throws; each returns true or false and writes one
// error line that names the path and the file-system library's message.
//
// "Exists" means that the path's status is neither an error nor not-found.
#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

// How copyDir treats a destination that is already there, and what it carries over.
enum FSFlag : int {
  FS_NONE = 0,                                // the destination must not exist yet
  FS_MERGE_SKIP = 1,                          // files and links already there are kept
  FS_MERGE_OVERWRITE = 2,                     // files already there are replaced, links are kept
  FS_COMMIT_COPY_FILE = 4,                    // each file: copy to a fresh name, then rename
  FS_PRESERVE_OWNERSHIP_AND_PERMISSIONS = 8,  // owner, group and mode of the source
};

constexpr FSFlag operator|(FSFlag a, FSFlag b) {
  return static_cast<FSFlag>(static_cast<int>(a) | static_cast<int>(b));
}

// Removes a tree. True also where nothing is there.
bool removeAll(const boost::filesystem::path& path);

// Removes one file or empty directory. True also where nothing is there.
bool removeFile(const boost::filesystem::path& path);

// Renames `from` to `to`, or copies and removes across file systems. False, silently, unless `from`
// exists and `to` does not.
bool moveFile(const boost::filesystem::path& from, const boost::filesystem::path& to);

// Copies over an existing `to`. False, silently, where `from` does not exist.
bool copyFile(const boost::filesystem::path& from, const boost::filesystem::path& to);

// Creates the directory with its parents. True where the path exists, of whatever kind.
bool createDir(const boost::filesystem::path& path);

// Copies a directory tree. What was done before a failure stays.
bool copyDir(const boost::filesystem::path& from, const boost::filesystem::path& to,
             FSFlag flags = FS_NONE);

// Gives `to` the owner, group and permission bits of `from`. `to` must be readable.
void copyOwnershipAndPermissions(const boost::filesystem::path& from,
                                 const boost::filesystem::path& to);

// Sets the access label.
bool setSmack(const std::string& path, const std::string& label);

// Copies access label, owner and group from `source` to `destination`; with `isSymlink` the
// destination is a link and gets them itself. Failures go to standard error.
void updateAssemblyInfo(const std::string& source, const std::string& destination, bool isSymlink);

// Size in bytes, following links; 0 when stat(2) fails.
unsigned int getFileSize(const std::string& path);
