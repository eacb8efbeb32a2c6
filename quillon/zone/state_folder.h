// The files about zones in a device root, accessed from outside it: the state files, and the
// folders by which processes outside a zone recognize that it runs.
#pragma once

#include <filesystem>
#include <set>
#include <string>

#include "quillon/base/descriptor.h"
#include "quillon/base/failure.h"
#include "workstation/zone_state.h"

namespace quillon::zone {

class StateFolder {
 public:
  // Creates the folder if it is missing, and waits for the lock. A child process inherits the lock,
  // which ends when the last process with its descriptor closes it.
  [[nodiscard]] static Expected<StateFolder> lock(const std::filesystem::path& device);
  // Opens the folder for reading only. Works if no zone was ever started.
  [[nodiscard]] static StateFolder view(const std::filesystem::path& device);

  // Returns the names of running zones and of zones that were not stopped.
  [[nodiscard]] std::set<std::string> names() const;
  [[nodiscard]] bool knows(const std::string& name) const;
  // Returns a descriptor (pidfd) of the zone's holder and stores its id in `pid`. Returns an
  // invalid descriptor if the holder does not run.
  [[nodiscard]] Descriptor openHolder(const std::string& name, pid_t& pid) const;

  // Creates "/zone/NAME".
  [[nodiscard]] Expected<void> show(const std::string& name) const;
  // Makes the calling process the holder of the zone, until it ends or closes the descriptor.
  [[nodiscard]] Expected<Descriptor> hold(const std::string& name) const;
  // Removes the state, then "/zone/NAME".
  [[nodiscard]] Expected<void> forget(const std::string& name) const;

  // Returns the descriptor of the folder.
  [[nodiscard]] int descriptor() const { return directory_.get(); }

 private:
  StateFolder(const std::filesystem::path& device, Descriptor directory);

  std::filesystem::path states_;
  std::filesystem::path zones_;
  Descriptor directory_;
  Descriptor lock_;
};

}  // namespace quillon::zone
