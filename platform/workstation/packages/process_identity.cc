#include "packages/process_identity.h"

#include <fstream>
#include <sstream>
#include <string>

namespace quillon::workstation {

std::optional<uint64_t> processStartTime(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  if (!std::getline(file, line, '\0')) return std::nullopt;
  // Field 2 is the process name in parentheses and may hold anything; field 3 follows the last one.
  const size_t nameEnd = line.rfind(')');
  if (nameEnd == std::string::npos) return std::nullopt;
  constexpr int kStartTimeField = 22;
  std::istringstream fields(line.substr(nameEnd + 1));
  std::string skipped;
  for (int field = 3; field < kStartTimeField; ++field) fields >> skipped;
  uint64_t start = 0;
  if (!(fields >> start)) return std::nullopt;
  return start;
}

}  // namespace quillon::workstation
