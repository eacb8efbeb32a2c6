#include "quillon/host/assemblies/path_list.h"

#include <algorithm>

namespace quillon::host {

std::vector<std::string> splitList(std::string_view list) {
  std::vector<std::string> pieces;
  while (!list.empty()) {
    const size_t end = std::min(list.find(kListSeparator), list.size());
    if (end > 0) pieces.emplace_back(list.substr(0, end));
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return pieces;
}

std::string joinList(const std::vector<std::string>& entries) {
  std::string list;
  for (const std::string& entry : entries) {
    if (!list.empty()) list += kListSeparator;
    list += entry;
  }
  return list;
}

bool holdsSeparator(std::string_view path) {
  return path.find(kListSeparator) != std::string_view::npos;
}

std::string_view withoutFinalSlash(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return path;
}

void DirectoryList::add(const std::string& directory) {
  if (directory.empty() || holds(directory)) return;
  (directory.front() == '/' ? entries_ : ignored_).push_back(directory);
}

void DirectoryList::addAll(const std::vector<std::string>& directories) {
  for (const std::string& directory : directories) add(directory);
}

bool DirectoryList::holds(std::string_view directory) const {
  return std::any_of(entries_.begin(), entries_.end(), [&](const std::string& entry) {
    return withoutFinalSlash(entry) == withoutFinalSlash(directory);
  });
}

}  // namespace quillon::host
