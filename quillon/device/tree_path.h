// Paths in the file tree of a process inside. They have no leading "/", and the top is "".
#pragma once

#include <string>
#include <string_view>

namespace quillon::device {

[[nodiscard]] inline bool isBeneath(std::string_view path, std::string_view folder) {
  return folder.empty() || (path.size() > folder.size() &&
                            path.substr(0, folder.size()) == folder && path[folder.size()] == '/');
}

[[nodiscard]] inline std::string onMachine(const std::string& path) { return "/" + path; }

[[nodiscard]] inline std::string join(const std::string& folder, const std::string& name) {
  return folder.empty() ? name : folder + "/" + name;
}

}  // namespace quillon::device
