// A running application zone of a device root.
#pragma once

#include <filesystem>
#include <string>

#include "tests/system/launch/sample_device.h"

namespace quillon::test {

// Starts the zone in the constructor and stops it in the destructor.
class RunningZone {
 public:
  explicit RunningZone(const std::filesystem::path& device)
      : device_(device), started_(zone("start")) {}
  ~RunningZone() { zone("stop"); }
  RunningZone(const RunningZone&) = delete;
  RunningZone& operator=(const RunningZone&) = delete;

  [[nodiscard]] const CommandResult& started() const { return started_; }
  // The id of the process that holds the zone; empty if it could not be started.
  [[nodiscard]] std::string holder() const {
    static constexpr char kBefore[] = "held by process ";
    const size_t at = started_.out.find(kBefore);
    if (at == std::string::npos) {
      return {};
    }
    const size_t from = at + sizeof kBefore - 1;
    return started_.out.substr(from, started_.out.find_first_not_of("0123456789", from) - from);
  }

 private:
  CommandResult zone(const std::string& action) const {
    return run({std::string(QUILLON_BUILD_DIRECTORY) + "/bin/quillon", "zone", action, "--device",
                device_, "appzone"});
  }

  std::filesystem::path device_;
  CommandResult started_;
};

}  // namespace quillon::test
