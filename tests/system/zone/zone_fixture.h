// A device root with zones, the zone command, and processes that enter zones.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/zone.h"
#include "tests/support/recording_platform.h"
#include "tests/system/device_root/inside.h"

namespace quillon::test {

// The zone library as the plug-in loads it, in a process inside a device root.
struct ZoneLibrary {
  ZoneLibrary();

  void* handle = nullptr;
  decltype(&zone_get_context) getContext = nullptr;
  decltype(&zone_enable_debug_mode) enableDebugMode = nullptr;
  decltype(&zone_attach_process) attachProcess = nullptr;
  decltype(&zone_release_context) releaseContext = nullptr;
};

// Returns the id of a namespace of a process or of "self", such as "mnt:[4026532180]".
std::string namespaceOf(const std::string& process, const std::string& kind);

// Drops every capability of the calling process.
void dropCapabilities();

class ZoneTest : public DeviceRootTest {
 protected:
  ~ZoneTest() override;

  // Runs `quillon zone ARGUMENTS --device ROOT`.
  Outcome zone(const std::string& arguments);
  void start(const std::string& name = "appzone");

  // Returns the holder's process id, or -1 if no process holds the zone.
  pid_t holder(const std::string& name = "appzone");

  // Runs `body` in a child process in the device root, outside all zones. Returns its output, and
  // its result as the status.
  Outcome inDevice(const std::function<int()>& body);

  // Waits until the process is gone or a zombie.
  static bool ends(pid_t process);

  // Returns the names in the folders of states and zones.
  std::vector<std::string> leftovers();
};

}  // namespace quillon::test
