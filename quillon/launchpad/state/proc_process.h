// A process as "/proc" describes it (proc(5)).
//
// Every launch waits for this. So the folder is looked up once, and "status" is read once instead
// of one system call for each set of capabilities, each signal and so on.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

#include "quillon/base/descriptor.h"

namespace quillon::launchpad {

class ProcProcess {
 public:
  // Reads "status" of process `pid`; 0 means the calling process. Call before the process enters a
  // device root. If the process ends, later reads fail: they never reach another process that gets
  // the same id.
  explicit ProcProcess(pid_t pid);

  // As passed to the constructor.
  [[nodiscard]] pid_t pid() const { return pid_; }

  // The value of a line of "status", such as "SigIgn". Returns nullopt if the kernel writes no such
  // line. Valid as long as this object lives.
  [[nodiscard]] std::optional<std::string_view> status(std::string_view name) const;

  // The content of a file of the folder. Empty if it cannot be read.
  [[nodiscard]] std::string contentOf(const char* file) const;
  // The target of a short symbolic link of the folder. Empty if the calling process may not inspect
  // the process (PTRACE_MODE_READ in ptrace(2)).
  [[nodiscard]] std::string targetOf(const char* link) const;
  // The file that a link of the folder refers to. All fields are 0 if it cannot be read.
  [[nodiscard]] struct stat fileAt(const char* link) const;

 protected:
  [[nodiscard]] int folder() const { return folder_.get(); }

 private:
  pid_t pid_;
  Descriptor folder_;
  std::string status_;
};

}  // namespace quillon::launchpad
