// A device root with zones, the command that runs them, and processes that enter them.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/zone.h"
#include "tests/device_root/inside.h"
#include "tests/support/recording_platform.h"

namespace quillon::test {

// The zone library as the plug-in loads it, in a process that is in a device root.
struct ZoneLibrary {
  ZoneLibrary();

  void* handle = nullptr;
  decltype(&zone_get_context) getContext = nullptr;
  decltype(&zone_enable_debug_mode) enableDebugMode = nullptr;
  decltype(&zone_attach_process) attachProcess = nullptr;
  decltype(&zone_release_context) releaseContext = nullptr;
};

// "mnt:[4026532180]" of a process, "self" included.
std::string namespaceOf(const std::string& process, const std::string& kind);

// Drops every capability of the calling process.
void dropCapabilities();

class ZoneTest : public DeviceRootTest {
 protected:
  ~ZoneTest() override;

  // quillon zone ARGUMENTS --device ROOT
  Outcome zone(const std::string& arguments);
  void start(const std::string& name = "appzone");

  // The holder's process id, as the state file says; -1 without one.
  pid_t holder(const std::string& name = "appzone");

  // Runs `body` in a process of its own in the device root, outside every zone. What it prints is
  // the output, what it returns the status.
  Outcome inDevice(const std::function<int()>& body);

  // Waits until the process is gone or a zombie.
  static bool ends(pid_t process);

  // What is left in the folders of states and zones.
  std::vector<std::string> leftovers();
};

}  // namespace quillon::test
