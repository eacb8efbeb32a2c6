// ":"-joined lists of paths, as the plug-in returns them and the runtime takes them.
//
// The two disagree in one point: the plug-in's lists may begin with ":" and hold an entry twice,
// and the runtime refuses a list with an empty or relative entry as a whole (0x80070057).
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quillon::host {

inline constexpr char kListSeparator = ':';

// The pieces of a list in order, empty ones left out.
std::vector<std::string> splitList(std::string_view list);

std::string joinList(const std::vector<std::string>& entries);

// Whether a path cannot stand in a list.
bool holdsSeparator(std::string_view path);

// A path without final slashes, "/" itself excepted.
std::string_view withoutFinalSlash(std::string_view path);

// Collects directories for one runtime property.
class DirectoryList {
 public:
  // Appends a directory unless it is empty, relative or already there. A relative one is kept in
  // ignored().
  void add(const std::string& directory);
  void addAll(const std::vector<std::string>& directories);

  const std::vector<std::string>& entries() const { return entries_; }
  const std::vector<std::string>& ignored() const { return ignored_; }

 private:
  bool holds(std::string_view directory) const;

  std::vector<std::string> entries_;
  std::vector<std::string> ignored_;
};

}  // namespace quillon::host
