// How one process's log becomes another's: a launch that a prepared process carries out logs where
// the asking command's own log goes.
#pragma once

#include <string>

namespace quillon::workstation {

// What the environment made of the log when the library was loaded.
struct LogHandover {
  std::string target;  // as in QUILLON_LOG, without the path: "terminal", "file", "json", ...
  int level = 0;       // lowest priority written
  // Whether what an application prints is written whatever its priority.
  bool applicationOutput = false;
  int descriptor = -1;  // of the file or the terminal; -1 where the target has none
};

// This process's log. The descriptor stays the log's own: duplicate it, or send it on.
LogHandover currentLog();

// Replaces this process's log, for good. Takes the descriptor over, whatever the result. False
// where the target is unknown or cannot be used; the log is then as before.
//
// Any other thread may log meanwhile: its line goes to the old target or to the new one. NO_COLOR
// is read anew.
bool useLog(const LogHandover& handover);

}  // namespace quillon::workstation
