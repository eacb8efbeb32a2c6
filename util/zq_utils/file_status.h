// Definitions of an existing path and of permission bits for this unit.
#pragma once

#include <boost/filesystem/path.hpp>
#include <sys/stat.h>
#include <sys/types.h>

// The bits of a mode that chmod(2) sets.
inline constexpr mode_t kPermissionBits = 07777;

// Returns true if the status of the path, after links are followed, is neither an error nor
// not-found.
inline bool pathExists(const boost::filesystem::path& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0;
}
