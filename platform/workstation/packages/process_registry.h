// The process registry: which process runs which package.
//
// Each process has a symbolic link "<data>/processes/<pid>" with the text
// "<start time>:<package id>", or "<start time>:<package id>/<application id>". One system call
// creates, replaces or reads a whole link, so any number of processes may write and read at once
// without a lock. Links are not synced to disk, because no process outlives a restart of the
// machine.
//
// registerProcess, forgetEndedProcesses and others are declared in workstation/packages.h,
// quillon_register_process in workstation/process_registration.h.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace quillon::workstation {

// Returns the package that a living process runs; nullopt if it is not registered, or if the record
// belongs to an earlier process with the same id.
[[nodiscard]] std::optional<std::string> packageOfProcess(pid_t pid);

}  // namespace quillon::workstation
