// Which process runs which package.
//
// One symbolic link for each process, "<data>/processes/<pid>", whose text is
// "<start time>:<package id>". A link is made and replaced whole, by one system call, and reads
// back whole, so any number of processes may note and look at once without a lock. Nothing waits
// for the disk: after a restart of the machine no process of before is left to be known.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "quillon/base/failure.h"

namespace quillon::workstation {

// Notes a living process.
[[nodiscard]] Expected<void> noteProcess(pid_t pid, const std::string& packageId);

// Takes the notes of processes away that have ended.
void forgetEndedProcesses();

// The package that a living process runs; empty when there is no note, or one of an earlier process
// with the same id.
[[nodiscard]] std::optional<std::string> packageOfProcess(pid_t pid);

}  // namespace quillon::workstation
