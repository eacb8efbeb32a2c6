#include "quillon/host/assemblies/path_list.h"

#include <algorithm>

namespace quillon::host {
namespace {

// Keeps the path "/" as it is.
std::string_view withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') {
    path.remove_suffix(1);
  }
  return path;
}

}  // namespace

std::vector<std::string> splitList(std::string_view list, char separator) {
  std::vector<std::string> entries;
  while (!list.empty()) {
    const size_t end = std::min(list.find(separator), list.size());
    if (end > 0) {
      entries.emplace_back(list.substr(0, end));
    }
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return entries;
}

std::string joinList(const std::vector<std::string>& entries, char separator) {
  std::string list;
  for (const std::string& entry : entries) {
    if (!list.empty()) {
      list += separator;
    }
    list += entry;
  }
  return list;
}

bool containsSeparator(std::string_view path) {
  return path.find(kListSeparator) != std::string_view::npos;
}

void DirectoryList::add(const std::string& directory) {
  if (directory.empty() || contains(directory)) {
    return;
  }
  (directory.front() == '/' ? entries_ : ignored_).push_back(directory);
}

void DirectoryList::addAll(const std::vector<std::string>& directories) {
  for (const std::string& directory : directories) {
    add(directory);
  }
}

bool DirectoryList::contains(std::string_view directory) const {
  return std::any_of(entries_.begin(), entries_.end(), [&](const std::string& entry) {
    return withoutTrailingSlashes(entry) == withoutTrailingSlashes(directory);
  });
}

}  // namespace quillon::host
