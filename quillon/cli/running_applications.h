// The applications that run in a device root.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "quillon/base/descriptor.h"
#include "quillon/base/failure.h"

namespace quillon::cli {

struct RunningApplication {
  pid_t process = 0;
  Descriptor pidfd;
  std::string package;
  std::string id;
};

// Returns the applications that the records of the device root name, by their process ids. A
// process inside the device root can forge a record. So a process counts only if it has the
// recorded start time, and if it has entered this device root. Processes
// that the caller may not inspect (ptrace(2)) are left out.
//
// Call from outside of the device root.
[[nodiscard]] Expected<std::vector<RunningApplication>> runningApplications(
    const std::filesystem::path& device);

}  // namespace quillon::cli
