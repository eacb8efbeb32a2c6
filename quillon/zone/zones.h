// Starts, stops and lists the zones of a device root, from outside it.
//
// A zone is a mount, a UTS and an IPC namespace with the device root's view, but without "/zone". A
// process that does nothing else, the holder, keeps the namespaces alive until the zone is stopped.
// While a zone runs, processes in the device root but outside the zone see "/zone/NAME". So a
// process can determine whether it is inside or outside.
//
// If a process is killed while it starts or stops a zone, the next start or stop of that zone
// removes the remains.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "quillon/base/exit_status.h"
#include "quillon/base/failure.h"

namespace quillon::zone {

// Starts the zone. Returns its holder's process id when processes can enter the zone. Copies the
// zone library to the device root if it has none. The calling process must have one thread.
//
// visible  machine paths that processes in the zone see; see device::EnterOptions
[[nodiscard]] Expected<pid_t> start(const std::filesystem::path& device, const std::string& name,
                                    const std::vector<std::filesystem::path>& visible);

enum class Stopped { kRunning, kEndedBefore };

// Ends the zone's holder and removes "/zone/NAME". Processes in the zone continue to run; the
// kernel removes the namespaces when the last of them has ended. Returns whether the holder was
// running.
[[nodiscard]] Expected<Stopped> stop(const std::filesystem::path& device, const std::string& name);

struct Zone {
  std::string name;
  pid_t holder = -1;             // -1: not running
  std::vector<pid_t> processes;  // others in the zone, if the caller may see them
};

// Returns the zones that run or that ended without being stopped, sorted by name.
[[nodiscard]] Expected<std::vector<Zone>> list(const std::filesystem::path& device);

}  // namespace quillon::zone
