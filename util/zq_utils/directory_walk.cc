#include "util/zq_utils/directory_walk.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cstring>
#include <memory>
#include <vector>

#include "util/log/log.h"
#include "util/zq_utils/paths.h"

namespace {

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

Directory openDirectory(const std::string& path) { return Directory(opendir(path.c_str())); }

// Builds the full paths of the entries of one directory in the same buffer, because a walk visits
// thousands of entries.
class EntryPath {
 public:
  explicit EntryPath(const std::string& directory) : path_(concatPath(directory, "")) {
    prefix_ = path_.size();
    path_.reserve(prefix_ + sizeof(dirent::d_name));
  }

  const std::string& of(const char* name) {
    path_.resize(prefix_);
    return path_ += name;
  }

 private:
  std::string path_;
  std::size_t prefix_;
};

// Returns true if the path leads to a file or a directory. For links and entries of unknown type.
bool leadsToFileOrDirectory(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode));
}

}  // namespace

bool isSelfOrParent(const char* name) {
  return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

void scanFilesInDirectory(const std::string& directory, FileReader reader, unsigned int depth) {
  const Directory stream = openDirectory(directory);
  if (stream == nullptr) {
    return;
  }
  EntryPath path(directory);
  std::vector<std::string> subdirectories;
  while (const dirent* entry = readdir(stream.get())) {
    if (entry->d_type == DT_REG || entry->d_type == DT_LNK) {
      reader(path.of(entry->d_name), entry->d_name);
    } else if (entry->d_type == DT_DIR && depth != 0 && !isSelfOrParent(entry->d_name)) {
      subdirectories.push_back(path.of(entry->d_name));
    }
  }
  for (const std::string& subdirectory : subdirectories) {
    scanFilesInDirectory(subdirectory, reader, depth - 1);
  }
}

void scanFilesInDir(const std::string& directory, FileReader reader, unsigned int depth) {
  if (directory.find(".tac_symlink") != std::string::npos) {
    return;
  }
  const Directory stream = openDirectory(directory);
  if (stream == nullptr) {
    return;
  }
  EntryPath path(directory);
  std::vector<std::string> subdirectories;
  while (const dirent* entry = readdir(stream.get())) {
    const bool unresolved = entry->d_type == DT_LNK || entry->d_type == DT_UNKNOWN;
    if (entry->d_type == DT_REG || (unresolved && leadsToFileOrDirectory(path.of(entry->d_name)))) {
      reader(path.of(entry->d_name), entry->d_name);
    } else if (entry->d_type == DT_DIR && depth >= 2 && !isSelfOrParent(entry->d_name)) {
      subdirectories.push_back(path.of(entry->d_name));
    }
  }
  for (const std::string& subdirectory : subdirectories) {
    scanFilesInDir(subdirectory, reader, depth - 1);
  }
}

void scanDirsInDirectory(const std::string& directory, FileReader reader) {
  QLOG_SCOPE();
  const Directory stream = openDirectory(directory);
  if (stream == nullptr) {
    return;
  }
  EntryPath path(directory);
  while (const dirent* entry = readdir(stream.get())) {
    if (entry->d_type == DT_DIR && !isSelfOrParent(entry->d_name)) {
      reader(path.of(entry->d_name), entry->d_name);
    }
  }
}
