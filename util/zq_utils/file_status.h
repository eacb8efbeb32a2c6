// What this unit means by a path that exists.
#pragma once

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>

// True when the path's status, links followed, is neither an error nor not-found.
inline bool pathExists(const boost::filesystem::path& path) {
  boost::system::error_code error;
  return boost::filesystem::exists(path, error);
}
