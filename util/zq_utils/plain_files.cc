// The file operations that need no function of Boost.Filesystem. The plug-in uses no others, so it
// does not depend on that library.
#include <boost/system/error_code.hpp>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "util/log/log.h"
#include "util/zq_utils/file_status.h"
#include "util/zq_utils/files.h"

bool removeFile(const boost::filesystem::path& path) {
  if (!pathExists(path)) {
    return true;
  }
  const bool removed = std::remove(path.c_str()) == 0 || errno == ENOENT;
  if (!removed) {
    const boost::system::error_code error(errno, boost::system::system_category());
    QLOG_ERROR("Cannot remove: %s, %s", path.c_str(), error.message().c_str());
  }
  return removed;
}

unsigned int getFileSize(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 ? static_cast<unsigned int>(status.st_size) : 0;
}
