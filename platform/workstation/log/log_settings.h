// The log settings in the environment: QUILLON_LOG and QUILLON_LOG_LEVEL.
#pragma once

#include <string>
#include <vector>

namespace quillon::workstation {

enum class LogTarget { kTerminal, kJournal, kFile, kJson, kNone };

struct LogSettings {
  LogTarget target = LogTarget::kTerminal;
  std::string path;                   // of kFile and kJson
  int level = 0;                      // lowest priority written
  bool applicationOutput = false;     // write the application's output even below that level
  std::vector<std::string> problems;  // one line for each invalid value
};

// Parses the values of the two variables; null for a variable that is not set. An invalid value
// adds a problem and counts as not set.
LogSettings parseLogSettings(const char* target, const char* level);

}  // namespace quillon::workstation
