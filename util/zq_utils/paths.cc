#include "util/zq_utils/paths.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include "util/log/log.h"
#include "util/malloc_text.h"

namespace {

bool equalIgnoringCase(char a, char b) {
  return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
}

bool holds(const std::string& text, std::size_t offset, std::size_t length) {
  return offset <= text.size() && length <= text.size() - offset;
}

}  // namespace

std::string getFileName(const std::string& path) { return path.substr(path.rfind('/') + 1); }

std::string getBaseName(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash);
}

std::string concatPath(const std::string& directory, const std::string& name) {
  return directory.ends_with('/') ? directory + name : directory + "/" + name;
}

std::string getAbsolutePath(const std::string& path) {
  const MallocText resolved(realpath(path.c_str(), nullptr));
  return resolved == nullptr ? std::string() : std::string(resolved.get());
}

void splitPath(const std::string& paths, std::vector<std::string>& pieces) {
  for (std::size_t start = 0; start < paths.size();) {
    const std::size_t end = std::min(paths.find(':', start), paths.size());
    pieces.emplace_back(paths, start, end - start);
    start = end + 1;
  }
}

void printAll(const std::string& paths) {
  std::vector<std::string> pieces;
  splitPath(paths, pieces);
  for (const std::string& piece : pieces) {
    QLOG_TRACE("%s", piece.c_str());
  }
}

std::string replaceAll(const std::string& text, const std::string& pattern,
                       const std::string& replacement) {
  std::string result = text;
  if (pattern.empty()) {
    return result;
  }
  for (std::size_t at = result.find(pattern); at != std::string::npos;
       at = result.find(pattern, at + replacement.size())) {
    result.replace(at, pattern.size(), replacement);
  }
  return result;
}

bool startWith(const std::string& text, const std::string& prefix) {
  return text.starts_with(prefix);
}

bool endWith(const std::string& text, const std::string& suffix) { return text.ends_with(suffix); }

bool iCompare(const std::string& a, std::size_t offsetA, const std::string& b, std::size_t offsetB,
              std::size_t length) {
  if (!holds(a, offsetA, length) || !holds(b, offsetB, length)) {
    return false;
  }
  for (std::size_t i = 0; i < length; ++i) {
    if (!equalIgnoringCase(a[offsetA + i], b[offsetB + i])) {
      return false;
    }
  }
  return true;
}

bool isRealPath(const std::string& path) {
  if (path.empty()) {
    QLOG_ERROR("Path is empty");
    return false;
  }
  struct stat status;
  if (lstat(path.c_str(), &status) == 0) {
    if (S_ISLNK(status.st_mode)) {
      QLOG_ERROR("Symbolic link is detected : %s", path.c_str());
    }
    return !S_ISLNK(status.st_mode);
  }
  if (errno == ENOENT) {
    QLOG_DEBUG("File does not exist. No need to check symbolic links. ###");
    return true;
  }
  QLOG_ERROR("lstat error.");
  return false;
}

std::string readSelfPath() {
  std::array<char, PATH_MAX - 1> target;
  const ssize_t length = readlink("/proc/self/exe", target.data(), target.size());
  return length < 0 ? std::string() : std::string(target.data(), static_cast<std::size_t>(length));
}
