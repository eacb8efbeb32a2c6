// What this unit means by a path that exists, and by a permission.
#pragma once

#include <sys/types.h>

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>

// The part of a mode that chmod(2) sets.
inline constexpr mode_t kPermissionBits = 07777;

// True when the path's status, links followed, is neither an error nor not-found.
inline bool pathExists(const boost::filesystem::path& path) {
  boost::system::error_code error;
  return boost::filesystem::exists(path, error);
}
