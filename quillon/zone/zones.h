// The zones of a device root: starting, stopping and listing them, from outside it.
//
// A zone is a mount, a UTS and an IPC namespace with the device root's view, in which there is no
// "/zone". A process that does nothing else, the holder, keeps them until the zone is stopped.
// While a zone runs, "/zone/NAME" exists for processes in the device root that are outside the
// zone; that is how they tell where they are.
//
// Whatever is killed while it starts or stops a zone: the next start or stop of that zone tidies
// up.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "quillon/base/exit_status.h"
#include "quillon/base/failure.h"

namespace quillon::zone {

// Starts the zone and returns its holder's process id once processes can enter it. Puts the zone
// library into the device root where it has none. The calling process must have one thread.
//
// visible  machine paths that processes in the zone see, as device::EnterOptions has them
[[nodiscard]] Expected<pid_t> start(const std::filesystem::path& device, const std::string& name,
                                    const std::vector<std::filesystem::path>& visible);

enum class Stopped { kRunning, kEndedBefore };

// Ends the zone's holder and takes "/zone/NAME" away. Processes in the zone go on; its namespaces
// end with the last of them. Says whether the holder was still running.
[[nodiscard]] Expected<Stopped> stop(const std::filesystem::path& device, const std::string& name);

struct Zone {
  std::string name;
  pid_t holder = -1;             // -1: not running
  std::vector<pid_t> processes;  // in the zone beside the holder, as far as the caller may see them
};

// Every zone that runs, or that ended without being stopped; by name.
[[nodiscard]] Expected<std::vector<Zone>> list(const std::filesystem::path& device);

}  // namespace quillon::zone
