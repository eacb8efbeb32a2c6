// The log's configuration, so that a process can take over the log of another one: a prepared
// process logs to the target of the client that it serves.
#pragma once

#include <optional>
#include <string>

namespace quillon::workstation {

// The configuration that the library read from the environment when it was loaded.
struct LogConfig {
  std::string target;  // as in QUILLON_LOG, without the path: "terminal", "file", "json", ...
  int level = 0;       // lowest priority written
  bool applicationOutput = false;  // write the application's output regardless of its priority
  int descriptor = -1;             // of the file or the terminal; -1 if the target has none
};

// Returns the configuration of this process's log. The log keeps the ownership of the descriptor:
// the caller may duplicate or send it, but must not close it.
LogConfig currentLog();

// Opens the log of a client of the launch pad that does not load the library. In such a client it
// takes the place of currentLog(). The descriptor stays open until the process ends. Returns
// nullopt if the client needs the library after all, for the journal or to report an invalid
// setting.
std::optional<LogConfig> openLogOfEnvironment();

// Replaces this process's log. Always takes ownership of the descriptor. Returns false if the
// target is unknown or cannot be used; the log then stays as it is.
//
// Other threads may log meanwhile; their lines go to the old or to the new target. Reads NO_COLOR
// again.
bool useLog(const LogConfig& config);

}  // namespace quillon::workstation
