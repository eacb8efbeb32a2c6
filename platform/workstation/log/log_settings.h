// What the environment asks of the log: QUILLON_LOG and QUILLON_LOG_LEVEL.
#pragma once

#include <string>
#include <vector>

namespace quillon::workstation {

enum class LogTarget { kTerminal, kJournal, kFile, kJson, kNone };

struct LogSettings {
  LogTarget target = LogTarget::kTerminal;
  std::string path;                   // of kFile and kJson
  int level = 0;                      // lowest priority written
  bool applicationOutput = false;     // below that, what the application prints is written
  std::vector<std::string> problems;  // one line per value that was not understood
};

// The settings of two variables' values, either of which may be null for an unset one. A value that
// is not understood counts as unset and leaves a problem.
LogSettings parseLogSettings(const char* target, const char* level);

}  // namespace quillon::workstation
