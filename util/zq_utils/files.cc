#include "util/zq_utils/files.h"

#include <boost/filesystem/operations.hpp>

#include "util/log/log.h"
#include "util/zq_utils/file_copy.h"
#include "util/zq_utils/file_status.h"

namespace fs = boost::filesystem;
using boost::system::error_code;

namespace {

// Moves a file by copying it, for moves that rename(2) cannot do, such as between file systems.
bool moveByCopy(const fs::path& from, const fs::path& to) {
  error_code error;
  copyRegularFile(from, to, {.overwrite = true, .followTarget = false}, error);
  if (error) {
    QLOG_ERROR_OF("moveFile", "Cannot copy file %s due to error [%s]", from.c_str(),
                  error.message().c_str());
    return false;
  }
  fs::remove_all(from, error);
  if (error) {
    QLOG_ERROR_OF("moveFile", "Cannot remove old file when copying: %s with error [%s]",
                  from.c_str(), error.message().c_str());
    return false;
  }
  return true;
}

}  // namespace

bool removeAll(const fs::path& path) {
  if (!pathExists(path)) {
    return true;
  }
  error_code error;
  fs::remove_all(path, error);
  if (error) {
    QLOG_ERROR("Cannot remove: %s, %s", path.c_str(), error.message().c_str());
  }
  return !error;
}

bool moveFile(const fs::path& from, const fs::path& to) {
  if (!pathExists(from) || pathExists(to)) {
    return false;
  }
  error_code error;
  fs::rename(from, to, error);
  if (!error) {
    return true;
  }
  QLOG_ERROR("Cannot move file: %s. Will copy/remove... with error [%s]", from.c_str(),
             error.message().c_str());
  return moveByCopy(from, to);
}

bool copyFile(const fs::path& from, const fs::path& to) {
  if (!pathExists(from)) {
    return false;
  }
  error_code error;
  copyRegularFile(from, to, {.overwrite = true}, error);
  if (error) {
    QLOG_ERROR("copy file %s due to error [%s]", from.c_str(), error.message().c_str());
    return false;
  }
  return true;
}

bool createDir(const fs::path& path) {
  if (pathExists(path)) {
    return true;
  }
  error_code error;
  fs::create_directories(path, error);
  if (error) {
    QLOG_ERROR("Failed to create directory: %s", path.c_str());
  }
  return !error;
}
