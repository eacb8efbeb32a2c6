// What a device root keeps about its zones, seen from outside it: the states, and the folders by
// which processes outside a zone know that it runs.
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
  // Makes the folder where it is missing, and waits until no other process holds it. The lock ends
  // with the last process that has it: a child that this one forks has it too.
  [[nodiscard]] static Expected<StateFolder> lock(const std::filesystem::path& device);
  // For reading only; works where nothing was ever started.
  [[nodiscard]] static StateFolder view(const std::filesystem::path& device);

  // Of running zones and of what others left behind.
  [[nodiscard]] std::set<std::string> names() const;
  [[nodiscard]] bool knows(const std::string& name) const;
  // A descriptor (pidfd) of the zone's holder, whose id goes to `pid`; none when it does not run.
  [[nodiscard]] Descriptor openHolder(const std::string& name, pid_t& pid) const;

  // Makes "/zone/NAME".
  [[nodiscard]] Expected<void> show(const std::string& name) const;
  // Writes that the calling process holds the zone.
  [[nodiscard]] Expected<void> write(const std::string& name) const;
  // Removes the state, then "/zone/NAME".
  [[nodiscard]] Expected<void> forget(const std::string& name) const;

  // The lock's descriptor.
  [[nodiscard]] int descriptor() const { return directory_.get(); }

 private:
  StateFolder(const std::filesystem::path& device, Descriptor directory);

  std::filesystem::path states_;
  std::filesystem::path zones_;
  Descriptor directory_;
};

}  // namespace quillon::zone
