// A device root with a zone, and a record of what the code under test did in it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/support/recording_platform.h"
#include "tests/system/device_root/inside.h"

namespace quillon::test {

struct ZoneRun {
  bool returned = false;           // false if the code under test ended the process
  int status = -1;                 // exit status in that case
  std::vector<std::string> lines;  // log lines, "PRIORITY TEXT", without trace lines
  std::string lastOrigin;          // of the last line: unit, function, colour
  std::vector<std::string> calls;  // calls of the fake zone library
  bool libraryMapped = false;      // at the end of the process
  int descriptorsLeft = 0;         // open descriptors at the end minus those at the beginning
};

class ZoneTest : public DeviceRootTest {
 protected:
  // Copies a fake zone library without the function `without` into the device root. "NOTHING"
  // selects the complete library.
  void placeLibrary(const std::string& without);
  // Creates "/zone/appzone", so that a process in the device root is outside the zone.
  void showZone();

  // Runs `body` in a child process inside the device root. The package of the process declares
  // `privileges`.
  ZoneRun run(const std::function<void()>& body, const std::string& behaviour = "",
              const std::vector<std::string>& privileges = {});
};

}  // namespace quillon::test
