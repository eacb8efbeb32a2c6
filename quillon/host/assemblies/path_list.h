// Lists of paths joined by ":", as the plug-in returns them and the runtime accepts them.
//
// The plug-in's lists may begin with ":" and contain an entry twice. The runtime rejects a whole
// list (0x80070057) if one entry is empty or relative.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quillon::host {

inline constexpr char kListSeparator = ':';

// The entries of a list in order, without empty ones.
std::vector<std::string> splitList(std::string_view list, char separator = kListSeparator);

std::string joinList(const std::vector<std::string>& entries, char separator = kListSeparator);

// Whether a path contains ":", so that it cannot be an entry of a list.
bool containsSeparator(std::string_view path);

// Collects directories for one runtime property.
class DirectoryList {
 public:
  // Appends a directory unless it is empty, relative or already in the list. Relative ones are
  // collected in ignored().
  void add(const std::string& directory);
  void addAll(const std::vector<std::string>& directories);

  const std::vector<std::string>& entries() const { return entries_; }
  const std::vector<std::string>& ignored() const { return ignored_; }

 private:
  bool contains(std::string_view directory) const;

  std::vector<std::string> entries_;
  std::vector<std::string> ignored_;
};

}  // namespace quillon::host
